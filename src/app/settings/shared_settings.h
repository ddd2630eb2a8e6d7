#pragma once

#include <optional>
#include <string>

#include "app/settings/settings_store.h"

namespace kestrow {

// Typed reads of the shared store: the Time Machine snapshot and the live facts that whatever
// shows Kestrow's status outside the app reads beside it. The snapshot's own operations (store,
// load, the compare-and-write of the live facts) build on these.
class SharedSettings {
public:
    explicit SharedSettings(SettingsStore& store) : store_(store) {}

    // The stored snapshot's JSON, when there is one.
    std::optional<PlistData> preferencesData() const;
    // Hours below which the last backup counts as protected: the stored value when above zero.
    double protectedThresholdHours() const;
    std::optional<bool> destinationReachable() const;
    std::optional<bool> backupVolumeAttached() const;
    std::optional<bool> backupRunning() const;
    std::optional<bool> failureReasonReadable() const;
    std::optional<std::string> lastFailureReason() const;
    std::optional<WallTime> lastFailureReasonAttempt() const;

    SettingsStore& store() const { return store_; }

private:
    SettingsStore& store_;
};

}  // namespace kestrow
