#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/attempt_ledger.h"
#include "backup/backup_source.h"
#include "backup/restic_job.h"
#include "backup/restic_job_store.h"
#include "backup/restic_preferences.h"
#include "backup/restic_progress.h"
#include "backup/restic_snapshot_listing.h"
#include "platform/file_watcher.h"
#include "platform/restic_commands.h"
#include "platform/secret_store.h"
#include "support/executor.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// The restic jobs that Kestrow runs itself: it backs each one up every hour while the machine is
// on (when the job says so) and on Back Up Now, records every attempt in its own ledger, lists
// each repository's snapshots on a slow clock and when a backup ends, and describes all of it as
// the one snapshot the verdict reads. Main executor only.
class ResticSource final : public BackupSource {
public:
    struct Dependencies {
        Clock& clock;
        Executor& mainExecutor;
        ResticCommands& restic;
        SecretStore& secrets;
        FileWatcher& watcher;
        SharedPreferences& shared;
        std::filesystem::path dataFolder;   // jobs.json and attempts.jsonl
        std::filesystem::path cacheFolder;  // the snapshot listings
        std::string hostname;
        // The mount table's text now, to tell an unplugged drive from a missing repository.
        std::function<std::string()> mountInfo;
        Logger log;
        // False for a one-shot command: it reads what is known and runs what it is asked to,
        // but lists no repository and starts no automatic backup.
        bool follow = true;
    };

    static constexpr double kAutomaticCheckSeconds = 60.0;
    static constexpr double kAutomaticEverySeconds = 3600.0;
    static constexpr double kListingEverySeconds = 900.0;
    // restic renews its lock every few minutes; an older lock file is one a crash left behind.
    static constexpr double kLiveLockSeconds = 1800.0;

    explicit ResticSource(Dependencies dependencies);
    ~ResticSource() override;
    ResticSource(const ResticSource&) = delete;
    ResticSource& operator=(const ResticSource&) = delete;

    BackupSourceName name() const override { return {BackupSourceKind::restic, "restic"}; }
    bool configured() override;
    void start() override;
    void stop() override;
    void liveStatus(std::function<void(LiveBackupReading)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;
    FailureReasonLookup& failureReasons() override { return reasons_; }

    const std::vector<ResticJob>& jobs() const { return jobs_; }
    // The jobs file was changed by the job editor or by hand: read it again and tell the model.
    void reloadJobs();
    // The ledger's attempts of one job, oldest first.
    std::vector<BackupAttempt> attemptsOf(const std::string& jobId) const;
    // Whether a backup of this job runs now (Kestrow's own).
    bool running(const std::string& jobId) const;
    // Whether a backup runs or waits its turn.
    bool busy() const { return current_ != nullptr || !queue_.empty(); }
    // Calls `ended` with each attempt of Kestrow's own as it ends.
    Signal<BackupAttempt> attemptEnded;

    // Which automatic jobs are due now: none of their attempts began in the last hour.
    static std::vector<std::string> dueJobs(
        const std::vector<ResticJob>& jobs,
        const std::map<std::string, std::vector<BackupAttempt>>& attempts, WallTime now);

private:
    class Reasons final : public FailureReasonLookup {
    public:
        explicit Reasons(ResticSource& source) : source_(source) {}
        void lookup(WallTime attempt, std::int64_t lastResult,
                    std::function<void(FailureReasonAnswer)> done) override;

    private:
        ResticSource& source_;
    };
    struct Current {
        BackupAttempt attempt;
        ResticJob job;
        ResticProgress progress;
        std::unique_ptr<ResticCommands::Run> run;
    };

    void publish();
    void checkAutomatic();
    void refreshListings();
    void enqueue(const std::string& jobId);
    void runNext();
    void runWithPassword(SecretAnswer answer);
    void finishCurrent(const ResticEnding& ending);
    void endCurrent(BackupAttempt attempt);
    void watchRepositories();
    void releaseWatches();
    bool lockedBySomeoneElse(const ResticJob& job) const;
    std::optional<ResticJob> jobNamed(const std::string& id) const;
    template <typename F>
    std::function<void()> guarded(F f);

    Dependencies d_;
    ResticJobStore store_;
    AttemptLedger ledger_;
    ResticSnapshotListing listing_;
    Reasons reasons_{*this};
    std::vector<ResticJob> jobs_;
    std::map<std::string, std::vector<BackupAttempt>> attempts_;
    std::deque<std::string> queue_;
    std::unique_ptr<Current> current_;
    std::vector<std::unique_ptr<FileWatcher::Watch>> watches_;
    std::optional<TaskId> automaticTask_;
    std::optional<TaskId> listingTask_;
    bool started_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
