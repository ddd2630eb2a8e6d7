#include "backup/attempt_ledger.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/atomic_file.h"
#include "support/iso_date.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

WallTime at(const char* iso) {
    return *parseIsoDate(iso);
}

BackupAttempt opened(const std::string& job, WallTime start) {
    BackupAttempt attempt;
    attempt.jobId = job;
    attempt.start = start;
    return attempt;
}

void appendRaw(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::app | std::ios::binary);
    out << text;
}

TEST(AttemptLedger, TheNewestLineForAnAttemptWinsAndATornLineLosesNothingElse) {
    TempFolder folder;
    const auto file = folder / "attempts.jsonl";
    AttemptLedger ledger(file);
    // Nanoseconds survive, so the closing line names exactly the attempt that opened.
    const auto start = at("2026-11-21T03:15:00.123456789Z");
    auto attempt = opened("home", start);
    ASSERT_TRUE(ledger.begin(attempt));
    auto loaded = ledger.load();
    ASSERT_EQ(loaded["home"].size(), 1u);
    EXPECT_FALSE(loaded["home"][0].end);

    // A crash in the middle of a write leaves half a line, then garbage from elsewhere.
    appendRaw(file, "{\"job\":\"home\",\"start\":\"2026-11-21T04:");
    attempt.end = at("2026-11-21T03:20:00Z");
    attempt.exitStatus = 1;
    attempt.failure = BackupFailureKind::wrongPassword;
    attempt.error = "Fatal: wrong password or no key found";
    ASSERT_TRUE(ledger.finish(attempt));  // starts on a line of its own after the torn one
    appendRaw(file, "not json\n\n[1,2]\n{\"job\":\"\",\"start\":\"2026-11-21T03:15:00Z\"}\n");
    auto other = opened("photos", at("2026-11-22T03:15:00Z"));
    other.end = at("2026-11-22T03:16:00Z");
    other.exitStatus = 0;
    other.snapshot = "dec353e2";
    ASSERT_TRUE(ledger.finish(other));

    const auto before = readFile(file);
    loaded = ledger.load();
    EXPECT_EQ(readFile(file), before);  // reading never rewrites
    ASSERT_EQ(loaded.size(), 2u);
    ASSERT_EQ(loaded["home"].size(), 1u);
    EXPECT_EQ(AttemptLedger::lineFor(loaded["home"][0]), AttemptLedger::lineFor(attempt));
    EXPECT_EQ(loaded["home"][0], attempt);
    ASSERT_EQ(loaded["photos"].size(), 1u);
    EXPECT_EQ(loaded["photos"][0], other);
}

TEST(AttemptLedger, CompactionKeepsTheNewestOfEachJobOldestFirst) {
    TempFolder folder;
    const auto file = folder / "attempts.jsonl";
    AttemptLedger::Limits limits;
    limits.keepPerJob = 3;
    limits.compactAbove = 2000;
    AttemptLedger ledger(file, limits);
    const auto base = at("2026-11-01T00:00:00Z");
    // Written out of order on purpose: the newest is told by start, not by line position.
    for (int hour : {5, 1, 7, 3, 6, 2, 4, 0}) {
        auto attempt = opened("home", addSeconds(base, hour * 3600.0));
        ledger.begin(attempt);
        attempt.end = addSeconds(attempt.start, 60);
        attempt.exitStatus = 0;
        ledger.finish(attempt);
    }
    auto lone = opened("photos", base);
    lone.end = addSeconds(base, 1);
    ledger.finish(lone);

    EXPECT_LT(fs::file_size(file), 2000u + 400u);  // compacted along the way
    const auto loaded = ledger.load();
    ASSERT_EQ(loaded.at("home").size(), 3u);
    EXPECT_EQ(loaded.at("home")[0].start, addSeconds(base, 5 * 3600.0));
    EXPECT_EQ(loaded.at("home")[2].start, addSeconds(base, 7 * 3600.0));
    EXPECT_TRUE(loaded.at("home")[2].end);
    EXPECT_EQ(loaded.at("photos").size(), 1u);  // one busy job never pushes out another's
}

TEST(AttemptLedger, OnlyAttemptsOfAProcessThatIsGoneBecomeInterrupted) {
    TempFolder folder;
    const auto file = folder / "attempts.jsonl";
    const auto start = at("2026-11-21T03:00:00Z");
    const auto now = at("2026-11-21T09:00:00Z");

    // An attempt opened by a process that has since exited (a crashed agent).
    const pid_t child = ::fork();
    if (child == 0) {
        AttemptLedger(file).begin(opened("crashed", start));
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);

    AttemptLedger ledger(file);
    ASSERT_TRUE(ledger.begin(opened("running", start)));  // this process: still alive
    // An open line written by hand, with no runner named.
    appendRaw(file, AttemptLedger::lineFor(opened("unowned", start)));
    auto done = opened("finished", start);
    done.end = addSeconds(start, 10);
    ledger.finish(done);

    const auto closed = ledger.closeAbandoned(now);
    ASSERT_EQ(closed.size(), 2u);
    const auto loaded = ledger.load();
    for (const char* job : {"crashed", "unowned"}) {
        const auto& attempt = loaded.at(job).back();
        EXPECT_EQ(attempt.end, now) << job;
        EXPECT_EQ(attempt.failure, BackupFailureKind::interrupted) << job;
        EXPECT_FALSE(attempt.exitStatus) << job;
    }
    EXPECT_FALSE(loaded.at("running").back().end);
    EXPECT_EQ(loaded.at("finished").back(), done);
    EXPECT_TRUE(ledger.closeAbandoned(now).empty());  // once only
}

TEST(AttemptLedger, FloodsAreReadInBoundedPiecesAndKeepTheNewestLines) {
    TempFolder folder;
    const auto file = folder / "attempts.jsonl";
    AttemptLedger::Limits limits;
    limits.readAtMost = 64 * 1024;
    limits.compactAbove = std::uintmax_t{1} << 40;  // reading alone is under test
    AttemptLedger ledger(file, limits);
    auto first = opened("home", at("2026-11-01T00:00:00Z"));
    first.end = first.start;
    ledger.finish(first);
    // A line of several megabytes, then more than the read bound of filler, then the newest.
    appendRaw(file, "{\"job\":\"home\",\"error\":\"" + std::string(3 * 1024 * 1024, 'x') +
                        "\",\"start\":\"2026-11-02T00:00:00Z\"}\n");
    auto last = opened("home", at("2026-11-03T00:00:00Z"));
    last.end = last.start;
    last.error = std::string(5000, 'e');  // kept short
    ledger.finish(last);

    const auto loaded = ledger.load();
    ASSERT_EQ(loaded.at("home").size(), 1u);  // the first lies before the read bound
    EXPECT_EQ(loaded.at("home")[0].start, last.start);
    ASSERT_TRUE(loaded.at("home")[0].error);
    EXPECT_LT(loaded.at("home")[0].error->size(), 1000u);
}

}  // namespace
}  // namespace kestrow
