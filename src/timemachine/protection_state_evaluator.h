#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/clock.h"
#include "timemachine/protection_state.h"

namespace kestrow {

// Turns the backup facts into a verdict with reason lines. Pure: "now" is an input, so recorded
// facts always give the same answer.
class ProtectionStateEvaluator {
public:
    struct Facts {
        std::optional<WallTime> lastSuccessful;
        std::optional<WallTime> lastAttempt;
        std::optional<bool> destinationReachable;
        std::optional<bool> backupRunning;
        std::optional<WallTime> previousAttempt;
        bool timeMachineConfigured = false;
        std::int64_t lastResult = 0;
        std::optional<std::string> failureReason;
        std::optional<bool> failureReasonReadable;
        std::optional<bool> backupVolumeAttached;
        std::optional<WallTime> batteryLidSleepDuringBackup;
        WallTime now;
    };

    struct HistoryEntry {
        WallTime date;
        bool succeeded = false;
        bool operator==(const HistoryEntry&) const = default;
    };

    // From the "protectedThresholdHours" setting: hours above zero give hours and twice that;
    // anything else gives 24 and 48 hours.
    static ProtectionStateEvaluator fromThresholdHours(std::optional<double> hours);

    double protectedThreshold() const { return protectedThreshold_; }
    double staleThreshold() const { return staleThreshold_; }

    ProtectionVerdict evaluate(const Facts& facts) const;

    // The attempts that did not complete: an attempt succeeded when a snapshot lies at or after
    // it and before the next attempt. The newest attempt without a snapshot after it is still
    // under way, not failed, while a backup runs (or may run: running not known and the attempt
    // at most 6 hours old). Oldest first.
    static std::vector<WallTime> failedAttempts(std::vector<WallTime> attempts,
                                                std::vector<WallTime> snapshots,
                                                std::optional<bool> backupRunning, WallTime now);
    // Completed backups and failed attempts, newest first, at most `limit`.
    static std::vector<HistoryEntry> history(const std::vector<WallTime>& attempts,
                                             const std::vector<WallTime>& snapshots,
                                             std::size_t limit, std::optional<bool> backupRunning,
                                             WallTime now);
    // The age inside "Last successful backup <age> ago", truncated to its largest unit: "less
    // than a minute" below 60 seconds (and for negative ages, when the clock was set back), then
    // "1 minute" / "N minutes", "1 hour" / "N hours" below 48 hours, and "N days" beyond. The
    // same age always gives the same text: no locale, no rounding up.
    static std::string format(double ageSeconds);

private:
    ProtectionStateEvaluator(double protectedThreshold, double staleThreshold)
        : protectedThreshold_(protectedThreshold), staleThreshold_(staleThreshold) {}

    double protectedThreshold_;
    double staleThreshold_;
};

}  // namespace kestrow
