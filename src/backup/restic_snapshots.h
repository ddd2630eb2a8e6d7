#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/clock.h"

namespace kestrow {

// One snapshot in a restic repository.
struct ResticSnapshot {
    std::string id;       // the full id
    std::string shortId;  // as restic shows it; the first 8 characters of the id when absent
    WallTime end;         // when the backup ended (its summary's end, else its start time)
    std::string hostname;
    std::vector<std::string> paths;
    std::vector<std::string> tags;
    bool operator==(const ResticSnapshot&) const = default;
};

// Reads `restic snapshots --json`.
class ResticSnapshots {
public:
    // Far more than years of hourly snapshots print.
    static constexpr std::size_t kLargestListing = 64 * 1024 * 1024;

    // The snapshots, oldest first; an entry without an id or a readable time is passed over.
    // Nothing when the text is not a list of snapshots at all (restic failed, or printed
    // something else), which is not the same as an empty repository.
    static std::optional<std::vector<ResticSnapshot>> parse(std::string_view text);
};

}  // namespace kestrow
