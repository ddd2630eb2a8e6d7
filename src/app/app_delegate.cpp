#include "app/app_delegate.h"

#include "app/settings/standard_settings.h"
#include "app/start_at_launch.h"

namespace kestrow {

AppDelegate::AppDelegate(Dependencies dependencies) : d_(std::move(dependencies)) {}

bool isRunningPreviews(const EnvironmentLookup& environment) {
    return environment && environment("XCODE_RUNNING_FOR_PREVIEWS") == "1";
}

bool AppDelegate::isRunningPreviews() const {
    return kestrow::isRunningPreviews(d_.environment);
}

void AppDelegate::applicationDidFinishLaunching() {
    if (isRunningPreviews()) return;

    d_.staleWidgetCheck.run(d_.clock.now());

    if (!d_.demo && d_.makePreferencesFile) preferenceFile_ = d_.makePreferencesFile();

    StandardSettings settings(d_.standardStore);
    if (d_.mayEnableStartAtLaunch && !settings.didAutoEnableStartAtLaunch()) {
        // Recorded before registering, so this happens once in the app's life even if the
        // registration fails, and a user who later turns start-at-launch off is never overruled.
        settings.setDidAutoEnableStartAtLaunch(true);
        StartAtLaunch startAtLaunch(d_.loginItems, d_.log);
        if (!startAtLaunch.enabled()) startAtLaunch.setEnabled(true);
    }

    for (Service& service : d_.services.startOrder()) service.start();

    if (settings.notificationsEnabled()) {
        d_.notifications.requestAuthorization([log = d_.log](bool granted) {
            if (!granted) log.info("Notifications are not available; no alerts will be shown");
        });
    }

    d_.wakeObserver.start();

    if (d_.launchedAsLogInItem) return;
    const bool needed = d_.backupNeedsSetup ? d_.backupNeedsSetup()
                                            : preferenceFile_ && !preferenceFile_->hasAccess();
    if (needed) d_.shell.showFirstRunWindow();
}

bool AppDelegate::applicationShouldHandleReopen(bool hasVisibleWindows) {
    d_.shell.showStatusItem();
    d_.menu.holdIconVisible();
    if (!hasVisibleWindows) showWindow();
    d_.shell.showMenu();
    if (preferenceFile_ && !preferenceFile_->demo() && !preferenceFile_->hasAccess()) {
        preferenceFile_->recheckAccess();
    }
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (isRunningPreviews()) return;  // nothing was started
    d_.services.keepAwake.stop();
    d_.services.caffeine.stop();
    d_.services.shareMonitoring.stop();
    d_.wakeObserver.stop();
}

void AppDelegate::showWindow() {
    d_.shell.showFirstRunWindow();
}

void AppDelegate::updateStatusIcon(bool hasError) {
    d_.mainExecutor.post([menu = &d_.menu, hasError] { menu->setIconHasError(hasError); });
}

}  // namespace kestrow
