#include "cleaners/browser_cache_reclaimer.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "cleaners/browser_cache_targets.h"
#include "cleaners/cleaner_path.h"
#include "support/byte_count_format.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

constexpr double kDay = 86'400.0;

// Really moves each item into <temp>/trash, so that what moved, and what did not, can be seen.
class RecordingTrash final : public Trash {
public:
    explicit RecordingTrash(fs::path folder) : folder_(std::move(folder)) {}
    std::vector<fs::path> moved;
    std::optional<std::string> refuse;  // answer every call with this instead

    TrashMove moveToTrash(const TrashRequest& request) override {
        if (refuse) return TrashMove{std::nullopt, *refuse};
        std::error_code error;
        fs::create_directories(folder_, error);
        const fs::path to = folder_ / std::to_string(moved.size());
        fs::rename(request.item, to, error);
        if (error) return TrashMove{std::nullopt, error.message()};
        moved.push_back(request.item);
        return TrashMove{TrashedItem{request.item, to, {}}, {}};
    }
    std::optional<std::string> putBack(const TrashedItem&) override { return "not kept"; }

private:
    fs::path folder_;
};

class FakeProcesses final : public RunningProcesses {
public:
    ProcessListing listing = std::vector<RunningProcess>{};
    ProcessListing current() override { return listing; }
    bool applicationRunning(const std::string&) override { return false; }
};

bool near(WallTime a, WallTime b) {
    return a - b < seconds(1) && b - a < seconds(1);
}

class BrowserCacheReclaimerTest : public ::testing::Test {
protected:
    testing::TempFolder temp;
    UserLocations folders{
        temp.path(), temp / ".config", temp / ".local/share", temp / ".cache", {}};
    testing::RecordingLogSink sink;
    SettingsStore store{folders.standardStoreFile(), Logger(sink, LogArea::general)};
    VirtualScheduler scheduler;
    Executor& worker = scheduler.makeSerialQueue();
    RecordingTrash trash{temp / "trash"};
    FakeProcesses processes;
    std::unique_ptr<BrowserCacheReclaimer> reclaimer;

    void make() {
        reclaimer = std::make_unique<BrowserCacheReclaimer>(BrowserCacheReclaimer::Dependencies{
            scheduler, scheduler.mainExecutor(), worker, store, processes, trash, folders,
            Logger(sink, LogArea::general)});
    }
    void enable() { store.set(keys::browserReclaimEnabled, PlistValue(true)); }

    fs::path addCacheStorage(const std::string& subpath, const std::string& profile) {
        const fs::path storage =
            folders.configHome / subpath / profile / "Service Worker" / "CacheStorage";
        fs::create_directories(storage / "0a1b");
        std::ofstream(storage / "0a1b" / "index") << std::string(5000, 'x');
        return storage;
    }

    void setLedger(const std::map<std::string, WallTime>& runs,
                   const std::map<std::string, std::int64_t>& freed) {
        PlistDict runDict;
        for (const auto& [id, date] : runs) runDict.emplace(id, PlistValue(date));
        PlistDict freedDict;
        for (const auto& [id, bytes] : freed) freedDict.emplace(id, PlistValue(bytes));
        store.set(keys::browserReclaimLastRuns, PlistValue(std::move(runDict)));
        store.set(keys::browserReclaimLastFreed, PlistValue(std::move(freedDict)));
    }
    std::map<std::string, WallTime> lastRuns() {
        return StandardSettings(store).browserReclaimLastRuns();
    }

    std::optional<BrowserResult> reclaimNow() {
        std::optional<BrowserResult> result;
        reclaimer->reclaimNow([&result](BrowserResult answer) { result = std::move(answer); });
        scheduler.runPending();
        return result;
    }

    std::size_t logged(std::string_view fragment) const {
        const auto messages = sink.messages();
        return static_cast<std::size_t>(
            std::count_if(messages.begin(), messages.end(), [&](const std::string& message) {
                return message.find(fragment) != std::string::npos;
            }));
    }
};

TEST_F(BrowserCacheReclaimerTest, WhenOffNothingIsTouched) {
    const fs::path storage = addCacheStorage("google-chrome", "Default");
    make();
    reclaimer->start();
    scheduler.advance(3 * BrowserCacheReclaimer::kTickSeconds);
    EXPECT_EQ(reclaimNow(), BrowserResult{BrowserResult::Off{}});
    EXPECT_TRUE(fs::exists(storage / "0a1b/index"));
    EXPECT_TRUE(trash.moved.empty());
    EXPECT_EQ(logged("Browser caches"), 0u);
    EXPECT_FALSE(store.value(keys::browserReclaimLastRuns));
}

