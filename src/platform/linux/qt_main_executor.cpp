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
    std::map<Key, std::function<void()>> dropped;
    {
        std::lock_guard lock(mutex_);
        dropped.swap(tasks_);
        dueOf_.clear();
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
        id = nextId_++;
        tasks_.emplace(Key{due, id}, std::move(task));
        dueOf_.emplace(id, due);
        // Only a new earliest task moves the timer, and one queued wake-up serves any number of
        // posts because the wake-up reads the queue when it runs.
        if (std::get<1>(tasks_.begin()->first) == id && !wakeQueued_) {
            wakeQueued_ = true;
            wake = true;
        }
    }
    // The timer belongs to the owner thread, so other threads reach it through its event loop.
    if (wake) QMetaObject::invokeMethod(this, &QtMainExecutor::rearm, Qt::QueuedConnection);
    return id;
}

void QtMainExecutor::cancel(TaskId id) {
    std::function<void()> dropped;
    std::lock_guard lock(mutex_);
    const auto found = dueOf_.find(id);
    if (found == dueOf_.end()) return;
    const auto task = tasks_.find(Key{found->second, id});
    dropped = std::move(task->second);
    tasks_.erase(task);
    dueOf_.erase(found);
}

void QtMainExecutor::runDue() {
    const Due batchStart = std::chrono::steady_clock::now();
    TaskId firstLater = 0;
    {
        std::lock_guard lock(mutex_);
        firstLater = nextId_;
    }
    // Tasks posted while this batch runs wait for the next pass, so a task that keeps posting
    // itself cannot starve the rest of the event loop.
    for (;;) {
        std::function<void()> task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty()) break;
            auto first = tasks_.begin();
            const auto [due, id] = first->first;
            if (due > batchStart || id >= firstLater) break;
            task = std::move(first->second);
            tasks_.erase(first);
            dueOf_.erase(id);
        }
        task();
    }
    rearm();
}

void QtMainExecutor::rearm() {
    Due next;
    {
        std::lock_guard lock(mutex_);
        wakeQueued_ = false;
        if (tasks_.empty()) {
            timer_.stop();
            return;
        }
        next = std::get<0>(tasks_.begin()->first);
    }
    const auto wait = next - std::chrono::steady_clock::now();
    // Rounded up: a timer that fires early only finds nothing due and arms again.
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    timer_.start(static_cast<int>(std::clamp<decltype(milliseconds)>(milliseconds, 0, 1 << 30)));
}

}  // namespace kestrow
