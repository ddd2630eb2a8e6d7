#include "insights/hog_watch.h"

#include <gtest/gtest.h>

namespace kestrow {
namespace {

constexpr std::int64_t GB = 1'000'000'000;
constexpr double kDay = 86'400.0;

const WallTime kStart = WallTime{} + std::chrono::hours(24 * 365 * 56);

SizeSnapshot at(double day, std::map<std::string, std::int64_t> sizes,
                std::optional<std::int64_t> freeBytes = std::nullopt) {
    return SizeSnapshot{addSeconds(kStart, day * kDay), freeBytes, std::move(sizes)};
}

std::vector<std::string> paths(const std::vector<HogAlert>& alerts) {
    std::vector<std::string> out;
    for (const auto& alert : alerts) out.push_back(alert.path);
    return out;
}

TEST(HogWatch, GrowthMustBeFiveGigabytesAndHalfTheEarlierSize) {
    const auto previous = at(0, {{"/h/a", 10 * GB},
                                 {"/h/b", 20 * GB},
                                 {"/h/c", 10 * GB},
                                 {"/h/d", 10 * GB},
                                 {"/h/e", 12 * GB},
                                 {"/h/f", 12 * GB}});
    const auto current = at(3, {{"/h/a", 15'500'000'000},  // +5.5 GB, 55%
                                {"/h/b", 26 * GB},         // +6 GB but only 30%
                                {"/h/c", 15 * GB},         // +5 GB exactly
                                {"/h/d", 14'999'999'999},  // one byte short of 5 GB
                                {"/h/e", 17'999'999'999},  // one byte short of half
                                {"/h/f", 18 * GB}});       // half exactly
    const auto alerts = HogWatch::alerts(previous, current, {});
    EXPECT_EQ(paths(alerts), (std::vector<std::string>{"/h/f", "/h/a", "/h/c"}));
    ASSERT_EQ(alerts.size(), 3u);
    EXPECT_EQ(alerts[1], (HogAlert{"/h/a", 15'500'000'000, 5'500'000'000, false, 3, {}, {}}));
}

TEST(HogWatch, NewFoldersAlertFromFiveGigabytes) {
    const auto previous = at(0, {{"/h/old", 1 * GB}});
    const auto current =
        at(2.6, {{"/h/old", 1 * GB}, {"/h/exact", 5 * GB}, {"/h/short", 4'999'999'999}});
    const auto alerts = HogWatch::alerts(previous, current, {});
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0], (HogAlert{"/h/exact", 5 * GB, 5 * GB, true, 3, {}, {}}));

    // The very first snapshot: everything big is new, over no days.
    const auto first = HogWatch::alerts(std::nullopt, current, {});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_TRUE(first[0].isNew);
    EXPECT_EQ(first[0].days, 0);
}

TEST(HogWatch, DismissedFolderSpeaksAgainFiveGigabytesLater) {
    const auto previous = at(0, {{"/h/vm", 10 * GB}, {"/h/other", 10 * GB}});
    const std::map<std::string, std::int64_t> dismissed{{"/h/vm", 12 * GB}};
    EXPECT_TRUE(HogWatch::alerts(previous, at(1, {{"/h/vm", 16 * GB}}), dismissed).empty());
    EXPECT_EQ(paths(HogWatch::alerts(previous, at(1, {{"/h/vm", 17 * GB}}), dismissed)),
              std::vector<std::string>{"/h/vm"});
    // A dismissal is for its own path only, and absurd stored sizes do not overflow.
    EXPECT_EQ(paths(HogWatch::alerts(previous, at(1, {{"/h/other", 16 * GB}}), dismissed)),
              std::vector<std::string>{"/h/other"});
    EXPECT_EQ(paths(HogWatch::alerts(previous, at(1, {{"/h/vm", 16 * GB}}),
                                     {{"/h/vm", std::numeric_limits<std::int64_t>::min()}})),
              std::vector<std::string>{"/h/vm"});
    EXPECT_TRUE(HogWatch::alerts(previous, at(1, {{"/h/vm", 16 * GB}}),
                                 {{"/h/vm", std::numeric_limits<std::int64_t>::max()}})
                    .empty());
}

TEST(HogWatch, ParentsExplainedBySubFoldersFold) {
    // Explained to 85%: only the sub-folder speaks.
    auto alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 2 * GB}}),
                                   at(1, {{"/h", 30 * GB}, {"/h/a", 19 * GB}}), {});
    EXPECT_EQ(paths(alerts), std::vector<std::string>{"/h/a"});

    // Explained to 50%: the parent stays and says how much grew elsewhere.
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 2 * GB}}),
                              at(1, {{"/h", 30 * GB}, {"/h/a", 12 * GB}}), {});
    ASSERT_EQ(paths(alerts), (std::vector<std::string>{"/h", "/h/a"}));
    EXPECT_EQ(alerts[0].outside, 10 * GB);
    EXPECT_EQ(alerts[0].outsideOf, std::vector<std::string>{"/h/a"});
    EXPECT_FALSE(alerts[1].outside);

    // 80% exactly is explained; one byte less is not.
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 1 * GB}}),
                              at(1, {{"/h", 20 * GB}, {"/h/a", 9 * GB}}), {});
    EXPECT_EQ(paths(alerts), std::vector<std::string>{"/h/a"});
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 1 * GB}}),
                              at(1, {{"/h", 20 * GB}, {"/h/a", 8'999'999'999}}), {});
    ASSERT_EQ(paths(alerts), (std::vector<std::string>{"/h", "/h/a"}));
    EXPECT_EQ(alerts[0].outside, 2'000'000'001);

    // Two sub-folders together explain 85%.
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 1 * GB}, {"/h/b", 1 * GB}}),
                              at(1, {{"/h", 30 * GB}, {"/h/a", 10 * GB}, {"/h/b", 9 * GB}}), {});
    EXPECT_EQ(paths(alerts), (std::vector<std::string>{"/h/a", "/h/b"}));

    // "/h/ab" is a sibling of "/h/a", not inside it.
    alerts = HogWatch::alerts(at(0, {{"/h/a", 10 * GB}, {"/h/ab", 1 * GB}}),
                              at(1, {{"/h/a", 30 * GB}, {"/h/ab", 20 * GB}}), {});
    EXPECT_EQ(paths(alerts), (std::vector<std::string>{"/h/a", "/h/ab"}));
    EXPECT_FALSE(alerts[0].outside);
}

