#include "cli/backup_stack.h"

#include "app/settings/standard_settings.h"

namespace kestrow {

BackupStack::BackupStack(Options options, Clock& clock, Executor& mainExecutor,
                         SettingsStore& standardStore, SettingsStore& sharedStore,
                         WidgetHost& widgets, ProtectionNotifier* notifier, Logger log)
    : options_(std::move(options)),
      clock_(clock),
      log_(log),
      settingsFile_(PreferencesFile::location(options_.environment)),
      tcpProbe_(options_.probeTimeLimitSeconds),
      unsearchedReasons_(mainExecutor),
      shared_(sharedStore, widgets, log) {
    NetworkProbe* probe = &tcpProbe_;
    BackupVolumes* volumes = &mountedVolumes_;
    FailureReasonLookup* reasons = &unsearchedReasons_;
    if (options_.demo) {
        demo_ = std::make_unique<SimulatedMac>(clock, mainExecutor);
        tools_ = &demo_->tools();
        probe = &demo_->probe();
        volumes = &demo_->volumes();
        reasons = &demo_->failureReasons();
        shared_.store(demo_->preferences());
        // Put back at each start, so the demo always shows its missing-schedule card even after
        // someone pressed its button.
        StandardSettings(standardStore).setNightlyBackupEnabled(false);
    } else {
        processTools_ = std::make_unique<ProcessTimeMachineTools>(
            ProcessTimeMachineTools::program(options_.environment), clock, log);
        tools_ = processTools_.get();
    }
    model_ = std::make_unique<BackupStatusModel>(
        BackupStatusModel::Dependencies{clock,
                                        mainExecutor,
                                        shared_,
                                        standardStore,
                                        *tools_,
                                        *reasons,
                                        *probe,
                                        *volumes,
                                        notifier,
                                        log,
                                        BackupStatusModel::kMenuRingGeometry,
                                        {}});
}

BackupStack::~BackupStack() = default;

std::unique_ptr<PreferencesFile> BackupStack::makePreferencesFile() {
    if (demo_) return nullptr;
    return std::make_unique<PreferencesFile>(PreferencesFile::Dependencies{
        settingsFile_, false, clock_, watcher_, *tools_, shared_, log_});
}

}  // namespace kestrow
