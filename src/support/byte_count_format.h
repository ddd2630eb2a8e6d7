#pragma once

#include <cstdint>
#include <string>

namespace kestrow {

// Byte counts as a file manager shows them: decimal units (1 KB = 1,000 bytes), whole KB,
// one decimal for MB, two for GB and above, trailing zeros dropped ("Zero KB", "1 byte",
// "532 bytes", "12 KB", "1.5 MB", "2.35 GB").
std::string formatByteCount(std::int64_t bytes);

}  // namespace kestrow
