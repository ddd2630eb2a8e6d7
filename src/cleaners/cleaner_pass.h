#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cleaners/cleaner.h"
#include "platform/running_processes.h"
#include "platform/trash.h"
#include "support/logger.h"

namespace kestrow {

// One cleaner's pass.
struct CleanerOutcome {
    std::int64_t freedBytes = 0;
    int trashedCount = 0;
    bool skippedRunning = false;
    std::optional<std::string> blockedReason;
    std::vector<std::string> failures;
    bool completed = false;
    bool operator==(const CleanerOutcome&) const = default;
};

// A pass over several cleaners, folded.
struct ReclaimReport {
    std::int64_t freedBytes = 0;
    int trashedCount = 0;
    std::vector<std::string> skippedRunning;  // names
    std::vector<std::string> reclaimedNames;
    std::vector<std::string> failures;
    std::vector<std::string> blocked;  // names
    std::vector<std::string> blockedReasons;
    std::map<std::string, std::int64_t> completed;  // id → bytes freed
    bool operator==(const ReclaimReport&) const = default;
};

// Carries out passes with the same safety rules for every cleaner: skip it whole while its
// owner runs, re-check every target right before moving it, and move, never delete.
struct CleanerPass {
    using IsRunning = std::function<bool(const CleanerOwner&)>;
    // Moves one checked item to the Trash through its anchor, and only when it is still the
    // object that was checked; nothing on success, else a readable reason.
    using Trash = std::function<std::optional<std::string>(const TrashRequest&)>;

    static CleanerOutcome run(const Cleaner& cleaner, const IsRunning& isRunning,
                              const Trash& trash);
    static ReclaimReport runAll(const std::vector<const Cleaner*>& cleaners,
                                const IsRunning& isRunning, const Trash& trash);
    // The same against the real process table and Trash, for a worker thread: anything thrown
    // ends the pass as a failure line rather than leaving its scheduler busy for good.
    static ReclaimReport runAllOn(const std::vector<const Cleaner*>& cleaners,
                                  RunningProcesses& processes, kestrow::Trash& trash);
    // "moved N to Trash (…) from […]; done […]; running […]; blocked […]", failures apart.
    static void log(const Logger& log, const ReclaimReport& report,
                    const std::vector<std::string>& doneNames);
};

}  // namespace kestrow
