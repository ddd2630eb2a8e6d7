#pragma once

#include <QDeadlineTimer>
#include <QTest>

#include <chrono>

namespace kestrow::testing {

// Runs the event loop until `condition` holds or `timeout` passes; returns whether it held.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired()) return false;
        QTest::qWait(5);
    }
    return true;
}

}  // namespace kestrow::testing
