#pragma once

#include <cstdint>
#include <functional>

namespace kestrow {

using TaskId = std::uint64_t;

// A place where work runs one task at a time: the main thread, or one serial queue. Services
// never start threads or timers themselves; they post here.
class Executor {
public:
    virtual ~Executor() = default;

    TaskId post(std::function<void()> task) { return postAfter(0.0, std::move(task)); }
    // Runs `task` once `seconds` have passed (monotonic time). Tasks due at the same moment run in
    // the order they were posted.
    virtual TaskId postAfter(double seconds, std::function<void()> task) = 0;
    // Drops a task that has not started; a running or finished task is left alone.
    virtual void cancel(TaskId id) = 0;
};

}  // namespace kestrow
