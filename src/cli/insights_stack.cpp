#include "cli/insights_stack.h"

#include "insights/hog_scanner.h"
#include "insights/hog_store.h"
#include "platform/linux/background_priority.h"

namespace kestrow {

InsightsStack::InsightsStack(Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                             UserLocations folders, const EnvironmentLookup& environment,
                             BackupStatusModel& backup, Logger log)
    : folders_(std::move(folders)),
      power_(QDBusConnection::systemBus()),
      idle_(QDBusConnection::sessionBus()),
      smartctl_(SmartctlStatus::program(environment)),
      smart_(QDBusConnection::systemBus(), smartctl_) {
    hogWatch_ = std::make_unique<HogWatchScheduler>(HogWatchScheduler::Dependencies{
        clock, mainExecutor, scanWorker_, standardStore, power_, idle_,
        HogStore(HogStore::folderIn(folders_)),
        [scanner = HogScanner(folders_, clock, log, scanStop_.get_token())](WallTime now) {
            return scanner.snapshot(now);
        },
        HogWatchScheduler::systemLocalHour, log,
        [watchLog = Logger(log.sink(), LogArea::hogWatch)] {
            if (const auto failed = BackgroundPriority::enterOnThisThread())
                watchLog.notice("scanning at a higher priority than idle ({})", *failed);
        }});
    driveHealth_ = std::make_unique<DriveHealthMonitor>(
        DriveHealthMonitor::Dependencies{clock, mainExecutor, healthWorker_, smart_,
                                         [&backup] { return backup.destination(); }, log});
    duplicates_ = std::make_unique<DuplicatesModel>(DuplicatesModel::Services{
        standardStore, mainExecutor, duplicatesWorker_, trash_, folders_, log, {}, std::nullopt});
}

// The services go before their workers, so nothing is posted to a worker that is gone.
InsightsStack::~InsightsStack() {
    duplicates_.reset();
    driveHealth_.reset();
    hogWatch_.reset();
}

void InsightsStack::cancelWork() {
    duplicates_->cancel();
    scanStop_.request_stop();
}

}  // namespace kestrow
