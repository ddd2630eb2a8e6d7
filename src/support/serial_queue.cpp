#include "support/serial_queue.h"

#include <algorithm>

namespace kestrow {

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), worker_([this](std::stop_token stop) { run(stop); }) {}

SerialQueue::~SerialQueue() {
    worker_.request_stop();
}

TaskId SerialQueue::postAfter(double seconds, std::function<void()> task) {
    const auto delay = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::max(0.0, seconds)));
    std::lock_guard lock(mutex_);
    const TaskId id = tasks_.add(std::chrono::steady_clock::now() + delay, std::move(task));
    ++posted_;
    wake_.notify_all();
    return id;
}

void SerialQueue::cancel(TaskId id) {
    std::function<void()> dropped;  // destroyed after the lock is released
    std::lock_guard lock(mutex_);
    dropped = tasks_.cancel(id);
}

void SerialQueue::run(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        if (tasks_.empty()) {
            wake_.wait(lock, stop, [this] { return !tasks_.empty(); });
            continue;
        }
        auto due = tasks_.popDue(std::chrono::steady_clock::now());
        if (!due) {
            // A newly posted task may be due sooner: wake for it, for stop, or at the first due
            // time.
            const std::uint64_t seen = posted_;
            wake_.wait_until(lock, stop, *tasks_.nextDue(),
                             [this, seen] { return posted_ != seen; });
            continue;
        }
        lock.unlock();
        due->task();
        lock.lock();
    }
}

}  // namespace kestrow
