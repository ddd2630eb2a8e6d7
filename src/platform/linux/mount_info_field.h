#pragma once

#include <string>

namespace kestrow {

// A path field of /proc/self/mountinfo as it really is: the kernel writes blanks, tabs, newlines
// and backslashes as a backslash and three octal digits.
std::string unescapeMountInfoField(const std::string& field);

}  // namespace kestrow
