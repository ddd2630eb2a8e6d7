#include "cli/backup_stack.h"

#include <unistd.h>

#include "app/settings/standard_settings.h"
#include "platform/locations.h"
#include "support/atomic_file.h"

namespace kestrow {
namespace {

std::string thisHost() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0) return {};
    return name;
}

std::string mountTable() {
    return readFile("/proc/self/mountinfo").value_or("");
}

}  // namespace

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
    processTools_ = std::make_unique<ProcessTimeMachineTools>(
        ProcessTimeMachineTools::program(options_.environment), clock, log);
    TimeMachineTools* tools = processTools_.get();
    if (options_.demo) {
        demo_ = std::make_unique<SimulatedDesktop>(clock, mainExecutor, shared_);
        probe = &demo_->probe();
        volumes = &demo_->volumes();
        // Put back at each start, so the demo always shows its missing-schedule card even after
        // someone pressed its button.
        StandardSettings(standardStore).setNightlyBackupEnabled(false);
    }
    const bool demo = options_.demo;
    timeMachine_ = std::make_unique<TimeMachineBackupSource>(TimeMachineBackupSource::Dependencies{
        *tools, unsearchedReasons_,
        [this, tools]() -> std::unique_ptr<PreferencesFile> {
            return std::make_unique<PreferencesFile>(PreferencesFile::Dependencies{
                settingsFile_, false, clock_, watcher_, *tools, shared_, log_});
        },
        [this, demo] {
            std::error_code ec;
            return !demo && std::filesystem::exists(settingsFile_, ec);
        }});
    const UserLocations locations = UserLocations::resolve(options_.environment);
    const auto backups = locations.dataHome / "kestrow" / "backups";
    resticProcess_ = std::make_unique<ResticProcess>(
        ResticProcess::programFrom(options_.environment), clock, log);
    keyring_ = std::make_unique<QtKeychainSecretStore>();
    restic_ = std::make_unique<ResticSource>(ResticSource::Dependencies{
        clock, mainExecutor, *resticProcess_, *keyring_, watcher_, shared_, backups,
        locations.cacheHome / "kestrow" / "backups", thisHost(), mountTable, log, options_.follow});
    jobEditing_ = std::make_unique<ResticJobEditing>(ResticJobEditing::Dependencies{
        *resticProcess_, *keyring_, ResticJobStore(backups), [this] { restic_->reloadJobs(); },
        locations.home, locations.dataHome, locations.cacheHome, log});
    dejaDup_ = std::make_unique<DejaDupSource>(DejaDupSource::Dependencies{
        dejaDupSettings_, processes_, launcher_, shared_, mainExecutor, log});
    // The demo is a desktop of its own: none of the user's backups is part of it.
    std::vector<BackupSource*> candidates{restic_.get(), dejaDup_.get(), timeMachine_.get()};
    if (demo) candidates = {demo_.get()};
    active_ = std::make_unique<ActiveBackupSource>(std::move(candidates), shared_);
    model_ = std::make_unique<BackupStatusModel>(BackupStatusModel::Dependencies{
        clock, mainExecutor, shared_, standardStore, *active_, *probe, *volumes, notifier, log,
        BackupStatusModel::kMenuRingGeometry, options_.connectedShare, true});
    sourceChanged_ = active_->changed.connect([this] { model_->refresh(); });
    // The launch rules leave the demo alone, and its sources live in memory: it starts at once.
    if (demo) active_->start();
}

BackupStack::~BackupStack() {
    sourceChanged_ = {};
    if (active_) active_->stop();
}

ResticJobEditor& BackupStack::jobEditor() {
    if (demo_) return demo_->jobEditor();
    return *jobEditing_;
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
