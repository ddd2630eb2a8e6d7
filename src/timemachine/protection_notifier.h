#pragma once

#include <optional>
#include <string>

#include "app/settings/settings_store.h"
#include "platform/notifications.h"
#include "support/logger.h"
#include "timemachine/protection_state.h"

namespace kestrow {

// Tells the user when the backup verdict moves between "ok", "stale" and "unavailable". One
// notification per change of category, never on the first verdict after installation; the last
// category is remembered in the standard store, so restarts do not repeat a notification.
class ProtectionNotifier {
public:
    static constexpr const char* kIdentifier = "protection-transition";

    ProtectionNotifier(SettingsStore& standardStore, UserNotifications& notifications, Logger log);

    // "ok" for aging and protected, "stale", "unavailable"; nothing for unknown.
    static std::optional<std::string> category(ProtectionState state);

    void handle(const ProtectionVerdict& verdict);

private:
    SettingsStore& standardStore_;
    UserNotifications& notifications_;
    Logger log_;
};

}  // namespace kestrow
