#pragma once

#include <optional>
#include <string_view>

#include "support/plist_value.h"

namespace kestrow {

// Reads "bplist00" property lists. Written here rather than taken from libplist because binary
// plists come from outside and libplist aborts on some malformed ones (a key with a NUL inside).
// Bounds, reference cycles, depth and the total number of values are all checked, so any input
// either reads or gives nothing; a document nested deeper than kMaxNestingDepth (a cycle is
// endlessly deep) gives nothing as a whole. The reader recurses at most that deep. UIDs and sets,
// which the value model has no place for, are left out like any other unknown value.
std::optional<PlistValue> readBinaryPlist(std::string_view bytes);

}  // namespace kestrow
