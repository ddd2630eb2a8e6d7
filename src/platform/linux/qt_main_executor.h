#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <mutex>

#include "support/executor.h"
#include "support/task_timeline.h"

namespace kestrow {

// The app's main executor: tasks run on the Qt event loop of the thread that owns this object.
// Posting and cancelling are safe from any thread. Destroying it drops what has not started.
class QtMainExecutor final : public QObject, public Executor {
    Q_OBJECT
public:
    explicit QtMainExecutor(QObject* parent = nullptr);
    ~QtMainExecutor() override;
    QtMainExecutor(const QtMainExecutor&) = delete;
    QtMainExecutor& operator=(const QtMainExecutor&) = delete;

    TaskId postAfter(double seconds, std::function<void()> task) override;
    void cancel(TaskId id) override;

private:
    using Due = std::chrono::steady_clock::time_point;

    void runDue();
    void rearm();

    std::mutex mutex_;
    TaskTimeline<Due> tasks_;
    bool wakeQueued_ = false;
    QTimer timer_;
};

}  // namespace kestrow
