#include "app/settings/standard_settings.h"

#include "app/settings/settings_keys.h"

namespace kestrow {

std::map<std::string, std::int64_t> StandardSettings::integerEntries(
    const std::optional<PlistDict>& dict) {
    std::map<std::string, std::int64_t> out;
    if (!dict) return out;
    for (const auto& [key, value] : *dict) {
        if (const auto* i = value.asInteger()) out.emplace(key, *i);
    }
    return out;
}

std::map<std::string, WallTime> StandardSettings::dateEntries(
    const std::optional<PlistDict>& dict) {
    std::map<std::string, WallTime> out;
    if (!dict) return out;
    for (const auto& [key, value] : *dict) {
        if (const auto* d = value.asDate()) out.emplace(key, *d);
    }
    return out;
}

std::vector<std::string> StandardSettings::stringElements(const std::optional<PlistArray>& array) {
    std::vector<std::string> out;
    if (!array) return out;
    for (const auto& value : *array) {
        if (const auto* s = value.asString()) out.push_back(*s);
    }
    return out;
}

bool StandardSettings::notificationsEnabled() const {
    return store_.boolValue(keys::notificationsEnabled).value_or(true);
}

std::optional<std::string> StandardSettings::lastNotifiedProtectionCategory() const {
    const auto stored = store_.stringValue(keys::lastNotifiedProtectionCategory);
    if (!stored) return std::nullopt;
    if (*stored == "attention") return "ok";
    if (*stored == "ok" || *stored == "unavailable" || *stored == "stale") return stored;
    return std::nullopt;
}

bool StandardSettings::didAutoEnableStartAtLaunch() const {
    return store_.boolValue(keys::didAutoEnableStartAtLaunch).value_or(false);
}

bool StandardSettings::hideIconWhenProtected() const {
    return store_.boolValue(keys::hideIconWhenProtected).value_or(false);
}

double StandardSettings::hideIconDelaySeconds() const {
    const auto stored = store_.realValue(keys::hideIconDelaySeconds);
    return stored && *stored > 0.0 && *stored <= 5.0 ? *stored : 1.0;
}

std::optional<std::string> StandardSettings::menuBarSymbolName() const {
    return store_.stringValue(keys::menuBarSymbolName);
}

std::optional<std::string> StandardSettings::menuBarAttentionSymbolName() const {
    return store_.stringValue(keys::menuBarAttentionSymbolName);
}

bool StandardSettings::nightlyBackupEnabled() const {
    return store_.boolValue(keys::nightlyBackupEnabled).value_or(false);
}

int StandardSettings::nightlyBackupStartHour() const {
    const auto stored = store_.integerValue(keys::nightlyBackupStartHour);
    return stored && *stored >= 1 && *stored <= 4 ? static_cast<int>(*stored) : 3;
}

std::optional<WallTime> StandardSettings::nightlyBackupLastStart() const {
    return store_.dateValue(keys::nightlyBackupLastStart);
}

bool StandardSettings::keepAwakeDuringBackup() const {
    return store_.boolValue(keys::keepAwakeDuringBackup).value_or(true);
}

bool StandardSettings::caffeineEnabled() const {
    return store_.boolValue(keys::caffeineEnabled).value_or(false);
}

bool StandardSettings::hogWatchEnabled() const {
    return store_.boolValue(keys::hogWatchEnabled).value_or(true);
}

std::map<std::string, std::int64_t> StandardSettings::hogWatchDismissed() const {
    return integerEntries(store_.dictValue(keys::hogWatchDismissed));
}

std::vector<std::string> StandardSettings::duplicateFinderFolders() const {
    return stringElements(store_.arrayValue(keys::duplicateFinderFolders));
}

bool StandardSettings::browserReclaimEnabled() const {
    return store_.boolValue(keys::browserReclaimEnabled).value_or(false);
}

std::map<std::string, WallTime> StandardSettings::browserReclaimLastRuns() const {
    return dateEntries(store_.dictValue(keys::browserReclaimLastRuns));
}

std::map<std::string, std::int64_t> StandardSettings::browserReclaimLastFreed() const {
    return integerEntries(store_.dictValue(keys::browserReclaimLastFreed));
}

std::vector<std::string> StandardSettings::browserReclaimBlocked() const {
    return stringElements(store_.arrayValue(keys::browserReclaimBlocked));
}

bool StandardSettings::maintenanceEnabled(std::string_view cleanerID) const {
    return store_.boolValue(keys::maintenanceEnabled(cleanerID)).value_or(false);
}

std::map<std::string, WallTime> StandardSettings::maintenanceLastRuns() const {
    return dateEntries(store_.dictValue(keys::maintenanceLastRuns));
}

std::map<std::string, std::int64_t> StandardSettings::maintenanceLastFreed() const {
    return integerEntries(store_.dictValue(keys::maintenanceLastFreed));
}

std::optional<WallTime> StandardSettings::batteryLidSleepDuringBackup() const {
    return store_.dateValue(keys::batteryLidSleepDuringBackup);
}

bool StandardSettings::adoptedPreUpdateMounts() const {
    return store_.boolValue(keys::adoptedPreUpdateMounts).value_or(false);
}

PlistData StandardSettings::ownedMounts() const {
    return store_.dataValue(keys::ownedMounts).value_or(PlistData{});
}

void StandardSettings::setDidAutoEnableStartAtLaunch(bool value) {
    store_.set(keys::didAutoEnableStartAtLaunch, value);
}

void StandardSettings::setNightlyBackupEnabled(bool value) {
    store_.set(keys::nightlyBackupEnabled, value);
}

}  // namespace kestrow
