#include "cleaners/browser_cache_reclaimer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <exception>
#include <filesystem>

#include "app/settings/preference_accessors.h"
#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "cleaners/browser_cleaner.h"
#include "cleaners/cleaner_pass.h"
#include "support/byte_count_format.h"

namespace kestrow {

namespace fs = std::filesystem;

namespace {

// Runs on the worker. Anything thrown ends the pass as a failure rather than leaving the
// reclaimer busy for good.
ReclaimReport runPass(const std::vector<ChromiumBrowser>& browsers, const fs::path& configHome,
                      const std::optional<fs::path>& cacheHome, RunningProcesses& processes,
                      Trash& trash) {
    try {
        std::vector<BrowserCleaner> cleaners;
        cleaners.reserve(browsers.size());
        for (const ChromiumBrowser& browser : browsers) {
            cleaners.emplace_back(browser, configHome, cacheHome);
        }
        std::vector<const Cleaner*> pointers;
        for (const BrowserCleaner& cleaner : cleaners) pointers.push_back(&cleaner);
        return CleanerPass::runAllOn(pointers, processes, trash);
    } catch (const std::exception& error) {  // building the cleaners
        ReclaimReport report;
        report.failures.push_back(fmt::format("the pass stopped: {}", error.what()));
        return report;
    }
}

std::vector<std::string> allIDs() {
    std::vector<std::string> ids;
    for (const ChromiumBrowser& browser : ChromiumBrowser::all()) ids.push_back(browser.id);
    return ids;
}

}  // namespace

BrowserCacheReclaimer::BrowserCacheReclaimer(Dependencies dependencies)
    : d_(std::move(dependencies)), log_(d_.log.sink(), LogArea::browserCaches) {
    publish(loadLedger(), StandardSettings(d_.standardStore).browserReclaimBlocked());
}

BrowserCacheReclaimer::~BrowserCacheReclaimer() {
    stop();
}

void BrowserCacheReclaimer::start() {
    if (next_) return;
    hourly();
}

void BrowserCacheReclaimer::stop() {
    if (next_) d_.mainExecutor.cancel(*next_);
    next_.reset();
}

void BrowserCacheReclaimer::poke() {
    tick();
}

void BrowserCacheReclaimer::hourly() {
    next_ = d_.mainExecutor.postAfter(kTickSeconds, [this] { hourly(); });
    tick();
}

void BrowserCacheReclaimer::tick() {
    if (ticking_ || !BrowserReclaimPreference::enabled(d_.standardStore)) return;
    const std::vector<std::string> due = loadLedger().dueIDs(d_.clock.now(), allIDs());
    if (due.empty()) {
        log_.once(tooSoonNote_, LogLevel::info, "too soon");
        return;
    }
    std::vector<ChromiumBrowser> browsers;
    for (const ChromiumBrowser& browser : ChromiumBrowser::all()) {
        if (std::find(due.begin(), due.end(), browser.id) != due.end()) {
            browsers.push_back(browser);
        }
    }
    pass(std::move(browsers), {});
}

void BrowserCacheReclaimer::reclaimNow(std::function<void(BrowserResult)> done) {
    if (ticking_) {
        if (done) done(BrowserResult{BrowserResult::Busy{}});
        return;
    }
    if (!BrowserReclaimPreference::enabled(d_.standardStore)) {
        if (done) done(BrowserResult{BrowserResult::Off{}});
        return;
    }
    pass(ChromiumBrowser::all(), std::move(done));
}

void BrowserCacheReclaimer::pass(std::vector<ChromiumBrowser> browsers,
                                 std::function<void(BrowserResult)> done) {
    ticking_ = true;
    tooSoonNote_.reset();
    std::optional<fs::path> cacheHome;
    if (!d_.folders.cacheHome.empty()) cacheHome = d_.folders.cacheHome;
    d_.worker.post([this, alive = std::weak_ptr<bool>(alive_), browsers = std::move(browsers),
                    configHome = d_.folders.configHome, cacheHome = std::move(cacheHome),
                    &processes = d_.processes, &trash = d_.trash, &main = d_.mainExecutor,
                    done = std::move(done)]() mutable {
        ReclaimReport report = runPass(browsers, configHome, cacheHome, processes, trash);
        main.post([this, alive, browsers = std::move(browsers), report = std::move(report),
                   done = std::move(done)] {
            if (alive.expired()) return;
            finish(browsers, report);
            if (done) done(BrowserResult{report});
        });
    });
}

void BrowserCacheReclaimer::finish(const std::vector<ChromiumBrowser>& browsers,
                                   const ReclaimReport& report) {
    ticking_ = false;
    // Read again: `kestrow settings` may have changed the ledger while the pass ran.
    ReclaimLedger ledger = loadLedger();
    ledger.record(report, d_.clock.now());
    saveLedger(ledger, report);
    publish(ledger, report.blocked);
    logReport(browsers, report);
}

ReclaimLedger BrowserCacheReclaimer::loadLedger() const {
    const StandardSettings settings(d_.standardStore);
    ReclaimLedger ledger;
    ledger.lastRuns = settings.browserReclaimLastRuns();
    ledger.lastFreed = settings.browserReclaimLastFreed();
    return ledger;
}

void BrowserCacheReclaimer::saveLedger(const ReclaimLedger& ledger, const ReclaimReport& report) {
    PlistDict runs;
    for (const auto& [id, date] : ledger.lastRuns) runs.emplace(id, PlistValue(date));
    PlistDict freed;
    for (const auto& [id, bytes] : ledger.lastFreed) freed.emplace(id, PlistValue(bytes));
    PlistArray blockedNames(report.blocked.begin(), report.blocked.end());
    d_.standardStore.set(keys::browserReclaimLastRuns, PlistValue(std::move(runs)));
    d_.standardStore.set(keys::browserReclaimLastFreed, PlistValue(std::move(freed)));
    d_.standardStore.set(keys::browserReclaimBlocked, PlistValue(std::move(blockedNames)));
}

void BrowserCacheReclaimer::publish(const ReclaimLedger& ledger,
                                    std::vector<std::string> blockedNames) {
    std::optional<WallTime> newest;
    for (const auto& [id, date] : ledger.lastRuns) {
        if (!newest || date > *newest) newest = date;
    }
    lastRun_.set(newest);
    lastFreed_.set(ledger.totalFreed());
    blocked_.set(std::move(blockedNames));
}

void BrowserCacheReclaimer::logReport(const std::vector<ChromiumBrowser>& browsers,
                                      const ReclaimReport& report) const {
    std::vector<std::string> done;
    for (const ChromiumBrowser& browser : browsers) {
        if (report.completed.contains(browser.id)) done.push_back(browser.name);
    }
    CleanerPass::log(log_, report, done);
}

}  // namespace kestrow
