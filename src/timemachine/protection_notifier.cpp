#include "timemachine/protection_notifier.h"

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"

namespace kestrow {

namespace {

std::string titleFor(const std::string& category) {
    if (category == "ok") return "Backed up again";
    if (category == "stale") return "Backups are falling behind";
    return "Backup destination unavailable";
}

}  // namespace

ProtectionNotifier::ProtectionNotifier(SettingsStore& standardStore,
                                       UserNotifications& notifications, Logger log)
    : standardStore_(standardStore), notifications_(notifications), log_(log) {}

std::optional<std::string> ProtectionNotifier::category(ProtectionState state) {
    switch (state) {
        case ProtectionState::aging:
        case ProtectionState::protected_:
            return "ok";
        case ProtectionState::stale:
            return "stale";
        case ProtectionState::unavailable:
            return "unavailable";
        case ProtectionState::unknown:
            break;
    }
    return std::nullopt;
}

void ProtectionNotifier::handle(const ProtectionVerdict& verdict) {
    // "Unknown" says nothing about the backups, so it neither notifies nor moves the memory: the
    // next real verdict is compared with the last real one.
    const auto next = category(verdict.state);
    if (!next) return;

    const StandardSettings settings(standardStore_);
    const auto previous = settings.lastNotifiedProtectionCategory();
    if (previous == next) return;

    // A change that cannot be remembered would be announced again on every evaluation.
    if (standardStore_.set(keys::lastNotifiedProtectionCategory, *next) == StoreWrite::failed) {
        return;
    }

    const bool notify = previous && settings.notificationsEnabled();
    if (previous) {
        log_.info("Backup protection went from {} to {}{}", *previous, *next,
                  notify ? "; notifying" : "");
    } else {
        log_.info("Backup protection is {}", *next);
    }
    if (!notify) return;

    const std::string body = verdict.reasons.empty()
                                 ? std::string(protectionStateText(verdict.state))
                                 : verdict.reasons.front();
    notifications_.post(kIdentifier, titleFor(*next), body);
}

}  // namespace kestrow
