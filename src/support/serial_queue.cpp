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
    const TaskId id = nextId_++;
    tasks_.emplace(std::tuple{std::chrono::steady_clock::now() + delay, id}, std::move(task));
    ++posted_;
    wake_.notify_all();
    return id;
}

void SerialQueue::cancel(TaskId id) {
    std::lock_guard lock(mutex_);
    std::erase_if(tasks_, [id](const auto& entry) { return std::get<1>(entry.first) == id; });
}

void SerialQueue::run(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        if (tasks_.empty()) {
            wake_.wait(lock, stop, [this] { return !tasks_.empty(); });
            continue;
        }
        const auto first = tasks_.begin();
        const Due due = std::get<0>(first->first);
        if (std::chrono::steady_clock::now() < due) {
            // A newly posted task may be due sooner: wake for it, for stop, or at `due`.
            const std::uint64_t seen = posted_;
            wake_.wait_until(lock, stop, due, [this, seen] { return posted_ != seen; });
            continue;
        }
        auto task = std::move(first->second);
        tasks_.erase(first);
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace kestrow
