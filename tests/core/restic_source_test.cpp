#include "backup/restic_source.h"

#include <gtest/gtest.h>

#include <fstream>

#include "backup/restic_failure.h"
#include "support/backup_fakes.h"
#include "support/time_machine_fakes.h"

namespace kestrow::testing {
namespace {

const char* const kStatusLine =
    R"({"message_type":"status","percent_done":0.42,"total_files":10,"files_done":4,)"
    R"("total_bytes":1000,"bytes_done":420,"seconds_remaining":30})";
const char* const kSummaryLine =
    R"({"message_type":"summary","files_new":3,"files_changed":0,"files_unmodified":7,)"
    R"("data_added":420,"total_files_processed":10,"total_bytes_processed":1000,)"
    R"("snapshot_id":"5f1c0b7a9d2e4c6b8a1f3e5d7c9b0a2e4f6d8c1b3a5e7f9d0c2b4a6e8f1d3c5b"})";

ResticEnding exited(int code, std::string errorText = {}) {
    ResticEnding ending;
    ending.kind = ResticEnding::Kind::exited;
    ending.exitCode = code;
    ending.errorText = std::move(errorText);
    return ending;
}

// The restic source feeding the real backup status model, in virtual time, over real job and
// ledger files in a temporary folder and fakes for restic, the keyring and file watching.
struct ResticRig {
    ResticRig() {
        source = std::make_unique<ResticSource>(ResticSource::Dependencies{
            base.scheduler, base.scheduler.mainExecutor(), restic, secrets, watcher, base.shared,
            base.folder / "data", base.folder / "cache", "thishost", [] { return std::string(); },
            Logger(base.sink, LogArea::general)});
        model = std::make_unique<BackupStatusModel>(BackupStatusModel::Dependencies{
            .clock = base.scheduler,
            .mainExecutor = base.scheduler.mainExecutor(),
            .shared = base.shared,
            .standardStore = base.standardStore,
            .source = *source,
            .probe = base.probe,
            .volumes = base.volumes,
            .notifier = nullptr,
            .log = Logger(base.sink, LogArea::general),
            .connectedShare = {},
            .linuxWording = true,
        });
        changed = source->changed.connect([this] { model->refresh(); });
        // As the agent's backup monitoring does.
        model->startLivePolling();
    }

    void addJob(std::string id, bool automatic = false, bool withPassword = true) {
        ResticJob job{id,          "Home " + id,       (base.folder / ("repo-" + id)).string(),
                      {"/home/u"}, {"/home/u/.cache"}, automatic};
        jobs.push_back(job);
        std::filesystem::create_directories(job.repository);
        std::ofstream(job.repository + "/config") << "restic";
        ASSERT_TRUE(ResticJobStore(base.folder / "data").save(jobs).saved);
        if (withPassword)
            secrets.items[std::string(ResticJob::kPasswordService) + "/" + id] = "s3cret pw";
    }
    std::vector<std::size_t> backups() const { return restic.runsOf("backup"); }
    std::vector<std::string> reasons() const { return model->verdict.get().reasons; }
    bool says(const std::string& line) const {
        const auto r = reasons();
        return std::find(r.begin(), r.end(), line) != r.end();
    }

