#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// A path field of /proc/self/mountinfo as it really is: the kernel writes blanks, tabs, newlines
// and backslashes as a backslash and three octal digits.
std::string unescapeMountInfoField(const std::string& field);

// One line of /proc/self/mountinfo:
// ID PARENT MAJOR:MINOR ROOT MOUNTPOINT OPTIONS [OPTIONAL...] - TYPE SOURCE SUPEROPTIONS
struct MountInfoRow {
    std::optional<std::uint64_t> device;  // absent when MAJOR:MINOR is not two numbers
    std::string mountPoint;               // unescaped
    std::string type;                     // empty when the line has no "- TYPE SOURCE" part
    std::string source;                   // as written
};

// Every line with at least a mount point; the rest are passed over.
std::vector<MountInfoRow> parseMountInfo(std::string_view text);

}  // namespace kestrow
