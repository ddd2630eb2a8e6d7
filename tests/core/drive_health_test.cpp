#include "insights/drive_health.h"

#include <gtest/gtest.h>

#include "insights/drive_health_monitor.h"
#include "support/recording_log_sink.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using Status = DriveHealth::Status;

// Answers from fields and counts what it was asked.
struct FakeSmart final : SmartStatus {
    Verdict boot = "Verified";
    BackupDisk backup{true, "Verified"};
    int bootAsks = 0;
    int backupAsks = 0;

    Verdict bootDisk() override {
        ++bootAsks;
        return boot;
    }
    BackupDisk backupDisk(const Destination&) override {
        ++backupAsks;
        return backup;
    }
};

// Counts what is posted to it, so a test can tell the disks were asked on the worker.
struct CountingExecutor final : Executor {
    explicit CountingExecutor(Executor& wrapped) : inner(wrapped) {}
    TaskId postAfter(double seconds, std::function<void()> task) override {
        ++posts;
        return inner.postAfter(seconds, std::move(task));
    }
    void cancel(TaskId id) override { inner.cancel(id); }
    Executor& inner;
    int posts = 0;
};

Destination local(std::string name) {
    Destination destination;
    destination.volumeName = std::move(name);
    return destination;
}

TEST(DriveHealth, ClassifiesTheDisksOwnWords) {
    struct Case {
        std::optional<std::string> text;
        bool network;
        Status expected;
    };
    const Case cases[] = {
        {"Verified", true, {DriveHealth::NotApplicable{}}},
        {"Failing", true, {DriveHealth::NotApplicable{}}},
        {std::nullopt, false, {DriveHealth::Unknown{}}},
        {"", false, {DriveHealth::Unknown{}}},
        {"Not Supported", false, {DriveHealth::Unknown{}}},
        {"Verified", false, {DriveHealth::Verified{}}},
        {"Failing", false, {DriveHealth::Failing{"Failing"}}},
        {"Verified ", false, {DriveHealth::Failing{"Verified "}}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(DriveHealth::status(c.text, c.network), c.expected)
            << c.text.value_or("(none)") << (c.network ? " on the network" : "");
    }

    const Status failing{DriveHealth::Failing{"Failing: read-only"}};
    EXPECT_EQ(failing.name(), "failing");
    EXPECT_EQ(failing.text(), "Failing: read-only");
    EXPECT_EQ(failing.description(), "failing (Failing: read-only)");
    EXPECT_EQ(Status{DriveHealth::NotApplicable{}}.name(), "notApplicable");
    EXPECT_EQ(Status{DriveHealth::Verified{}}.text(), std::nullopt);
    EXPECT_EQ(DriveHealth::logLine({Status{DriveHealth::Verified{}}, std::nullopt}),
              "Drive health: boot verified, backup none");
    EXPECT_EQ(DriveHealth::logLine({Status{}, Status{DriveHealth::Unavailable{"not connected"}}}),
              "Drive health: boot unknown, backup unavailable (not connected)");
}

TEST(DriveHealth, AsksAboutTheBackupDiskOnlyForALocalDestination) {
    FakeSmart smart;
    auto reading = DriveHealth::read(std::nullopt, smart);
    EXPECT_EQ(reading.first, Status{DriveHealth::Verified{}});
    EXPECT_EQ(reading.second, std::nullopt);

    Destination network = local("Vault");
    network.isNetwork = true;
    reading = DriveHealth::read(network, smart);
    EXPECT_EQ(reading.second, Status{DriveHealth::NotApplicable{}});
    EXPECT_EQ(smart.backupAsks, 0);

    smart.backup = {false, "Verified"};
    EXPECT_EQ(DriveHealth::read(local("Backups"), smart).second,
              (Status{DriveHealth::Unavailable{"not connected"}}));
    smart.backup = {true, std::nullopt};
    EXPECT_EQ(DriveHealth::read(local("Backups"), smart).second, Status{DriveHealth::Unknown{}});
    smart.backup = {true, "Failing"};
    smart.boot = "Not Supported";
    reading = DriveHealth::read(local("Backups"), smart);
    EXPECT_EQ(reading.first, Status{DriveHealth::Unknown{"no SMART on this disk"}});
    EXPECT_EQ(reading.second, Status{DriveHealth::Failing{"Failing"}});

    // Why there is no verdict travels with "unknown", and only with it.
    smart.boot = {std::nullopt, SmartStatus::kNoPermission};
    smart.backup = {true, {"Verified", SmartStatus::kNoAnswer}};
    reading = DriveHealth::read(local("Backups"), smart);
    EXPECT_EQ(reading.first.name(), "unknown");
    EXPECT_EQ(reading.first.text(), "no permission to read SMART");
    EXPECT_EQ(reading.first.description(), "unknown (no permission to read SMART)");
    EXPECT_EQ(reading.second, Status{DriveHealth::Verified{}});
    smart.boot = {"Failing: read-only", SmartStatus::kNoSmart};
    EXPECT_EQ(DriveHealth::read(std::nullopt, smart).first,
              Status{DriveHealth::Failing{"Failing: read-only"}});
    smart.boot = {"Not Supported", SmartStatus::kNoPermission};
    EXPECT_EQ(DriveHealth::read(std::nullopt, smart).first,
              Status{DriveHealth::Unknown{"no permission to read SMART"}});
    EXPECT_EQ(Status{DriveHealth::Unknown{}}.text(), std::nullopt);
    EXPECT_EQ(smart.bootAsks, 8);
    EXPECT_EQ(smart.backupAsks, 4);
}

TEST(DriveHealthMonitor, ChecksOnceADayOnTheWorkerAndAgainAfterTheClockIsSetBack) {
    VirtualScheduler scheduler;
    CountingExecutor worker(scheduler.makeSerialQueue());
    testing::RecordingLogSink sink;
    FakeSmart smart;
    int destinationReads = 0;
    DriveHealthMonitor monitor({scheduler, scheduler.mainExecutor(), worker, smart,
                                [&] {
                                    ++destinationReads;
                                    return std::optional(local("Backups"));
                                },
                                Logger(sink, LogArea::general)});
    int published = 0;
    const auto connection = monitor.health.observe([&](const auto&) { ++published; });

    monitor.start();
    EXPECT_TRUE(monitor.checking());
    EXPECT_EQ(smart.bootAsks, 0) << "never on the main thread's turn";
    scheduler.runPending();
    EXPECT_EQ(worker.posts, 1);
    EXPECT_EQ(smart.bootAsks, 1);
    EXPECT_EQ(destinationReads, 1);
    EXPECT_FALSE(monitor.checking());
    EXPECT_EQ(monitor.lastCheck(), scheduler.now());
    ASSERT_TRUE(monitor.health.get());
    EXPECT_EQ(monitor.health.get()->second, Status{DriveHealth::Verified{}});
    EXPECT_TRUE(sink.contains("Drive health: boot verified, backup verified"));

    // Hourly ticks stay quiet until a whole day has passed.
    scheduler.advance(23 * 3600.0);
    EXPECT_EQ(smart.bootAsks, 1);
    smart.backup = {true, "Failing"};
    scheduler.advance(3600.0);
    EXPECT_EQ(smart.bootAsks, 2);
    EXPECT_EQ(published, 2);
    EXPECT_EQ(monitor.health.get()->second, Status{DriveHealth::Failing{"Failing"}});

    // Set back two hours, the clock is before the last check: that check cannot be trusted to
    // hold off the next one, so the next tick checks.
    scheduler.shiftWallClock(-2 * 3600.0);
    scheduler.advance(3600.0);
    EXPECT_EQ(smart.bootAsks, 3);
    EXPECT_EQ(published, 2) << "the same answer is not published again";
    scheduler.advance(3600.0);
    EXPECT_EQ(smart.bootAsks, 3);

    monitor.stop();
    scheduler.advance(2 * 86'400.0);
    EXPECT_EQ(smart.bootAsks, 3);
}

TEST(DriveHealthMonitor, DueFollowsTheLastCheckAndTheDayBoundary) {
    const WallTime now = VirtualScheduler::defaultStart();
    EXPECT_TRUE(DriveHealthMonitor::due(std::nullopt, now));
    EXPECT_TRUE(DriveHealthMonitor::due(addSeconds(now, -86'400.0), now));
    EXPECT_FALSE(DriveHealthMonitor::due(addSeconds(now, -86'399.0), now));
    EXPECT_TRUE(DriveHealthMonitor::due(addSeconds(now, 1.0), now));
}

TEST(DriveHealthMonitor, AnAnswerArrivingAfterTheMonitorIsGoneIsDropped) {
    VirtualScheduler scheduler;
    Executor& worker = scheduler.makeSerialQueue();
    testing::RecordingLogSink sink;
    FakeSmart smart;
    {
        DriveHealthMonitor monitor({scheduler,
                                    scheduler.mainExecutor(),
                                    worker,
                                    smart,
                                    {},
                                    Logger(sink, LogArea::general)});
        monitor.start();
    }
    scheduler.runPending();
    EXPECT_EQ(smart.bootAsks, 1);
    EXPECT_FALSE(sink.contains("Drive health"));
}

}  // namespace
}  // namespace kestrow
