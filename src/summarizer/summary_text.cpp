#include "summarizer/summary_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace kestrow {

namespace {

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The Unicode White_Space set. The model may pad its answer with a no-break space or a line
// separator as easily as with "\n".
bool isWhiteSpace(std::uint32_t c) {
    if (c == ' ' || (c >= '\t' && c <= '\r')) return true;
    if (c == 0x85 || c == 0xA0 || c == 0x1680) return true;
    if (c >= 0x2000 && c <= 0x200A) return true;
    return c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// Decodes the sequence that starts at `at` and has `length` bytes; nothing for a malformed one,
// which then counts as text rather than as white space.
std::uint32_t decode(std::string_view text, std::size_t at, std::size_t& length) {
    const auto lead = static_cast<unsigned char>(text[at]);
    length = 1;
    if (lead < 0x80) return lead;
    std::size_t needed = 0;
    std::uint32_t value = 0;
    if ((lead & 0xE0) == 0xC0) {
        needed = 1;
        value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        needed = 2;
        value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        needed = 3;
        value = lead & 0x07;
    } else {
        return 0xFFFD;
    }
    if (at + needed >= text.size()) return 0xFFFD;
    for (std::size_t i = 1; i <= needed; ++i) {
        const auto byte = static_cast<unsigned char>(text[at + i]);
        if (!isContinuation(byte)) return 0xFFFD;
        value = (value << 6) | (byte & 0x3F);
    }
    length = needed + 1;
    return value;
}

// The zero of every block of ten decimal digits in Unicode 15 (category Nd); each block holds
// the digits zero to nine in order.
constexpr std::array<std::uint32_t, 68> kDigitZeros{
    0x0030,  0x0660,  0x06F0,  0x07C0,  0x0966,  0x09E6,  0x0A66,  0x0AE6,  0x0B66,  0x0BE6,
    0x0C66,  0x0CE6,  0x0D66,  0x0DE6,  0x0E50,  0x0ED0,  0x0F20,  0x1040,  0x1090,  0x17E0,
    0x1810,  0x1946,  0x19D0,  0x1A80,  0x1A90,  0x1B50,  0x1BB0,  0x1C40,  0x1C50,  0xA620,
    0xA8D0,  0xA900,  0xA9D0,  0xA9F0,  0xAA50,  0xABF0,  0xFF10,  0x104A0, 0x10D30, 0x11066,
    0x110F0, 0x11136, 0x111D0, 0x112F0, 0x11450, 0x114D0, 0x11650, 0x116C0, 0x11730, 0x118E0,
    0x11950, 0x11C50, 0x11D50, 0x11DA0, 0x11F50, 0x16A60, 0x16AC0, 0x16B50, 0x1D7CE, 0x1D7D8,
    0x1D7E2, 0x1D7EC, 0x1D7F6, 0x1E140, 0x1E2F0, 0x1E4F0, 0x1E950, 0x1FBF0};

// The value 0–9 of a decimal digit, or -1 for anything else.
int digitValue(std::uint32_t c) {
    // The last zero at or below `c`; the blocks do not overlap, so only that one can hold it.
    const auto after = std::upper_bound(kDigitZeros.begin(), kDigitZeros.end(), c);
    if (after == kDigitZeros.begin()) return -1;
    const std::uint32_t offset = c - *(after - 1);
    return offset < 10 ? static_cast<int>(offset) : -1;
}

}  // namespace

std::vector<DigitRun> digitRuns(std::string_view text) {
    std::vector<DigitRun> runs;
    bool inRun = false;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = 1;
        const int value = digitValue(decode(text, i, length));
        if (value < 0) {
            inRun = false;
        } else {
            if (!inRun) runs.emplace_back();
            inRun = true;
            runs.back().text.append(text.substr(i, length));
            runs.back().value.push_back(static_cast<char>('0' + value));
        }
        i += length;
    }
    return runs;
}

std::string foldedForMatching(std::string_view text) {
    std::string folded;
    folded.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = 1;
        const std::uint32_t c = decode(text, i, length);
        if (c == 0x2019 || c == 0x2018 || c == 0x02BC) {
            folded.push_back('\'');
        } else if (c >= 'A' && c <= 'Z') {
            folded.push_back(static_cast<char>(c - 'A' + 'a'));
        } else {
            folded.append(text.substr(i, length));
        }
        i += length;
    }
    return folded;
}

std::string_view trimmedText(std::string_view text) {
    while (!text.empty()) {
        std::size_t length = 1;
        if (!isWhiteSpace(decode(text, 0, length))) break;
        text.remove_prefix(length);
    }
    while (!text.empty()) {
        // Back up to the start of the last character; a run of stray continuation bytes is
        // taken as one character that is not white space.
        std::size_t start = text.size() - 1;
        while (start > 0 && isContinuation(static_cast<unsigned char>(text[start]))) --start;
        std::size_t length = 1;
        const std::uint32_t c = decode(text, start, length);
        if (start + length != text.size() || !isWhiteSpace(c)) break;
        text.remove_suffix(length);
    }
    return text;
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char byte : text) {
        if (!isContinuation(static_cast<unsigned char>(byte))) ++count;
    }
    return count;
}

}  // namespace kestrow