TEST(HogWatch, FoldingCountsOnlyTheNearestAlertedSubFolders) {
    // /h/a/x explains half of /h/a, so /h/a stays; /h then compares with /h/a alone (its growth
    // already holds /h/a/x's) and stays with 8 GB outside it.
    auto alerts =
        HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 2 * GB}, {"/h/a/x", 1 * GB}}),
                         at(1, {{"/h", 30 * GB}, {"/h/a", 14 * GB}, {"/h/a/x", 7 * GB}}), {});
    ASSERT_EQ(paths(alerts), (std::vector<std::string>{"/h", "/h/a", "/h/a/x"}));
    EXPECT_EQ(alerts[0].outside, 8 * GB);
    EXPECT_EQ(alerts[0].outsideOf, std::vector<std::string>{"/h/a"});
    EXPECT_EQ(alerts[1].outsideOf, std::vector<std::string>{"/h/a/x"});

    // /h/b is dropped for /h/b/c; /h is then measured against /h/b/c, the folder that speaks.
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/b", 2 * GB}, {"/h/b/c", 1 * GB}}),
                              at(1, {{"/h", 50 * GB}, {"/h/b", 14 * GB}, {"/h/b/c", 11 * GB}}), {});
    ASSERT_EQ(paths(alerts), (std::vector<std::string>{"/h", "/h/b/c"}));
    EXPECT_EQ(alerts[0].outside, 30 * GB);
    EXPECT_EQ(alerts[0].outsideOf, std::vector<std::string>{"/h/b/c"});

    // A dismissed sub-folder still explains its parent, so neither speaks.
    alerts = HogWatch::alerts(at(0, {{"/h", 10 * GB}, {"/h/a", 2 * GB}}),
                              at(1, {{"/h", 30 * GB}, {"/h/a", 19 * GB}}), {{"/h/a", 19 * GB}});
    EXPECT_TRUE(alerts.empty());

    // Under the root folder every path is inside.
    alerts = HogWatch::alerts(at(0, {{"/", 10 * GB}, {"/a", 1 * GB}}),
                              at(1, {{"/", 30 * GB}, {"/a", 20 * GB}}), {});
    EXPECT_EQ(paths(alerts), std::vector<std::string>{"/a"});
}

