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
    // Nightly snapshots are a day apart and set the pace of the days-until-full estimate; a
    // manual one (`kestrow hogs --scan`) may come seconds after another and never does.
    enum class Kind { nightly, manual };

    WallTime date;
    std::optional<std::int64_t> freeBytes;
    std::map<std::string, std::int64_t> sizes;
    Kind kind = Kind::nightly;

    bool operator==(const SizeSnapshot&) const = default;

    // One JSON object; the date counts seconds from 2001-01-01T00:00:00Z, an unknown free
    // space leaves "freeBytes" out, and "kind" is "nightly" or "manual".
    std::string toJson() const;
    // Nothing for text that is not such an object. Entries of the wrong type and negative sizes
    // are left out rather than spoiling the whole snapshot. A file without "kind" was written
    // before manual scans were told apart, by the nightly scan; a kind we do not know is not
    // taken for nightly.
    static std::optional<SizeSnapshot> fromJson(std::string_view text);
};

}  // namespace kestrow
