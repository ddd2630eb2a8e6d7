#include "insights/hog_watch_scheduler.h"

#include <time.h>

#include <exception>

#include "app/settings/preference_accessors.h"
#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"

namespace kestrow {
namespace {

struct ScanOutcome {
    std::optional<SizeSnapshot> taken;
    std::vector<SizeSnapshot> stored;
    std::optional<std::string> scanError;
    std::optional<std::string> saveError;
};

// Runs on the worker. Anything thrown ends the scan as a failure rather than leaving the watch
// busy for good.
ScanOutcome scanAndSave(const HogWatchScheduler::Scan& scan,
                        const std::function<void()>& enterBackgroundPriority, const HogStore& store,
                        WallTime now) {
    ScanOutcome outcome;
    try {
        if (enterBackgroundPriority) enterBackgroundPriority();
        outcome.taken = scan(now);
    } catch (const std::exception& error) {
        outcome.scanError = error.what();
    } catch (...) {
        outcome.scanError = "unknown error";
    }
    if (outcome.taken) {
        outcome.taken->kind = SizeSnapshot::Kind::nightly;  // what sets the pace of the estimate
        std::string error;
        if (!store.save(*outcome.taken, &error)) outcome.saveError = error;
    }
    outcome.stored = store.load();
    return outcome;
}

}  // namespace

HogWatchScheduler::HogWatchScheduler(Dependencies dependencies)
    : d_(std::move(dependencies)), log_(d_.log.sink(), LogArea::hogWatch) {}

HogWatchScheduler::~HogWatchScheduler() {
    stop();
}

int HogWatchScheduler::systemLocalHour(WallTime time) {
    const time_t seconds = std::chrono::system_clock::to_time_t(time);
    struct tm local {};
    if (::localtime_r(&seconds, &local) == nullptr) return -1;
    return local.tm_hour;
}

void HogWatchScheduler::start() {
    if (next_) return;
    remember(d_.store.load());
    repeat();
}

void HogWatchScheduler::stop() {
    if (next_) d_.mainExecutor.cancel(*next_);
    next_.reset();
}

void HogWatchScheduler::repeat() {
    next_ = d_.mainExecutor.postAfter(kTickSeconds, [this] { repeat(); });
    tick();
}

void HogWatchScheduler::tick() {
    if (scanning_ || !HogWatchPreference::isEnabled(d_.standardStore)) return;
    const WallTime now = d_.clock.now();
    if (!quietNight(now)) return;
    std::vector<SizeSnapshot> stored = d_.store.load();
    // `kestrow hogs --scan` may have added one since.
    remember(stored);
    for (const SizeSnapshot& snapshot : stored) {
        const double age = secondsBetween(snapshot.date, now);
        // A snapshot dated in the future says the clock was set back, not that one is recent.
        if (age >= 0.0 && age < kMinimumGapSeconds) {
            log_.once(waitingNote_, LogLevel::debug, "the last snapshot is recent");
            return;
        }
    }
    scan(now);
}

bool HogWatchScheduler::quietNight(WallTime now) {
    const int hour = d_.localHour(now);
    if (hour < 0 || hour >= kLastHour) {
        log_.once(waitingNote_, LogLevel::debug, "waiting for the small hours");
        return false;
    }
    const std::optional<bool> mains = d_.power.onMainsPower();
    if (!mains) {
        log_.once(waitingNote_, LogLevel::debug, "power source unknown");
        return false;
    }
    if (!*mains) {
        log_.once(waitingNote_, LogLevel::debug, "waiting for mains power");
        return false;
    }
    const std::optional<double> idle = d_.idle.secondsSinceLastInput();
    if (!idle) {
        log_.once(waitingNote_, LogLevel::debug, "idle time unknown");
        return false;
    }
    if (*idle < kIdleSeconds) {
        log_.once(waitingNote_, LogLevel::debug, "waiting for the user to be away");
        return false;
    }
    return true;
}

void HogWatchScheduler::scan(WallTime now) {
    scanning_ = true;
    waitingNote_.reset();
    d_.worker.post([this, alive = std::weak_ptr<bool>(alive_), scan = d_.scan,
                    background = d_.enterBackgroundPriority, store = d_.store,
                    &main = d_.mainExecutor, now] {
        ScanOutcome outcome = scanAndSave(scan, background, store, now);
        main.post([this, alive, outcome = std::move(outcome)]() mutable {
            if (alive.expired()) return;
            if (outcome.scanError) log_.error("scan failed ({})", *outcome.scanError);
            if (outcome.saveError) log_.error("could not save snapshot ({})", *outcome.saveError);
            scanning_ = false;
            // Tonight's growth is real even when it could not be kept for tomorrow.
            if (outcome.saveError) {
                unsaved_ = std::move(outcome.taken);
            } else if (outcome.taken) {
                unsaved_.reset();
            }
            remember(outcome.stored);
        });
    });
}

void HogWatchScheduler::remember(std::vector<SizeSnapshot> stored) {
    if (unsaved_ && (stored.empty() || stored.back().date < unsaved_->date)) {
        stored.push_back(*unsaved_);
    }
    latest_ = std::move(stored);
    publish();
}

void HogWatchScheduler::publish() {
    auto reading =
        HogWatch::latest(latest_, StandardSettings(d_.standardStore).hogWatchDismissed());
    alerts_.set(std::move(reading.alerts));
    daysUntilFull_.set(reading.daysUntilFull);
}

void HogWatchScheduler::dismiss(const std::string& path) {
    std::optional<std::int64_t> size;
    for (const HogAlert& alert : alerts_.get()) {
        if (alert.path == path) size = alert.size;
    }
    if (!size && !latest_.empty()) {
        const auto& sizes = latest_.back().sizes;
        if (const auto entry = sizes.find(path); entry != sizes.end()) size = entry->second;
    }
    if (!size) return;
    PlistDict dismissed;
    for (const auto& [folder, bytes] : StandardSettings(d_.standardStore).hogWatchDismissed())
        dismissed.emplace(folder, PlistValue(bytes));
    dismissed.insert_or_assign(path, PlistValue(*size));
    d_.standardStore.set(keys::hogWatchDismissed, PlistValue(std::move(dismissed)));
    publish();
}

}  // namespace kestrow
