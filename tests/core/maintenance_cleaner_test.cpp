#include "cleaners/maintenance_cleaner.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using Busy = FreeUpSummary::Busy;
using Ids = std::vector<std::string>;

constexpr double kHour = 3'600.0;
constexpr double kWeek = ReclaimLedger::kWeekSeconds;

class MaintenanceCleanerTest : public ::testing::Test {
protected:
    testing::TempFolder temp;
    UserLocations folders = UserLocations::resolve(temp.homeEnvironment());
    testing::RecordingLogSink sink;
    SettingsStore store{folders.standardStoreFile(), Logger(sink, LogArea::general)};
    VirtualScheduler scheduler;
    WallTime start = scheduler.now();

    // The fake pass: answers on the main executor after `passSeconds` with what `answer` makes
    // of the ids; by default every cleaner completes having freed nothing.
    std::vector<Ids> passes;
    double passSeconds = 60.0;
    std::function<ReclaimReport(const Ids&)> answer = [](const Ids& ids) {
        ReclaimReport report;
        for (const auto& id : ids) report.completed[id] = 0;
        return report;
    };
    std::optional<BrowserResult> browserAnswer = BrowserResult{BrowserResult::Off{}};
    int browserCalls = 0;
    std::vector<ReclaimLedger> published;
    Wording wording = Wording::exact();
    std::unique_ptr<MaintenanceCleaner> cleaner;

    void make() {
        MaintenanceCleaner::Environment environment{[this] { return scheduler.now(); }, store};
        environment.runCleaners = [this](Ids ids, std::function<void(ReclaimReport)> done) {
            passes.push_back(ids);
            scheduler.mainExecutor().postAfter(passSeconds,
                                               [this, ids, done] { done(answer(ids)); });
        };
        environment.reclaimBrowsers = [this](std::function<void(BrowserResult)> done) {
            ++browserCalls;
            if (browserAnswer) {
                scheduler.mainExecutor().postAfter(passSeconds,
                                                   [this, done] { done(*browserAnswer); });
            }
        };
        environment.publish = [this](const ReclaimLedger& ledger) { published.push_back(ledger); };
        environment.wording = wording;
        cleaner = std::make_unique<MaintenanceCleaner>(
            std::move(environment), scheduler.mainExecutor(), Logger(sink, LogArea::general));
    }

    void enable(const Ids& ids) {
        for (const auto& id : ids) store.set(keys::maintenanceEnabled(id), PlistValue(true));
    }
    void setLedger(const std::map<std::string, WallTime>& runs,
                   const std::map<std::string, std::int64_t>& freed = {}) {
        PlistDict runDict;
        for (const auto& [id, date] : runs) runDict.emplace(id, PlistValue(date));
        PlistDict freedDict;
        for (const auto& [id, bytes] : freed) freedDict.emplace(id, PlistValue(bytes));
        store.set(keys::maintenanceLastRuns, PlistValue(std::move(runDict)));
        store.set(keys::maintenanceLastFreed, PlistValue(std::move(freedDict)));
    }
    std::map<std::string, WallTime> lastRuns() {
        return StandardSettings(store).maintenanceLastRuns();
    }
    WallTime ago(double seconds) const { return addSeconds(start, -seconds); }

    std::optional<MaintenanceCleaner::FreeUpResult> freeUp() {
        std::optional<MaintenanceCleaner::FreeUpResult> result;
        cleaner->freeUpSpace([&result](MaintenanceCleaner::FreeUpResult r) { result = r; });
        scheduler.advance(3 * passSeconds);
        return result;
    }
    std::size_t logged(std::string_view fragment) const {
        const auto messages = sink.messages();
        return static_cast<std::size_t>(std::count_if(
            messages.begin(), messages.end(),
            [&](const std::string& m) { return m.find(fragment) != std::string::npos; }));
    }
};

