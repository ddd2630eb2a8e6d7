#pragma once

#include <QDBusConnection>

#include <memory>
#include <stop_token>

#include "app/settings/settings_store.h"
#include "insights/drive_health_monitor.h"
#include "insights/duplicates_model.h"
#include "insights/hog_watch_scheduler.h"
#include "platform/linux/freedesktop_trash.h"
#include "platform/linux/session_idle_time.h"
#include "platform/linux/smartctl_status.h"
#include "platform/linux/udisks_smart_status.h"
#include "platform/linux/upower_power_source.h"
#include "platform/locations.h"
#include "support/environment.h"
#include "support/serial_queue.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// The disk insights of the running agent: the nightly hog watch, the daily drive-health check
// and the duplicate finder, each long walk or tool run on a worker of its own so that one never
// holds up another.
class InsightsStack {
public:
    InsightsStack(Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                  UserLocations folders, const EnvironmentLookup& environment,
                  BackupStatusModel& backup, Logger log);
    ~InsightsStack();
    InsightsStack(const InsightsStack&) = delete;
    InsightsStack& operator=(const InsightsStack&) = delete;

    HogWatchScheduler& hogWatch() { return *hogWatch_; }
    DriveHealthMonitor& driveHealth() { return *driveHealth_; }
    DuplicatesModel& duplicates() { return *duplicates_; }
    // Winds down the long walks (a duplicate scan, the nightly size scan) so that quitting never
    // waits for them.
    void cancelWork();
    Executor& worker() { return reportsWorker_; }
    const UserLocations& folders() const { return folders_; }

private:
    UserLocations folders_;
    UPowerPowerSource power_;
    SessionIdleTime idle_;
    SmartctlStatus smartctl_;
    UdisksSmartStatus smart_;
    FreedesktopTrash trash_{folders_.dataHome};
    std::stop_source scanStop_;
    SerialQueue scanWorker_{"Hog watch scan"};
    SerialQueue healthWorker_{"Drive health"};
    SerialQueue duplicatesWorker_{"Duplicates"};
    SerialQueue reportsWorker_{"Disk reports"};
    std::unique_ptr<HogWatchScheduler> hogWatch_;
    std::unique_ptr<DriveHealthMonitor> driveHealth_;
    std::unique_ptr<DuplicatesModel> duplicates_;
};

}  // namespace kestrow
