#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "backup/backup_source.h"
#include "backup/deja_dup_settings.h"
#include "platform/deja_dup_settings_reader.h"
#include "platform/program_launcher.h"
#include "platform/running_processes.h"
#include "support/executor.h"
#include "support/logger.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// Déjà Dup, watched read-only: its settings give the snapshot, its processes say whether a
// backup runs, and Back Up Now asks Déjà Dup itself to back up. It keeps no record of failures
// and Kestrow never handles its passwords.
class DejaDupSource final : public BackupSource {
public:
    // Déjà Dup writes several keys as a backup ends; they are read together once this long
    // after the first of them.
    static constexpr double kSettleSeconds = 1.0;
    static constexpr const char* kProgram = "deja-dup";

    struct Dependencies {
        DejaDupSettingsReader& settings;
        RunningProcesses& processes;
        ProgramLauncher& launcher;
        SharedPreferences& shared;
        Executor& mainExecutor;
        Logger log;
    };

    explicit DejaDupSource(Dependencies dependencies);
    ~DejaDupSource() override;

    BackupSourceName name() const override;
    void start() override;
    void stop() override;
    void liveStatus(std::function<void(LiveBackupReading)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;
    FailureReasonLookup& failureReasons() override { return failures_; }

    // What the last read found: installed and set up to back this machine up.
    bool configured() override;

    // A backup runs when Déjà Dup runs with "--backup" (its automatic backups and Back Up Now
    // from here), or when its backup tool (`tool`) runs on Déjà Dup's behalf, which every run
    // of the tool that Déjà Dup starts shows by naming Déjà Dup's own cache folder, and is not
    // restoring. Nothing when the process table could not be read.
    static std::optional<bool> backingUp(const ProcessListing& processes, std::string_view tool);

private:
    class NoFailureRecords final : public FailureReasonLookup {
    public:
        explicit NoFailureRecords(Executor& main) : main_(main) {}
        void lookup(WallTime attempt, std::int64_t lastResult,
                    std::function<void(FailureReasonAnswer)> done) override;

    private:
        Executor& main_;
    };

    void read();
    void settingsChanged();

    Dependencies d_;
    NoFailureRecords failures_;
    bool configured_ = false;
    std::string tool_ = DejaDupSettings{}.tool;
    // What this source last put in the shared store: a snapshot, or none once it removed it.
    std::optional<std::optional<Preferences>> stored_;
    std::unique_ptr<DejaDupSettingsReader::Watch> watch_;
    std::optional<TaskId> pendingRead_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
