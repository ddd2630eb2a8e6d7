#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrow {

// A tool's words made fit for one line of a log, a menu or --json: terminal escape sequences
// ("\x1b[2K" before a message) and other control characters go, line breaks and runs of blanks
// become one space, the ends are trimmed, and text beyond `limit` bytes is cut at a character
// boundary and ends with "…".
std::string shortText(std::string_view text, std::size_t limit);

}  // namespace kestrow