TEST_F(BrowserCacheReclaimerTest, ABrowserClearedSixDaysAgoWaitsForTheWeekUnlessAskedNow) {
    enable();
    const WallTime sixDaysAgo = addSeconds(scheduler.now(), -6 * kDay);
    setLedger({{"microsoft-edge", sixDaysAgo},
               {"google-chrome", sixDaysAgo},
               {"brave-browser", sixDaysAgo},
               {"chromium", sixDaysAgo}},
              {{"google-chrome", 7}});
    const fs::path storage = addCacheStorage("google-chrome", "Default");
    make();
    EXPECT_EQ(reclaimer->lastFreed().get(), 7);
    reclaimer->start();
    scheduler.advance(3 * BrowserCacheReclaimer::kTickSeconds + 1);
    EXPECT_TRUE(fs::exists(storage));
    // Four ticks, one note.
    EXPECT_EQ(logged("too soon"), 1u);

    const std::optional<BrowserResult> result = reclaimNow();
    ASSERT_TRUE(result);
    const auto* report = std::get_if<ReclaimReport>(&result->value);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->reclaimedNames, std::vector<std::string>{"Chrome"});
    EXPECT_EQ(trash.moved, std::vector<fs::path>{storage});
    EXPECT_FALSE(fs::exists(storage));
    const auto runs = lastRuns();
    ASSERT_EQ(runs.size(), 4u);
    for (const auto& [id, date] : runs) EXPECT_TRUE(near(date, scheduler.now())) << id;
    ASSERT_TRUE(reclaimer->lastRun().get());
    EXPECT_TRUE(near(*reclaimer->lastRun().get(), scheduler.now()));
    EXPECT_EQ(reclaimer->lastFreed().get(), report->freedBytes);
    EXPECT_FALSE(reclaimer->ticking());
}

TEST_F(BrowserCacheReclaimerTest, ARunningBrowserIsSkippedWholeAndRetriedAnHourLater) {
    enable();
    const WallTime longAgo = addSeconds(scheduler.now(), -8 * kDay);
    setLedger({{"google-chrome", longAgo}}, {{"google-chrome", 9}});
    const fs::path chrome = addCacheStorage("google-chrome", "Default");
    const fs::path brave = addCacheStorage("BraveSoftware/Brave-Browser", "Profile 1");
    const std::int64_t braveBytes = CleanerPath::byteSizeCounting(brave).bytes;
    ASSERT_GT(braveBytes, 0);
    processes.listing = std::vector<RunningProcess>{{"chrome", "/opt/google/chrome/chrome"}};
    make();
    reclaimer->start();
    scheduler.runPending();

    EXPECT_TRUE(fs::exists(chrome / "0a1b/index"));
    EXPECT_EQ(trash.moved, std::vector<fs::path>{brave});
    EXPECT_EQ(lastRuns().at("google-chrome"), longAgo);
    EXPECT_EQ(StandardSettings(store).browserReclaimLastFreed().at("google-chrome"), 9);
    EXPECT_EQ(lastRuns().size(), 4u);
    EXPECT_EQ(reclaimer->lastFreed().get(), 9 + braveBytes);
    EXPECT_EQ(logged("Browser caches: moved 1 to Trash (" + formatByteCount(braveBytes) +
                     ") from [Brave]; done [Edge, Brave, Chromium]; running [Chrome]; blocked []"),
              1u);
    EXPECT_TRUE(reclaimer->blocked().get().empty());
    EXPECT_EQ(BrowserCacheTargets::accessCaption(reclaimer->blocked().get(), Wording::exact()),
              std::nullopt);

    // Still running at the next hour: still skipped. Gone an hour later: cleared.
    scheduler.advance(BrowserCacheReclaimer::kTickSeconds);
    EXPECT_TRUE(fs::exists(chrome));
    processes.listing = std::vector<RunningProcess>{};
    scheduler.advance(BrowserCacheReclaimer::kTickSeconds);
    EXPECT_FALSE(fs::exists(chrome));
    EXPECT_TRUE(near(lastRuns().at("google-chrome"), scheduler.now()));
    EXPECT_EQ(logged("from [Chrome]; done [Chrome]; running []; blocked []"), 1u);
}

TEST_F(BrowserCacheReclaimerTest, OnePassAtATime) {
    enable();
    const fs::path storage = addCacheStorage("chromium", "Default");
    make();
    std::optional<BrowserResult> first;
    std::optional<BrowserResult> second;
    reclaimer->reclaimNow([&](BrowserResult answer) { first = std::move(answer); });
    EXPECT_TRUE(reclaimer->ticking());
    reclaimer->reclaimNow([&](BrowserResult answer) { second = std::move(answer); });
    EXPECT_EQ(second, BrowserResult{BrowserResult::Busy{}});
    reclaimer->poke();
    reclaimer->start();
    EXPECT_FALSE(first);

    scheduler.runPending();
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::holds_alternative<ReclaimReport>(first->value));
    EXPECT_FALSE(reclaimer->ticking());
    EXPECT_EQ(trash.moved, std::vector<fs::path>{storage});
    EXPECT_EQ(logged("Browser caches: moved "), 1u);
    // Done now, so the next answer is a pass again.
    const std::optional<BrowserResult> third = reclaimNow();
    ASSERT_TRUE(third);
    EXPECT_TRUE(std::holds_alternative<ReclaimReport>(third->value));
}

