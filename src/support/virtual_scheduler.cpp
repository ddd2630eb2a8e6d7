#include "support/virtual_scheduler.h"

#include <algorithm>

namespace kestrow {

class VirtualScheduler::QueueExecutor final : public Executor {
public:
    explicit QueueExecutor(VirtualScheduler& owner) : owner_(owner) {}
    TaskId postAfter(double seconds, std::function<void()> task) override {
        return owner_.schedule(seconds, std::move(task));
    }
    void cancel(TaskId id) override { owner_.cancelTask(id); }

private:
    VirtualScheduler& owner_;
};

VirtualScheduler::VirtualScheduler(WallTime start, double bootSeconds)
    : start_(start), bootSeconds_(bootSeconds) {
    executors_.push_back(std::make_unique<QueueExecutor>(*this));
}

VirtualScheduler::~VirtualScheduler() = default;

WallTime VirtualScheduler::defaultStart() {
    // 2026-01-15 12:00:00 UTC: a fixed, ordinary moment keeps test expectations readable.
    return WallTime{std::chrono::seconds{1768478400}};
}

Executor& VirtualScheduler::mainExecutor() {
    return *executors_.front();
}

Executor& VirtualScheduler::makeSerialQueue() {
    executors_.push_back(std::make_unique<QueueExecutor>(*this));
    return *executors_.back();
}

WallTime VirtualScheduler::now() const {
    return addSeconds(start_, elapsed_ + wallShift_);
}

bool VirtualScheduler::sleep(double seconds, std::stop_token stop) {
    if (stop.stop_requested()) return false;
    elapsed_ += std::max(0.0, seconds);
    return true;
}

TaskId VirtualScheduler::schedule(double delay, std::function<void()> task) {
    return pending_.add(elapsed_ + std::max(0.0, delay), std::move(task));
}

void VirtualScheduler::cancelTask(TaskId id) {
    pending_.cancel(id);
}

void VirtualScheduler::advance(double seconds) {
    const double target = elapsed_ + std::max(0.0, seconds);
    while (auto due = pending_.popDue(target)) {
        elapsed_ = std::max(elapsed_, due->due);
        due->task();
    }
    elapsed_ = std::max(elapsed_, target);
}

}  // namespace kestrow
