#include <gtest/gtest.h>

#include "support/time_machine_fakes.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {
namespace {

using testing::BackupStatusRig;
using testing::statusOutput;

const std::vector<double> kChecksUpToTheLimit{1.5, 3.0, 4.5, 6.0, 7.5, 9.0};

class BackUpNowTest : public ::testing::Test {
protected:
    BackUpNowTest() {
        Destination disk;
        disk.volumeName = "Studio";
        disk.snapshots = {rig.hoursAgo(2)};
        disk.attempts = disk.snapshots;
        rig.seed({disk}, disk);
        rig.model.refresh();
    }

    BackupStatusRig rig;
};

TEST_F(BackUpNowTest, ALaunchFailureOrARefusalEndsTheAttempt) {
    rig.tools.answerDelay = 0.2;
    rig.tools.startAnswer = {StartBackupOutcome::LaunchFailed{"tmutil: No such file or directory"}};
    rig.model.startBackup();
    rig.model.startBackup();  // a second click while the first is under way
    EXPECT_TRUE(rig.model.starting.get());
    rig.scheduler.advance(0.2);
    EXPECT_EQ(rig.tools.startCalls, 1);
    EXPECT_FALSE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(),
              "Could not start Time Machine: tmutil: No such file or directory");

    rig.tools.startAnswer = {StartBackupOutcome::Refused{75}};
    rig.model.startBackup();
    EXPECT_TRUE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(), std::nullopt);  // the old error goes with the new try
    rig.scheduler.advance(0.2);
    EXPECT_FALSE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(), "Time Machine refused to start a backup (status 75)");

    rig.scheduler.advance(20);
    EXPECT_TRUE(rig.tools.statusCalls.empty());  // nothing was accepted, so nothing to watch
}

TEST_F(BackUpNowTest, AcceptedButNoBackupWithinNineSecondsIsAFailure) {
    rig.model.startBackup();
    rig.scheduler.advance(8.9);
    EXPECT_TRUE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(), std::nullopt);
    EXPECT_EQ(rig.tools.statusCalls.size(), 5u);

    rig.scheduler.advance(0.1);
    EXPECT_FALSE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(),
              "Time Machine accepted the request but no backup started. Check System Settings ▸ "
              "General ▸ Time Machine.");
    EXPECT_TRUE(rig.sink.contains("Back Up Now: tmutil exited 0 but no backup began within 9s"));
    EXPECT_EQ(rig.tools.statusCalls, kChecksUpToTheLimit);

    rig.scheduler.advance(30);
    EXPECT_EQ(rig.tools.statusCalls, kChecksUpToTheLimit);
}

TEST_F(BackUpNowTest, ABackupBeginningAtTheFifthCheckSucceeds) {
    rig.model.startBackup();
    rig.scheduler.advance(7.0);
    EXPECT_TRUE(rig.model.starting.get());
    EXPECT_FALSE(rig.hasReason("Backup in progress"));

    rig.tools.statusAnswer = statusOutput(true, "Starting");
    rig.scheduler.advance(0.5);
    EXPECT_FALSE(rig.model.starting.get());
    EXPECT_EQ(rig.model.startError.get(), std::nullopt);
    EXPECT_TRUE(rig.model.live.get().running);
    EXPECT_TRUE(rig.hasReason("Backup in progress"));  // the verdict was refreshed

    rig.scheduler.advance(30);
    EXPECT_EQ(rig.tools.statusCalls,
              std::vector<double>(kChecksUpToTheLimit.begin(), kChecksUpToTheLimit.end() - 1));
    EXPECT_FALSE(rig.sink.contains("no backup began"));
}

}  // namespace
}  // namespace kestrow
