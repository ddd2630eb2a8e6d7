#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "app/settings/settings_store.h"
#include "platform/demo/simulated_mac.h"
#include "platform/linux/mounted_backup_volumes.h"
#include "platform/linux/process_time_machine_tools.h"
#include "platform/linux/qt_file_watcher.h"
#include "platform/linux/tcp_network_probe.h"
#include "platform/linux/unsearched_failure_reason_lookup.h"
#include "support/environment.h"
#include "timemachine/backup_status_model.h"
#include "timemachine/preferences_file.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// Everything that answers "is this machine backed up?", wired to the real Linux adapters or,
// for --demo, to the simulated Mac. The agent and `kestrow status` build the same stack, so the
// command line reports exactly what the menu shows.
class BackupStack {
public:
    struct Options {
        bool demo = false;
        EnvironmentLookup environment;
        double probeTimeLimitSeconds = 5.0;
    };

    BackupStack(Options options, Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                SettingsStore& sharedStore, WidgetHost& widgets, ProtectionNotifier* notifier,
                Logger log);
    ~BackupStack();
    BackupStack(const BackupStack&) = delete;
    BackupStack& operator=(const BackupStack&) = delete;

    SharedPreferences& shared() { return shared_; }
    BackupStatusModel& model() { return *model_; }
    TimeMachineTools& tools() { return *tools_; }
    bool demo() const { return demo_ != nullptr; }
    // The Time Machine settings file: KESTROW_TM_PLIST, else the system location.
    const std::filesystem::path& settingsFile() const { return settingsFile_; }

    // The settings reader: it reads at once when it can and then follows the file. The demo has
    // none; its settings are placed in the shared store at start instead.
    std::unique_ptr<PreferencesFile> makePreferencesFile();

private:
    Options options_;
    Clock& clock_;
    Logger log_;
    std::filesystem::path settingsFile_;
    std::unique_ptr<SimulatedMac> demo_;
    std::unique_ptr<ProcessTimeMachineTools> processTools_;
    TcpNetworkProbe tcpProbe_;
    UnsearchedFailureReasonLookup unsearchedReasons_;
    MountedBackupVolumes mountedVolumes_;
    QtFileWatcher watcher_;
    TimeMachineTools* tools_ = nullptr;
    SharedPreferences shared_;
    std::unique_ptr<BackupStatusModel> model_;
};

}  // namespace kestrow
