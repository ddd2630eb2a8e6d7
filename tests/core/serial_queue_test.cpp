#include "support/serial_queue.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace kestrow {
namespace {

TEST(SerialQueue, RunsTasksOneAtATimeOffTheCallerInDueOrder) {
    SerialQueue queue("test queue");
    std::mutex mutex;
    std::vector<int> order;
    std::promise<std::thread::id> ranOn;
    std::promise<void> done;
    const auto append = [&](int n) {
        std::lock_guard lock(mutex);
        order.push_back(n);
    };

    queue.postAfter(0.05, [&] {
        append(3);
        done.set_value();
    });
    queue.post([&] {
        append(1);
        ranOn.set_value(std::this_thread::get_id());
    });
    queue.post([&] { append(2); });
    const TaskId dropped = queue.postAfter(0.02, [&] { append(99); });
    queue.cancel(dropped);

    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
    std::lock_guard lock(mutex);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(SerialQueue, ATaskPostedForSoonerWakesAQueueWaitingForALaterOne) {
    SerialQueue queue("test queue");
    std::promise<void> soon;
    queue.postAfter(
        3600, [] { ADD_FAILURE() << "the hour-long task must not run before the queue ends"; });
    queue.postAfter(0.01, [&] { soon.set_value(); });
    EXPECT_EQ(soon.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    // Destroying the queue drops the waiting task instead of running or waiting for it.
}

}  // namespace
}  // namespace kestrow
