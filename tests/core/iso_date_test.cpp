#include "support/iso_date.h"

#include <gtest/gtest.h>

namespace kestrow {
namespace {

TEST(IsoDate, ParsesZonesAndFractionsAndRefusesEverythingElse) {
    const auto z = parseIsoDate("2026-11-21T03:15:00Z");
    ASSERT_TRUE(z);
    EXPECT_EQ(formatIsoDate(*z), "2026-11-21T03:15:00Z");
    EXPECT_EQ(parseIsoDate("2026-11-21T04:15:00+01:00"), z);
    EXPECT_EQ(parseIsoDate("2026-11-20T22:15:00-05:00"), z);
    EXPECT_EQ(formatIsoDate(*parseIsoDate("2026-11-21")), "2026-11-21T00:00:00Z");
    EXPECT_EQ(formatIsoDate(*parseIsoDate("2026-11-21T03:15:00.999Z")), "2026-11-21T03:15:00Z");
    EXPECT_EQ(formatIsoDate(*parseIsoDate("1999-12-31T23:59:59Z")), "1999-12-31T23:59:59Z");
    for (const char* bad :
         {"", "2026", "2026-13-01", "2026-02-30", "2026-11-21T25:00:00Z", "2026-11-21T03:15:00",
          "2026-11-21T03:15:00ZZ", "2026-11-21 03:15:00Z", "tomorrow", "2026-11-21T03:15:00.Z"}) {
        EXPECT_FALSE(parseIsoDate(bad)) << bad;
    }
}

}  // namespace
}  // namespace kestrow
