#include "cleaners/reclaim_ledger.h"

namespace kestrow {

void ReclaimLedger::record(const ReclaimReport& report, WallTime date) {
    for (const auto& [id, bytes] : report.completed) {
        lastRuns[id] = date;
        lastFreed[id] = bytes;
    }
}

std::vector<std::string> ReclaimLedger::dueIDs(WallTime now,
                                               const std::vector<std::string>& ids) const {
    std::vector<std::string> due;
    for (const std::string& id : ids) {
        const auto last = lastRuns.find(id);
        if (last == lastRuns.end()) {
            due.push_back(id);
            continue;
        }
        const double age = secondsBetween(last->second, now);
        if (age < 0.0 || age >= kWeekSeconds) due.push_back(id);
    }
    return due;
}

std::int64_t ReclaimLedger::totalFreed() const {
    std::int64_t total = 0;
    for (const auto& [id, bytes] : lastFreed) total += bytes;
    return total;
}

}  // namespace kestrow
