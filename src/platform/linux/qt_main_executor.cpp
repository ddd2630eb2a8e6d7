#include "platform/linux/qt_main_executor.h"

#include <algorithm>
#include <cmath>

namespace kestrow {

QtMainExecutor::QtMainExecutor(QObject* parent) : QObject(parent), timer_(this) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &QtMainExecutor::runDue);
}

QtMainExecutor::~QtMainExecutor() {
    // Tasks may capture objects whose destructors post again; let them run outside the lock.
    TaskTimeline<Due> dropped;
    {
        std::lock_guard lock(mutex_);
        dropped = tasks_.takeAll();
    }
}

TaskId QtMainExecutor::postAfter(double seconds, std::function<void()> task) {
    // About thirty years stands in for "never" and keeps the time arithmetic from overflowing.
    const double clamped = std::isnan(seconds) ? 0.0 : std::clamp(seconds, 0.0, 1e9);
    const auto delay =
        std::chrono::duration_cast<Due::duration>(std::chrono::duration<double>(clamped));
    const Due due = std::chrono::steady_clock::now() + delay;
    bool wake = false;
    TaskId id = 0;
    {
        std::lock_guard lock(mutex_);
        id = tasks_.add(due, std::move(task));
        // Only a new earliest task moves the timer, and one queued wake-up serves any number of
        // posts because the wake-up reads the queue when it runs.
        if (tasks_.isFirst(id) && !wakeQueued_) {
            wakeQueued_ = true;
            wake = true;
        }
    }
    // The timer belongs to the owner thread, so other threads reach it through its event loop.
    if (wake) QMetaObject::invokeMethod(this, &QtMainExecutor::rearm, Qt::QueuedConnection);
    return id;
}

void QtMainExecutor::cancel(TaskId id) {
    std::function<void()> dropped;  // destroyed after the lock is released
    std::lock_guard lock(mutex_);
    dropped = tasks_.cancel(id);
}

void QtMainExecutor::runDue() {
    const Due batchStart = std::chrono::steady_clock::now();
    TaskId firstLater = 0;
    {
        std::lock_guard lock(mutex_);
        firstLater = tasks_.nextId();
    }
    // Tasks posted while this batch runs wait for the next pass, so a task that keeps posting
    // itself cannot starve the rest of the event loop.
    for (;;) {
        std::optional<TaskTimeline<Due>::Entry> due;
        {
            std::lock_guard lock(mutex_);
            due = tasks_.popDue(batchStart, firstLater);
        }
        if (!due) break;
        due->task();
    }
    rearm();
}

void QtMainExecutor::rearm() {
    Due next;
    {
        std::lock_guard lock(mutex_);
        wakeQueued_ = false;
        const auto first = tasks_.nextDue();
        if (!first) {
            timer_.stop();
            return;
        }
        next = *first;
    }
    const auto wait = next - std::chrono::steady_clock::now();
    // Rounded up: a timer that fires early only finds nothing due and arms again.
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    timer_.start(static_cast<int>(std::clamp<decltype(milliseconds)>(milliseconds, 0, 1 << 30)));
}

}  // namespace kestrow
