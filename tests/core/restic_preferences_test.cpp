#include "backup/restic_preferences.h"

#include <gtest/gtest.h>

namespace kestrow {
namespace {

const WallTime kNoon =
    std::chrono::sys_days{std::chrono::year{2026} / 11 / 23} + std::chrono::hours(12);

WallTime minutes(int m) {
    return kNoon + std::chrono::minutes(m);
}

TEST(ResticPreferencesTest, ASnapshotSeenByTheLedgerAndTheListingCountsOnceWhateverItsIdLength) {
    ResticJobRecord record{
        {"a", "Home", "/r", {}, {}, true}, {}, {}, {}, std::nullopt, std::nullopt};
    // restic 0.14 names the new snapshot by its short id; the listing has the full one, and was
    // taken a little before the backup's own end was recorded.
    record.attempts.push_back(
        {"a", minutes(0), minutes(5), 0, std::nullopt, std::nullopt, "5f1c0b7a"});
    record.snapshotIds = {"5f1c0b7a9d2e4c6b8a1f3e5d7c9b0a2e4f6d8c1b3a5e7f9d0c2b4a6e8f1d3c5b"};
    record.snapshotEnds = {minutes(5)};
    record.listedAt = minutes(4);
    EXPECT_EQ(ResticPreferences::destinationOf(record).snapshots.size(), 1u);

    // A backup that ended after the listing and is not in it counts at once.
    record.attempts.push_back(
        {"a", minutes(60), minutes(62), 0, std::nullopt, std::nullopt, "77aa00bb"});
    const Destination destination = ResticPreferences::destinationOf(record);
    EXPECT_EQ(destination.snapshots, (std::vector<WallTime>{minutes(5), minutes(62)}));
    EXPECT_EQ(destination.lastResult, 0);
}

TEST(ResticPreferencesTest, FailuresWithoutACodeStillFailAndTheBusiestJobIsTheCurrentOne) {
    ResticJobRecord quiet{{"q", "Quiet", "/q", {}, {}, false},
                          {},
                          {minutes(-600)},
                          {"x"},
                          minutes(-590),
                          std::nullopt};
    ResticJobRecord busy{{"b", "Busy", "/b", {}, {}, true}, {}, {}, {}, std::nullopt, std::nullopt};
    // No password in the keyring: restic never ran, so there is no code, yet it failed.
    busy.attempts.push_back({"b", minutes(0), minutes(0), std::nullopt,
                             BackupFailureKind::missingPassword, std::nullopt, std::nullopt});
    const Preferences preferences = ResticPreferences::make({quiet, busy});
    ASSERT_TRUE(preferences.lastDestination);
    EXPECT_EQ(preferences.lastDestination->id, "b");
    EXPECT_NE(preferences.lastDestination->lastResult, 0);
    EXPECT_EQ(preferences.automaticBackups, std::optional(true));
    ASSERT_TRUE(preferences.destinations);
    EXPECT_EQ(preferences.destinations->size(), 2u);
}

}  // namespace
}  // namespace kestrow