TEST_F(MaintenanceCleanerTest, WithEveryCleanerOffATickDoesNothing) {
    setLedger({{"npm", ago(30 * 86'400.0)}}, {{"npm", 4'096}});
    store.set(keys::maintenanceEnabled("npm"), PlistValue(false));
    store.set(keys::maintenanceEnabled("pip"), PlistValue("yes"));  // not a bool: off
    const PlistDict before = store.contents();
    make();
    const ReclaimLedger seeded = cleaner->ledger.get();
    EXPECT_EQ(seeded.lastFreed, (std::map<std::string, std::int64_t>{{"npm", 4'096}}));

    cleaner->start();
    scheduler.advance(5 * kHour);
    cleaner->poke();
    EXPECT_TRUE(passes.empty());
    EXPECT_TRUE(published.empty());
    EXPECT_EQ(store.contents(), before);
    EXPECT_EQ(cleaner->ledger.get(), seeded);
    EXPECT_EQ(cleaner->enabledIDs(), Ids{});
    EXPECT_EQ(logged("Maintenance: every cleaner is off"), 1u);  // noted once, not every hour
}

TEST_F(MaintenanceCleanerTest, EachCleanerRunsAWeekAfterItsLastPass) {
    enable({"pip", "npm"});
    // npm is exactly a week old now; pip turns a week old at the next hourly tick; homebrew
    // is off however overdue it is.
    setLedger({{"npm", ago(kWeek)}, {"pip", ago(kWeek - kHour)}, {"homebrew", ago(kWeek * 3)}});
    make();
    EXPECT_EQ(cleaner->enabledIDs(), (Ids{"npm", "pip"}));  // table order
    cleaner->start();
    EXPECT_EQ(passes, (std::vector<Ids>{{"npm"}}));
    EXPECT_TRUE(cleaner->ticking());
    scheduler.advance(passSeconds);
    EXPECT_FALSE(cleaner->ticking());
    EXPECT_EQ(lastRuns().at("npm"), addSeconds(start, passSeconds));
    ASSERT_EQ(published.size(), 1u);
    EXPECT_EQ(published.back(), cleaner->ledger.get());

    scheduler.advance(kHour - passSeconds);
    EXPECT_EQ(passes, (std::vector<Ids>{{"npm"}, {"pip"}}));

    // Then nothing until npm's week is up again, and the quiet stretch is noted once.
    scheduler.advance(kWeek - kHour);
    EXPECT_EQ(passes.size(), 2u);
    EXPECT_EQ(logged("too soon"), 1u);
    scheduler.advance(kHour);
    EXPECT_EQ(passes, (std::vector<Ids>{{"npm"}, {"pip"}, {"npm"}}));

    // A ledger entry of the wrong type reads as never run.
    scheduler.advance(passSeconds);
    store.set(keys::maintenanceLastRuns, PlistValue(PlistDict{{"npm", PlistValue(scheduler.now())},
                                                              {"pip", PlistValue("yesterday")}}));
    cleaner->poke();
    EXPECT_EQ(passes.back(), Ids{"pip"});
}

TEST_F(MaintenanceCleanerTest, ASkippedOrBlockedCleanerStaysDueAndTheReportIsLogged) {
    enable({"npm", "pip", "homebrew"});
    answer = [](const Ids& ids) {
        ReclaimReport report;
        if (std::find(ids.begin(), ids.end(), "npm") != ids.end()) {
            report.completed["npm"] = 1'500'000;
            report.freedBytes = 1'500'000;
            report.trashedCount = 2;
            report.reclaimedNames = {"npm"};
        }
        report.skippedRunning = {"Homebrew"};
        report.blocked = {"pip"};
        report.blockedReasons = {"pip: Permission denied"};
        report.failures = {"a: busy", "b: gone"};
        return report;
    };
    make();
    cleaner->start();
    scheduler.advance(passSeconds);
    EXPECT_TRUE(
        sink.contains("Maintenance: moved 2 to Trash (1.5 MB) from [npm]; done [npm]; "
                      "running [Homebrew]; blocked [pip]"));
    EXPECT_TRUE(sink.contains("Maintenance: a: busy; b: gone"));
    EXPECT_EQ(StandardSettings(store).maintenanceLastFreed(),
              (std::map<std::string, std::int64_t>{{"npm", 1'500'000}}));
    EXPECT_EQ(cleaner->ledger.get().lastRuns.count("homebrew"), 0u);

    // A tick while a pass runs leaves it alone; the next ones try the two that did not finish.
    const double firstPass = passSeconds;
    passSeconds = 2 * kHour;
    scheduler.advance(kHour - firstPass);
    EXPECT_EQ(passes, (std::vector<Ids>{{"npm", "pip", "homebrew"}, {"pip", "homebrew"}}));
    EXPECT_TRUE(cleaner->ticking());
    scheduler.advance(kHour);
    EXPECT_EQ(passes.size(), 2u);
    scheduler.advance(kHour);
    EXPECT_EQ(passes.size(), 3u);
    EXPECT_EQ(passes.back(), (Ids{"pip", "homebrew"}));
}

TEST_F(MaintenanceCleanerTest, FreeUpSpaceRunsEveryEnabledCleanerAndFoldsTheBrowsers) {
    make();
    auto result = freeUp();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->summary, "Nothing to clear");
    EXPECT_TRUE(passes.empty());  // no cleaner on: no pass
    EXPECT_EQ(browserCalls, 1);

    // npm ran an hour ago: not due, but the menu's request runs it all the same.
    enable({"npm", "homebrew"});
    setLedger({{"npm", ago(kHour)}});
    answer = [](const Ids& ids) {
        ReclaimReport report;
        report.completed["npm"] = 1'000'000;
        report.freedBytes = 1'000'000;
        report.trashedCount = 1;
        report.reclaimedNames = {"npm"};
        report.skippedRunning = {"Homebrew"};
        EXPECT_EQ(ids, (Ids{"npm", "homebrew"}));
        return report;
    };
    ReclaimReport browsers;
    browsers.completed["google-chrome"] = 500'000;
    browsers.freedBytes = 500'000;
    browsers.trashedCount = 3;
    browsers.reclaimedNames = {"Chrome"};
    browsers.skippedRunning = {"Brave"};
    browserAnswer = BrowserResult{browsers};
    const WallTime asked = scheduler.now();
    result = freeUp();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->summary,
              "Moved 1.5 MB to the Trash; empty it to reclaim the space. Skipped while running: "
              "Homebrew, Brave");
    EXPECT_EQ(result->report.trashedCount, 4);
    EXPECT_EQ(result->report.reclaimedNames, (Ids{"npm", "Chrome"}));
    EXPECT_EQ(result->report.completed, (std::map<std::string, std::int64_t>{
                                            {"google-chrome", 500'000}, {"npm", 1'000'000}}));
    EXPECT_EQ(result->busy, std::set<Busy>{});
    EXPECT_EQ(lastRuns().at("npm"), addSeconds(asked, passSeconds));
    EXPECT_EQ(published.size(), 1u);

    // Skipped while running and nothing else.
    answer = [](const Ids&) {
        ReclaimReport report;
        report.skippedRunning = {"npm", "Homebrew"};
        return report;
    };
    browserAnswer = BrowserResult{BrowserResult::Off{}};
    EXPECT_EQ(freeUp()->summary, "Skipped while running: npm, Homebrew");

    // Blocked folders.
    answer = [](const Ids&) {
        ReclaimReport report;
        report.blocked = {"npm"};
        report.blockedReasons = {"npm: Permission denied"};
        return report;
    };
    EXPECT_EQ(freeUp()->summary, "Some folders need Full Disk Access");
    // The Linux edition's cleaner says what that means there.
    wording = Wording::linux(std::nullopt);
    make();
    EXPECT_EQ(freeUp()->summary, "Some folders cannot be read");
}

TEST_F(MaintenanceCleanerTest, FreeUpSpaceReportsWhicheverPassIsBusy) {
    enable({"pip"});
    passSeconds = 10 * 60.0;
    make();
    cleaner->start();  // the weekly pass is under way
    ASSERT_TRUE(cleaner->ticking());

    ReclaimReport browsers;
    browsers.freedBytes = 2'000'000;
    browsers.completed["chromium"] = 2'000'000;
    browserAnswer = BrowserResult{browsers};
    std::optional<MaintenanceCleaner::FreeUpResult> result;
    cleaner->freeUpSpace([&result](MaintenanceCleaner::FreeUpResult r) { result = r; });
    scheduler.advance(passSeconds);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->summary,
              "Moved 2 MB to the Trash; empty it to reclaim the space. Developer caches are busy "
              "with a weekly pass, try again in a minute");
    EXPECT_EQ(result->busy, std::set<Busy>{Busy::developer});
    EXPECT_EQ(passes.size(), 1u);  // the request did not start a second pass

    browserAnswer = BrowserResult{BrowserResult::Busy{}};
    result = freeUp();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->summary, "Browser caches are busy with a weekly pass, try again in a minute");
    EXPECT_EQ(result->busy, std::set<Busy>{Busy::browsers});
    EXPECT_EQ(passes.size(), 2u);

    // Gone before the answers come: they are dropped, nothing is called on a dead object.
    bool called = false;
    cleaner->freeUpSpace([&called](MaintenanceCleaner::FreeUpResult) { called = true; });
    cleaner.reset();
    scheduler.advance(3 * passSeconds);
    EXPECT_FALSE(called);
}

std::int64_t allocatedFile(const fs::path& file, std::size_t size) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << std::string(size, 'x');
    struct stat info {};
    EXPECT_EQ(::lstat(file.c_str(), &info), 0) << file;
    return static_cast<std::int64_t>(info.st_blocks) * 512;
}

TEST_F(MaintenanceCleanerTest, EstimateCountsTheAllocatedBytesOfWhatWouldBeTaken) {
    const fs::path home = folders.home;
    const std::int64_t npm = allocatedFile(home / ".npm/_cacache/content-v2/aa/1", 70'000) +
                             allocatedFile(home / ".npm/_cacache/index-v5/bb", 100);
    const std::int64_t pip = allocatedFile(folders.cacheHome / "pip/http/c", 9'000);
    const fs::path xcode = home / "Library/Developer/Xcode";
    const std::int64_t derived = allocatedFile(xcode / "DerivedData/App/Build/a.o", 33'000);
    const std::int64_t oldSupport =
        allocatedFile(xcode / "iOS DeviceSupport/iPhone15,2 17.0 (21A329)/Symbols/lib", 20'000);
    allocatedFile(xcode / "iOS DeviceSupport/iPhone15,2 17.1 (21B80)/Symbols/lib", 50'000);
    allocatedFile(folders.cacheHome / "Homebrew/downloads/x.tar.gz", 80'000);  // not asked for
    allocatedFile(home / ".npm/_logs/debug.log", 5'000);  // beside the cache, not in it
    const std::int64_t chrome =
        allocatedFile(folders.cacheHome / "google-chrome/Default/Cache/d", 40'000);
    ASSERT_GT(npm, 0);

    EXPECT_EQ(MaintenanceCleaner::estimateBytes({}, false, folders), 0);
    EXPECT_EQ(MaintenanceCleaner::estimateBytes({"pip", "npm"}, false, folders), npm + pip);
    EXPECT_EQ(MaintenanceCleaner::estimateBytes({"xcode"}, false, folders), derived + oldSupport);
    EXPECT_EQ(MaintenanceCleaner::estimateBytes({"npm", "nonsense"}, true, folders), npm + chrome);
}

// The production pass over real folders: table order, owners respected, answered on main.
TEST_F(MaintenanceCleanerTest, CleanersOnDiskRunsThePassOnTheWorker) {
    struct Processes final : RunningProcesses {
        ProcessListing listing = std::vector<RunningProcess>{{"node", std::nullopt}};
        ProcessListing current() override { return listing; }
        bool applicationRunning(const std::string&) override { return false; }
    } processes;
    struct MovingTrash final : Trash {
        fs::path folder;
        std::vector<fs::path> moved;
        TrashMove moveToTrash(const TrashRequest& request) override {
            fs::create_directories(folder);
            std::error_code error;
            const fs::path to = folder / std::to_string(moved.size());
            fs::rename(request.item, to, error);
            if (error) return TrashMove{std::nullopt, error.message()};
            moved.push_back(request.item);
            return TrashMove{TrashedItem{request.item, to, {}}, {}};
        }
        std::optional<std::string> putBack(const TrashedItem&) override { return "not kept"; }
    } trash;
    trash.folder = temp / "trash";
    const std::int64_t pip = allocatedFile(folders.cacheHome / "pip/http/c", 9'000);
    allocatedFile(folders.cacheHome / "Homebrew/x.tar.gz", 9'000);
    allocatedFile(folders.home / ".npm/_cacache/index-v5/bb", 100);

    Executor& worker = scheduler.makeSerialQueue();
    const auto run = MaintenanceCleaner::cleanersOnDisk(worker, scheduler.mainExecutor(), folders,
                                                        processes, trash);
    std::optional<ReclaimReport> report;
    run({"pip", "homebrew", "npm"}, [&report](ReclaimReport r) { report = std::move(r); });
    EXPECT_FALSE(report);
    scheduler.runPending();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->reclaimedNames, (Ids{"pip", "Homebrew"}));
    EXPECT_EQ(report->skippedRunning, Ids{"npm"});
    EXPECT_EQ(trash.moved,
              (std::vector<fs::path>{folders.cacheHome / "pip", folders.cacheHome / "Homebrew"}));
    EXPECT_TRUE(fs::exists(folders.home / ".npm/_cacache/index-v5/bb"));
    EXPECT_EQ(report->completed.at("pip"), pip);

    // Wired into the scheduler, the pass lands in the ledger.
    enable({"npm"});
    processes.listing = std::vector<RunningProcess>{};
    MaintenanceCleaner::Environment environment{[this] { return scheduler.now(); }, store};
    environment.runCleaners = run;
    MaintenanceCleaner wired(std::move(environment), scheduler.mainExecutor(),
                             Logger(sink, LogArea::general));
    wired.poke();
    scheduler.runPending();
    EXPECT_EQ(wired.ledger.get().lastRuns, (std::map<std::string, WallTime>{{"npm", start}}));
    EXPECT_FALSE(fs::exists(folders.home / ".npm/_cacache"));
}

}  // namespace
}  // namespace kestrow
