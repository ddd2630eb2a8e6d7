#include "summarizer/summary_text.h"

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

}  // namespace

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
