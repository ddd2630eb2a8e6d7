#pragma once

#include <optional>
#include <string>

#include "app/settings/settings_store.h"
#include "platform/widgets.h"
#include "support/logger.h"
#include "timemachine/preferences.h"

namespace kestrow {

// The Time Machine snapshot in the shared store, and the live facts kept beside it. Every write
// that would not change what is stored is skipped, so whatever shows Kestrow's status outside
// the app is told to reload only on a real change. Main thread only.
class SharedPreferences {
public:
    static constexpr const char* kWidgetKind = "OrvelWidget";

    SharedPreferences(SettingsStore& shared, WidgetHost& widgets, Logger log);

    // Overlays the live facts stored now, then writes the record under "preferences".
    bool store(Preferences preferences);
    std::optional<Preferences> load();
    // No readable settings: the snapshot goes, and the widgets are told.
    void remove();
    // Loads the snapshot and stores it again, so that its copy of the live facts and of the
    // threshold follows the store; nothing when there is no snapshot.
    void restore();

    // Writes "protectedThresholdHours" (nothing removes it: the default applies) and, on a
    // change, stores the snapshot again at once. True when the stored value changed; the caller
    // re-evaluates protection then.
    bool setProtectedThresholdHours(std::optional<double> hours);

    // Compare-and-write of a live fact; on a change the snapshot is stored again so its copy of
    // the fact follows at once.
    void recordReachability(std::optional<bool> reachable);
    void recordVolumeAttached(std::optional<bool> attached);
    // Compare-and-write only; true when the stored value changed. The caller stores the snapshot
    // again when it needs to.
    bool setBackupRunning(std::optional<bool> running);
    bool setFailureReasonReadable(std::optional<bool> readable);

    // The reason remembered for `attempt` (within a second of it), if any.
    std::optional<std::string> storedFailureReason(WallTime attempt) const;
    void storeFailureReason(const std::string& reason, WallTime attempt);

    SettingsStore& store() const { return shared_; }

private:
    void recordAndRestore(std::string_view key, std::optional<bool> value);

    SettingsStore& shared_;
    WidgetHost& widgets_;
    Logger log_;
    // The snapshot is loaded on every refresh, once a minute: whether it is there is said once
    // and again only when that changes.
    OnceLog loadNote_;
};

}  // namespace kestrow
