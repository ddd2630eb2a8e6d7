#include "support/binary_plist_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace kestrow {
namespace {

// Lays out a binary plist from encoded objects, with one-byte offsets and references.
std::string bplist(const std::vector<std::string>& objects, std::uint8_t top = 0) {
    std::string out = "bplist00";
    std::vector<std::uint8_t> offsets;
    for (const auto& object : objects) {
        offsets.push_back(static_cast<std::uint8_t>(out.size()));
        out += object;
    }
    const auto table = static_cast<std::uint8_t>(out.size());
    for (auto offset : offsets) out += static_cast<char>(offset);
    out += std::string(6, '\0');
    out += '\x01';  // offset size
    out += '\x01';  // reference size
    out += std::string(7, '\0') + static_cast<char>(objects.size());
    out += std::string(7, '\0') + static_cast<char>(top);
    out += std::string(7, '\0') + static_cast<char>(table);
    return out;
}

std::string ascii(const std::string& text) {
    return static_cast<char>(0x50 | text.size()) + text;
}

TEST(BinaryPlistReader, ReadsWhatLibrariesChokeOn) {
    using namespace std::string_literals;
    // {"a\0b": -5, 7: true, "Zürich" (UTF-16): 2.5}; the integer key is dropped.
    const auto doc = readBinaryPlist(bplist({
        "\xD3\x01\x02\x03\x04\x05\x06"s,
        ascii("a\0b"s),
        "\x10\x07"s,
        "\x66\x00\x5A\x00\xFC\x00\x72\x00\x69\x00\x63\x00\x68"s,
        "\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFB"s,
        "\x09"s,
        "\x23\x40\x04\x00\x00\x00\x00\x00\x00"s,
    }));
    ASSERT_TRUE(doc && doc->asDict());
    EXPECT_EQ(doc->asDict()->size(), 2u);
    EXPECT_EQ(*doc->find("a\0b"s)->asInteger(), -5);
    EXPECT_EQ(*doc->find("Zürich")->asReal(), 2.5);
}

TEST(BinaryPlistReader, HostileStructureEndsQuicklyWithoutCrashing) {
    using namespace std::string_literals;
    const auto started = std::chrono::steady_clock::now();
    // An array that contains itself twice: unbounded recursion, and exponential if followed.
    (void)readBinaryPlist(bplist({"\xA2\x00\x00"s}));
    // Sixteen arrays each holding the next one twice: 2^16 paths through shared references.
    std::vector<std::string> fan;
    for (int i = 0; i < 16; ++i)
        fan.push_back("\xA2"s + static_cast<char>(i + 1) + static_cast<char>(i + 1));
    fan.push_back("\x09"s);
    (void)readBinaryPlist(bplist(fan));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));

    std::string outOfBounds = bplist({"\x09"s});
    outOfBounds[outOfBounds.size() - 32 - 1] = '\x7F';  // the one offset points past the end
    EXPECT_FALSE(readBinaryPlist(outOfBounds));
    EXPECT_FALSE(
        readBinaryPlist(bplist({"\x5F\x10\xFF"
                                "abc"s})));  // a string longer than the file
    // One element refers to no object and goes; the other is the array itself, endlessly
    // deep, which refuses the whole document.
    EXPECT_FALSE(readBinaryPlist(bplist({"\xA2\x00\x09"s})));
    const auto dangling = readBinaryPlist(bplist({"\xA2\x01\x09"s, "\x09"s}));
    ASSERT_TRUE(dangling && dangling->asArray());
    EXPECT_EQ(dangling->asArray()->size(), 1u);
    EXPECT_FALSE(readBinaryPlist(bplist({"\x09"s}, 3)));  // a top object that does not exist
    EXPECT_FALSE(readBinaryPlist("bplist00"));
}

}  // namespace
}  // namespace kestrow
