#pragma once

#include <functional>

#include <filesystem>
#include <memory>
#include <string>

#include "app/preferences_file_handle.h"
#include "app/settings/settings_store.h"
#include "backup/active_backup_source.h"
#include "backup/deja_dup_source.h"
#include "backup/restic_job_editing.h"
#include "backup/restic_source.h"
#include "backup/time_machine_backup_source.h"
#include "platform/demo/simulated_desktop.h"
#include "platform/linux/backup/gsettings_deja_dup.h"
#include "platform/linux/backup/restic_process.h"
#include "platform/linux/detached_program_launcher.h"
#include "platform/linux/mounted_backup_volumes.h"
#include "platform/linux/proc_running_processes.h"
#include "platform/linux/process_time_machine_tools.h"
#include "platform/linux/qt_file_watcher.h"
#include "platform/linux/qt_keychain_secret_store.h"
#include "platform/linux/tcp_network_probe.h"
#include "platform/linux/unsearched_failure_reason_lookup.h"
#include "support/environment.h"
#include "timemachine/backup_status_model.h"
#include "timemachine/preferences_file.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// Everything that answers "is this machine backed up?", wired to the real Linux adapters or,
// for --demo, to the simulated desktop. The agent and the one-shot commands build the same stack,
// so the command line reports exactly what the menu shows.
class BackupStack {
public:
    struct Options {
        bool demo = false;
        EnvironmentLookup environment;
        double probeTimeLimitSeconds = 5.0;
        // The agent follows every source's changes and runs the hourly backups; a one-shot
        // command reads what is known and does what it is asked.
        bool follow = false;
        // Whether one of the user's shares with this URL is connected now.
        std::function<bool(const std::string& networkURL)> connectedShare;
    };

    BackupStack(Options options, Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                SettingsStore& sharedStore, WidgetHost& widgets, ProtectionNotifier* notifier,
                Logger log);
    ~BackupStack();
    BackupStack(const BackupStack&) = delete;
    BackupStack& operator=(const BackupStack&) = delete;

    SharedPreferences& shared() { return shared_; }
    BackupStatusModel& model() { return *model_; }
    ActiveBackupSource& source() { return *active_; }
    ResticSource& restic() { return *restic_; }
    // The demo's jobs are its own, in memory.
    ResticJobEditor& jobEditor();
    bool demo() const { return demo_ != nullptr; }
    // The Time Machine settings file: KESTROW_TM_PLIST, else the system location.
    const std::filesystem::path& settingsFile() const { return settingsFile_; }

    // Chooses the active source and starts watching it; every change of it refreshes the model.
    // The handle tells the launch and reopen rules whether a backup is set up and readable.
    std::unique_ptr<PreferencesFileHandle> startSources();
    // False only while Time Machine is the source and its settings cannot be read.
    bool settingsReadable() const;
    // Whether Déjà Dup is set up on this computer, whichever source is active.
    bool dejaDupConfigured() { return !demo_ && dejaDup_->configured(); }

private:
    class SetupHandle;

    Options options_;
    Clock& clock_;
    Logger log_;
    std::filesystem::path settingsFile_;
    std::unique_ptr<SimulatedDesktop> demo_;
    std::unique_ptr<ProcessTimeMachineTools> processTools_;
    TcpNetworkProbe tcpProbe_;
    UnsearchedFailureReasonLookup unsearchedReasons_;
    MountedBackupVolumes mountedVolumes_;
    QtFileWatcher watcher_;
    SharedPreferences shared_;
    std::unique_ptr<ResticProcess> resticProcess_;
    std::unique_ptr<QtKeychainSecretStore> keyring_;
    std::unique_ptr<ResticSource> restic_;
    std::unique_ptr<ResticJobEditing> jobEditing_;
    GSettingsDejaDup dejaDupSettings_;
    ProcRunningProcesses processes_;
    DetachedProgramLauncher launcher_;
    std::unique_ptr<DejaDupSource> dejaDup_;
    std::unique_ptr<TimeMachineBackupSource> timeMachine_;
    std::unique_ptr<ActiveBackupSource> active_;
    std::unique_ptr<BackupStatusModel> model_;
    Signal<>::Connection sourceChanged_;
};

}  // namespace kestrow