TEST_F(BrowserCacheReclaimerTest, FailuresAreOneLineAndTheStoredLedgerSeedsTheMenu) {
    enable();
    const WallTime older = addSeconds(scheduler.now(), -10 * kDay);
    const WallTime newer = addSeconds(scheduler.now(), -9 * kDay);
    setLedger({{"google-chrome", older}, {"microsoft-edge", newer}},
              {{"google-chrome", 100}, {"microsoft-edge", 23}});
    store.set(keys::browserReclaimBlocked, PlistValue(PlistArray{"Edge", 3}));
    make();
    EXPECT_EQ(reclaimer->lastRun().get(), newer);
    EXPECT_EQ(reclaimer->lastFreed().get(), 123);
    EXPECT_EQ(reclaimer->blocked().get(), std::vector<std::string>{"Edge"});

    addCacheStorage("google-chrome", "Default");
    fs::create_directories(folders.cacheHome / "google-chrome");
    trash.refuse = "the Trash is full";
    reclaimer->poke();
    scheduler.runPending();
    EXPECT_EQ(logged("Browser caches: Chrome: the Trash is full; Chrome: the Trash is full"), 1u);
    EXPECT_EQ(logged("Browser caches: moved 0 to Trash (Zero KB) from []; done [Edge, Chrome, "
                     "Brave, Chromium]; running []; blocked []"),
              1u);
    EXPECT_TRUE(reclaimer->blocked().get().empty());
    EXPECT_TRUE(StandardSettings(store).browserReclaimBlocked().empty());
}

// Runs `check` where file permissions bind and hands back its exit code: in this process for an
// ordinary user, else in a child that has dropped to nobody (root reads through chmod 000).
int asUnprivileged(const std::function<int()>& check) {
    if (::geteuid() != 0) return check();
    const pid_t child = ::fork();
    if (child < 0) return 125;
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) {
            ::_exit(125);
        }
        ::_exit(check());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

TEST_F(BrowserCacheReclaimerTest, UnreadableProfileRootsBlockTheirBrowsers) {
    constexpr int kCannotDeny = 125;
    enable();
    const fs::path brave = addCacheStorage("BraveSoftware/Brave-Browser", "Default");
    const fs::path edgeRoot = folders.configHome / "microsoft-edge";
    const fs::path chromeRoot = folders.configHome / "google-chrome";
    addCacheStorage("microsoft-edge", "Default");
    addCacheStorage("google-chrome", "Default");
    fs::create_directories(folders.standardStoreFile().parent_path());
    for (const auto& entry : fs::recursive_directory_iterator(temp.path())) {
        fs::permissions(entry.path(), fs::perms::all);
    }
    fs::permissions(temp.path(), fs::perms::all);
    fs::permissions(edgeRoot, fs::perms::none);
    fs::permissions(chromeRoot, fs::perms::none);

    const int code = asUnprivileged([&] {
        std::error_code error;
        if (fs::directory_iterator(chromeRoot, error); !error) return kCannotDeny;
        make();
        const std::optional<BrowserResult> result = reclaimNow();
        const auto* report = result ? std::get_if<ReclaimReport>(&result->value) : nullptr;
        if (report == nullptr) return 10;
        if (report->blocked != std::vector<std::string>{"Edge", "Chrome"}) return 11;
        if (reclaimer->blocked().get() != report->blocked) return 12;
        if (BrowserCacheTargets::accessCaption(reclaimer->blocked().get(), Wording::exact()) !=
            "Needs Full Disk Access to clear Edge, Chrome") {
            return 13;
        }
        if (logged("; running []; blocked [Edge, Chrome]") != 1) return 14;
        return 0;
    });
    fs::permissions(edgeRoot, fs::perms::owner_all);
    fs::permissions(chromeRoot, fs::perms::owner_all);
    if (code == kCannotDeny) GTEST_SKIP() << "a folder cannot be made unreadable here";
    ASSERT_EQ(code, 0);

    // What the pass left on disk, as the menu will find it at the next launch.
    EXPECT_FALSE(fs::exists(brave));
    EXPECT_TRUE(fs::exists(chromeRoot / "Default/Service Worker/CacheStorage/0a1b/index"));
    EXPECT_EQ(StandardSettings(store).browserReclaimBlocked(),
              (std::vector<std::string>{"Edge", "Chrome"}));
    const auto runs = lastRuns();
    EXPECT_FALSE(runs.contains("microsoft-edge"));
    EXPECT_FALSE(runs.contains("google-chrome"));
    EXPECT_TRUE(runs.contains("brave-browser"));
}

}  // namespace
}  // namespace kestrow
