#include "support/virtual_scheduler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrow {
namespace {

TEST(VirtualScheduler, RunsDueTasksInDueOrderAcrossQueuesAndOnlyWhenAdvanced) {
    VirtualScheduler scheduler;
    Executor& main = scheduler.mainExecutor();
    Executor& queue = scheduler.makeSerialQueue();
    std::vector<std::string> ran;
    std::vector<double> at;
    const auto record = [&](std::string name) {
        return [&, name] {
            ran.push_back(name);
            at.push_back(scheduler.monotonic());
        };
    };

    main.postAfter(1.5, record("ticker"));
    queue.postAfter(0.8, record("retry"));
    main.post(record("now-1"));
    queue.post(record("now-2"));
    main.postAfter(9.0, record("confirm"));

    EXPECT_TRUE(ran.empty()) << "nothing runs before time is advanced";
    scheduler.advance(1.0);
    EXPECT_EQ(ran, (std::vector<std::string>{"now-1", "now-2", "retry"}));
    EXPECT_DOUBLE_EQ(at.back(), 0.8) << "the clock shows the task's due time while it runs";
    EXPECT_DOUBLE_EQ(scheduler.monotonic(), 1.0);

    scheduler.advance(8.0);  // up to 9.0: the 9 s task is due exactly at the end
    EXPECT_EQ(ran.back(), "confirm");
    EXPECT_EQ(ran.size(), 5u);
    EXPECT_EQ(scheduler.pendingCount(), 0u);
}

TEST(VirtualScheduler, CancelDropsOnlyTasksNotYetRunAndTasksMayRepost) {
    VirtualScheduler scheduler;
    Executor& main = scheduler.mainExecutor();
    int ticks = 0;
    std::function<void()> tick = [&] {
        ++ticks;
        main.postAfter(1.5, tick);  // a repeating ticker, as services build them
    };
    main.postAfter(1.5, tick);
    const TaskId doomed = main.postAfter(2.0, [&] { ADD_FAILURE() << "cancelled task ran"; });
    main.cancel(doomed);
    main.cancel(doomed);  // cancelling twice, or an unknown id, is harmless
    main.cancel(987654);

    scheduler.advance(6.0);
    EXPECT_EQ(ticks, 4);  // 1.5, 3.0, 4.5, 6.0
}

TEST(VirtualScheduler, SleepInsideATaskMovesTheClockAndStopEndsItAtOnce) {
    VirtualScheduler scheduler;
    const WallTime start = scheduler.now();
    const double bootAtStart = scheduler.secondsSinceBoot();
    double wokeAt = -1;
    scheduler.mainExecutor().post([&] {
        EXPECT_TRUE(scheduler.sleep(9.0));
        wokeAt = scheduler.monotonic();
    });
    scheduler.runPending();
    EXPECT_DOUBLE_EQ(wokeAt, 9.0);
    EXPECT_DOUBLE_EQ(secondsBetween(start, scheduler.now()), 9.0);
    EXPECT_DOUBLE_EQ(scheduler.secondsSinceBoot() - bootAtStart, 9.0);

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_FALSE(scheduler.sleep(5.0, stopped.get_token()));
    EXPECT_DOUBLE_EQ(scheduler.monotonic(), 9.0);

    // Setting the wall clock back moves wall time only; due times follow monotonic time.
    scheduler.shiftWallClock(-3600);
    EXPECT_DOUBLE_EQ(secondsBetween(start, scheduler.now()), 9.0 - 3600);
    EXPECT_DOUBLE_EQ(scheduler.monotonic(), 9.0);
}

}  // namespace
}  // namespace kestrow
