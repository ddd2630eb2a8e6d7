#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <map>
#include <mutex>
#include <tuple>
#include <unordered_map>

#include "support/executor.h"

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
    using Key = std::tuple<Due, TaskId>;

    void runDue();
    void rearm();

    std::mutex mutex_;
    // Keyed by (due, id): ids grow, so equal due times keep posting order.
    std::map<Key, std::function<void()>> tasks_;
    std::unordered_map<TaskId, Due> dueOf_;
    TaskId nextId_ = 1;
    bool wakeQueued_ = false;
    QTimer timer_;
};

}  // namespace kestrow
