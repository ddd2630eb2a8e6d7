#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "support/clock.h"

namespace kestrow {

// The sizes of the big folders at one moment, and the free space of the home's volume then.
struct SizeSnapshot {
    WallTime date;
    std::optional<std::int64_t> freeBytes;
    std::map<std::string, std::int64_t> sizes;

    bool operator==(const SizeSnapshot&) const = default;

    // One JSON object; the date counts seconds from 2001-01-01T00:00:00Z, and an unknown free
    // space leaves "freeBytes" out.
    std::string toJson() const;
    // Nothing for text that is not such an object. Entries of the wrong type and negative sizes
    // are left out rather than spoiling the whole snapshot.
    static std::optional<SizeSnapshot> fromJson(std::string_view text);
};

}  // namespace kestrow
