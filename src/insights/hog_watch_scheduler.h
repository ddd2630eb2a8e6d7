#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/service.h"
#include "app/settings/settings_store.h"
#include "insights/hog_store.h"
#include "insights/hog_watch.h"
#include "insights/size_snapshot.h"
#include "platform/idle_time.h"
#include "platform/power_source.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"

namespace kestrow {

// The nightly size scan: a tick every ten minutes takes a snapshot when the night is quiet (small
// hours, mains power, nobody at the keyboard) and the last one is most of a day old, then tells
// which folders grew fast and when the disk fills. The scan runs on the worker; everything else,
// and every published value, on the main thread.
class HogWatchScheduler final : public Service {
public:
    using Scan = std::function<SizeSnapshot(WallTime now)>;
    using LocalHour = std::function<int(WallTime)>;

    struct Dependencies {
        Clock& clock;
        Executor& mainExecutor;
        Executor& worker;
        SettingsStore& standardStore;
        PowerSource& power;
        IdleTime& idle;
        HogStore store;
        Scan scan;  // runs on the worker
        LocalHour localHour = systemLocalHour;
        Logger log;  // any area: the watch logs under its own
        // Runs on the worker before each scan: a long walk of the whole home at night must
        // yield the processor and the disk to anything else (idle CPU and I/O priority).
        std::function<void()> enterBackgroundPriority{};
    };

    static constexpr double kTickSeconds = 600.0;
    static constexpr double kIdleSeconds = 600.0;
    static constexpr int kLastHour = 6;  // scans start before 06:00 local time
    static constexpr double kMinimumGapSeconds = 72'000.0;

    explicit HogWatchScheduler(Dependencies dependencies);
    ~HogWatchScheduler() override;
    HogWatchScheduler(const HogWatchScheduler&) = delete;
    HogWatchScheduler& operator=(const HogWatchScheduler&) = delete;

    // Publishes what the stored snapshots say, then ticks now and every ten minutes until stop().
    void start() override;
    void stop() override;

    // Quiets the alert for `path` until the folder has grown 5 GB beyond its size now.
    void dismiss(const std::string& path);

    bool scanning() const { return scanning_; }
    Observable<std::vector<HogAlert>>& alerts() { return alerts_; }
    Observable<std::optional<int>>& daysUntilFull() { return daysUntilFull_; }

    // The hour of the local time zone, 0–23.
    static int systemLocalHour(WallTime time);

private:
    void repeat();
    void tick();
    bool quietNight(WallTime now);
    void scan(WallTime now);
    // Keeps `stored` (and a snapshot that could not be saved) and publishes what they say.
    void remember(std::vector<SizeSnapshot> stored);
    void publish();

    Dependencies d_;
    Logger log_;
    OnceLog waitingNote_;
    std::optional<TaskId> next_;
    bool scanning_ = false;
    // The stored snapshots, oldest first: a few, as the store prunes them.
    std::vector<SizeSnapshot> latest_;
    std::optional<SizeSnapshot> unsaved_;
    Observable<std::vector<HogAlert>> alerts_;
    Observable<std::optional<int>> daysUntilFull_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
