#include "timemachine/protection_state_evaluator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kestrow {
namespace {

using namespace std::chrono_literals;
using Facts = ProtectionStateEvaluator::Facts;
using Entry = ProtectionStateEvaluator::HistoryEntry;
using Lines = std::vector<std::string>;

constexpr double kHour = 3600.0;
const WallTime kNow = std::chrono::sys_days(std::chrono::year(2024) / 3 / 14) + 9h;

WallTime ago(double seconds) {
    return addSeconds(kNow, -seconds);
}

Facts configured() {
    Facts facts;
    facts.timeMachineConfigured = true;
    facts.now = kNow;
    return facts;
}

Facts successAgo(double seconds, std::optional<bool> reachable = std::nullopt) {
    Facts facts = configured();
    facts.lastSuccessful = ago(seconds);
    facts.destinationReachable = reachable;
    return facts;
}

const ProtectionStateEvaluator standard = ProtectionStateEvaluator::fromThresholdHours(24.0);

TEST(ProtectionStateTextTest, RoundTripsAndRejectsOtherWords) {
    for (auto state :
         {ProtectionState::unknown, ProtectionState::unavailable, ProtectionState::stale,
          ProtectionState::aging, ProtectionState::protected_}) {
        EXPECT_EQ(protectionStateFromText(protectionStateText(state)), state);
    }
    EXPECT_EQ(protectionStateText(ProtectionState::protected_), "protected");
    EXPECT_FALSE(protectionStateFromText("protected_"));
    EXPECT_FALSE(protectionStateFromText("Stale"));
    EXPECT_FALSE(protectionStateFromText(""));
}

TEST(ProtectionStateEvaluatorTest, ThresholdsFollowTheSettingAndFallBackToADay) {
    for (auto hours : std::initializer_list<std::optional<double>>{
             std::nullopt, 0.0, -6.0, std::numeric_limits<double>::quiet_NaN()}) {
        const auto evaluator = ProtectionStateEvaluator::fromThresholdHours(hours);
        EXPECT_EQ(evaluator.protectedThreshold(), 86'400.0);
        EXPECT_EQ(evaluator.staleThreshold(), 172'800.0);
    }
    const auto twelve = ProtectionStateEvaluator::fromThresholdHours(12.0);
    EXPECT_EQ(twelve.protectedThreshold(), 43'200.0);
    EXPECT_EQ(twelve.staleThreshold(), 86'400.0);
    EXPECT_EQ(twelve.evaluate(successAgo(43'200)).state, ProtectionState::protected_);
    EXPECT_EQ(twelve.evaluate(successAgo(43'201)).state, ProtectionState::aging);
    EXPECT_EQ(twelve.evaluate(successAgo(86'401)).state, ProtectionState::stale);
}

TEST(ProtectionStateEvaluatorTest, NotConfiguredWinsOverEverything) {
    Facts facts = successAgo(60, false);
    facts.timeMachineConfigured = false;
    facts.lastAttempt = ago(30);
    facts.backupRunning = false;
    facts.lastResult = 19;
    facts.backupVolumeAttached = false;
    EXPECT_EQ(
        standard.evaluate(facts),
        (ProtectionVerdict{ProtectionState::stale, {"Time Machine is not configured"}, false}));
}

TEST(ProtectionStateEvaluatorTest, AgeBoundariesAndAnOfflineDestination) {
    EXPECT_EQ(standard.evaluate(successAgo(86'400)).state, ProtectionState::protected_);
    EXPECT_EQ(standard.evaluate(successAgo(86'401)).state, ProtectionState::aging);
    EXPECT_EQ(standard.evaluate(successAgo(172'800)).state, ProtectionState::aging);
    EXPECT_EQ(standard.evaluate(successAgo(172'800, false)).state, ProtectionState::unavailable);
    EXPECT_EQ(standard.evaluate(successAgo(172'801)).state, ProtectionState::stale);
    EXPECT_EQ(standard.evaluate(successAgo(172'801, true)).state, ProtectionState::stale);
    EXPECT_EQ(standard.evaluate(successAgo(172'801, false)).state, ProtectionState::unavailable);
    EXPECT_EQ(standard.evaluate(successAgo(86'401, false)).state, ProtectionState::unavailable);

    // A fresh backup still protects while the destination is away, but the user hears of it.
    EXPECT_EQ(
        standard.evaluate(successAgo(kHour, false)),
        (ProtectionVerdict{ProtectionState::protected_,
                           {"Last successful backup 1 hour ago", "Backup destination is offline"},
                           false}));

    // The clock was set back behind the last backup.
    EXPECT_EQ(standard.evaluate(successAgo(-600)),
              (ProtectionVerdict{ProtectionState::protected_,
                                 {"Last successful backup less than a minute ago"},
                                 false}));
}

TEST(ProtectionStateEvaluatorTest, AgeTextTruncatesToItsLargestUnit) {
    const std::vector<std::pair<double, std::string>> cases{
        {0, "less than a minute"},
        {59.9, "less than a minute"},
        {-3 * kHour, "less than a minute"},
        {std::nan(""), "less than a minute"},
        {60, "1 minute"},
        {119, "1 minute"},
        {120, "2 minutes"},
        {3599, "59 minutes"},
        {kHour, "1 hour"},
        {2 * kHour - 1, "1 hour"},
        {48 * kHour - 1, "47 hours"},
        {48 * kHour, "2 days"},
        {10.9 * 24 * kHour, "10 days"},
    };
    for (const auto& [age, text] : cases) {
        EXPECT_EQ(ProtectionStateEvaluator::format(age), text) << age;
    }
}

TEST(ProtectionStateEvaluatorTest, AnAttemptAfterTheLastSuccessIsReadByTheRunningState) {
    const auto laterAttempt = [](std::optional<bool> running, double attemptAge) {
        Facts facts = successAgo(attemptAge + kHour);
        facts.lastAttempt = ago(attemptAge);
        facts.backupRunning = running;
        facts.lastResult = 19;
        facts.failureReasonReadable = true;
        return standard.evaluate(facts);
    };
    const std::string why = "Time Machine didn't say why (code 19)";

    EXPECT_EQ(laterAttempt(true, kHour),
              (ProtectionVerdict{ProtectionState::protected_,
                                 {"Last successful backup 2 hours ago", "Backup in progress",
                                  "Last backup attempt did not complete", why},
                                 true}));
    EXPECT_EQ(laterAttempt(false, kHour),
              (ProtectionVerdict{ProtectionState::protected_,
                                 {"Last successful backup 2 hours ago",
                                  "Last backup attempt did not complete", why},
                                 true}));
    EXPECT_EQ(laterAttempt(std::nullopt, kHour),
              (ProtectionVerdict{
                  ProtectionState::protected_,
                  {"Last successful backup 2 hours ago", "Last backup attempt has not completed"},
                  false}));
    // Not knowing whether it runs: six hours is the limit of the benefit of the doubt.
    EXPECT_EQ(
        laterAttempt(std::nullopt, 21'600).reasons,
        (Lines{"Last successful backup 7 hours ago", "Last backup attempt has not completed"}));
    EXPECT_EQ(laterAttempt(std::nullopt, 21'601),
              (ProtectionVerdict{ProtectionState::protected_,
                                 {"Last successful backup 7 hours ago",
                                  "Last backup attempt did not complete", why},
                                 true}));

    // An attempt at or before the last success is the success itself, or older news.
    for (const double attemptAge : {2 * kHour, 3 * kHour}) {
        Facts facts = successAgo(2 * kHour);
        facts.lastAttempt = ago(attemptAge);
        facts.backupRunning = true;
        facts.lastResult = 19;
        EXPECT_EQ(standard.evaluate(facts),
                  (ProtectionVerdict{ProtectionState::protected_,
                                     {"Last successful backup 2 hours ago", "Backup in progress"},
                                     false}));
    }
}

// The last success, then a failed attempt; returns the detail line, if any.
std::optional<std::string> detailFor(Facts facts) {
    facts.lastSuccessful = ago(3 * kHour);
    facts.lastAttempt = ago(2 * kHour);
    facts.backupRunning = false;
    const auto reasons = standard.evaluate(facts).reasons;
    EXPECT_EQ(reasons.at(1), "Last backup attempt did not complete");
    if (reasons.size() < 3) return std::nullopt;
    EXPECT_EQ(reasons.size(), 3u);
    return reasons[2];
}

TEST(ProtectionStateEvaluatorTest, FailureDetailLines) {
    Facts facts = configured();
    facts.lastResult = 19;
    EXPECT_EQ(detailFor(facts), "Checking why (code 19)");
    facts.failureReasonReadable = false;
    EXPECT_EQ(detailFor(facts), "Kestrow Helper is needed to see why (code 19)");
    facts.failureReasonReadable = true;
    EXPECT_EQ(detailFor(facts), "Time Machine didn't say why (code 19)");
    facts.failureReason = "";
    EXPECT_EQ(detailFor(facts), "Time Machine didn't say why (code 19)");
    facts.failureReason = "The backup disk could not be found";
    EXPECT_EQ(detailFor(facts), "The backup disk could not be found");
    facts.lastResult = 0;
    EXPECT_EQ(detailFor(facts), "The backup disk could not be found");
    facts.failureReason = "";
    EXPECT_EQ(detailFor(facts), std::nullopt);
}

TEST(ProtectionStateEvaluatorTest, ADiskImageDisconnectIsBlamedOnSleepOnlyWithinTwelveHours) {
    const std::string disconnected = "The backup disk image disconnected during the backup";
    const std::string cutOff = "Backup cut off: Mac slept on battery with the lid closed";
    Facts facts = configured();
    facts.failureReason = disconnected;
    EXPECT_EQ(detailFor(facts), disconnected);  // no sleep recorded

    const WallTime attempt = ago(2 * kHour);
    const std::vector<std::pair<double, std::string>> sleeps{
        {-1, disconnected},     {0, cutOff},
        {11 * kHour, cutOff},   {43'200, cutOff},
        {43'201, disconnected}, {13 * kHour, disconnected},
    };
    for (const auto& [afterAttempt, expected] : sleeps) {
        facts.batteryLidSleepDuringBackup = addSeconds(attempt, afterAttempt);
        EXPECT_EQ(detailFor(facts), expected) << afterAttempt;
    }

    facts.failureReason = "Another reason";
    facts.batteryLidSleepDuringBackup = attempt;
    EXPECT_EQ(detailFor(facts), "Another reason");
}

TEST(ProtectionStateEvaluatorTest, DestinationLines) {
    Facts facts = successAgo(kHour, true);
    facts.backupVolumeAttached = false;
    EXPECT_EQ(standard.evaluate(facts).detailReasons(),
              (Lines{"The backup volume is not attached; the share itself is connected"}));
    facts.destinationReachable.reset();
    EXPECT_EQ(standard.evaluate(facts).detailReasons(),
              (Lines{"The backup volume is not attached"}));
    facts.destinationReachable = false;
    EXPECT_EQ(standard.evaluate(facts).detailReasons(),
              (Lines{"The backup volume is not attached", "Backup destination is offline"}));
    facts.backupVolumeAttached = true;
    facts.destinationReachable = true;
    EXPECT_EQ(standard.evaluate(facts).detailReasons(), Lines{});
}

TEST(ProtectionStateEvaluatorTest, WithoutAnySuccessfulBackup) {
    Facts facts = configured();
    facts.backupRunning = true;
    EXPECT_EQ(standard.evaluate(facts),
              (ProtectionVerdict{
                  ProtectionState::unknown, {"Unable to determine current backup state"}, false}));
    facts.destinationReachable = true;
    EXPECT_EQ(standard.evaluate(facts),
              (ProtectionVerdict{ProtectionState::stale,
                                 {"No successful backup detected", "Backup in progress"},
                                 false}));

    // A new failed attempt is reported once, with its detail; the same attempt again is not news.
    facts.backupRunning = false;
    facts.lastAttempt = ago(kHour);
    facts.lastResult = 19;
    facts.failureReasonReadable = false;
    const ProtectionVerdict fresh{
        ProtectionState::stale,
        {"No successful backup detected", "Last backup attempt has not completed",
         "Kestrow Helper is needed to see why (code 19)"},
        true};
    EXPECT_EQ(standard.evaluate(facts), fresh);
    facts.previousAttempt = ago(30 * kHour);
    EXPECT_EQ(standard.evaluate(facts), fresh);
    facts.previousAttempt = facts.lastAttempt;
    EXPECT_EQ(standard.evaluate(facts),
              (ProtectionVerdict{ProtectionState::stale, {"No successful backup detected"}, true}));

    // Perhaps still running: no detail, and not failed.
    facts.previousAttempt.reset();
    facts.backupRunning.reset();
    EXPECT_EQ(standard.evaluate(facts),
              (ProtectionVerdict{
                  ProtectionState::stale,
                  {"No successful backup detected", "Last backup attempt has not completed"},
                  false}));
    facts.lastAttempt = ago(21'601);
    EXPECT_TRUE(standard.evaluate(facts).lastAttemptFailed);

    // An offline destination replaces every other line.
    facts.backupRunning = true;
    facts.destinationReachable = false;
    EXPECT_EQ(
        standard.evaluate(facts),
        (ProtectionVerdict{ProtectionState::unavailable, {"Backup destination is offline"}, true}));
    // An attempt remembered from the last evaluation but no longer reported still counts as a
    // change, and as a known attempt.
    Facts vanished = configured();
    vanished.previousAttempt = ago(kHour);
    EXPECT_EQ(standard.evaluate(vanished),
              (ProtectionVerdict{
                  ProtectionState::stale,
                  {"No successful backup detected", "Last backup attempt has not completed"},
                  false}));

    Facts nothingElse = configured();
    nothingElse.destinationReachable = false;
    EXPECT_EQ(standard.evaluate(nothingElse),
              (ProtectionVerdict{
                  ProtectionState::unavailable, {"Backup destination is offline"}, false}));
}

TEST(ProtectionStateEvaluatorTest, FailedAttemptsAndHistory) {
    // Daily attempts 12..1 days ago, each followed by a snapshot ten minutes later, except the
    // ones 9 and 5 days ago; the newest attempt, half an hour ago, has no snapshot yet.
    std::vector<WallTime> attempts;
    std::vector<WallTime> snapshots;
    for (int day = 12; day >= 1; --day) {
        const WallTime attempt = ago(day * 24 * kHour);
        attempts.push_back(attempt);
        if (day != 9 && day != 5) snapshots.push_back(attempt + 10min);
    }
    const WallTime newest = ago(1800);
    attempts.push_back(newest);
    // Unsorted, with duplicates, as the tools may report them.
    std::reverse(attempts.begin(), attempts.end());
    attempts.push_back(attempts[3]);
    snapshots.push_back(snapshots.front());

    const std::vector<WallTime> olderFailures{ago(9 * 24 * kHour), ago(5 * 24 * kHour)};
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(attempts, snapshots, true, kNow),
              olderFailures);
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(attempts, snapshots, std::nullopt, kNow),
              olderFailures);
    auto withNewest = olderFailures;
    withNewest.push_back(newest);
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(attempts, snapshots, false, kNow),
              withNewest);
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(attempts, snapshots, std::nullopt,
                                                       addSeconds(newest, 21'600)),
              olderFailures);
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts(attempts, snapshots, std::nullopt,
                                                       addSeconds(newest, 21'601)),
              withNewest);

    const auto snap = [](int day) { return Entry{ago(day * 24 * kHour) + 10min, true}; };
    const auto fail = [](int day) { return Entry{ago(day * 24 * kHour), false}; };
    EXPECT_EQ(ProtectionStateEvaluator::history(attempts, snapshots, 8, true, kNow),
              (std::vector<Entry>{snap(1), snap(2), snap(3), snap(4), fail(5), snap(6), snap(7),
                                  snap(8)}));
    EXPECT_EQ(ProtectionStateEvaluator::history(attempts, snapshots, 2, false, kNow),
              (std::vector<Entry>{{newest, false}, snap(1)}));
}

TEST(ProtectionStateEvaluatorTest, ASnapshotCountsForTheAttemptItFollowsUntilTheNextOne) {
    const WallTime first = ago(10 * kHour);
    const WallTime second = ago(8 * kHour);
    // Taken exactly at the second attempt: it belongs to the second, so the first failed.
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts({second, first}, {second}, false, kNow),
              std::vector<WallTime>{first});
    // Taken between the attempts: the first succeeded, the second (not running) failed.
    EXPECT_EQ(ProtectionStateEvaluator::failedAttempts({first, second}, {second - 1s}, false, kNow),
              std::vector<WallTime>{second});
    EXPECT_TRUE(ProtectionStateEvaluator::failedAttempts({}, {first}, false, kNow).empty());
    EXPECT_EQ(ProtectionStateEvaluator::history({}, {first, first}, 8, false, kNow),
              (std::vector<Entry>{Entry{first, true}}));
}

}  // namespace
}  // namespace kestrow