TEST(HogWatch, TheEstimateTakesTheNewestTwoNightlySnapshotsAndTheAlertsTheNewestTwo) {
    const auto manual = [](SizeSnapshot snapshot) {
        snapshot.kind = SizeSnapshot::Kind::manual;
        return snapshot;
    };
    // Two manual scans a minute apart, with 1 GB gone between them: no pace at all.
    const double minute = 60.0 / kDay;
    const std::vector<SizeSnapshot> manualOnly{manual(at(5, {}, 101 * GB)),
                                               manual(at(5 + minute, {}, 100 * GB))};
    EXPECT_EQ(HogWatch::latest(manualOnly, {}).daysUntilFull, std::nullopt);

    // Nightly, nightly, then manual scans: the pace is the nightly pair's (10 GB a day).
    std::vector<SizeSnapshot> mixed{at(0, {}, 600 * GB), at(1, {{"/h/vm", 1 * GB}}, 510 * GB),
                                    at(2, {{"/h/vm", 2 * GB}}, 500 * GB),
                                    manual(at(2.5, {{"/h/vm", 2 * GB}}, 499 * GB)),
                                    manual(at(2.5 + minute, {{"/h/vm", 9 * GB}}, 498 * GB))};
    const auto reading = HogWatch::latest(mixed, {});
    EXPECT_EQ(reading.daysUntilFull, 50);
    // The alerts still compare the newest two, whatever their kind.
    EXPECT_EQ(paths(reading.alerts), std::vector<std::string>{"/h/vm"});

    // One nightly snapshot is not a pace either.
    EXPECT_EQ(
        HogWatch::latest({at(0, {}, 510 * GB), manual(at(1, {}, 500 * GB))}, {}).daysUntilFull,
        std::nullopt);
}

TEST(HogWatch, DaysUntilFullAtThePaceOfTheLastTwoSnapshots) {
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 510 * GB), at(1, {}, 500 * GB)), 50);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 520 * GB), at(2, {}, 500 * GB)), 50);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 1010 * GB), at(1, {}, 1000 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 899 * GB), at(1, {}, 890 * GB)), std::nullopt)
        << "98.9 days is not within 90";
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 900 * GB), at(1, {}, 890 * GB)), 89);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 10 * GB), at(1, {}, 0)), 0);

    EXPECT_EQ(HogWatch::daysUntilFull(std::nullopt, at(1, {}, 500 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}), at(1, {}, 500 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 510 * GB), at(1, {})), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 10), at(1, {}, -1)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(1, {}, 510 * GB), at(1, {}, 500 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(2, {}, 510 * GB), at(1, {}, 500 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 500 * GB), at(1, {}, 500 * GB)), std::nullopt);
    EXPECT_EQ(HogWatch::daysUntilFull(at(0, {}, 500 * GB), at(1, {}, 510 * GB)), std::nullopt);
}

}  // namespace
}  // namespace kestrow
