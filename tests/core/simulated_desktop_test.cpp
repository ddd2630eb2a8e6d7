#include "platform/demo/simulated_desktop.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "menu/ring_model.h"
#include "support/atomic_file.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "support/virtual_scheduler.h"
#include "timemachine/backup_status_model.h"
#include "timemachine/protection_state_evaluator.h"

namespace kestrow {
namespace {

class SimulatedDesktopTest : public ::testing::Test {
protected:
    LiveBackupReading live() {
        std::optional<LiveBackupReading> reading;
        desktop->liveStatus([&](LiveBackupReading r) { reading = r; });
        EXPECT_FALSE(reading) << "answers come later, on the main executor";
        scheduler.runPending();
        EXPECT_TRUE(reading);
        return reading.value_or(LiveBackupReading{});
    }
    ResticJobEditor::AddOutcome add(ResticJob job, std::string password) {
        std::optional<ResticJobEditor::AddOutcome> outcome;
        desktop->jobEditor().add({std::move(job), std::move(password), true},
                                 [&](ResticJobEditor::AddOutcome o) { outcome = o; });
        scheduler.runPending();
        return outcome.value_or(ResticJobEditor::AddOutcome{std::nullopt, "no answer"});
    }
    std::optional<std::string> remove(const std::string& idOrName) {
        std::optional<std::string> error;
        desktop->jobEditor().remove(idOrName, [&](std::string e) { error = std::move(e); });
        scheduler.runPending();
        return error;
    }
    StartBackupOutcome backUpNow() {
        std::optional<StartBackupOutcome> outcome;
        desktop->startBackup([&](StartBackupOutcome o) { outcome = o; });
        scheduler.runPending();
        return outcome.value_or(StartBackupOutcome{StartBackupOutcome::Refused{-1}});
    }

    VirtualScheduler scheduler;
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "shared.plist", Logger(sink, LogArea::general)};
    testing::RecordingWidgetHost widgets;
    SharedPreferences shared{store, widgets, Logger(sink, LogArea::general)};
    std::unique_ptr<SimulatedDesktop> desktop = std::make_unique<SimulatedDesktop>(
        scheduler, scheduler.mainExecutor(), shared, "/home/ana");
};

TEST_F(SimulatedDesktopTest, ItsSnapshotIsProtectedAndExplainsTheFailedAttempt) {
    EXPECT_EQ(desktop->name(), (BackupSourceName{BackupSourceKind::restic, "restic"}));
    int changes = 0;
    const auto connection = desktop->changed.connect([&] { ++changes; });
    desktop->start();
    EXPECT_EQ(changes, 1);
    const auto preferences = shared.load();
    ASSERT_TRUE(preferences && preferences->lastDestination);
    const Destination& disk = *preferences->lastDestination;
    EXPECT_EQ(disk.volumeName, "Home → Backup Disk");
    EXPECT_FALSE(disk.isNetwork);
    EXPECT_EQ(preferences->automaticBackups, true);
    EXPECT_EQ(desktop->jobEditor().jobs().at(0).repository, "/run/media/ana/Backup Disk/restic");

    // The facts as the backup status model gathers them, given to the real evaluator.
    const LiveBackupReading reading = live();
    ProtectionStateEvaluator::Facts facts;
    facts.timeMachineConfigured = true;
    facts.lastSuccessful = disk.newestSnapshot();
    facts.lastAttempt = disk.newestAttempt();
    facts.previousAttempt = disk.previousAttempt();
    facts.backupRunning = reading.running;
    facts.lastResult = disk.lastResult;
    ASSERT_TRUE(facts.lastAttempt);
    facts.failureReason = shared.storedFailureReason(*facts.lastAttempt);
    facts.failureReasonReadable = true;
    facts.now = scheduler.now();
    const auto evaluator =
        ProtectionStateEvaluator::fromThresholdHours(preferences->protectedThresholdHours);
    const ProtectionVerdict verdict = evaluator.evaluate(facts);
    EXPECT_EQ(verdict.state, ProtectionState::protected_);
    EXPECT_EQ(verdict.reasons,
              (std::vector<std::string>{"Last successful backup 2 hours ago", "Backup in progress",
                                        "Last backup attempt did not complete",
                                        "The backup disk is not connected"}));
    EXPECT_TRUE(verdict.lastAttemptFailed);

    // The lookup names the reason for that attempt alone.
    std::vector<FailureReasonAnswer> answers;
    for (const WallTime attempt : {desktop->failedAttempt(), disk.attempts.front()}) {
        desktop->failureReasons().lookup(attempt, disk.lastResult,
                                         [&](FailureReasonAnswer a) { answers.push_back(a); });
    }
    scheduler.runPending();
    EXPECT_EQ(answers, (std::vector<FailureReasonAnswer>{{"The backup disk is not connected", true},
                                                         {std::nullopt, true}}));

    // Two weeks of hourly backups, nights off: many rings, and one shaded gap for the two days
    // away. Once the running backup is over, the history names the failed attempt.
    const RingModel rings =
        RingModel::make(disk.snapshots, {}, scheduler.now(), evaluator.protectedThreshold() / 3600,
                        BackupStatusModel::kMenuRingGeometry);
    EXPECT_GT(rings.backupCount, 150);
    ASSERT_EQ(rings.gaps.size(), 1u);
    EXPECT_NEAR(secondsBetween(rings.gaps[0].from, *rings.gaps[0].to) / 3600, 48, 2);
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(disk.attempts, disk.snapshots, false,
                                                       scheduler.now()),
              std::vector<WallTime>{desktop->failedAttempt()});
}

