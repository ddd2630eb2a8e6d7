#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/service.h"
#include "app/settings/settings_store.h"
#include "cleaners/browser_result.h"
#include "cleaners/chromium_browser.h"
#include "cleaners/reclaim_ledger.h"
#include "platform/locations.h"
#include "platform/running_processes.h"
#include "platform/trash.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"

namespace kestrow {

// Clears each browser's caches about once a week: an hourly tick runs a pass over the browsers
// that are due, and the menu can ask for a pass over all of them. Passes run on the worker;
// everything else, including every answer, happens on the main thread.
class BrowserCacheReclaimer final : public Service {
public:
    struct Dependencies {
        Clock& clock;
        Executor& mainExecutor;
        Executor& worker;
        SettingsStore& standardStore;
        RunningProcesses& processes;
        Trash& trash;
        UserLocations folders;
        Logger log;  // any area: the reclaimer logs under its own
    };

    static constexpr double kTickSeconds = 3'600.0;

    explicit BrowserCacheReclaimer(Dependencies dependencies);
    ~BrowserCacheReclaimer() override;
    BrowserCacheReclaimer(const BrowserCacheReclaimer&) = delete;
    BrowserCacheReclaimer& operator=(const BrowserCacheReclaimer&) = delete;

    // A tick now, then one every hour until stop().
    void start() override;
    void stop() override;
    // One tick now, as when the switch was just turned on.
    void poke();
    // A pass over every browser, due or not; `done` is called on the main thread.
    void reclaimNow(std::function<void(BrowserResult)> done);

    bool ticking() const { return ticking_; }
    Observable<std::optional<WallTime>>& lastRun() { return lastRun_; }
    Observable<std::int64_t>& lastFreed() { return lastFreed_; }
    Observable<std::vector<std::string>>& blocked() { return blocked_; }

private:
    void hourly();
    void tick();
    void pass(std::vector<ChromiumBrowser> browsers, std::function<void(BrowserResult)> done);
    void finish(const std::vector<ChromiumBrowser>& browsers, const ReclaimReport& report);
    ReclaimLedger loadLedger() const;
    void saveLedger(const ReclaimLedger& ledger, const ReclaimReport& report);
    void publish(const ReclaimLedger& ledger, std::vector<std::string> blockedNames);
    void logReport(const std::vector<ChromiumBrowser>& browsers, const ReclaimReport& report) const;

    Dependencies d_;
    Logger log_;
    OnceLog tooSoonNote_;
    std::optional<TaskId> next_;
    bool ticking_ = false;
    Observable<std::optional<WallTime>> lastRun_;
    Observable<std::int64_t> lastFreed_{0};
    Observable<std::vector<std::string>> blocked_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
