#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "insights/drive_health_monitor.h"
#include "insights/hog_watch_scheduler.h"
#include "menu/menu_alerts.h"
#include "support/observable.h"
#include "support/wording.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// Gathers the facts the alert cards are raised from, from each owner as it publishes, and
// publishes the raised alerts. Main thread only.
class MenuAlertFeed {
public:
    struct Dependencies {
        BackupStatusModel& backup;
        SettingsStore& standardStore;
        HogWatchScheduler* hogWatch = nullptr;  // none where disk insights do not run
        DriveHealthMonitor* driveHealth = nullptr;
        // Free space of the home volume, read at each update.
        std::function<std::optional<std::int64_t>()> freeBytes;
    };

    explicit MenuAlertFeed(Dependencies dependencies);
    ~MenuAlertFeed();
    MenuAlertFeed(const MenuAlertFeed&) = delete;
    MenuAlertFeed& operator=(const MenuAlertFeed&) = delete;

    // In the order raised; MenuAlerts::split orders them for the menu.
    Observable<std::vector<MenuAlert>> alerts;

    // Reads every fact again (the menu calls this as it opens: free space moves on its own).
    void update();

    // The settings reader is made after start-up, so its answer is handed in.
    void setSettingsReadable(std::optional<bool> readable);
    // Where the network shares will report that Local Network access was refused.
    void setLocalNetworkRefused(bool refused);

    // The unscheduled card's button.
    void turnOnNightlyBackup();
    // The fast-growing folder card's "This is expected".
    void quiet(const std::string& folder);

    MenuAlertFacts facts() const;
    // How the cards say their texts: the Linux wording, with the active backup source's name.
    Wording wording() const;
    // What the owners in `d` say now, without following them: for a one-shot report. The
    // settings' readability and Local Network are left unknown.
    static MenuAlertFacts collect(const Dependencies& d);

private:
    struct Subscriptions;

    Dependencies d_;
    std::optional<bool> settingsReadable_;
    bool localNetworkRefused_ = false;
    std::unique_ptr<Subscriptions> subscriptions_;
};

}  // namespace kestrow
