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
    const std::uint64_t sequence = nextSequence_++;
    pending_.push_back(
        Pending{elapsed_ + std::max(0.0, delay), sequence, sequence, std::move(task)});
    return sequence;
}

void VirtualScheduler::cancelTask(TaskId id) {
    std::erase_if(pending_, [id](const Pending& p) { return p.id == id; });
}

void VirtualScheduler::advance(double seconds) {
    const double target = elapsed_ + std::max(0.0, seconds);
    for (;;) {
        auto next = std::min_element(
            pending_.begin(), pending_.end(), [](const Pending& a, const Pending& b) {
                return a.due != b.due ? a.due < b.due : a.sequence < b.sequence;
            });
        if (next == pending_.end() || next->due > target) break;
        Pending due = std::move(*next);
        pending_.erase(next);
        elapsed_ = std::max(elapsed_, due.due);
        due.task();
    }
    elapsed_ = std::max(elapsed_, target);
}

}  // namespace kestrow
