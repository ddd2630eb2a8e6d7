#pragma once

#include <memory>
#include <vector>

#include "support/clock.h"
#include "support/executor.h"
#include "support/task_timeline.h"

namespace kestrow {

// Virtual time for tests: one clock and every executor of the app on the test's own thread.
// Nothing runs until the test advances time; `advance` then runs what falls due, in due order
// (posting order among equals), moving the clock to each task's due time first. A sleep inside
// a task moves the clock forward by the slept time.
class VirtualScheduler final : public Clock {
public:
    explicit VirtualScheduler(WallTime start = defaultStart(), double bootSeconds = 600.0);
    ~VirtualScheduler() override;
    VirtualScheduler(const VirtualScheduler&) = delete;
    VirtualScheduler& operator=(const VirtualScheduler&) = delete;

    static WallTime defaultStart();

    Executor& mainExecutor();
    // A further serial queue sharing this timeline; owned by the scheduler.
    Executor& makeSerialQueue();

    // Runs everything due within the next `seconds`, then leaves the clock at least that far on.
    void advance(double seconds);
    // Runs what is due now, including what those tasks post for now.
    void runPending() { advance(0.0); }
    std::size_t pendingCount() const { return pending_.size(); }
    // Moves only the wall clock, as a user setting the clock back or forward does.
    void shiftWallClock(double seconds) { wallShift_ += seconds; }

    WallTime now() const override;
    double monotonic() const override { return elapsed_; }
    double secondsSinceBoot() const override { return bootSeconds_ + elapsed_; }
    bool sleep(double seconds, std::stop_token stop = {}) override;

private:
    class QueueExecutor;

    TaskId schedule(double delay, std::function<void()> task);
    void cancelTask(TaskId id);

    WallTime start_;
    double bootSeconds_;
    double elapsed_ = 0.0;
    double wallShift_ = 0.0;
    // Due times are virtual seconds since the scheduler started.
    TaskTimeline<double> pending_;
    std::vector<std::unique_ptr<QueueExecutor>> executors_;
};

}  // namespace kestrow