TEST_F(SimulatedDesktopTest, TheRunningBackupMovesOnWithTheClockAndBackUpNowIsTaken) {
    desktop->start();
    const LiveBackupReading first = live();
    EXPECT_EQ(first.running, true);
    EXPECT_EQ(first.status.phase, "Copying");
    EXPECT_EQ(first.status.progressLine(), "Backing up — copying files · 40%");
    ASSERT_TRUE(first.status.percent && first.timeRemaining);

    // Over two whole backups, sampled every few seconds: each goes forward with the time left
    // shrinking to match, and the next one starts from nothing.
    double percent = *first.status.percent;
    double remaining = *first.timeRemaining;
    int restarts = 0;
    for (int step = 0; step < 2 * SimulatedDesktop::kBackupSeconds / 7; ++step) {
        scheduler.advance(7);
        const LiveBackupReading now = live();
        ASSERT_TRUE(now.status.running && now.status.percent && now.timeRemaining);
        ASSERT_GE(*now.status.percent, 0.0);
        ASSERT_LT(*now.status.percent, 1.0);
        ASSERT_GT(*now.timeRemaining, 0.0);
        if (*now.status.percent < percent) {
            ++restarts;
        } else {
            EXPECT_NEAR(*now.status.percent - percent, 7 / SimulatedDesktop::kBackupSeconds, 1e-9);
            EXPECT_NEAR(remaining - *now.timeRemaining, 7, 1e-6);
        }
        percent = *now.status.percent;
        remaining = *now.timeRemaining;
    }
    EXPECT_EQ(restarts, 2);

    EXPECT_EQ(backUpNow(), StartBackupOutcome{StartBackupOutcome::Accepted{}});

    // A demo that is gone answers nothing, rather than into what was freed.
    bool answered = false;
    desktop->liveStatus([&](LiveBackupReading) { answered = true; });
    desktop->startBackup([&](StartBackupOutcome) { answered = true; });
    desktop.reset();
    scheduler.runPending();
    EXPECT_FALSE(answered);
}

TEST_F(SimulatedDesktopTest, TheJobEditorKeepsJobsInMemoryAndTheSnapshotFollowsThem) {
    desktop->start();
    int changes = 0;
    const auto connection = desktop->changed.connect([&] { ++changes; });

    ResticJob photos;
    photos.name = "Photos → NAS";
    photos.repository = "sftp:nas.local:/srv/restic/photos";
    const std::string password = "correct horse 7 battery";
    const auto job = [](std::string name, std::string repository,
                        std::vector<std::string> paths = {}) {
        ResticJob made;
        made.name = std::move(name);
        made.repository = std::move(repository);
        made.paths = std::move(paths);
        return made;
    };
    EXPECT_EQ(add(job(" ", "/x"), password).error, "Give the backup a name.");
    EXPECT_EQ(add(job("Home → Backup Disk", "/x"), password).error,
              "There is already a backup named Home → Backup Disk.");
    EXPECT_EQ(add(job("Photos", ""), password).error, "Choose where the backup goes.");
    EXPECT_EQ(add(job("Photos", "/x", {"Pictures"}), password).error,
              "Choose each folder to back up by its full path, not Pictures.");
    EXPECT_EQ(add(photos, "").error, "Enter a password for the backup.");
    EXPECT_EQ(desktop->jobEditor().jobs().size(), 1u) << "nothing saved when a check fails";
    EXPECT_EQ(changes, 0);

    const auto added = add(photos, password);
    ASSERT_TRUE(added.id) << added.error;
    const auto jobs = desktop->jobEditor().jobs();
    ASSERT_EQ(jobs.size(), 2u);
    EXPECT_EQ(jobs[1].id, *added.id);
    EXPECT_EQ(jobs[1].paths, std::vector<std::string>{"/home/ana"});
    EXPECT_FALSE(jobs[1].excludes.empty());
    EXPECT_EQ(changes, 1);
    const auto stored = shared.load();
    ASSERT_TRUE(stored && stored->destinations && stored->lastDestination);
    EXPECT_EQ(stored->destinations->size(), 2u);
    EXPECT_EQ(stored->destinations->at(1).volumeName, "Photos → NAS");
    EXPECT_TRUE(stored->destinations->at(1).snapshots.empty());
    EXPECT_EQ(stored->lastDestination->volumeName, "Home → Backup Disk");
    const auto file = readFile(store.file());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->find("correct horse"), std::string::npos) << "the password reached a file";

    EXPECT_EQ(remove("Nowhere"), "There is no backup named Nowhere.");
    EXPECT_EQ(remove("Home → Backup Disk"), "");
    EXPECT_EQ(remove(*added.id), "");
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(shared.load(), std::nullopt) << "no jobs: no snapshot, so not configured";
    EXPECT_EQ(live().running, false);
    EXPECT_TRUE(std::holds_alternative<StartBackupOutcome::LaunchFailed>(backUpNow().value));

    // Stopped, the source follows its jobs no more.
    desktop->stop();
    ASSERT_TRUE(add(photos, password).id);
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(shared.load(), std::nullopt);
}

}  // namespace
}  // namespace kestrow
