#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/service.h"
#include "app/settings/settings_store.h"
#include "cleaners/browser_result.h"
#include "cleaners/cleaner_pass.h"
#include "cleaners/free_up_summary.h"
#include "cleaners/reclaim_ledger.h"
#include "platform/locations.h"
#include "platform/running_processes.h"
#include "platform/trash.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"

namespace kestrow {

// Clears the developer caches the user turned on, each at most once a week, and answers the
// menu's free-up action together with the browser caches. Main thread only; the passes
// themselves run wherever `runCleaners` puts them and answer on the main executor.
class MaintenanceCleaner final : public Service {
public:
    using RunCleaners =
        std::function<void(std::vector<std::string> ids, std::function<void(ReclaimReport)> done)>;

    struct Environment {
        std::function<WallTime()> now;
        SettingsStore& defaults;
        double tickSeconds = 3600.0;
        RunCleaners runCleaners = {};
        // Nothing here reads as browser clearing being off.
        std::function<void(std::function<void(BrowserResult)> done)> reclaimBrowsers = {};
        std::function<void(const ReclaimLedger&)> publish = {};
        // How the free-up summary says its words: the product's own unless the edition's are set.
        Wording wording = Wording::exact();
    };

    struct FreeUpResult {
        std::string summary;
        ReclaimReport report;  // the developer and browser parts folded
        std::set<FreeUpSummary::Busy> busy;
        bool operator==(const FreeUpResult&) const = default;
    };

    MaintenanceCleaner(Environment environment, Executor& mainExecutor, Logger log);
    ~MaintenanceCleaner() override;
    MaintenanceCleaner(const MaintenanceCleaner&) = delete;
    MaintenanceCleaner& operator=(const MaintenanceCleaner&) = delete;

    // Ticks now and then every `tickSeconds` until stopped.
    void start() override;
    void stop() override;
    // Ticks now, as after a setting changed.
    void poke();

    // Runs every enabled cleaner, due or not, then the browser caches.
    void freeUpSpace(std::function<void(FreeUpResult)> done);

    // The cleaners turned on, in table order.
    std::vector<std::string> enabledIDs() const;
    // Whether a pass is under way.
    bool ticking() const { return ticking_; }

    Observable<ReclaimLedger> ledger;

    // The production `runCleaners`: the cleaners of `ids`, in table order, pass on `worker` and
    // the report comes back on `main`.
    static RunCleaners cleanersOnDisk(Executor& worker, Executor& main,
                                      const UserLocations& folders, RunningProcesses& processes,
                                      Trash& trash);
    // What the given cleaners (and, when on, the browser caches) would free now. Reads the disk:
    // never on the main thread.
    static std::int64_t estimateBytes(const std::vector<std::string>& developerIDs,
                                      bool browsersEnabled, const UserLocations& folders);

private:
    void loop();
    void tick();
    void pass(std::vector<std::string> ids, std::function<void(ReclaimReport)> then);
    void finishPass(const std::vector<std::string>& ids, const ReclaimReport& report);
    void browserPart(std::shared_ptr<FreeUpResult> result, std::function<void(FreeUpResult)> done);
    ReclaimLedger storedLedger() const;
    void save(const ReclaimLedger& ledger);
    void logReport(const std::vector<std::string>& ids, const ReclaimReport& report) const;

    Environment env_;
    Executor& main_;
    Logger log_;
    double tickSeconds_;
    bool ticking_ = false;
    std::optional<TaskId> next_;
    OnceLog idleNote_;
    OnceLog saveNote_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
