#include "cleaners/maintenance_cleaner.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <exception>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "cleaners/browser_cleaner.h"
#include "cleaners/chromium_browser.h"
#include "cleaners/cleaner_path.h"
#include "cleaners/developer_cleaners.h"
#include "support/byte_count_format.h"

namespace kestrow {

namespace fs = std::filesystem;

namespace {

bool contains(const std::vector<std::string>& ids, const std::string& id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The cleaners of `ids` in table order, whatever order they were asked in.
std::vector<std::unique_ptr<Cleaner>> makeCleaners(const std::vector<std::string>& ids,
                                                   const UserLocations& folders) {
    std::vector<std::unique_ptr<Cleaner>> cleaners;
    for (const std::string& id : DeveloperCleaners::ids()) {
        if (!contains(ids, id)) continue;
        if (auto cleaner = DeveloperCleaners::make(id, folders)) {
            cleaners.push_back(std::move(cleaner));
        }
    }
    return cleaners;
}

// Runs on the worker. Anything thrown ends the pass as a failure rather than leaving the
// scheduler busy for good.
ReclaimReport runPass(const std::vector<std::string>& ids, const UserLocations& folders,
                      RunningProcesses& processes, Trash& trash) {
    try {
        const auto cleaners = makeCleaners(ids, folders);
        std::vector<const Cleaner*> pointers;
        for (const auto& cleaner : cleaners) pointers.push_back(cleaner.get());
        return CleanerPass::runAllOn(pointers, processes, trash);
    } catch (const std::exception& error) {  // building the cleaners
        ReclaimReport report;
        report.failures.push_back(fmt::format("the pass stopped: {}", error.what()));
        return report;
    }
}

void fold(ReclaimReport& into, const ReclaimReport& part) {
    const auto append = [](std::vector<std::string>& to, const std::vector<std::string>& from) {
        to.insert(to.end(), from.begin(), from.end());
    };
    into.freedBytes += part.freedBytes;
    into.trashedCount += part.trashedCount;
    append(into.skippedRunning, part.skippedRunning);
    append(into.reclaimedNames, part.reclaimedNames);
    append(into.failures, part.failures);
    append(into.blocked, part.blocked);
    append(into.blockedReasons, part.blockedReasons);
    for (const auto& [id, bytes] : part.completed) into.completed[id] += bytes;
}

std::int64_t targetBytes(const Cleaner& cleaner) {
    std::int64_t bytes = 0;
    for (const fs::path& target : cleaner.discover().targets) {
        bytes += CleanerPath::byteSizeCounting(target).bytes;
    }
    return bytes;
}

}  // namespace

MaintenanceCleaner::MaintenanceCleaner(Environment environment, Executor& mainExecutor, Logger log)
    : env_(std::move(environment)),
      main_(mainExecutor),
      log_(log.sink(), LogArea::maintenance),
      // A zero or broken interval would tick without end.
      tickSeconds_(std::isfinite(env_.tickSeconds) && env_.tickSeconds > 0.0 ? env_.tickSeconds
                                                                             : 3600.0) {
    ledger.set(storedLedger());
}

MaintenanceCleaner::~MaintenanceCleaner() {
    stop();
}

void MaintenanceCleaner::start() {
    if (next_) return;
    loop();
}

void MaintenanceCleaner::stop() {
    if (next_) main_.cancel(*next_);
    next_.reset();
}

void MaintenanceCleaner::poke() {
    tick();
}

void MaintenanceCleaner::loop() {
    next_ = main_.postAfter(tickSeconds_, [this] { loop(); });
    tick();
}

std::vector<std::string> MaintenanceCleaner::enabledIDs() const {
    const StandardSettings settings(env_.defaults);
    std::vector<std::string> ids;
    for (const std::string& id : DeveloperCleaners::ids()) {
        if (settings.maintenanceEnabled(id)) ids.push_back(id);
    }
    return ids;
}

void MaintenanceCleaner::tick() {
    if (ticking_) return;
    const std::vector<std::string> enabled = enabledIDs();
    const ReclaimLedger stored = storedLedger();
    ledger.set(stored);  // `kestrow settings` may have changed it since
    std::vector<std::string> due = stored.dueIDs(env_.now(), enabled);
    if (due.empty()) {
        log_.once(idleNote_, LogLevel::info,
                  enabled.empty() ? "every cleaner is off"
                                  : "too soon: every cleaner that is on ran within the last week");
        return;
    }
    pass(std::move(due), {});
}

void MaintenanceCleaner::freeUpSpace(std::function<void(FreeUpResult)> done) {
    auto result = std::make_shared<FreeUpResult>();
    if (ticking_) {
        result->busy.insert(FreeUpSummary::Busy::developer);
        browserPart(std::move(result), std::move(done));
        return;
    }
    std::vector<std::string> enabled = enabledIDs();
    if (enabled.empty()) {
        browserPart(std::move(result), std::move(done));
        return;
    }
    pass(std::move(enabled),
         [this, result, done = std::move(done)](const ReclaimReport& report) mutable {
             fold(result->report, report);
             browserPart(std::move(result), std::move(done));
         });
}

void MaintenanceCleaner::browserPart(std::shared_ptr<FreeUpResult> result,
                                     std::function<void(FreeUpResult)> done) {
    auto finish = [this, result, done = std::move(done)] {
        const ReclaimReport& report = result->report;
        result->summary =
            FreeUpSummary::line(env_.wording, report.freedBytes, report.skippedRunning,
                                !report.blocked.empty(), result->busy, report.failures);
        if (done) done(*result);
    };
    if (!env_.reclaimBrowsers) {
        finish();
        return;
    }
    env_.reclaimBrowsers([alive = std::weak_ptr<bool>(alive_), result,
                          finish = std::move(finish)](const BrowserResult& answer) mutable {
        if (alive.expired()) return;
        if (const auto* report = std::get_if<ReclaimReport>(&answer.value)) {
            fold(result->report, *report);
        } else if (std::holds_alternative<BrowserResult::Busy>(answer.value)) {
            result->busy.insert(FreeUpSummary::Busy::browsers);
        }
        finish();
    });
}

void MaintenanceCleaner::pass(std::vector<std::string> ids,
                              std::function<void(ReclaimReport)> then) {
    ticking_ = true;
    idleNote_.reset();
    const std::vector<std::string> asked = ids;
    env_.runCleaners(std::move(ids), [this, alive = std::weak_ptr<bool>(alive_), asked,
                                      then = std::move(then)](ReclaimReport report) {
        if (alive.expired()) return;
        finishPass(asked, report);
        if (then) then(std::move(report));
    });
}

void MaintenanceCleaner::finishPass(const std::vector<std::string>& ids,
                                    const ReclaimReport& report) {
    ticking_ = false;
    // Read again: `kestrow settings` may have changed the ledger while the pass ran.
    ReclaimLedger updated = storedLedger();
    updated.record(report, env_.now());
    save(updated);
    logReport(ids, report);
    ledger.set(updated);
    if (env_.publish) env_.publish(updated);
}

ReclaimLedger MaintenanceCleaner::storedLedger() const {
    const StandardSettings settings(env_.defaults);
    ReclaimLedger stored;
    stored.lastRuns = settings.maintenanceLastRuns();
    stored.lastFreed = settings.maintenanceLastFreed();
    return stored;
}

void MaintenanceCleaner::save(const ReclaimLedger& updated) {
    PlistDict runs;
    for (const auto& [id, date] : updated.lastRuns) runs.emplace(id, PlistValue(date));
    PlistDict freed;
    for (const auto& [id, bytes] : updated.lastFreed) freed.emplace(id, PlistValue(bytes));
    const bool failed = env_.defaults.set(keys::maintenanceLastRuns, PlistValue(std::move(runs))) ==
                            StoreWrite::failed ||
                        env_.defaults.set(keys::maintenanceLastFreed,
                                          PlistValue(std::move(freed))) == StoreWrite::failed;
    if (failed) {
        // Unsaved, the cleaners stay due and run again on the next tick: harmless, but worth
        // one line.
        log_.once(saveNote_, LogLevel::error, "could not save when the cleaners last ran");
    } else {
        saveNote_.reset();
    }
}

void MaintenanceCleaner::logReport(const std::vector<std::string>& ids,
                                   const ReclaimReport& report) const {
    std::vector<std::string> done;
    for (const std::string& id : ids) {
        if (!report.completed.contains(id)) continue;
        const std::string name = DeveloperCleaners::name(id);
        done.push_back(name.empty() ? id : name);
    }
    CleanerPass::log(log_, report, done);
}

MaintenanceCleaner::RunCleaners MaintenanceCleaner::cleanersOnDisk(Executor& worker, Executor& main,
                                                                   const UserLocations& folders,
                                                                   RunningProcesses& processes,
                                                                   Trash& trash) {
    return [&worker, &main, folders, &processes, &trash](std::vector<std::string> ids,
                                                         std::function<void(ReclaimReport)> done) {
        worker.post([&main, folders, &processes, &trash, ids = std::move(ids),
                     done = std::move(done)]() mutable {
            ReclaimReport report = runPass(ids, folders, processes, trash);
            main.post([done = std::move(done), report = std::move(report)]() mutable {
                if (done) done(std::move(report));
            });
        });
    };
}

std::int64_t MaintenanceCleaner::estimateBytes(const std::vector<std::string>& developerIDs,
                                               bool browsersEnabled, const UserLocations& folders) {
    std::int64_t bytes = 0;
    for (const auto& cleaner : makeCleaners(developerIDs, folders)) bytes += targetBytes(*cleaner);
    if (browsersEnabled) {
        for (const ChromiumBrowser& browser : ChromiumBrowser::all()) {
            bytes += targetBytes(BrowserCleaner(browser, folders.configHome, folders.cacheHome));
        }
    }
    return bytes;
}

}  // namespace kestrow
