#include "support/plist_value.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/binary_plist.h"
#include "support/deep_documents.h"
#include "support/iso_date.h"
#include "support/nesting_depth.h"

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
}

TEST(PlistValue, NestingBeyondTheLimitRefusesTheWholeDocumentBeforeAnyParserRecurses) {
    // Shallow enough: read whole, in both forms, down to the innermost value.
    for (const auto& doc :
         {testing::deepXmlPlist(kMaxNestingDepth), testing::deepBinaryPlist(kMaxNestingDepth)}) {
        const auto value = PlistValue::parse(doc);
        ASSERT_TRUE(value);
        const PlistValue* inner = &*value;
        for (int level = 0; level < kMaxNestingDepth; ++level) {
            ASSERT_TRUE(inner->asArray() && inner->asArray()->size() == 1u) << level;
            inner = &inner->asArray()->front();
        }
        EXPECT_EQ(inner->asBool() ? *inner->asBool() : false, true);
    }
    // One level more is refused as a whole, not read with its inner part missing; and 200,000
    // levels (a few megabytes) end the same way instead of overflowing the stack.
    for (const int levels : {kMaxNestingDepth + 1, 200'000}) {
        EXPECT_FALSE(PlistValue::parse(testing::deepXmlPlist(levels))) << levels;
        EXPECT_FALSE(PlistValue::parse(testing::deepBinaryPlist(levels))) << levels;
    }
    // Deep structure under an ordinary key is refused too: the rest of the file is not
    // believed on its own.
    std::string wrapped = testing::deepXmlPlist(200'000);
    wrapped.replace(wrapped.find("<array>"), 7,
                    "<dict><key>AutoBackup</key><true/><key>x</key><array>");
    wrapped.replace(wrapped.rfind("</array>"), 8, "</array></dict>");
    EXPECT_FALSE(PlistValue::parse(wrapped));
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
