#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// Text handling shared by the status facts and the validator. Model output is UTF-8 of unknown
// quality: none of these functions assume valid sequences, and none split a multi-byte character.

// The text as it is compared: ASCII letters lower-cased, every other byte kept, and the typographic
// apostrophes (U+2019, U+2018, U+02BC) turned into "'", so that a model writing "didn’t" matches
// the "didn't" of the reason lines.
std::string foldedForMatching(std::string_view text);

// The text without Unicode white space (line breaks included) at either end.
std::string_view trimmedText(std::string_view text);

// The number of characters (code points), not bytes: a stray continuation byte is not counted.
std::size_t characterCount(std::string_view text);

// A maximal run of decimal digits of any script (Unicode category Nd: "42", "٤٢", "４２"), as
// written and as its digits' values in ASCII ("42" for all three).
struct DigitRun {
    std::string text;
    std::string value;
};
std::vector<DigitRun> digitRuns(std::string_view text);

}  // namespace kestrow
