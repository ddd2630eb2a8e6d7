#include "timemachine/shared_preferences.h"

#include <cmath>

#include "app/settings/settings_keys.h"

namespace kestrow {

SharedPreferences::SharedPreferences(SettingsStore& shared, WidgetHost& widgets, Logger log)
    : shared_(shared), widgets_(widgets), log_(log) {}

bool SharedPreferences::store(Preferences preferences) {
    preferences.protectedThresholdHours = shared_.realValue(keys::protectedThresholdHours);
    preferences.destinationReachable = shared_.boolValue(keys::destinationReachable);
    preferences.backupVolumeAttached = shared_.boolValue(keys::backupVolumeAttached);
    preferences.backupRunning = shared_.boolValue(keys::backupRunning);
    preferences.failureReasonReadable = shared_.boolValue(keys::failureReasonReadable);
    const std::string json = preferences.toJson();
    if (shared_.set(keys::preferences, PlistData(json.begin(), json.end())) == StoreWrite::failed) {
        log_.error("Failed storing preferences: {}", shared_.file().string());
        return false;
    }
    widgets_.reloadTimelines(kWidgetKind);
    log_.info("Preferences stored");
    return true;
}

std::optional<Preferences> SharedPreferences::load() {
    const auto data = shared_.dataValue(keys::preferences);
    if (!data) {
        log_.once(loadNote_, LogLevel::info, "Preferences not available");
        return std::nullopt;
    }
    std::string error;
    auto preferences = Preferences::fromJson(
        std::string_view(reinterpret_cast<const char*>(data->data()), data->size()), &error);
    if (!preferences) {
        log_.once(loadNote_, LogLevel::error, "Failed loading preferences: " + error);
        return std::nullopt;
    }
    log_.once(loadNote_, LogLevel::debug, "Preferences loaded");
    return preferences;
}

void SharedPreferences::remove() {
    shared_.remove(keys::preferences);
    widgets_.reloadTimelines(kWidgetKind);
}

void SharedPreferences::restore() {
    if (auto snapshot = load()) store(std::move(*snapshot));
}

void SharedPreferences::recordAndRestore(std::string_view key, std::optional<bool> value) {
    if (shared_.boolValue(key) == value) return;
    shared_.setOptionalBool(key, value);
    restore();
}

bool SharedPreferences::setProtectedThresholdHours(std::optional<double> hours) {
    const StoreWrite write = hours ? shared_.set(keys::protectedThresholdHours, *hours)
                                   : shared_.remove(keys::protectedThresholdHours);
    if (write != StoreWrite::changed) return false;
    restore();
    return true;
}

void SharedPreferences::recordReachability(std::optional<bool> reachable) {
    recordAndRestore(keys::destinationReachable, reachable);
}

void SharedPreferences::recordVolumeAttached(std::optional<bool> attached) {
    recordAndRestore(keys::backupVolumeAttached, attached);
}

bool SharedPreferences::setBackupRunning(std::optional<bool> running) {
    return shared_.setOptionalBool(keys::backupRunning, running) == StoreWrite::changed;
}

bool SharedPreferences::setFailureReasonReadable(std::optional<bool> readable) {
    return shared_.setOptionalBool(keys::failureReasonReadable, readable) == StoreWrite::changed;
}

std::optional<std::string> SharedPreferences::storedFailureReason(WallTime attempt) const {
    const auto storedAttempt = shared_.dateValue(keys::lastFailureReasonAttempt);
    if (!storedAttempt || std::abs(secondsBetween(*storedAttempt, attempt)) >= 1.0)
        return std::nullopt;
    return shared_.stringValue(keys::lastFailureReason);
}

void SharedPreferences::storeFailureReason(const std::string& reason, WallTime attempt) {
    shared_.set(keys::lastFailureReason, reason);
    shared_.set(keys::lastFailureReasonAttempt, attempt);
}

}  // namespace kestrow
