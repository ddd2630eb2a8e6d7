#include "backup/restic_snapshots.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/iso_date.h"

namespace kestrow {
namespace {

using namespace std::chrono;

// Recorded from restic 0.14 (`restic snapshots --json` after two backups).
constexpr const char* kRecorded =
    R"([{"time":"2026-11-23T20:34:20.517022987Z","tree":"3af311fd7a22f2e6258f81e4758316ff9eb4b2d9910a3770bfef8303e54a85a6","paths":["/tmp/rcrec/src"],"hostname":"vm","username":"root","id":"dec353e29225763b610764bfba327645e0a6493360240f83561c33d1cfc4ff68","short_id":"dec353e2"},{"time":"2026-11-23T20:34:24.823392015Z","tree":"cdeeeda044ddfb891e1e62ee790fd758110d47724c49b1bff0163524adc6336f","paths":["/tmp/rcrec/src2"],"hostname":"vm","username":"root","id":"b9c15ef22838c9a7fa9e7ea15d345acc9cc704400e588f753d5373e285de4a25","short_id":"b9c15ef2"}])";

WallTime utc(int y, unsigned mo, unsigned d, int h, int mi, int s, long nanos) {
    return sys_days{year{y} / month{mo} / day{d}} + hours{h} + minutes{mi} + seconds{s} +
           duration_cast<WallTime::duration>(nanoseconds{nanos});
}

TEST(ResticSnapshots, ReadsRecordedSnapshotsToTheNanosecond) {
    const auto snapshots = ResticSnapshots::parse(kRecorded);
    ASSERT_TRUE(snapshots);
    ASSERT_EQ(snapshots->size(), 2u);
    const auto& first = (*snapshots)[0];
    EXPECT_EQ(first.id, "dec353e29225763b610764bfba327645e0a6493360240f83561c33d1cfc4ff68");
    EXPECT_EQ(first.shortId, "dec353e2");
    EXPECT_EQ(first.end, utc(2026, 11, 23, 20, 34, 20, 517022987));
    EXPECT_EQ(first.hostname, "vm");
    EXPECT_EQ(first.paths, std::vector<std::string>{"/tmp/rcrec/src"});
    EXPECT_TRUE(first.tags.empty());
    EXPECT_EQ((*snapshots)[1].end, utc(2026, 11, 23, 20, 34, 24, 823392015));

    // An empty repository is an empty list, not an unreadable answer.
    EXPECT_EQ(ResticSnapshots::parse("[]\n"), std::vector<ResticSnapshot>{});
    EXPECT_FALSE(ResticSnapshots::parse(""));
    EXPECT_FALSE(ResticSnapshots::parse("Fatal: wrong password or no key found"));
    EXPECT_FALSE(ResticSnapshots::parse(R"({"id":"x"})"));
}

TEST(ResticSnapshots, ZonesAndTheSummarysEndDecideWhenABackupEnded) {
    // Local times with an offset, as restic prints them on a machine outside UTC, and a newer
    // restic's summary: the backup's end is when it finished, not when it began. Out of order,
    // with malformed entries between.
    const auto snapshots = ResticSnapshots::parse(R"([
      {"time":"2026-11-21T03:15:00.123456789+01:00","id":"bbbb2222","paths":["/home/ann"],
       "hostname":"laptop","tags":["hourly",5,"kestrow"],
       "summary":{"backup_start":"2026-11-21T03:15:00.2+01:00",
                  "backup_end":"2026-11-21T03:47:10.000000001+01:00"}},
      {"time":"2026-11-20T23:59:59.999999999-05:30","id":"aaaa1111"},
      {"time":"yesterday","id":"bad1"},
      {"time":"2026-11-21T03:15:00Z"},
      {"time":"2026-11-21T03:15:00Z","id":""},
      {"time":"2026-11-22T00:00:00Z","id":"cccc3333","summary":{"backup_end":7}},
      "junk", null, [1]
    ])");
    ASSERT_TRUE(snapshots);
    ASSERT_EQ(snapshots->size(), 3u);
    EXPECT_EQ((*snapshots)[0].id, "bbbb2222");
    EXPECT_EQ((*snapshots)[0].end, utc(2026, 11, 21, 2, 47, 10, 1));
    EXPECT_EQ((*snapshots)[0].tags, (std::vector<std::string>{"hourly", "kestrow"}));
    EXPECT_EQ((*snapshots)[0].shortId, "bbbb2222");
    EXPECT_EQ((*snapshots)[1].id, "aaaa1111");
    EXPECT_EQ((*snapshots)[1].end, utc(2026, 11, 21, 5, 29, 59, 999999999));
    // A summary without a readable end falls back on the time.
    EXPECT_EQ((*snapshots)[2].end, utc(2026, 11, 22, 0, 0, 0, 0));
}

TEST(ResticSnapshots, HostileListingsAreRefusedWhole) {
    EXPECT_FALSE(ResticSnapshots::parse(std::string(200000, '[')));
    EXPECT_FALSE(ResticSnapshots::parse("[" + std::string(100, '{') + "]"));
    const std::string huge(ResticSnapshots::kLargestListing + 1, ' ');
    EXPECT_FALSE(ResticSnapshots::parse(huge));
}

}  // namespace
}  // namespace kestrow
