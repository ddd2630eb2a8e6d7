#include "support/deep_documents.h"

#include <cstdint>

namespace kestrow::testing {
namespace {

void appendBigEndian(std::string& out, std::uint64_t value, int width) {
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        out += static_cast<char>((value >> shift) & 0xFF);
}

}  // namespace

std::string deepXmlPlist(int levels) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    out.reserve(out.size() + static_cast<std::size_t>(levels) * 15 + 32);
    for (int i = 0; i < levels; ++i) out += "<array>";
    out += "<true/>";
    for (int i = 0; i < levels; ++i) out += "</array>";
    out += "</plist>\n";
    return out;
}

// Object i is a one-element array holding object i + 1; the last object is `true`. Offsets and
// references are four bytes wide, enough for any test size.
std::string deepBinaryPlist(int levels) {
    std::string out = "bplist00";
    std::string table;
    for (int i = 0; i < levels; ++i) {
        appendBigEndian(table, out.size(), 4);
        out += '\xA1';
        appendBigEndian(out, static_cast<std::uint64_t>(i) + 1, 4);
    }
    appendBigEndian(table, out.size(), 4);
    out += '\x09';
    const std::uint64_t tableOffset = out.size();
    out += table;
    out += std::string(6, '\0');
    out += '\x04';  // offset size
    out += '\x04';  // reference size
    appendBigEndian(out, static_cast<std::uint64_t>(levels) + 1, 8);
    appendBigEndian(out, 0, 8);
    appendBigEndian(out, tableOffset, 8);
    return out;
}

std::string deepJson(int levels) {
    return std::string(static_cast<std::size_t>(levels), '[') + "true" +
           std::string(static_cast<std::size_t>(levels), ']');
}

}  // namespace kestrow::testing