    BackupStatusRig base;
    FakeSecretStore secrets{base.scheduler.mainExecutor()};
    FakeResticCommands restic;
    FakeFileWatcher watcher;
    std::vector<ResticJob> jobs;
    std::unique_ptr<ResticSource> source;
    std::unique_ptr<BackupStatusModel> model;
    Signal<>::Connection changed;
};

TEST(ResticSourceTest, BackUpNowRunsTheJobKeepsThePasswordOffTheCommandLineAndTurnsProtected) {
    ResticRig rig;
    rig.addJob("a");
    rig.source->start();
    rig.base.scheduler.advance(0.1);
    EXPECT_EQ(rig.model->source.get(), (BackupSourceName{BackupSourceKind::restic, "restic"}));
    EXPECT_EQ(rig.model->verdict.get().state, ProtectionState::unknown);

    rig.model->startBackup();
    rig.base.scheduler.advance(0.1);
    ASSERT_EQ(rig.backups().size(), 1u);
    const ResticInvocation& invocation = rig.restic.call(rig.backups()[0]).invocation;
    EXPECT_EQ(invocation.password, "s3cret pw");
    for (const auto& argument : invocation.arguments)
        EXPECT_EQ(argument.find("s3cret"), std::string::npos) << argument;
    // The folders come after "--", so a folder named like an option stays a folder.
    EXPECT_EQ(invocation.arguments.back(), "/home/u");
    EXPECT_EQ(invocation.arguments[invocation.arguments.size() - 2], "--");

    rig.restic.call(rig.backups()[0]).line(kStatusLine);
    rig.base.scheduler.advance(1.6);  // Back Up Now sees the backup running
    EXPECT_FALSE(rig.model->starting.get());
    EXPECT_TRUE(rig.model->live.get().running);
    EXPECT_EQ(rig.model->live.get().progressLine(), "Backing up — copying files · 42%");
    EXPECT_EQ(rig.model->timeRemaining.get(), std::optional<double>(30.0));

    rig.base.scheduler.advance(60);
    rig.restic.finish(rig.backups()[0], {kSummaryLine}, exited(0));
    rig.base.scheduler.advance(2.1);
    EXPECT_EQ(rig.model->verdict.get().state, ProtectionState::protected_);
    EXPECT_EQ(rig.model->backupCount.get(), 1);
    EXPECT_FALSE(rig.model->live.get().running);
    const auto attempts = rig.source->attemptsOf("a");
    ASSERT_EQ(attempts.size(), 1u);
    EXPECT_EQ(attempts[0].snapshot,
              std::optional<std::string>(
                  "5f1c0b7a9d2e4c6b8a1f3e5d7c9b0a2e4f6d8c1b3a5e7f9d0c2b4a6e8f1d3c5b"));
    EXPECT_FALSE(attempts[0].failure);

    // The repository is listed after the backup; its snapshot is the same one, counted once.
    const auto listings = rig.restic.runsOf("snapshots");
    ASSERT_FALSE(listings.empty());
    rig.restic.finish(
        listings.back(),
        {R"([{"time":"2026-11-23T10:00:00.5+01:00","hostname":"thishost","paths":["/home/u"],)"
         R"("id":"5f1c0b7a9d2e4c6b8a1f3e5d7c9b0a2e4f6d8c1b3a5e7f9d0c2b4a6e8f1d3c5b"}])"},
        exited(0));
    EXPECT_EQ(rig.model->backupCount.get(), 1);
}

TEST(ResticSourceTest, EachFailureReadsAsASentenceAndUnknownOnesNameTheirCode) {
    ResticRig rig;
    rig.addJob("a");
    rig.source->start();
    rig.base.scheduler.advance(0.1);

    rig.model->startBackup();
    rig.base.scheduler.advance(0.1);
    rig.restic.finish(rig.backups()[0], {}, exited(1, "Fatal: wrong password or no key found\n"));
    rig.base.scheduler.advance(10);
    EXPECT_TRUE(rig.says("Last backup attempt has not completed") ||
                rig.says("Last backup attempt did not complete"));
    EXPECT_TRUE(rig.says(*ResticFailure::sentence(BackupFailureKind::wrongPassword)))
        << ::testing::PrintToString(rig.reasons());

    rig.base.scheduler.advance(5);
    rig.model->startBackup();
    rig.base.scheduler.advance(0.1);
    rig.restic.finish(rig.backups()[1], {}, exited(1, "something nobody has seen before\n"));
    rig.base.scheduler.advance(10);
    EXPECT_TRUE(rig.says("restic didn't say why (code 1)"))
        << ::testing::PrintToString(rig.reasons());
    for (const auto& reason : rig.reasons())
        EXPECT_EQ(reason.find("Time Machine"), std::string::npos);

    // No password in the keyring: restic is never run, and the reason says what is missing.
    rig.secrets.items.clear();
    rig.base.scheduler.advance(5);
    rig.model->startBackup();
    rig.base.scheduler.advance(10);
    EXPECT_EQ(rig.backups().size(), 2u);
    EXPECT_TRUE(rig.says(*ResticFailure::sentence(BackupFailureKind::missingPassword)));
}

TEST(ResticSourceTest, AutomaticJobsBackUpHourlyAndManualOnesNever) {
    ResticRig rig;
    rig.addJob("auto", /*automatic=*/true);
    rig.addJob("manual", /*automatic=*/false);
    rig.source->start();
    rig.base.scheduler.advance(59);
    EXPECT_TRUE(rig.backups().empty());
    rig.base.scheduler.advance(1.5);
    ASSERT_EQ(rig.backups().size(), 1u);
    EXPECT_EQ(rig.restic.call(rig.backups()[0]).invocation.repository, rig.jobs[0].repository);
    rig.restic.finish(rig.backups()[0], {kSummaryLine}, exited(0));

    rig.base.scheduler.advance(3000);
    EXPECT_EQ(rig.backups().size(), 1u);  // within the hour of the last attempt
    rig.base.scheduler.advance(700);
    EXPECT_EQ(rig.backups().size(), 2u);
    rig.restic.finish(rig.backups()[1], {kSummaryLine}, exited(0));

    // The command line backed the job up from a process of its own: the ledger they share
    // says so, and the hour starts again from there.
    rig.base.scheduler.advance(3000);
    AttemptLedger(rig.base.folder / "data" / "attempts.jsonl")
        .finish({"auto", rig.base.scheduler.now(), rig.base.scheduler.now(), 0});
    rig.base.scheduler.advance(700);
    EXPECT_EQ(rig.backups().size(), 2u);
    for (const auto index : rig.backups())
        EXPECT_NE(rig.restic.call(index).invocation.repository, rig.jobs[1].repository);
}

TEST(ResticSourceTest, QuittingDuringABackupStopsResticAndRecordsTheAttemptAsInterrupted) {
    ResticRig rig;
    rig.addJob("a");
    rig.source->start();
    rig.model->startBackup();
    rig.base.scheduler.advance(0.1);
    ASSERT_EQ(rig.backups().size(), 1u);
    rig.source->stop();
    EXPECT_TRUE(rig.restic.call(rig.backups()[0]).dropped);
    AttemptLedger ledger(rig.base.folder / "data" / "attempts.jsonl");
    const auto attempts = ledger.load()["a"];
    ASSERT_EQ(attempts.size(), 1u);
    EXPECT_TRUE(attempts[0].end.has_value());
    EXPECT_EQ(attempts[0].failure, std::optional(BackupFailureKind::interrupted));
}

TEST(ResticSourceTest, ABackupSomeoneElseRunsShowsAsRunningWithoutAPercentUntilItsLockIsStale) {
    ResticRig rig;
    rig.addJob("a");
    const std::filesystem::path locks = rig.jobs[0].repository + "/locks";
    std::filesystem::create_directories(locks);
    std::ofstream(locks / "0123abcd") << "{}";
    rig.source->start();
    rig.model->refreshLiveStatus();
    rig.base.scheduler.advance(0.1);
    EXPECT_TRUE(rig.model->live.get().running);
    EXPECT_FALSE(rig.model->live.get().percent.has_value());

    // A lock a crash left behind hours ago is not a backup.
    std::filesystem::last_write_time(
        locks / "0123abcd", std::filesystem::file_time_type::clock::now() - std::chrono::hours(3));
    rig.model->refreshLiveStatus();
    rig.base.scheduler.advance(0.1);
    EXPECT_FALSE(rig.model->live.get().running);
}

TEST(ResticSourceTest, DueJobsIgnoreAttemptsFromTheFutureAndSkipManualJobs) {
    const WallTime now = std::chrono::system_clock::now();
    const std::vector<ResticJob> jobs{{"a", "A", "/r", {}, {}, true},
                                      {"b", "B", "/r", {}, {}, false}};
    std::map<std::string, std::vector<BackupAttempt>> attempts;
    EXPECT_EQ(ResticSource::dueJobs(jobs, attempts, now), std::vector<std::string>{"a"});
    attempts["a"].push_back({"a", now - std::chrono::minutes(30)});
    EXPECT_TRUE(ResticSource::dueJobs(jobs, attempts, now).empty());
    attempts["a"] = {{"a", now + std::chrono::hours(5)}};  // the clock was set back
    EXPECT_EQ(ResticSource::dueJobs(jobs, attempts, now), std::vector<std::string>{"a"});
}

}  // namespace
}  // namespace kestrow::testing
