#include "support/nesting_depth.h"

#include <gtest/gtest.h>

#include <string>

#include "support/deep_documents.h"

namespace kestrow {
namespace {

TEST(NestingDepth, XmlCountsElementsOnlyAndStopsAtTheFirstLevelTooDeep) {
    const std::string three =
        "<?xml version=\"1.0\"?><!DOCTYPE plist PUBLIC \"-//x//y\" \"z\">"
        "<plist><dict><key>k</key><true/></dict></plist>";
    EXPECT_TRUE(xmlNestingWithin(three, 3));
    EXPECT_FALSE(xmlNestingWithin(three, 2));
    // Siblings do not add up: a long flat list stays one level deep.
    std::string flat = "<array>";
    for (int i = 0; i < 10'000; ++i) flat += "<true/><string>x</string>";
    EXPECT_TRUE(xmlNestingWithin(flat + "</array>", 2));
    // Comments, CDATA, instructions and declarations are no levels themselves...
    EXPECT_TRUE(xmlNestingWithin("<a><!-- x --><![CDATA[ y ]]><?pi z ?><!DOCTYPE q></a>", 1));
    // ...but nothing inside them or inside an attribute can hide depth from the scan, whether
    // a parser takes the markup there for elements or not: opening tags count, closing ones
    // there close nothing, and a quoted "/>" does not end a tag.
    std::string hidden;
    for (int i = 0; i < 100; ++i)
        hidden +=
            "<array><!-- </array> --><![CDATA[</array>]]><array a=\"/>\"><array a='</array>'>";
    EXPECT_FALSE(xmlNestingWithin(hidden, 299));
    EXPECT_TRUE(xmlNestingWithin(hidden, 300));
    EXPECT_FALSE(xmlNestingWithin("<a><!-- <b><c><d> --></a>", 3));
    // Whatever is left unclosed still counts, so a document cut short cannot hide its depth.
    EXPECT_FALSE(xmlNestingWithin("<a><b><c", 2));
    EXPECT_FALSE(xmlNestingWithin("<a><!-- <b><c", 2));
    EXPECT_FALSE(xmlNestingWithin(testing::deepXmlPlist(200'000)));
    EXPECT_TRUE(xmlNestingWithin(testing::deepXmlPlist(kMaxNestingDepth - 1)));
}

TEST(NestingDepth, JsonCountsBracketsOutsideStrings) {
    EXPECT_TRUE(jsonNestingWithin(R"({"a": [1, {"b": []}]})", 4));
    EXPECT_FALSE(jsonNestingWithin(R"({"a": [1, {"b": []}]})", 3));
    // Brackets in strings, after an escaped quote too, are text.
    EXPECT_TRUE(jsonNestingWithin(R"(["[[[[", "\"[[[[", "\\", "{{{{"])", 1));
    EXPECT_FALSE(jsonNestingWithin(testing::deepJson(200'000)));
    EXPECT_TRUE(jsonNestingWithin(testing::deepJson(kMaxNestingDepth)));
    EXPECT_FALSE(jsonNestingWithin(testing::deepJson(kMaxNestingDepth + 1)));
}

}  // namespace
}  // namespace kestrow
