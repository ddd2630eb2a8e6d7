#include "menu/ring_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace kestrow {
namespace {

using Cluster = RingModel::Cluster;
using Hit = RingModel::Hit;

const WallTime kNow = WallTime{} + std::chrono::hours(500'000);
const RingGeometry kTwoWeeks{10.0, 100.0, 0.5, 336.0};

WallTime ago(double hours) {
    return addSeconds(kNow, -hours * 3600.0);
}

std::vector<WallTime> every(double stepHours, double fromHoursAgo, double toHoursAgo) {
    std::vector<WallTime> dates;
    for (double h = fromHoursAgo; h >= toHoursAgo; h -= stepHours) dates.push_back(ago(h));
    return dates;
}

int totalCount(const RingModel& model) {
    return std::accumulate(model.rings.begin(), model.rings.end(), 0,
                           [](int sum, const RingModel::Ring& r) { return sum + r.count; });
}

TEST(RingModel, PlacesAgesBetweenEdgeAndHeartAndKeepsOnlyTheWindow) {
    const RingModel empty = RingModel::make({}, {}, kNow, 24.0, kTwoWeeks);
    EXPECT_TRUE(empty.rings.empty());
    EXPECT_TRUE(empty.gaps.empty());
    EXPECT_FALSE(empty.newestIndex);
    EXPECT_DOUBLE_EQ(empty.barkRadius, 100.0);
    EXPECT_DOUBLE_EQ(empty.thresholdRadius, 100.0 - 90.0 * std::sqrt(24.0 / 336.0));

    EXPECT_DOUBLE_EQ(RingModel::radius(kTwoWeeks, 0.0), 100.0);
    EXPECT_DOUBLE_EQ(RingModel::radius(kTwoWeeks, -5.0), 100.0);
    EXPECT_DOUBLE_EQ(RingModel::radius(kTwoWeeks, 84.0), 55.0);
    EXPECT_DOUBLE_EQ(RingModel::radius(kTwoWeeks, 336.0), 10.0);
    EXPECT_DOUBLE_EQ(RingModel::radius(kTwoWeeks, 1000.0), 10.0);

    // Exactly at the window's start still counts; a second older does not.
    const RingModel model = RingModel::make({ago(336.0 + 1.0 / 3600.0), ago(336.0), kNow},
                                            {ago(400.0)}, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(model.rings.size(), 2u);
    EXPECT_EQ(model.backupCount, 2);
    EXPECT_EQ(model.failedCount, 0);
    EXPECT_DOUBLE_EQ(model.rings[0].radius, 10.0);
    EXPECT_DOUBLE_EQ(model.rings[1].radius, 100.0);
    EXPECT_EQ(model.newestIndex, 1u);
}

TEST(RingModel, ClustersMeasureFromTheFirstEventAndNeverMixKinds) {
    // Hourly for a day: rings of three, each spanning two hours.
    const RingModel day = RingModel::make(every(1.0, 23.0, 0.0), {}, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(day.rings.size(), 8u);
    for (const auto& ring : day.rings) {
        EXPECT_EQ(ring.count, 3);
        EXPECT_LT(secondsBetween(ring.firstDate, ring.date), 3 * 3600.0);
    }
    EXPECT_EQ(day.rings.back().firstDate, ago(2.0));

    // Two hours apart each: the third is only two hours after the second but four after the
    // first, so it starts a new ring. Exactly three hours after the first does too.
    const auto chain = RingModel::cluster(
        {{ago(10), false}, {ago(8), false}, {ago(6), false}, {ago(3), false}}, 3.0);
    EXPECT_EQ(chain, (std::vector<Cluster>{{ago(10), ago(8), 2, false},
                                           {ago(6), ago(6), 1, false},
                                           {ago(3), ago(3), 1, false}}));

    const RingModel mixed =
        RingModel::make({ago(2.0)}, {ago(2.0 - 10.0 / 60.0)}, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(mixed.rings.size(), 2u);
    EXPECT_FALSE(mixed.rings[0].failed);
    EXPECT_TRUE(mixed.rings[1].failed);
    EXPECT_EQ(mixed.newestIndex, 0u);
    EXPECT_EQ(mixed.failedCount, 1);
}

TEST(RingModel, WidensTheMergeWindowUntilSixtyRingsFitThenFoldsTheOldest) {
    // Two weeks hourly: 112 rings at three hours, 56 at six.
    const RingModel twoWeeks = RingModel::make(every(1.0, 335.0, 0.0), {}, kNow, 24.0, kTwoWeeks);
    EXPECT_EQ(twoWeeks.rings.size(), 56u);
    EXPECT_EQ(totalCount(twoWeeks), 336);
    for (const auto& ring : twoWeeks.rings) EXPECT_EQ(ring.count, 6);

    // A month hourly needs twelve hours: 240, 120, then 60 rings.
    const RingGeometry month{10.0, 100.0, 0.5, 720.0};
    const RingModel thirty = RingModel::make(every(1.0, 719.0, 0.0), {}, kNow, 24.0, month);
    EXPECT_EQ(thirty.rings.size(), 60u);
    EXPECT_EQ(thirty.rings.front().count, 12);

    // Successes and failures taking turns never merge, however wide the window: the oldest fold.
    std::vector<WallTime> snapshots;
    std::vector<WallTime> failures;
    for (int i = 0; i < 100; ++i) (i % 2 == 0 ? snapshots : failures).push_back(ago(100.0 - i));
    const RingModel turns = RingModel::make(snapshots, failures, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(turns.rings.size(), 60u);
    EXPECT_EQ(turns.rings[0].count, 41);
    EXPECT_FALSE(turns.rings[0].failed);
    EXPECT_EQ(turns.rings[0].firstDate, ago(100.0));
    EXPECT_EQ(turns.rings[0].date, ago(60.0));
    EXPECT_EQ(turns.rings[1].date, ago(59.0));
    EXPECT_EQ(totalCount(turns), 100);
    EXPECT_EQ(turns.backupCount, 50);
    EXPECT_EQ(turns.failedCount, 50);
    EXPECT_EQ(turns.newestIndex, 58u);
}

TEST(RingModel, FoldingKeepsTheNewestAndIsFailedOnlyWhenAllFoldedFailed) {
    const std::vector<Cluster> clusters{{ago(40), ago(39), 2, true},
                                        {ago(30), ago(30), 1, true},
                                        {ago(20), ago(19), 3, false},
                                        {ago(10), ago(10), 1, true}};
    const auto [mixed, mixedFolded] = RingModel::foldOldest(clusters, 1);
    EXPECT_EQ(mixedFolded, 3);
    EXPECT_EQ(mixed, (std::vector<Cluster>{{ago(40), ago(19), 6, false}, clusters[3]}));

    const auto [failed, failedFolded] = RingModel::foldOldest(clusters, 2);
    EXPECT_EQ(failedFolded, 2);
    EXPECT_EQ(failed,
              (std::vector<Cluster>{{ago(40), ago(30), 3, true}, clusters[2], clusters[3]}));

    EXPECT_EQ(RingModel::foldOldest(clusters, 4), std::make_pair(clusters, 0));
    EXPECT_EQ(RingModel::foldOldest(clusters, 9), std::make_pair(clusters, 0));
}

TEST(RingModel, GapsComeFromSnapshotsAloneAndStayOpenUntilTheNextOne) {
    const RingModel exactly = RingModel::make({ago(100.0), ago(64.0)}, {}, kNow, 24.0, kTwoWeeks);
    EXPECT_EQ(exactly.gaps.size(), 1u);  // only the open one: 64 h since the last
    EXPECT_FALSE(exactly.gaps[0].to);

    const WallTime later = addSeconds(ago(64.0), 1.0);
    const RingModel justOver =
        RingModel::make({ago(100.0), later, ago(1.0)}, {}, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(justOver.gaps.size(), 2u);
    EXPECT_EQ(justOver.gaps[0].from, ago(100.0));
    EXPECT_EQ(justOver.gaps[0].to, later);
    EXPECT_DOUBLE_EQ(justOver.gaps[0].innerRadius, RingModel::radius(kTwoWeeks, 100.0));
    EXPECT_GT(justOver.gaps[0].outerRadius, justOver.gaps[0].innerRadius);
    EXPECT_EQ(justOver.gaps[1].to, ago(1.0));

    // Three days since the last success, failing twice a day since: the failures don't close
    // the gap but sit inside it, and the newest ring is still the success.
    const RingModel stale =
        RingModel::make({ago(74.0), ago(72.0)}, every(12.0, 60.0, 0.0), kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(stale.gaps.size(), 1u);
    const auto& open = stale.gaps[0];
    EXPECT_EQ(open.from, ago(72.0));
    EXPECT_FALSE(open.to);
    EXPECT_DOUBLE_EQ(open.innerRadius, RingModel::radius(kTwoWeeks, 72.0));
    EXPECT_DOUBLE_EQ(open.outerRadius, 100.0);
    EXPECT_EQ(stale.failedCount, 6);
    ASSERT_TRUE(stale.newestIndex);
    EXPECT_EQ(stale.rings[*stale.newestIndex].date, ago(72.0));
    ASSERT_EQ(stale.rings.size(), 7u);
    for (std::size_t i = 1; i < stale.rings.size(); ++i) {
        EXPECT_TRUE(stale.rings[i].failed);
        EXPECT_GT(stale.rings[i].radius, open.innerRadius);
        EXPECT_LE(stale.rings[i].radius, open.outerRadius);
    }

    const RingModel recent = RingModel::make({ago(36.0)}, {}, kNow, 24.0, kTwoWeeks);
    EXPECT_TRUE(recent.gaps.empty());
}

TEST(RingModel, DropsAFailureAtTheInstantOfASnapshot) {
    const RingModel model = RingModel::make({ago(5.0), ago(1.0)}, {ago(5.0), ago(1.0), ago(0.5)},
                                            kNow, 24.0, kTwoWeeks);
    EXPECT_EQ(model.backupCount, 2);
    EXPECT_EQ(model.failedCount, 1);
    ASSERT_EQ(model.rings.size(), 3u);
    EXPECT_EQ(model.rings[2].date, ago(0.5));
    EXPECT_TRUE(model.rings[2].failed);
    EXPECT_EQ(model.newestIndex, 1u);

    const RingModel onlyFailures =
        RingModel::make({}, {ago(3.0), ago(50.0)}, kNow, 24.0, kTwoWeeks);
    EXPECT_EQ(onlyFailures.rings.size(), 2u);
    EXPECT_FALSE(onlyFailures.newestIndex);
    EXPECT_TRUE(onlyFailures.gaps.empty());
}

TEST(RingModel, HitPrefersTheNearestRingThenTheGapAroundIt) {
    const RingModel model =
        RingModel::make({ago(200.0), ago(199.0), ago(100.0)}, {ago(50.0)}, kNow, 24.0, kTwoWeeks);
    ASSERT_EQ(model.rings.size(), 3u);
    ASSERT_EQ(model.gaps.size(), 2u);
    const double failure = model.rings[2].radius;

    EXPECT_EQ(model.hit(failure), (Hit{Hit::Kind::ring, 2}));
    EXPECT_EQ(model.hit(failure + 2.0), (Hit{Hit::Kind::ring, 2}));
    EXPECT_EQ(model.hit(failure + 3.0), (Hit{Hit::Kind::gap, 1}));  // open gap, past tolerance
    const double between = (model.gaps[0].innerRadius + model.gaps[0].outerRadius) / 2.0;
    EXPECT_EQ(model.hit(between), (Hit{Hit::Kind::gap, 0}));
    EXPECT_EQ(model.hit(model.rings[0].radius - 1.0), (Hit{Hit::Kind::ring, 0}));
    EXPECT_FALSE(model.hit(model.rings[0].radius - 5.0));
    EXPECT_FALSE(model.hit(110.0));
    EXPECT_FALSE(RingModel{}.hit(0.0));
}

}  // namespace
}  // namespace kestrow
