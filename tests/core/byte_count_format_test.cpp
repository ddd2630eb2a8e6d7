#include "support/byte_count_format.h"

#include <gtest/gtest.h>

namespace kestrow {
namespace {

TEST(ByteCountFormat, FollowsFileStyleAcrossUnitBoundaries) {
    EXPECT_EQ(formatByteCount(0), "Zero KB");
    EXPECT_EQ(formatByteCount(1), "1 byte");
    EXPECT_EQ(formatByteCount(999), "999 bytes");
    EXPECT_EQ(formatByteCount(1000), "1 KB");
    EXPECT_EQ(formatByteCount(1499), "1 KB");
    EXPECT_EQ(formatByteCount(1500), "2 KB");
    // Rounding up to 1000 of a unit moves to the next unit instead of printing "1000 KB".
    EXPECT_EQ(formatByteCount(999'999), "1 MB");
    EXPECT_EQ(formatByteCount(1'500'000), "1.5 MB");
    EXPECT_EQ(formatByteCount(12'000'000), "12 MB");
    EXPECT_EQ(formatByteCount(999'960'000), "1 GB");
    EXPECT_EQ(formatByteCount(5'000'000'000), "5 GB");
    EXPECT_EQ(formatByteCount(2'345'678'901), "2.35 GB");
    EXPECT_EQ(formatByteCount(1'230'000'000'000), "1.23 TB");
    EXPECT_EQ(formatByteCount(-1'500'000), "-1.5 MB");
    EXPECT_EQ(formatByteCount(INT64_MAX), "9.22 EB");
}

}  // namespace
}  // namespace kestrow
