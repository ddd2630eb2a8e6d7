#include "support/plist_value.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/binary_plist.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

PlistValue everyKind() {
    PlistDict inner{{"n", PlistValue(-7)},
                    {"list", PlistValue(PlistArray{PlistValue("a"), PlistValue(2.5)})}};
    return PlistValue(PlistDict{
        {"flag", PlistValue(true)},
        {"count", PlistValue(std::int64_t{1} << 40)},
        {"negative", PlistValue(-3)},
        {"real", PlistValue(0.25)},
        {"text", PlistValue("Zürich & <Backups>")},
        {"date", PlistValue(*parseIsoDate("2026-11-21T03:15:00Z"))},
        {"data", PlistValue(PlistData{0, 1, 254, 255})},
        {"nested", PlistValue(inner)},
    });
}

TEST(PlistValue, RoundTripsEveryKindThroughXmlAndBinaryKeepingTypesApart) {
    const PlistValue original = everyKind();
    const std::string xml = original.toXml();
    const auto fromXml = PlistValue::parse(xml);
    ASSERT_TRUE(fromXml);
    EXPECT_EQ(*fromXml, original);
    const auto fromBinary = PlistValue::parse(testing::binaryPlistFromXml(xml));
    ASSERT_TRUE(fromBinary);
    EXPECT_EQ(*fromBinary, original);

    // A bool is not an integer and an integer is not a real: typed reads keep them apart.
    EXPECT_EQ(fromXml->find("flag")->asInteger(), nullptr);
    EXPECT_EQ(fromXml->find("count")->asReal(), nullptr);
    EXPECT_EQ(*fromXml->find("count")->asNumber(), 1099511627776.0);
    EXPECT_EQ(*fromXml->find("negative")->asInteger(), -3);
}

TEST(PlistValue, UnreadableInputGivesNothingAndNeverCrashes) {
    const std::string xml = everyKind().toXml();
    EXPECT_FALSE(PlistValue::parse(""));
    EXPECT_FALSE(PlistValue::parse("not a plist at all"));
    EXPECT_FALSE(PlistValue::parse("bplist00\x01\x02garbage"));
    // Every truncation of a real file either fails or yields some value; none may crash.
    for (std::size_t cut = 0; cut < xml.size(); cut += 7)
        (void)PlistValue::parse(xml.substr(0, cut));
    const std::string binary = testing::binaryPlistFromXml(xml);
    for (std::size_t cut = 0; cut < binary.size(); ++cut)
        (void)PlistValue::parse(binary.substr(0, cut));
    // Structure far deeper than any settings file is cut off rather than recursed into.
    std::string deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 2000; ++i) deep += "<array>";
    for (int i = 0; i < 2000; ++i) deep += "</array>";
    deep += "</plist>";
    (void)PlistValue::parse(deep);
}

TEST(PlistValue, DatesCountFromTheReferenceDate) {
    const WallTime reference = *parseIsoDate("2001-01-01T00:00:00Z");
    EXPECT_DOUBLE_EQ(secondsSinceReferenceDate(reference), 0.0);
    EXPECT_EQ(fromSecondsSinceReferenceDate(86400.0), *parseIsoDate("2001-01-02T00:00:00Z"));
    const auto parsed = PlistValue::parse(
        "<plist "
        "version=\"1.0\"><dict><key>d</key><date>2026-11-21T03:15:00Z</date></dict></plist>");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(formatIsoDate(*parsed->find("d")->asDate()), "2026-11-21T03:15:00Z");
}

}  // namespace
}  // namespace kestrow
