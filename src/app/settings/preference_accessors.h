#pragma once

#include "app/settings/standard_settings.h"

namespace kestrow {

// The small stateless accessors through which each subsystem reads its own switch where it uses
// it, rather than caching it.
struct NotificationPreference {
    static bool isEnabled(SettingsStore& standard) {
        return StandardSettings(standard).notificationsEnabled();
    }
};

struct KeepAwakePreference {
    // The menu's "auto" switch: keep awake while a backup runs.
    static bool isAuto(SettingsStore& standard) {
        return StandardSettings(standard).keepAwakeDuringBackup();
    }
};

struct CaffeinePreference {
    static bool enabled(SettingsStore& standard) {
        return StandardSettings(standard).caffeineEnabled();
    }
};

struct HogWatchPreference {
    static bool isEnabled(SettingsStore& standard) {
        return StandardSettings(standard).hogWatchEnabled();
    }
};

struct BrowserReclaimPreference {
    static bool enabled(SettingsStore& standard) {
        return StandardSettings(standard).browserReclaimEnabled();
    }
};

}  // namespace kestrow
