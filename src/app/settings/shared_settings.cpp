#include "app/settings/shared_settings.h"

#include "app/settings/settings_keys.h"

namespace kestrow {

std::optional<PlistData> SharedSettings::preferencesData() const {
    return store_.dataValue(keys::preferences);
}

double SharedSettings::protectedThresholdHours() const {
    const auto stored = store_.realValue(keys::protectedThresholdHours);
    return stored && *stored > 0.0 ? *stored : 24.0;
}

std::optional<bool> SharedSettings::destinationReachable() const {
    return store_.boolValue(keys::destinationReachable);
}

std::optional<bool> SharedSettings::backupVolumeAttached() const {
    return store_.boolValue(keys::backupVolumeAttached);
}

std::optional<bool> SharedSettings::backupRunning() const {
    return store_.boolValue(keys::backupRunning);
}

std::optional<bool> SharedSettings::failureReasonReadable() const {
    return store_.boolValue(keys::failureReasonReadable);
}

std::optional<std::string> SharedSettings::lastFailureReason() const {
    return store_.stringValue(keys::lastFailureReason);
}

std::optional<WallTime> SharedSettings::lastFailureReasonAttempt() const {
    return store_.dateValue(keys::lastFailureReasonAttempt);
}

}  // namespace kestrow
