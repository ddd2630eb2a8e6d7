#include "shares/wake_observer.h"

#include <string>

namespace kestrow {

WakeObserver::WakeObserver(SystemPowerEvents& events, Executor& main, LogSink& log,
                           std::function<void()> mountAllAutoShares,
                           std::function<void(WallTime)> willSleep)
    : events_(events),
      main_(main),
      log_(log, LogArea::general),
      mountAll_(std::move(mountAllAutoShares)),
      willSleep_(std::move(willSleep)) {}

WakeObserver::~WakeObserver() {
    stop();
}

bool WakeObserver::start() {
    if (started_) return true;
    started_ = events_.start(
        [this](WallTime at) {
            if (willSleep_) willSleep_(at);
        },
        [this] { woke(); });
    if (!started_) log_.error("Wake observer: power notifications unavailable");
    return started_;
}

void WakeObserver::stop() {
    if (pending_) main_.cancel(*pending_);
    pending_.reset();
    if (!started_) return;
    started_ = false;
    events_.stop();
}

void WakeObserver::woke() {
    // The network comes up in steps after a wake; only the last of a burst counts.
    if (pending_) main_.cancel(*pending_);
    pending_ = main_.postAfter(stabilizationDelay, [this] {
        pending_.reset();
        settled();
    });
}

void WakeObserver::settled() {
    const std::optional<std::uint64_t> capabilities = events_.wakeCapabilities();
    const std::string shown = capabilities ? std::to_string(*capabilities) : "unknown";
    if (capabilities && (*capabilities & graphicsCapability) == 0) {
        log_.info("Wake observer: dark wake (capabilities {}); no auto-mount", shown);
        return;
    }
    log_.info("Wake observer: full wake (capabilities {}); auto-mounting", shown);
    if (mountAll_) mountAll_();
}

}  // namespace kestrow
