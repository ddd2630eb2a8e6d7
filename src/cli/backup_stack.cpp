#include "cli/backup_stack.h"

#include "app/settings/standard_settings.h"

namespace kestrow {

// The launch rules' view of the backup: set up and readable, or not.
class BackupStack::SetupHandle final : public PreferencesFileHandle {
public:
    explicit SetupHandle(BackupStack& stack) : stack_(stack) {}
    bool hasAccess() const override {
        return stack_.active_->activeName().has_value() && stack_.settingsReadable();
    }
    bool demo() const override { return stack_.demo(); }
    void recheckAccess() override {
        stack_.active_->recheck();
        if (stack_.active_->active() == stack_.timeMachine_.get())
            if (PreferencesFile* reader = stack_.timeMachine_->settingsReader())
                reader->recheckAccess();
    }

private:
    BackupStack& stack_;
};

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
    TimeMachineTools* tools = nullptr;
    if (options_.demo) {
        demo_ = std::make_unique<SimulatedMac>(clock, mainExecutor);
        tools = &demo_->tools();
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
        tools = processTools_.get();
    }
    const bool demo = options_.demo;
    timeMachine_ = std::make_unique<TimeMachineBackupSource>(TimeMachineBackupSource::Dependencies{
        *tools, *reasons,
        [this, tools, demo]() -> std::unique_ptr<PreferencesFile> {
            if (demo) return nullptr;
            return std::make_unique<PreferencesFile>(PreferencesFile::Dependencies{
                settingsFile_, false, clock_, watcher_, *tools, shared_, log_});
        },
        [this, demo] {
            std::error_code ec;
            return demo || std::filesystem::exists(settingsFile_, ec);
        }});
    active_ = std::make_unique<ActiveBackupSource>(std::vector<BackupSource*>{timeMachine_.get()},
                                                   shared_);
    model_ = std::make_unique<BackupStatusModel>(
        BackupStatusModel::Dependencies{clock,
                                        mainExecutor,
                                        shared_,
                                        standardStore,
                                        *active_,
                                        *probe,
                                        *volumes,
                                        notifier,
                                        log,
                                        BackupStatusModel::kMenuRingGeometry,
                                        {},
                                        true});
    sourceChanged_ = active_->changed.connect([this] { model_->refresh(); });
    // The launch rules leave the demo alone, and its sources live in memory: it starts at once.
    if (demo) active_->start();
}

BackupStack::~BackupStack() {
    sourceChanged_ = {};
    if (active_) active_->stop();
}

std::unique_ptr<PreferencesFileHandle> BackupStack::startSources() {
    active_->start();
    return std::make_unique<SetupHandle>(*this);
}

bool BackupStack::settingsReadable() const {
    if (active_->active() != timeMachine_.get()) return true;
    const PreferencesFile* reader = timeMachine_->settingsReader();
    return reader == nullptr || reader->hasAccess();
}

}  // namespace kestrow
