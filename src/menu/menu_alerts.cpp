#include "menu/menu_alerts.h"

#include <algorithm>
#include <array>

#include "support/ascii_case.h"

namespace kestrow {
namespace {

void raiseForDisk(std::vector<MenuAlert>& raised, const DriveHealth::Status& status,
                  bool bootDisk) {
    const auto* failing = std::get_if<DriveHealth::Failing>(&status.value);
    if (failing == nullptr) return;
    if (bootDisk) {
        raised.push_back({{MenuAlertKind::BootDisk{failing->text}}, {}});
    } else {
        raised.push_back({{MenuAlertKind::BackupDisk{failing->text}}, {}});
    }
}

}  // namespace

std::vector<MenuAlert> MenuAlerts::raise(const MenuAlertFacts& facts) {
    using K = MenuAlertKind;
    std::vector<MenuAlert> raised;
    if (facts.settingsReadable == false) raised.push_back({{K::SettingsAccess{}}, {}});
    if (facts.localNetworkRefused) raised.push_back({{K::LocalNetwork{}}, {}});
    if (facts.driveHealth) {
        raiseForDisk(raised, facts.driveHealth->first, true);
        if (facts.driveHealth->second) raiseForDisk(raised, *facts.driveHealth->second, false);
    }
    if (facts.destination) {
        if (facts.lastAttemptFailed && facts.failureReason && saysOutOfRoom(*facts.failureReason))
            raised.push_back({{K::BackupOutOfSpace{}}, {}});
        // An unknown schedule is not a missing one.
        if (facts.automaticBackups == false && !facts.nightlyBackupEnabled)
            raised.push_back({{K::Unscheduled{}}, {}});
    }
    // A folder's growth is only worth the top of the menu when it is filling the disk; without
    // an estimate the disk section still lists it.
    if (facts.daysUntilFull) {
        for (const HogAlert& hog : facts.hogs)
            raised.push_back({{K::Hog{*facts.daysUntilFull}}, hog.path});
    }
    const bool lowNow = facts.freeBytes && *facts.freeBytes < kLowSpaceBytes;
    const bool lowSoon = facts.daysUntilFull && *facts.daysUntilFull < kLowSpaceDays;
    if (lowNow || lowSoon) raised.push_back({{K::Space{}}, {}});
    if (facts.destination && backupDiskFull(*facts.destination))
        raised.push_back({{K::Retention{}}, {}});
    return raised;
}

bool MenuAlerts::saysOutOfRoom(std::string_view reason) {
    const std::string lower = asciiLowercase(reason);
    static constexpr std::array<std::string_view, 7> kPhrases{
        "not enough space", "not enough room", "out of space",      "ran out of room",
        "disk is full",     "no space left",   "insufficient space"};
    return std::any_of(kPhrases.begin(), kPhrases.end(), [&lower](std::string_view phrase) {
        return lower.find(phrase) != std::string::npos;
    });
}

bool MenuAlerts::backupDiskFull(const Destination& destination) {
    // Both counts are zero when the settings do not give them, which says nothing.
    if (destination.bytesUsed <= 0 || destination.bytesAvailable < 0) return false;
    const double total = static_cast<double>(destination.bytesAvailable) +
                         static_cast<double>(destination.bytesUsed);
    return static_cast<double>(destination.bytesAvailable) < kFullBackupDiskShare * total;
}

std::vector<MenuAlertKind> MenuAlerts::kinds(const std::vector<MenuAlert>& alerts) {
    std::vector<MenuAlertKind> result;
    result.reserve(alerts.size());
    for (const MenuAlert& alert : alerts) result.push_back(alert.kind);
    return result;
}

std::vector<MenuAlert> MenuAlerts::ordered(const std::vector<MenuAlert>& alerts) {
    std::vector<MenuAlert> result;
    result.reserve(alerts.size());
    for (std::size_t position : MenuAlertOrder::positions(kinds(alerts)))
        result.push_back(alerts[position]);
    return result;
}

MenuAlerts::Split MenuAlerts::split(const std::vector<MenuAlert>& alerts, bool showAll) {
    Split result;
    result.shown = ordered(alerts);
    MenuAlertOrder::collapse(result.shown, result.hidden, showAll);
    return result;
}

}  // namespace kestrow
