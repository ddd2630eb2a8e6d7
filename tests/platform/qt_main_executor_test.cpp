#include "platform/linux/qt_main_executor.h"

#include <QCoreApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::waitUntil;
using Steady = std::chrono::steady_clock;

double secondsSince(Steady::time_point start) {
    return std::chrono::duration<double>(Steady::now() - start).count();
}

TEST(QtMainExecutor, RunsTasksInDueOrderAndNeverEarly) {
    QtMainExecutor executor;
    std::vector<std::string> order;
    double lateRanAfter = 0.0;
    const auto start = Steady::now();
    executor.postAfter(0.06, [&] {
        order.push_back("late");
        lateRanAfter = secondsSince(start);
    });
    executor.postAfter(0.02, [&] { order.push_back("soon-1"); });
    executor.postAfter(0.02, [&] { order.push_back("soon-2"); });
    executor.post([&] { order.push_back("now"); });
    // Nothing runs inside post itself: tasks wait for the event loop.
    EXPECT_TRUE(order.empty());

    ASSERT_TRUE(waitUntil([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "soon-1", "soon-2", "late"}));
    EXPECT_GE(lateRanAfter, 0.06);
}

TEST(QtMainExecutor, CancelDropsOnlyTasksThatHaveNotRun) {
    QtMainExecutor executor;
    std::vector<std::string> ran;
    const TaskId dropped = executor.postAfter(0.01, [&] { ran.push_back("dropped"); });
    const TaskId first = executor.post([&] { ran.push_back("first"); });
    executor.cancel(dropped);
    ASSERT_TRUE(waitUntil([&] { return ran.size() == 1; }));

    // Cancelling what already ran, or an id never handed out, leaves later tasks alone.
    executor.postAfter(0.02, [&] { ran.push_back("after"); });
    executor.cancel(first);
    executor.cancel(dropped);
    executor.cancel(9999);
    ASSERT_TRUE(waitUntil([&] { return ran.size() == 2; }));
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "after"}));
}

TEST(QtMainExecutor, TasksPostedFromOtherThreadsRunOnTheOwnerThreadInPostingOrder) {
    QtMainExecutor executor;
    const auto ownerThread = std::this_thread::get_id();
    std::mutex mutex;
    std::vector<int> order;
    std::atomic<int> onOwner{0};
    std::atomic<bool> cancelledRan{false};

    std::thread poster([&] {
        const TaskId doomed = executor.postAfter(0.05, [&] { cancelledRan = true; });
        for (int i = 0; i < 200; ++i) {
            executor.post([&, i] {
                if (std::this_thread::get_id() == ownerThread) ++onOwner;
                std::lock_guard lock(mutex);
                order.push_back(i);
            });
        }
        executor.cancel(doomed);
    });
    poster.join();
    bool sentinelRan = false;
    executor.postAfter(0.08, [&] { sentinelRan = true; });

    ASSERT_TRUE(waitUntil([&] { return sentinelRan; }));
    EXPECT_EQ(onOwner.load(), 200);
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_FALSE(cancelledRan.load());
}

TEST(QtMainExecutor, TasksCanPostTasksWithoutStarvingTheEventLoop) {
    QtMainExecutor executor;
    std::vector<std::string> order;
    executor.post([&] {
        order.push_back("outer");
        executor.post([&] { order.push_back("inner-now"); });
        executor.postAfter(0.01, [&] { order.push_back("inner-later"); });
        order.push_back("outer-end");
    });
    ASSERT_TRUE(waitUntil([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "outer-end", "inner-now", "inner-later"}));

    // A task that keeps posting itself must leave room for the rest of the event loop. The cap
    // turns a starved loop into a failure instead of a hang.
    constexpr int cap = 200'000;
    int spins = 0;
    int spinsWhenTimerFired = -1;
    std::function<void()> spin = [&] {
        if (++spins < cap && spinsWhenTimerFired < 0) executor.post(spin);
    };
    executor.post(spin);
    QTimer::singleShot(20, [&] { spinsWhenTimerFired = spins; });
    ASSERT_TRUE(waitUntil([&] { return spinsWhenTimerFired >= 0; }));
    EXPECT_LT(spinsWhenTimerFired, cap);
}

TEST(QtMainExecutor, DestroyingTheExecutorDropsPendingTasks) {
    auto executor = std::make_unique<QtMainExecutor>();
    auto witness = std::make_shared<int>(0);
    executor->postAfter(0.01, [witness] { ++*witness; });
    executor->post([witness] { ++*witness; });
    EXPECT_EQ(witness.use_count(), 3);
    executor.reset();
    // The tasks themselves are gone, so nothing is left that could still run them.
    EXPECT_EQ(witness.use_count(), 1);
    EXPECT_EQ(*witness, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(*witness, 0);
}

}  // namespace
}  // namespace kestrow
