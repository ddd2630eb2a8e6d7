#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "app/service.h"
#include "insights/drive_health.h"
#include "platform/smart_status.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"

namespace kestrow {

// Asks the disks how they are once a day. Disks fail over weeks, and asking wakes a sleeping
// backup disk, so more often buys nothing. Main thread only; the asking itself runs on `worker`,
// which must be done with its tasks before `smart` goes.
class DriveHealthMonitor final : public Service {
public:
    struct Dependencies {
        Clock& clock;
        Executor& main;
        Executor& worker;
        SmartStatus& smart;
        // The backup destination now, read on the main thread at each check.
        std::function<std::optional<Destination>()> destination;
        Logger log;
    };

    static constexpr double kTickSeconds = 3'600.0;
    static constexpr double kCheckIntervalSeconds = 86'400.0;

    // Whether a check is due: never checked, checked a day or more ago, or the clock was set back
    // past the last check (which would otherwise hold off the next one for as long).
    static bool due(std::optional<WallTime> lastCheck, WallTime now);

    explicit DriveHealthMonitor(Dependencies dependencies);
    ~DriveHealthMonitor() override;
    DriveHealthMonitor(const DriveHealthMonitor&) = delete;
    DriveHealthMonitor& operator=(const DriveHealthMonitor&) = delete;

    // Ticks now and then every hour until stopped.
    void start() override;
    void stop() override;

    std::optional<WallTime> lastCheck() const { return lastCheck_; }
    bool checking() const { return checking_; }

    // Nothing until the first check has answered.
    Observable<std::optional<DriveHealth::Reading>> health;

private:
    void loop();
    void tick();
    void finish(DriveHealth::Reading reading);

    Dependencies d_;
    std::optional<TaskId> next_;
    std::optional<WallTime> lastCheck_;
    bool checking_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
