#include "timemachine/backup_status_model.h"

#include <gtest/gtest.h>

#include "app/settings/settings_keys.h"
#include "support/time_machine_fakes.h"

namespace kestrow {
namespace {

using testing::BackupStatusRig;
using testing::statusOutput;
using Entry = ProtectionStateEvaluator::HistoryEntry;

constexpr const char* kNasURL = "smb://kim@nas.local/Backups";

Destination localDisk(std::string name, std::vector<WallTime> snapshots,
                      std::vector<WallTime> attempts, std::int64_t lastResult = 0) {
    Destination d;
    d.id = name + "-id";
    d.volumeName = std::move(name);
    d.snapshots = std::move(snapshots);
    d.attempts = std::move(attempts);
    d.lastResult = lastResult;
    return d;
}

Destination nas(std::vector<WallTime> snapshots) {
    Destination d = localDisk("Studio on NAS", snapshots, snapshots);
    d.isNetwork = true;
    d.networkURL = kNasURL;
    return d;
}

TEST(BackupStatusModelTest, PublishesTheLastUsedDestinationElseTheFirstListed) {
    BackupStatusRig rig;
    const Destination spare = localDisk("Spare", {rig.hoursAgo(1)}, {rig.hoursAgo(1)});
    // Ten backups a day apart, listed out of order, and one failed attempt between the newest two.
    std::vector<WallTime> snapshots;
    for (const double hours : {26, 218, 50, 74, 98, 2, 122, 146, 170, 194}) {
        snapshots.push_back(rig.hoursAgo(hours));
    }
    std::vector<WallTime> attempts = snapshots;
    attempts.push_back(rig.hoursAgo(14));
    const Destination studio = localDisk("Studio", snapshots, attempts);
    rig.seed({spare, studio}, studio);

    rig.model.refresh();
    EXPECT_EQ(rig.model.destinationName.get(), "Studio");
    EXPECT_EQ(rig.model.lastSuccessful.get(), rig.hoursAgo(2));
    EXPECT_EQ(rig.model.oldestBackup.get(), rig.hoursAgo(218));
    EXPECT_EQ(rig.model.backupCount.get(), 10);
    EXPECT_EQ(rig.model.isNetworkDestination.get(), false);
    const auto& history = rig.model.history.get();
    ASSERT_EQ(history.size(), 8u);
    EXPECT_EQ(history[0], (Entry{rig.hoursAgo(2), true}));
    EXPECT_EQ(history[1], (Entry{rig.hoursAgo(14), false}));
    EXPECT_EQ(history[7], (Entry{rig.hoursAgo(146), true}));
    EXPECT_EQ(rig.model.verdict.get(),
              (ProtectionVerdict{
                  ProtectionState::protected_, {"Last successful backup 2 hours ago"}, false}));
    EXPECT_EQ(rig.model.rings.get().backupCount, 10);
    EXPECT_EQ(rig.model.rings.get().failedCount, 1);
    EXPECT_EQ(rig.probe.count(), 0u);  // a local disk is never probed

    // Destinations listed but none named as last used: Time Machine is still set up.
    rig.seed({spare, studio}, std::nullopt);
    rig.model.refresh();
    EXPECT_EQ(rig.model.destinationName.get(), "Spare");
    EXPECT_EQ(rig.model.backupCount.get(), 1);
    EXPECT_EQ(rig.model.history.get(), (std::vector<Entry>{{rig.hoursAgo(1), true}}));
}

TEST(BackupStatusModelTest, WithoutADestinationTimeMachineIsNotConfigured) {
    BackupStatusRig rig;
    const ProtectionVerdict notConfigured{
        ProtectionState::stale, {"Time Machine is not configured"}, false};
    rig.model.refresh();  // nothing stored at all
    EXPECT_EQ(rig.model.verdict.get(), notConfigured);
    EXPECT_EQ(rig.probe.count(), 0u);

    rig.seed({nas({rig.hoursAgo(3)})}, nas({rig.hoursAgo(3)}));
    rig.model.refresh();
    ASSERT_EQ(rig.probe.count(), 1u);
    ASSERT_EQ(rig.model.history.get().size(), 1u);

    // The destination is removed while its probe is still out.
    rig.seed({}, std::nullopt);
    rig.model.refresh();
    EXPECT_EQ(rig.model.verdict.get(), notConfigured);
    EXPECT_TRUE(rig.model.history.get().empty());
    EXPECT_EQ(rig.model.destinationName.get(), std::nullopt);
    EXPECT_EQ(rig.model.lastSuccessful.get(), std::nullopt);
    EXPECT_EQ(rig.model.backupCount.get(), 0);
    EXPECT_EQ(rig.probe.count(), 1u);
    EXPECT_TRUE(rig.probe.probe(0).cancelled);
    EXPECT_FALSE(rig.model.probing());
}

TEST(BackupStatusModelTest, RingsAreRemadeOnlyWhenTheirInputsChange) {
    BackupStatusRig rig;  // starts on a whole minute
    Destination disk = localDisk("Studio", {rig.hoursAgo(3)}, {rig.hoursAgo(3)});
    rig.seed({disk}, disk);
    int remade = 0;
    const auto watch = rig.model.rings.observe([&](const RingModel&) { ++remade; });

    rig.model.refresh();
    const WallTime firstMade = rig.scheduler.now();
    EXPECT_EQ(remade, 1);
    // Half a minute on, every age has moved, yet the picture stays as it was.
    rig.scheduler.advance(30);
    rig.model.refresh();
    EXPECT_EQ(remade, 1);
    EXPECT_EQ(rig.model.rings.get().madeAt, firstMade);

    rig.scheduler.advance(30);  // into the next minute
    rig.model.refresh();
    EXPECT_EQ(remade, 2);
    EXPECT_EQ(rig.model.rings.get().madeAt, rig.scheduler.now());

    // Within that same minute, a new threshold and then a new backup each remake it.
    rig.scheduler.advance(10);
    rig.sharedStore.set(keys::protectedThresholdHours, 12.0);
    rig.model.refresh();
    EXPECT_EQ(remade, 3);
    EXPECT_EQ(rig.model.rings.get().thresholdHours, 12.0);
    disk.snapshots.push_back(rig.scheduler.now());
    disk.attempts.push_back(rig.scheduler.now());
    rig.seed({disk}, disk);
    rig.model.refresh();
    EXPECT_EQ(remade, 4);
    EXPECT_EQ(rig.model.rings.get().backupCount, 2);
}

TEST(BackupStatusModelTest, FailureReasonIsLookedUpOncePerUnfinishedAttempt) {
    BackupStatusRig rig;
    Destination disk =
        localDisk("Studio", {rig.hoursAgo(30)}, {rig.hoursAgo(30), rig.hoursAgo(8)}, 19);
    rig.seed({disk}, disk);

    rig.model.refresh();
    rig.model.refresh();
    ASSERT_EQ(rig.failureReasons.lookups.size(), 1u);
    EXPECT_EQ(rig.failureReasons.lookups[0].attempt, rig.hoursAgo(8));
    EXPECT_EQ(rig.failureReasons.lookups[0].lastResult, 19);
    EXPECT_EQ(rig.model.failureReasonReadable.get(), std::nullopt);
    EXPECT_EQ(rig.reasons(), (std::vector<std::string>{"Last successful backup 30 hours ago",
                                                       "Last backup attempt did not complete",
                                                       "Checking why (code 19)"}));

    rig.failureReasons.answer(0, FailureReasonAnswer{std::nullopt, true});
    EXPECT_TRUE(rig.hasReason("Time Machine didn't say why (code 19)"));
    EXPECT_EQ(rig.sharedStore.boolValue(keys::failureReasonReadable), true);
    rig.model.refresh();  // the answer stands; no second question for the same attempt
    EXPECT_EQ(rig.failureReasons.lookups.size(), 1u);
    EXPECT_TRUE(rig.hasReason("Time Machine didn't say why (code 19)"));

    // A reason already in the shared store for the next attempt is used without asking.
    const WallTime second = rig.hoursAgo(7);
    disk.attempts.push_back(second);
    rig.sharedStore.set(keys::lastFailureReason, "The backup disk is full");
    rig.sharedStore.set(keys::lastFailureReasonAttempt, addSeconds(second, 0.5));
    rig.seed({disk}, disk);
    rig.model.refresh();
    EXPECT_EQ(rig.failureReasons.lookups.size(), 1u);
    EXPECT_EQ(rig.model.failureReason.get(), "The backup disk is full");
    EXPECT_TRUE(rig.hasReason("The backup disk is full"));

    // Two more attempts fail in quick succession: the answer about the older one comes in late
    // and must not be taken for the newer one.
    disk.attempts.push_back(rig.hoursAgo(6.6));
    rig.seed({disk}, disk);
    rig.model.refresh();
    disk.attempts.push_back(rig.hoursAgo(6.3));
    rig.seed({disk}, disk);
    rig.model.refresh();
    ASSERT_EQ(rig.failureReasons.lookups.size(), 3u);
    EXPECT_EQ(rig.failureReasons.lookups[2].attempt, rig.hoursAgo(6.3));
    rig.failureReasons.answer(1, FailureReasonAnswer{"The disk was ejected", true});
    EXPECT_EQ(rig.model.failureReason.get(), std::nullopt);
    EXPECT_TRUE(rig.hasReason("Checking why (code 19)"));
    rig.failureReasons.answer(2, FailureReasonAnswer{"The network share disconnected", true});
    EXPECT_TRUE(rig.hasReason("The network share disconnected"));
    EXPECT_EQ(rig.sharedStore.stringValue(keys::lastFailureReason),
              "The network share disconnected");
}

TEST(BackupStatusModelTest, AConnectedShareIsReachableWithoutAProbe) {
    BackupStatusRig rig;
    rig.connectedShares.insert(kNasURL);
    rig.seed({nas({rig.hoursAgo(30)})}, nas({rig.hoursAgo(30)}));

    rig.model.refresh();
    EXPECT_EQ(rig.probe.count(), 0u);
    EXPECT_EQ(rig.model.destinationReachable.get(), true);
    EXPECT_EQ(rig.sharedStore.boolValue(keys::destinationReachable), true);
    EXPECT_EQ(rig.model.verdict.get().state, ProtectionState::aging);
}

TEST(BackupStatusModelTest, ProbesTheShareHostAndOnlyTheNewestProbeCounts) {
    BackupStatusRig rig;
    rig.seed({nas({rig.hoursAgo(30)})}, nas({rig.hoursAgo(30)}));

    rig.model.refresh();
    ASSERT_EQ(rig.probe.count(), 1u);
    EXPECT_EQ(rig.probe.probe(0).host, "nas.local");
    EXPECT_EQ(rig.probe.probe(0).port, 445);
    EXPECT_TRUE(rig.model.probing());
    ASSERT_TRUE(rig.probe.answer(0, false));
    EXPECT_FALSE(rig.model.probing());
    EXPECT_EQ(rig.model.destinationReachable.get(), false);
    EXPECT_EQ(rig.sharedStore.boolValue(keys::destinationReachable), false);
    EXPECT_EQ(rig.model.verdict.get().state, ProtectionState::unavailable);
    EXPECT_TRUE(rig.hasReason("Backup destination is offline"));

    // A refresh while a probe is out replaces it.
    rig.model.refresh();
    rig.model.refresh();
    ASSERT_EQ(rig.probe.count(), 3u);
    EXPECT_TRUE(rig.probe.probe(1).cancelled);
    EXPECT_FALSE(rig.probe.probe(2).cancelled);
    EXPECT_TRUE(rig.model.probing());
    ASSERT_TRUE(rig.probe.answer(2, true));
    EXPECT_EQ(rig.model.destinationReachable.get(), true);
    EXPECT_EQ(rig.sharedStore.boolValue(keys::destinationReachable), true);
    EXPECT_EQ(rig.model.verdict.get().state, ProtectionState::aging);
    EXPECT_FALSE(rig.hasReason("Backup destination is offline"));
}

TEST(BackupStatusModelTest, HostAndPortOfADestinationURL) {
    // A repository server names its own port; a server over SSH without one is probed on SSH's,
    // never on the file-sharing port, and an IPv6 address's colons are not a port.
    EXPECT_EQ(BackupStatusModel::portOf("rest://backup.lan:8000"),
              std::optional<std::uint16_t>(8000));
    EXPECT_EQ(BackupStatusModel::portOf("sftp://ann:pw@nas/srv/restic"),
              std::optional<std::uint16_t>(22));
    EXPECT_EQ(BackupStatusModel::portOf("SMB://nas/Backups"), std::optional<std::uint16_t>(445));
    EXPECT_EQ(BackupStatusModel::portOf("afp://[fe80::1]/Backups"),
              std::optional<std::uint16_t>(548));
    EXPECT_EQ(BackupStatusModel::portOf("s3://bucket"), std::nullopt);
    EXPECT_EQ(BackupStatusModel::portOf("smb://nas:99999/x"), std::nullopt);

    EXPECT_EQ(BackupStatusModel::hostOf("smb://nas.local:445/Backups"), "nas.local");
    EXPECT_EQ(BackupStatusModel::hostOf("smb://kim:p@ss@nas.local/Backups"), "nas.local");
    EXPECT_EQ(BackupStatusModel::hostOf("afp://[fe80::1]:548/Backups"), "fe80::1");
    EXPECT_EQ(BackupStatusModel::hostOf("smb://10.0.0.2?auth=guest"), "10.0.0.2");
    EXPECT_EQ(BackupStatusModel::hostOf("nas.local/Backups"), std::nullopt);
    EXPECT_EQ(BackupStatusModel::hostOf("smb:///Backups"), std::nullopt);
    EXPECT_EQ(BackupStatusModel::hostOf("smb://[fe80::1/Backups"), std::nullopt);
}

TEST(BackupStatusModelTest, LivePollingFollowsTheRunningBackup) {
    BackupStatusRig rig;
    const Destination disk = localDisk("Studio", {rig.hoursAgo(2)}, {rig.hoursAgo(2)});
    rig.seed({disk}, disk);
    rig.model.refresh();
    rig.tools.answerDelay = 0.5;

    // Asked now, then two seconds after each answer.
    rig.model.startLivePolling();
    rig.scheduler.advance(0.5);
    rig.tools.statusAnswer = statusOutput(true, "Copying", 0.42);
    rig.scheduler.advance(2.5);
    EXPECT_EQ(rig.tools.statusCalls, (std::vector<double>{0.0, 2.5}));
    EXPECT_EQ(rig.model.live.get(), (TimeMachineLiveStatus{true, "Copying", 0.42, std::nullopt}));
    EXPECT_EQ(rig.reasons(), (std::vector<std::string>{"Last successful backup 2 hours ago",
                                                       "Backup in progress"}));

    rig.tools.statusAnswer = statusOutput(false);
    rig.scheduler.advance(2.5);
    EXPECT_EQ(rig.tools.statusCalls, (std::vector<double>{0.0, 2.5, 5.0}));
    EXPECT_FALSE(rig.model.live.get().running);
    EXPECT_FALSE(rig.hasReason("Backup in progress"));

    rig.model.stopLivePolling();
    rig.scheduler.advance(10);
    EXPECT_EQ(rig.tools.statusCalls.size(), 3u);

    // Stopped while an answer is on its way: that answer starts no new round.
    rig.model.startLivePolling();
    rig.model.stopLivePolling();
    rig.scheduler.advance(10);
    EXPECT_EQ(rig.tools.statusCalls.size(), 4u);
}

TEST(BackupStatusModelTest, NotifiesOnceWhenProtectionTurnsStale) {
    BackupStatusRig rig;
    const Destination disk = localDisk("Studio", {rig.hoursAgo(20)}, {rig.hoursAgo(20)});
    rig.seed({disk}, disk);

    rig.model.refresh();
    EXPECT_EQ(rig.model.verdict.get().state, ProtectionState::protected_);
    EXPECT_TRUE(rig.notifications.posts.empty());

    rig.scheduler.advance(29 * 3600.0);  // the backup is now 49 hours old
    rig.model.refresh();
    rig.model.refresh();
    EXPECT_EQ(rig.model.verdict.get().state, ProtectionState::stale);
    ASSERT_EQ(rig.notifications.posts.size(), 1u);
    EXPECT_EQ(rig.notifications.posts[0].identifier, "protection-transition");
    EXPECT_EQ(rig.notifications.posts[0].body, "Last successful backup 2 days ago");
}

}  // namespace
}  // namespace kestrow
