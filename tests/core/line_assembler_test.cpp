#include "support/line_assembler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrow {
namespace {

std::vector<std::string> feedInPieces(LineAssembler& assembler, const std::string& stream,
                                      std::size_t pieceSize) {
    std::vector<std::string> lines;
    const auto keep = [&lines](std::string_view line) { lines.emplace_back(line); };
    for (std::size_t at = 0; at < stream.size(); at += pieceSize)
        assembler.feed(std::string_view(stream).substr(at, pieceSize), keep);
    assembler.finish(keep);
    return lines;
}

TEST(LineAssembler, GivesTheSameLinesHoweverTheStreamIsCut) {
    const std::string stream = "{\"a\":1}\n\n{\"b\":2}\r\nlast without newline";
    const std::vector<std::string> expected{"{\"a\":1}", "", "{\"b\":2}", "last without newline"};
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        LineAssembler assembler(1024);
        EXPECT_EQ(feedInPieces(assembler, stream, piece), expected) << "pieces of " << piece;
    }
}

TEST(LineAssembler, CutsAnOverlongLineAndSkipsItsRestUpToTheNewline) {
    const std::string stream = std::string(25, 'x') + "\nshort\n" + std::string(10, 'y') + "\n";
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        LineAssembler assembler(10);
        EXPECT_EQ(feedInPieces(assembler, stream, piece),
                  (std::vector<std::string>{std::string(10, 'x'), "short", std::string(10, 'y')}))
            << "pieces of " << piece;
    }
    // A stream that never ends its line is handed on once, cut, and holds nothing after that.
    LineAssembler endless(8);
    std::vector<std::string> lines;
    for (int i = 0; i < 1000; ++i)
        endless.feed("zzzzzzz", [&lines](std::string_view line) { lines.emplace_back(line); });
    endless.finish([&lines](std::string_view line) { lines.emplace_back(line); });
    EXPECT_EQ(lines, std::vector<std::string>{"zzzzzzzz"});
}

TEST(LineAssembler, NeverCutsInsideACharacter) {
    // "é" is two bytes, "€" three, "😀" four; every bound that falls inside one leaves it out.
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const std::vector<std::string> expected{"",
                                            "a",
                                            "a",
                                            "a\xC3\xA9",
                                            "a\xC3\xA9",
                                            "a\xC3\xA9",
                                            "a\xC3\xA9\xE2\x82\xAC",
                                            "a\xC3\xA9\xE2\x82\xAC",
                                            "a\xC3\xA9\xE2\x82\xAC",
                                            "a\xC3\xA9\xE2\x82\xAC"};
    for (std::size_t limit = 0; limit < expected.size(); ++limit) {
        EXPECT_EQ(utf8Prefix(text, limit), expected[limit]) << "limit " << limit;
        LineAssembler assembler(limit);
        EXPECT_EQ(feedInPieces(assembler, text + "\n", 3),
                  std::vector<std::string>{expected[limit]})
            << "limit " << limit;
    }
    EXPECT_EQ(utf8Suffix(text, 4), "\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8Suffix(text, 6), "\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8Suffix(text, 7), "\xE2\x82\xAC\xF0\x9F\x98\x80");
    // Bytes that are not UTF-8 at all are cut where the bound says.
    EXPECT_EQ(utf8Prefix(std::string(8, '\x80'), 5), std::string(5, '\x80'));
}

}  // namespace
}  // namespace kestrow
