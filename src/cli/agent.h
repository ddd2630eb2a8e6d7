#pragma once

#include <QObject>

#include <array>
#include <filesystem>
#include <memory>

#include "app/app_delegate.h"
#include "app/first_run_steps.h"
#include "app/placeholder_service.h"
#include "app/settings/settings_store.h"
#include "app/stale_widget_check.h"
#include "cli/backup_stack.h"
#include "cli/cleaner_stack.h"
#include "cli/insights_stack.h"
#include "cli/share_stack.h"
#include "menu/menu_alert_feed.h"
#include "menu/menu_alert_text.h"
#include "menu/menu_bar_state.h"
#include "menu/restic_job_form.h"
#include "platform/linux/freedesktop_notifications.h"
#include "platform/linux/linux_widget_host.h"
#include "platform/linux/qt_keychain_secret_store.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"
#include "platform/linux/xdg_autostart_login_items.h"
#include "platform/locations.h"
#include "timemachine/backup_monitoring.h"
#include "timemachine/protection_notifier.h"
#include "timemachine/protection_refresh.h"

namespace kestrow {

class MenuWindow;
class UiShell;

// The composition root: every long-lived part of the running agent, created in dependency order
// and handed to the app delegate. Destroyed in reverse order after the stop sequence has run.
class Agent {
public:
    struct Options {
        bool demo = false;
        bool launchedAsLogInItem = false;
        bool withDisplay = false;
        bool findDuplicates = false;  // open the duplicate finder and scan, once launched
        std::filesystem::path executable;
    };

    Agent(Options options, EnvironmentLookup environment, LogSink& sink);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    AppDelegate& delegate() { return *delegate_; }
    AppShell& shell() { return *shell_; }
    // Opens the menu at start when the desktop has no tray to put the icon in.
    void showMenuWhenNoTray();
    // Starts a duplicate scan: in the duplicate finder's window with a display, else in the
    // background with its outcome logged.
    void findDuplicates();
    // Part of stopping: asks every long piece of work on a worker to end now, so that the workers
    // can be joined.
    void cancelWork();

private:
    std::unique_ptr<PreferencesFileHandle> makePreferencesFile();
    void followVerdict(const ProtectionVerdict& verdict);
    void followStartAtLogin(MenuWindow& menuWindow);
    void showDuplicates();
    FirstRunFacts firstRunFacts();
    // The backup destinations' network URLs, for telling a backup's share from the user's.
    std::optional<std::vector<std::string>> backupDestinationURLs();
    // What "Add backup…" starts from.
    ResticJobForm newJobForm() const;
    void perform(StepAction action);
    void act(MenuAlertAction action, const MenuAlert& alert);

    Options options_;
    EnvironmentLookup environment_;
    Logger log_;
    UserLocations locations_;
    SystemClock clock_;
    QtMainExecutor mainExecutor_;
    SettingsStore standardStore_;
    SettingsStore sharedStore_;
    XdgAutostartLoginItems loginItems_;
    FreedesktopNotifications notifications_;
    LinuxWidgetHost widgetHost_;
    StaleWidgetCheck staleWidgetCheck_;
    MenuBarState menu_;
    ProtectionNotifier notifier_;
    QtKeychainSecretStore keyring_;
    BackupStack backup_;
    ShareStack shares_;
    ProtectionRefresh protectionRefresh_;
    BackupMonitoring backupMonitoring_;
    CleanerStack cleaners_;
    InsightsStack insights_;
    MenuAlertFeed alerts_;
    Signal<>::Connection settingsRead_;
    Signal<ProtectionVerdict>::Connection verdictFollower_;
    static constexpr std::size_t kPlaceholderCount = 3;  // the services not built yet
    std::array<std::unique_ptr<PlaceholderService>, kPlaceholderCount> placeholders_;
    UiShell* uiShell_ = nullptr;
    std::unique_ptr<QWidget> duplicatesWindow_;
    Signal<bool>::Connection duplicatesOutcome_;
    std::unique_ptr<AppShell> shell_;
    std::unique_ptr<AppDelegate> delegate_;
    bool accessAsked_ = false;
};

}  // namespace kestrow
