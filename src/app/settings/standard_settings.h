#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_store.h"

namespace kestrow {

// Typed reads of the standard store. Every default and range rule is applied here, at the moment
// of reading, and nothing is ever registered: a value of the wrong type or out of range reads as
// the default, so a hand-edited file can never put the app in a state it does not know.
class StandardSettings {
public:
    explicit StandardSettings(SettingsStore& store) : store_(store) {}

    bool notificationsEnabled() const;
    // "ok", "unavailable" or "stale"; the older "attention" reads as "ok"; anything else as absent.
    std::optional<std::string> lastNotifiedProtectionCategory() const;
    bool didAutoEnableStartAtLaunch() const;
    bool hideIconWhenProtected() const;
    double hideIconDelaySeconds() const;
    std::optional<std::string> menuBarSymbolName() const;
    std::optional<std::string> menuBarAttentionSymbolName() const;
    bool nightlyBackupEnabled() const;
    int nightlyBackupStartHour() const;
    std::optional<WallTime> nightlyBackupLastStart() const;
    bool keepAwakeDuringBackup() const;
    bool caffeineEnabled() const;
    bool hogWatchEnabled() const;
    std::map<std::string, std::int64_t> hogWatchDismissed() const;
    std::vector<std::string> duplicateFinderFolders() const;
    bool browserReclaimEnabled() const;
    std::map<std::string, WallTime> browserReclaimLastRuns() const;
    std::map<std::string, std::int64_t> browserReclaimLastFreed() const;
    std::vector<std::string> browserReclaimBlocked() const;
    bool maintenanceEnabled(std::string_view cleanerID) const;
    std::map<std::string, WallTime> maintenanceLastRuns() const;
    std::map<std::string, std::int64_t> maintenanceLastFreed() const;
    std::optional<WallTime> batteryLidSleepDuringBackup() const;
    bool adoptedPreUpdateMounts() const;
    // The mount ledger's raw JSON; empty when absent.
    PlistData ownedMounts() const;

    void setDidAutoEnableStartAtLaunch(bool value);
    void setNightlyBackupEnabled(bool value);

    SettingsStore& store() const { return store_; }

    // Entry filters shared with the other typed readers: entries of the wrong type are dropped.
    static std::map<std::string, std::int64_t> integerEntries(const std::optional<PlistDict>& dict);
    static std::map<std::string, WallTime> dateEntries(const std::optional<PlistDict>& dict);
    static std::vector<std::string> stringElements(const std::optional<PlistArray>& array);

private:
    SettingsStore& store_;
};

}  // namespace kestrow
