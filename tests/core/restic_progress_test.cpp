#include "backup/restic_progress.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/iso_date.h"

namespace kestrow {
namespace {

// Recorded from restic 0.14 backing up 20 files of 200 kB, then one of 200 MB.
const std::vector<std::string> kSmallBackup{
    R"({"message_type":"status","percent_done":0,"total_files":1,"total_bytes":3})",
    R"({"message_type":"status","percent_done":0.600000299999775,"total_files":21,"files_done":12,"total_bytes":4000003,"bytes_done":2400003,"current_files":["/tmp/rcrec/src/sub/f17","/tmp/rcrec/src/sub/f2"]})",
    R"({"message_type":"summary","files_new":21,"files_changed":0,"files_unmodified":0,"dirs_new":4,"dirs_changed":0,"dirs_unmodified":0,"data_blobs":21,"tree_blobs":5,"data_added":4008672,"total_files_processed":21,"total_bytes_processed":4000003,"total_duration":0.254296026,"snapshot_id":"dec353e2"})",
};
const std::vector<std::string> kLargeFile{
    R"({"message_type":"status","percent_done":0.06734885,"total_files":1,"total_bytes":200000000,"bytes_done":13469770,"current_files":["/big/b1"]})",
    R"({"message_type":"status","seconds_elapsed":1,"seconds_remaining":1,"percent_done":0.61651577,"total_files":1,"total_bytes":200000000,"bytes_done":123303154,"current_files":["/big/b1"]})",
};
// restic 0.14, a file it may not read: the error is the system's own error value.
const char* kUnreadableFile =
    R"({"message_type":"error","error":{"Op":"open","Path":"/tmp/rcnb/src/secret","Err":13},"during":"archival","item":"/tmp/rcnb/src/secret"})";

TEST(ResticProgress, ARecordedBackupGoesFromStartingThroughCopyingToFinishing) {
    ResticProgress progress;
    auto live = progress.reading();
    EXPECT_EQ(live.running, true);
    EXPECT_EQ(live.status.phase, "Starting");
    EXPECT_FALSE(live.status.percent);

    progress.read(kSmallBackup[0]);  // still scanning: nothing read yet
    EXPECT_EQ(progress.reading().status.phase, "FindingChanges");
    EXPECT_EQ(progress.reading().status.percent, 0.0);

    progress.read(kSmallBackup[1]);
    live = progress.reading();
    EXPECT_EQ(live.status.phase, "Copying");
    EXPECT_NEAR(*live.status.percent, 0.6, 1e-6);
    EXPECT_FALSE(live.timeRemaining);  // restic gave no estimate
    EXPECT_EQ(progress.currentFiles(),
              (std::vector<std::string>{"/tmp/rcrec/src/sub/f17", "/tmp/rcrec/src/sub/f2"}));
    EXPECT_EQ(TimeMachineLiveStatus::phaseWords(live.status.phase), "copying files");

    progress.read(kSmallBackup[2]);
    live = progress.reading();
    EXPECT_EQ(live.status.phase, "Finishing");
    EXPECT_EQ(live.status.percent, 1.0);
    EXPECT_EQ(progress.snapshotId(), "dec353e2");
    ASSERT_TRUE(progress.summary());
    EXPECT_EQ(progress.summary()->filesNew, 21u);
    EXPECT_EQ(progress.summary()->dataAdded, 4008672u);
    EXPECT_TRUE(progress.errors().empty());

    ResticProgress large;
    large.read(kLargeFile[0]);
    EXPECT_FALSE(large.reading().timeRemaining);
    large.read(kLargeFile[1]);
    EXPECT_EQ(large.reading().timeRemaining, 1.0);
    EXPECT_EQ(large.reading().status.phase, "Copying");
    EXPECT_FALSE(large.snapshotId());
}

TEST(ResticProgress, ReadsErrorsInEveryShapeResticGivesThemAndKeepsThemBounded) {
    ResticProgress progress;
    progress.read(kUnreadableFile);
    // Newer restic: a message object, and the last word before a failing exit.
    progress.read(
        R"({"message_type":"error","error":{"message":"lstat /home/ann/gone: no such file or directory"},"during":"scan","item":"/home/ann/gone"})");
    progress.read(R"({"message_type":"error","error":"read failed","item":"/x"})");
    progress.read(
        R"({"message_type":"exit_error","code":12,"message":"Fatal: wrong password or no key found"})");
    ASSERT_EQ(progress.errors().size(), 3u);
    EXPECT_EQ(progress.errors()[0], "open /tmp/rcnb/src/secret: Permission denied");
    EXPECT_EQ(progress.errors()[1], "lstat /home/ann/gone: no such file or directory");
    EXPECT_EQ(progress.errors()[2], "/x: read failed");
    EXPECT_EQ(progress.exitCode(), 12);
    EXPECT_EQ(progress.exitMessage(), "Fatal: wrong password or no key found");

    // Thousands of unreadable files: the first few are kept, short, and all are counted.
    const std::string longPath = "/" + std::string(5000, 'p');
    for (int i = 0; i < 1000; ++i) {
        progress.read(R"({"message_type":"error","error":{"message":"denied"},"item":")" +
                      longPath + "\"}");
    }
    EXPECT_EQ(progress.errors().size(), ResticProgress::kErrorsKept);
    EXPECT_EQ(progress.errorCount(), 1003u);
    EXPECT_LE(progress.errors().back().size(), ResticProgress::kLongestError + 4);
}

TEST(ResticProgress, NewerSummariesAndOutOfRangeNumbersReadSafely) {
    ResticProgress progress;
    // Out of range and wrong-typed numbers from a misbehaving or future restic.
    progress.read(
        R"({"message_type":"status","percent_done":7.5,"seconds_remaining":-3,"bytes_done":"lots"})");
    EXPECT_EQ(progress.reading().status.percent, 1.0);
    EXPECT_EQ(progress.reading().status.phase, "Finishing");
    EXPECT_FALSE(progress.reading().timeRemaining);
    progress.read(R"({"message_type":"status","percent_done":-1,"seconds_remaining":0})");
    EXPECT_EQ(progress.reading().status.percent, 0.0);
    EXPECT_FALSE(progress.reading().timeRemaining);

    progress.read(
        R"({"message_type":"summary","backup_start":"2026-11-21T03:15:00.5+01:00","backup_end":"2026-11-21T03:16:00.25+01:00","snapshot_id":"0123abcd","files_new":"x"})");
    ASSERT_TRUE(progress.summary());
    EXPECT_EQ(progress.summary()->backupStart, parseIsoDate("2026-11-21T02:15:00.5Z"));
    EXPECT_EQ(progress.summary()->backupEnd, parseIsoDate("2026-11-21T02:16:00.25Z"));
    EXPECT_EQ(progress.summary()->filesNew, 0u);
    EXPECT_EQ(progress.snapshotId(), "0123abcd");
}

TEST(ResticProgress, GarbageAndHostileLinesChangeNothing) {
    ResticProgress progress;
    progress.read(kSmallBackup[1]);
    const auto before = progress.reading();
    for (const std::string& line :
         {std::string("\x1b[2Ksignal interrupt received, cleaning up"), std::string("{"),
          std::string("[]"), std::string("null"), std::string(R"({"message_type":7})"),
          std::string(R"({"message_type":"status","percent_done":0.9)"),
          std::string(100000, '[') + std::string(100000, ']'),
          R"({"message_type":"status","percent_done":0.9,"pad":")" +
              std::string(ResticProgress::kLongestLine, 'x') + "\"}"}) {
        progress.read(line);
    }
    EXPECT_EQ(progress.reading(), before);
    EXPECT_TRUE(progress.errors().empty());
}

}  // namespace
}  // namespace kestrow
