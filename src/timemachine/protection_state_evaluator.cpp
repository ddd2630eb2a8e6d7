#include "timemachine/protection_state_evaluator.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace kestrow {

namespace {

constexpr double kSecondsPerHour = 3600.0;
constexpr double kDefaultProtectedHours = 24.0;
// Without a readable running state, an attempt this young is given the benefit of the doubt: a
// large first backup can easily run for hours.
constexpr double kMayStillRunSeconds = 6 * kSecondsPerHour;
// A lid-closed sleep on battery this soon after an attempt began is what cut the disk image off.
constexpr auto kSleepBlameWindow = std::chrono::hours(12);
constexpr std::string_view kDiskImageDisconnected =
    "The backup disk image disconnected during the backup";

enum class AttemptReading {
    failedBeforeCurrentRun,  // an older attempt failed; the running backup is a new one
    failed,
    perhapsRunning,
};

AttemptReading readAttempt(WallTime attempt, std::optional<bool> running, WallTime now) {
    if (running == true) return AttemptReading::failedBeforeCurrentRun;
    if (!running && secondsBetween(attempt, now) <= kMayStillRunSeconds) {
        return AttemptReading::perhapsRunning;
    }
    return AttemptReading::failed;
}

// The newest attempt without a snapshot is still under way, not failed, while this holds.
bool mayStillRun(WallTime attempt, std::optional<bool> running, WallTime now) {
    return readAttempt(attempt, running, now) != AttemptReading::failed;
}

std::optional<std::string> failureDetail(const ProtectionStateEvaluator::Facts& facts) {
    const std::string reason = facts.failureReason.value_or(std::string());
    if (reason.empty()) {
        if (facts.lastResult == 0) return std::nullopt;
        const std::string code = std::to_string(facts.lastResult);
        if (!facts.failureReasonReadable) return "Checking why (code " + code + ")";
        if (!*facts.failureReasonReadable) {
            return "Kestrow Helper is needed to see why (code " + code + ")";
        }
        return "Time Machine didn't say why (code " + code + ")";
    }
    if (reason == kDiskImageDisconnected && facts.batteryLidSleepDuringBackup &&
        facts.lastAttempt) {
        // The window would close early at the next attempt, but the facts never hold one after
        // the last attempt, so it always runs its full length.
        const WallTime opens = *facts.lastAttempt;
        const WallTime closes = opens + kSleepBlameWindow;
        const WallTime slept = *facts.batteryLidSleepDuringBackup;
        if (slept >= opens && slept <= closes) {
            return "Backup cut off: Mac slept on battery with the lid closed";
        }
    }
    return reason;
}

void addDestinationLines(const ProtectionStateEvaluator::Facts& facts,
                         std::vector<std::string>& reasons) {
    if (facts.backupVolumeAttached == false) {
        reasons.emplace_back(
            facts.destinationReachable == true
                ? "The backup volume is not attached; the share itself is connected"
                : "The backup volume is not attached");
    }
    if (facts.destinationReachable == false) reasons.emplace_back("Backup destination is offline");
}

void sortUnique(std::vector<WallTime>& times) {
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
}

}  // namespace

ProtectionStateEvaluator ProtectionStateEvaluator::fromThresholdHours(std::optional<double> hours) {
    const double chosen =
        hours && std::isfinite(*hours) && *hours > 0.0 ? *hours : kDefaultProtectedHours;
    return ProtectionStateEvaluator(chosen * kSecondsPerHour, 2.0 * chosen * kSecondsPerHour);
}

