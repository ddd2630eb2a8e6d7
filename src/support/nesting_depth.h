#pragma once

#include <string_view>

namespace kestrow {

// How deeply a document from outside may nest before we refuse it. Real settings files and tool
// answers nest a handful of levels; a parser that recurses per level would run out of stack on
// the hundreds of thousands an attacker can write in a few megabytes, so these cheap scans run
// before any parser sees the bytes.
inline constexpr int kMaxNestingDepth = 256;

// Whether no element of this XML text lies more than `limit` elements deep. It errs on the deep
// side: markup-like text in comments, CDATA, declarations and attribute values counts as levels,
// so nothing can hide depth from it, while the plists we read (no markup in comments) count
// exactly. The scan reads tags only, so it never recurses and takes linear time on any input,
// well-formed or not.
bool xmlNestingWithin(std::string_view text, int limit = kMaxNestingDepth);

// Whether no array or object of this JSON text lies more than `limit` levels deep (brackets
// inside strings, escaped quotes included, do not count).
bool jsonNestingWithin(std::string_view text, int limit = kMaxNestingDepth);

}  // namespace kestrow
