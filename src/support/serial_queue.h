#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "support/executor.h"
#include "support/task_timeline.h"

namespace kestrow {

// A serial queue on its own worker thread, for work that must stay off the main thread (file
// events, tool runs, tree walks). Destroying it drops what has not started and waits for the
// running task.
class SerialQueue final : public Executor {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    TaskId postAfter(double seconds, std::function<void()> task) override;
    void cancel(TaskId id) override;
    const std::string& label() const { return label_; }

private:
    using Due = std::chrono::steady_clock::time_point;
    void run(std::stop_token stop);

    std::string label_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    TaskTimeline<Due> tasks_;
    std::uint64_t posted_ = 0;
    std::jthread worker_;
};

}  // namespace kestrow