ProtectionVerdict ProtectionStateEvaluator::evaluate(const Facts& facts) const {
    if (!facts.timeMachineConfigured) {
        return {ProtectionState::stale, {"Time Machine is not configured"}, false};
    }

    const bool offline = facts.destinationReachable == false;
    const bool running = facts.backupRunning == true;
    ProtectionVerdict verdict;
    auto& reasons = verdict.reasons;

    if (facts.lastSuccessful) {
        const double age = secondsBetween(*facts.lastSuccessful, facts.now);
        reasons.push_back("Last successful backup " + format(age) + " ago");
        if (facts.lastAttempt && *facts.lastAttempt > *facts.lastSuccessful) {
            switch (readAttempt(*facts.lastAttempt, facts.backupRunning, facts.now)) {
                case AttemptReading::failedBeforeCurrentRun:
                    reasons.emplace_back("Backup in progress");
                    [[fallthrough]];
                case AttemptReading::failed:
                    reasons.emplace_back("Last backup attempt did not complete");
                    if (auto detail = failureDetail(facts)) reasons.push_back(std::move(*detail));
                    verdict.lastAttemptFailed = true;
                    break;
                case AttemptReading::perhapsRunning:
                    reasons.emplace_back("Last backup attempt has not completed");
                    break;
            }
        } else if (running) {
            reasons.emplace_back("Backup in progress");
        }
        addDestinationLines(facts, reasons);

        // A recent backup protects the data even while the destination is away; only once it
        // ages does an offline destination become the thing to fix.
        if (age > staleThreshold_) {
            verdict.state = offline ? ProtectionState::unavailable : ProtectionState::stale;
        } else if (age <= protectedThreshold_) {
            verdict.state = ProtectionState::protected_;
        } else {
            verdict.state = offline ? ProtectionState::unavailable : ProtectionState::aging;
        }
        return verdict;
    }

    if (!facts.lastAttempt && !facts.previousAttempt && !facts.destinationReachable) {
        return {ProtectionState::unknown, {"Unable to determine current backup state"}, false};
    }

    reasons.emplace_back("No successful backup detected");
    if (running) reasons.emplace_back("Backup in progress");
    if (facts.lastAttempt) {
        verdict.lastAttemptFailed = readAttempt(*facts.lastAttempt, facts.backupRunning,
                                                facts.now) != AttemptReading::perhapsRunning;
    }
    // Only a new attempt is news; repeating an old one on every evaluation would be noise.
    if (facts.lastAttempt != facts.previousAttempt) {
        reasons.emplace_back("Last backup attempt has not completed");
        if (verdict.lastAttemptFailed) {
            if (auto detail = failureDetail(facts)) reasons.push_back(std::move(*detail));
        }
    }

    if (offline) {
        return {ProtectionState::unavailable,
                {"Backup destination is offline"},
                verdict.lastAttemptFailed};
    }
    verdict.state = ProtectionState::stale;
    return verdict;
}

std::vector<WallTime> ProtectionStateEvaluator::failedAttempts(std::vector<WallTime> attempts,
                                                               std::vector<WallTime> snapshots,
                                                               std::optional<bool> backupRunning,
                                                               WallTime now) {
    sortUnique(attempts);
    sortUnique(snapshots);
    std::vector<WallTime> failed;
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        const bool newest = i + 1 == attempts.size();
        const auto snapshot = std::lower_bound(snapshots.begin(), snapshots.end(), attempts[i]);
        const bool succeeded =
            snapshot != snapshots.end() && (newest || *snapshot < attempts[i + 1]);
        if (succeeded) continue;
        if (newest && mayStillRun(attempts[i], backupRunning, now)) continue;
        failed.push_back(attempts[i]);
    }
    return failed;
}

std::vector<ProtectionStateEvaluator::HistoryEntry> ProtectionStateEvaluator::history(
    const std::vector<WallTime>& attempts, const std::vector<WallTime>& snapshots,
    std::size_t limit, std::optional<bool> backupRunning, WallTime now) {
    std::vector<WallTime> completed = snapshots;
    sortUnique(completed);
    std::vector<HistoryEntry> entries;
    for (const WallTime date : completed) entries.push_back({date, true});
    for (const WallTime date : failedAttempts(attempts, snapshots, backupRunning, now)) {
        entries.push_back({date, false});
    }
    std::sort(entries.begin(), entries.end(),
              [](const HistoryEntry& a, const HistoryEntry& b) { return a.date > b.date; });
    if (entries.size() > limit) entries.resize(limit);
    return entries;
}

std::string ProtectionStateEvaluator::format(double ageSeconds) {
    // NaN and negative ages (the clock was set back) fail this test too.
    if (!(ageSeconds >= 60.0)) return "less than a minute";
    const auto count = [ageSeconds](double unit) {
        return static_cast<std::int64_t>(std::min(std::floor(ageSeconds / unit), 1e15));
    };
    if (ageSeconds < kSecondsPerHour) {
        const auto minutes = count(60.0);
        return minutes == 1 ? "1 minute" : std::to_string(minutes) + " minutes";
    }
    if (ageSeconds < 48 * kSecondsPerHour) {
        const auto hours = count(kSecondsPerHour);
        return hours == 1 ? "1 hour" : std::to_string(hours) + " hours";
    }
    return std::to_string(count(24 * kSecondsPerHour)) + " days";
}

}  // namespace kestrow
