#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "backup/backup_source.h"
#include "backup/restic_job.h"
#include "platform/backup_diagnostics.h"
#include "platform/network_probe.h"
#include "support/clock.h"
#include "support/executor.h"
#include "timemachine/preferences.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// The built-in Linux desktop behind --demo, backed up by restic: one job from the home folder to a
// removable drive, run hourly for two weeks with the computer off at night and two days away
// last week. An hour ago the drive was unplugged, so that attempt failed and says why; it is back
// now and a backup is copying, moving on with the clock it is given. The home disk is nearly full,
// which raises the low-space card. Every date is placed relative to the moment the demo starts,
// so the demo always looks current. The job list is the editor's, in memory: adding or removing a
// job changes what the source reports.
class SimulatedDesktop final : public BackupSource {
public:
    SimulatedDesktop(Clock& clock, Executor& mainExecutor, SharedPreferences& shared,
                     std::string home = "/home/demo");
    ~SimulatedDesktop() override;
    SimulatedDesktop(const SimulatedDesktop&) = delete;
    SimulatedDesktop& operator=(const SimulatedDesktop&) = delete;

    WallTime started() const { return started_; }
    // The snapshot the source stores for the jobs it has now.
    Preferences preferences() const;
    // The attempt that failed, and what its failure lookup says.
    WallTime failedAttempt() const;
    static constexpr const char* kFailureReason = "The backup disk is not connected";
    // restic's exit status for a repository it cannot open.
    static constexpr std::int64_t kFailedExitStatus = 1;

    BackupSourceName name() const override { return {BackupSourceKind::restic, "restic"}; }
    // While the demo has a job: removing the last one in the editor shows the unset-up desktop.
    bool configured() override;
    void start() override;
    void stop() override;
    void liveStatus(std::function<void(LiveBackupReading)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;
    FailureReasonLookup& failureReasons() override;

    NetworkProbe& probe();
    BackupVolumes& volumes();
    ResticJobEditor& jobEditor();

    // Free space on the demo's home disk: low enough to raise the low-space card.
    static constexpr std::int64_t kHomeFreeBytes = 7'400'000'000;
    // How long the running backup takes, start to finish, before the next one begins.
    static constexpr double kBackupSeconds = 900.0;

private:
    struct Parts;
    void storeSnapshot();

    Clock& clock_;
    Executor& main_;
    SharedPreferences& shared_;
    WallTime started_;
    bool following_ = false;
    std::unique_ptr<Parts> parts_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
