#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cleaners/cleaner_pass.h"
#include "support/clock.h"

namespace kestrow {

// When each cleaner last completed a pass and what it freed: the weekly cadence. A cleaner that
// was skipped or blocked keeps its old entry, so it stays due and is tried again.
struct ReclaimLedger {
    static constexpr double kWeekSeconds = 604'800.0;

    std::map<std::string, WallTime> lastRuns;
    std::map<std::string, std::int64_t> lastFreed;

    bool operator==(const ReclaimLedger&) const = default;

    void record(const ReclaimReport& report, WallTime date);
    // In the order given: never run, run a week or more ago, or "run" in the future (the clock
    // went back).
    std::vector<std::string> dueIDs(WallTime now, const std::vector<std::string>& ids) const;
    std::int64_t totalFreed() const;
};

}  // namespace kestrow
