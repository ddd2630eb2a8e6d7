#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/clock.h"
#include "support/wording.h"

namespace kestrow {

// The one line that answers the menu's free-up action.
struct FreeUpSummary {
    // A weekly pass already running in one of the two schedulers.
    enum class Busy { developer, browsers };

    // `failures` are the lines of the items that could not be moved; the first few are named.
    // The line's own words are said in `wording`; names and paths are left as they are.
    static std::string line(const Wording& wording, std::int64_t freedBytes,
                            const std::vector<std::string>& skipped, bool anyBlocked,
                            const std::set<Busy>& busy,
                            const std::vector<std::string>& failures = {});
};

// The caption under a cleaner's row in the menu.
struct CleanerCaption {
    struct Text {
        std::string caption;
        std::optional<std::string> help;
        bool operator==(const Text&) const = default;
    };
    static std::optional<Text> lastPass(std::int64_t lastFreedBytes,
                                        std::optional<WallTime> lastRun);
    // "Nov 21, 2026": the abbreviated date, no time, in the local time zone.
    static std::string shortDate(WallTime date);
};

}  // namespace kestrow
