#include "insights/drive_health_monitor.h"

#include <utility>

namespace kestrow {

bool DriveHealthMonitor::due(std::optional<WallTime> lastCheck, WallTime now) {
    if (!lastCheck || *lastCheck > now) return true;
    return secondsBetween(*lastCheck, now) >= kCheckIntervalSeconds;
}

DriveHealthMonitor::DriveHealthMonitor(Dependencies dependencies) : d_(std::move(dependencies)) {}

DriveHealthMonitor::~DriveHealthMonitor() {
    stop();
}

void DriveHealthMonitor::start() {
    if (next_) return;
    loop();
}

void DriveHealthMonitor::stop() {
    if (next_) d_.main.cancel(*next_);
    next_.reset();
}

void DriveHealthMonitor::loop() {
    next_ = d_.main.postAfter(kTickSeconds, [this] { loop(); });
    tick();
}

void DriveHealthMonitor::tick() {
    if (checking_ || !due(lastCheck_, d_.clock.now())) return;
    checking_ = true;
    std::optional<Destination> destination = d_.destination ? d_.destination() : std::nullopt;
    d_.worker.post([this, alive = std::weak_ptr<bool>(alive_), &smart = d_.smart, &main = d_.main,
                    destination = std::move(destination)] {
        DriveHealth::Reading reading = DriveHealth::read(destination, smart);
        // `alive` is only looked at on the main thread, where the monitor is destroyed.
        main.post([this, alive, reading = std::move(reading)]() mutable {
            if (!alive.expired()) finish(std::move(reading));
        });
    });
}

void DriveHealthMonitor::finish(DriveHealth::Reading reading) {
    checking_ = false;
    lastCheck_ = d_.clock.now();
    d_.log.info("{}", DriveHealth::logLine(reading));
    health.set(std::move(reading));
}

}  // namespace kestrow
