#pragma once

#include <functional>
#include <optional>

#include "platform/system_power_events.h"
#include "support/executor.h"
#include "support/logger.h"

namespace kestrow {

// Brings the shares back after the machine wakes: one auto-mount pass once the wake has settled,
// however many wake notifications came in a burst. Lives on the main executor.
class WakeObserver {
public:
    static constexpr double stabilizationDelay = 3.0;
    static constexpr std::uint64_t graphicsCapability = 2;

    WakeObserver(SystemPowerEvents& events, Executor& main, LogSink& log,
                 std::function<void()> mountAllAutoShares,
                 std::function<void(WallTime)> willSleep = {});
    ~WakeObserver();
    WakeObserver(const WakeObserver&) = delete;
    WakeObserver& operator=(const WakeObserver&) = delete;

    // False when the system's power notifications could not be subscribed to.
    bool start();
    void stop();
    // The power subsystem hears about sleep through this.
    void setWillSleep(std::function<void(WallTime)> willSleep) {
        willSleep_ = std::move(willSleep);
    }

private:
    void woke();
    void settled();

    SystemPowerEvents& events_;
    Executor& main_;
    Logger log_;
    std::function<void()> mountAll_;
    std::function<void(WallTime)> willSleep_;
    bool started_ = false;
    std::optional<TaskId> pending_;
};

}  // namespace kestrow
