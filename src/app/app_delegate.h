#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "app/app_services.h"
#include "app/app_shell.h"
#include "app/preferences_file_handle.h"
#include "app/settings/settings_store.h"
#include "app/stale_widget_check.h"
#include "menu/menu_bar_state.h"
#include "platform/login_items.h"
#include "platform/notifications.h"
#include "support/clock.h"
#include "support/environment.h"
#include "support/executor.h"
#include "support/logger.h"

namespace kestrow {

// The previews flag: "XCODE_RUNNING_FOR_PREVIEWS" = "1" suppresses every piece of start-up work.
bool isRunningPreviews(const EnvironmentLookup& environment);

// Decides what starts at launch and in which order, what happens when the user opens the app
// again while it runs, and what stops at quit. Everything it touches is handed in, so the
// orders are tested with recording stubs. Main thread only.
class AppDelegate {
public:
    struct Dependencies {
        EnvironmentLookup environment;
        bool launchedAsLogInItem = false;
        bool demo = false;
        Clock& clock;
        Executor& mainExecutor;
        SettingsStore& standardStore;
        LoginItems& loginItems;
        UserNotifications& notifications;
        StaleWidgetCheck& staleWidgetCheck;
        PreferencesFileFactory makePreferencesFile;
        AppServices services;
        Service& wakeObserver;
        AppShell& shell;
        MenuBarState& menu;
        Logger log;
        // False for the demo and for a binary that is not installed (a build folder's): the
        // first launch then leaves start at login alone, and leaves the once-only flag unset so
        // that the installed agent still gets its first launch.
        bool mayEnableStartAtLaunch = true;
        // Where backups come from another way than Time Machine (Linux): whether none is set up
        // yet. The first-run window then opens at launch for that, not for the Time Machine
        // settings' access. None: the access rule.
        std::function<bool()> backupNeedsSetup{};
    };

    explicit AppDelegate(Dependencies dependencies);

    void applicationDidFinishLaunching();
    // Always true: reopening is always handled here. The icon comes back and stays until the
    // verdict changes, and the menu opens, so the app is reachable even without a tray.
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void applicationWillTerminate();

    void showWindow();
    // Safe from any thread: hops to the main executor.
    void updateStatusIcon(bool hasError);

    bool isRunningPreviews() const;
    bool launchedAsLogInItem() const { return d_.launchedAsLogInItem; }
    PreferencesFileHandle* preferenceFile() const { return preferenceFile_.get(); }

private:
    Dependencies d_;
    std::unique_ptr<PreferencesFileHandle> preferenceFile_;
};

}  // namespace kestrow
