#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>

#include "cleaners/cleaner_pass.h"
#include "cleaners/cleaner_path.h"
#include "cleaners/free_up_summary.h"
#include "cleaners/reclaim_ledger.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

// A cleaner of the leaves `base/<name>`, re-checked the way real cleaners do. `beforeCheck`
// runs inside every isReclaimable call, so a test can change the disk between discovery, the
// first check and the one right before the move.
class TestCleaner : public Cleaner {
public:
    TestCleaner(std::string id, fs::path base, std::vector<std::string> leaves)
        : id_(std::move(id)), base_(std::move(base)), leaves_(std::move(leaves)) {}

    std::string id() const override { return id_; }
    std::string name() const override { return "Test " + id_; }
    CleanerOwner owner() const override { return owner_; }
    CleanerDiscovery discover() const override {
        ++discoveries;
        if (discovery) return *discovery;
        CleanerDiscovery found;
        for (const std::string& leaf : leaves_) {
            const CleanerDiscovery one = CleanerPath::discoverLeaf(base_, {leaf});
            found.targets.insert(found.targets.end(), one.targets.begin(), one.targets.end());
        }
        found.anchors = {base_};
        return found;
    }
    bool isReclaimable(const fs::path& target) const override {
        ++checks;
        if (beforeCheck) beforeCheck(checks, target);
        if (CleanerPath::hasDotComponents(target) || !CleanerPath::isRealDirectory(target)) {
            return false;
        }
        for (const std::string& leaf : leaves_) {
            if (CleanerPath::isExactLeaf(target, base_, {leaf})) return true;
        }
        return false;
    }

    CleanerOwner owner_{{}, {"testapp"}, {}, {}};
    std::optional<CleanerDiscovery> discovery;  // instead of looking at the disk
    std::function<void(int, const fs::path&)> beforeCheck;
    mutable int discoveries = 0;
    mutable int checks = 0;

private:
    std::string id_;
    fs::path base_;
    std::vector<std::string> leaves_;
};

// Really moves each item into <temp>/trash, so that what moved can be seen.
struct RecordingTrash {
    explicit RecordingTrash(fs::path folder) : folder_(std::move(folder)) {
        fs::create_directories(folder_);
    }
    std::vector<fs::path> moved;
    std::vector<TrashRequest> requests;
    std::optional<std::string> refuse;  // answer every call with this instead

    CleanerPass::Trash function() {
        return [this](const TrashRequest& request) -> std::optional<std::string> {
            requests.push_back(request);
            if (refuse) return refuse;
            const fs::path& item = request.item;
            std::error_code error;
            fs::rename(item,
                       folder_ / (std::to_string(moved.size()) + " " + item.filename().string()),
                       error);
            if (error) return item.string() + ": " + error.message();
            moved.push_back(item);
            return std::nullopt;
        };
    }

private:
    fs::path folder_;
};

ino_t inodeOf(const fs::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

const CleanerPass::IsRunning notRunning = [](const CleanerOwner&) { return false; };

class CleanerPassTest : public ::testing::Test {
protected:
    CleanerPassTest() {
        temp.write("cache/Cache/data", std::string(20'000, 'c'));
        temp.write("cache/Code Cache ✓\nx/data", std::string(9'000, 'k'));
        temp.write("cache/Keep/data", "keep");
        temp.write("outside/precious", "precious");
    }
    fs::path cache() const { return temp / "cache"; }
    bool outsideIntact() const {
        return fs::is_directory(fs::symlink_status(temp / "outside")) &&
               fs::exists(temp / "outside/precious");
    }

    TempFolder temp;
    RecordingTrash trash{temp / "trash"};
};

TEST_F(CleanerPassTest, MovesTheDiscoveredLeavesAndNothingElse) {
    const TestCleaner cleaner("one", cache(), {"Cache", "Code Cache ✓\nx", "Missing"});
    const std::int64_t expected = CleanerPath::byteSizeCounting(cache() / "Cache").bytes +
                                  CleanerPath::byteSizeCounting(cache() / "Code Cache ✓\nx").bytes;

    const CleanerOutcome outcome = CleanerPass::run(cleaner, notRunning, trash.function());

    EXPECT_EQ(outcome, (CleanerOutcome{expected, 2, false, {}, {}, true}));
    EXPECT_GT(expected, 20'000);
    EXPECT_EQ(trash.moved, (std::vector<fs::path>{cache() / "Cache", cache() / "Code Cache ✓\nx"}));
    EXPECT_TRUE(fs::exists(temp / "trash/1 Code Cache ✓\nx/data"));
    EXPECT_TRUE(fs::exists(cache() / "Keep/data"));
    EXPECT_TRUE(outsideIntact());
    // Each move names its anchor and the folder that was checked and measured, so the Trash
    // can refuse anything else found at the path.
    ASSERT_EQ(trash.requests.size(), 2u);
    EXPECT_EQ(trash.requests[0].anchor, cache());
    EXPECT_EQ(trash.requests[0].expected.kind, TrashItemIdentity::Kind::directory);
    EXPECT_EQ(trash.requests[0].expected.inode,
              static_cast<std::uint64_t>(inodeOf(temp / "trash/0 Cache")));
    EXPECT_EQ(trash.requests[1].item, cache() / "Code Cache ✓\nx");
}

TEST_F(CleanerPassTest, ATargetOutsideEveryAnchorOrReachedThroughALinkIsRefused) {
    // A link on the way below the anchor, though the leaf itself is a real folder.
    temp.write("real/Cache/data", "elsewhere");
    fs::create_directories(temp / "anchor");
    fs::create_directory_symlink(temp / "real", temp / "anchor/linked");
    TestCleaner linked("one", temp / "anchor/linked", {"Cache"});
    linked.discovery = CleanerDiscovery{{temp / "anchor/linked/Cache"}, {}, {temp / "anchor"}};
    CleanerOutcome outcome = CleanerPass::run(linked, notRunning, trash.function());
    EXPECT_EQ(
        outcome.failures,
        (std::vector<std::string>{"Test one: refused " + (temp / "anchor/linked/Cache").string()}));
    // The same folder with the link as the anchor itself is trusted as the kernel resolves it.
    linked.discovery->anchors = {temp / "anchor/linked"};
    outcome = CleanerPass::run(linked, notRunning, trash.function());
    EXPECT_TRUE(outcome.failures.empty());
    EXPECT_EQ(outcome.trashedCount, 1);

    // No anchor the target lies below: refused.
    TestCleaner unanchored("two", cache(), {"Cache"});
    unanchored.discovery = CleanerDiscovery{{cache() / "Cache"}, {}, {temp / "outside"}};
    outcome = CleanerPass::run(unanchored, notRunning, trash.function());
    EXPECT_EQ(outcome.failures,
              (std::vector<std::string>{"Test two: refused " + (cache() / "Cache").string()}));
    EXPECT_TRUE(fs::exists(cache() / "Cache/data"));
    EXPECT_EQ(trash.moved.size(), 1u);
}

TEST_F(CleanerPassTest, RefusesWhatNoLongerIsTheDiscoveredFolder) {
    TestCleaner cleaner("one", cache(), {"Cache"});
    const fs::path target = cache() / "Cache";
    // Between the first check and the move, the folder becomes a link to somewhere else.
    cleaner.beforeCheck = [&](int call, const fs::path&) {
        if (call != 2) return;
        fs::rename(target, temp / "set-aside");
        fs::create_directory_symlink(temp / "outside", target);
    };
    EXPECT_EQ(CleanerPass::run(cleaner, notRunning, trash.function()),
              (CleanerOutcome{0, 0, false, {}, {"Test one: refused " + target.string()}, true}));
    EXPECT_EQ(cleaner.checks, 2);
    EXPECT_TRUE(trash.moved.empty());
    EXPECT_TRUE(fs::is_symlink(target));
    EXPECT_TRUE(outsideIntact());

    // Replaced by a regular file in the same window.
    fs::remove(target);
    fs::create_directory(target);
    cleaner.checks = 0;
    cleaner.beforeCheck = [&](int call, const fs::path&) {
        if (call != 2) return;
        fs::remove_all(target);
        temp.write("cache/Cache", "now a file");
    };
    EXPECT_EQ(CleanerPass::run(cleaner, notRunning, trash.function()).failures,
              (std::vector<std::string>{"Test one: refused " + target.string()}));
    EXPECT_TRUE(trash.moved.empty());

    // Spellings that reach a real leaf only by resolution are refused at the first check.
    fs::create_directory_symlink(cache(), temp / "alias");
    TestCleaner spelled("two", cache(), {"Keep"});
    const std::vector<fs::path> bad{cache() / "Keep/",
                                    cache() / "./Keep",
                                    cache() / "Cache/../Keep",
                                    cache() / "Keep/../../outside",
                                    fs::path(cache().string() + "//Keep"),
                                    temp / "alias/Keep",
                                    temp / "outside"};
    spelled.discovery = CleanerDiscovery{bad, {}, {cache(), temp.path()}};
    const CleanerOutcome outcome = CleanerPass::run(spelled, notRunning, trash.function());
    ASSERT_EQ(outcome.failures.size(), bad.size());
    for (std::size_t i = 0; i < bad.size(); ++i) {
        EXPECT_EQ(outcome.failures[i], "Test two: refused " + bad[i].string());
    }
    EXPECT_EQ(spelled.checks, static_cast<int>(bad.size()));
    EXPECT_TRUE(outcome.completed);
    EXPECT_TRUE(trash.moved.empty());
    EXPECT_TRUE(fs::exists(cache() / "Keep/data"));
    EXPECT_TRUE(outsideIntact());
}

TEST_F(CleanerPassTest, TrashFailureIsReportedAndFreesNothing) {
    const TestCleaner cleaner("one", cache(), {"Cache"});
    trash.refuse = "the Trash is full";
    EXPECT_EQ(CleanerPass::run(cleaner, notRunning, trash.function()),
              (CleanerOutcome{0, 0, false, {}, {"Test one: the Trash is full"}, true}));
    EXPECT_TRUE(fs::exists(cache() / "Cache/data"));
}

TEST_F(CleanerPassTest, ARunningOwnerSkipsTheWholeCleaner) {
    const TestCleaner cleaner("one", cache(), {"Cache"});
    std::optional<CleanerOwner> asked;
    const CleanerOutcome outcome = CleanerPass::run(
        cleaner,
        [&](const CleanerOwner& owner) {
            asked = owner;
            return true;
        },
        trash.function());
    EXPECT_EQ(outcome, (CleanerOutcome{0, 0, true, {}, {}, false}));
    EXPECT_EQ(asked, cleaner.owner());
    EXPECT_EQ(cleaner.discoveries, 0);
    EXPECT_TRUE(trash.moved.empty());
}

TEST(CleanerOwner, MatchesByNameThenPrefixThenPathAndFailsClosed) {
    const CleanerOwner owner{{}, {"Firefox"}, {"Web Content"}, {"/opt/firefox/"}};
    EXPECT_TRUE(owner.matches({"FIREFOX", std::nullopt}));
    EXPECT_FALSE(owner.matches({"firefox-bin", std::nullopt}));
    EXPECT_TRUE(owner.matches({"web contentIsolated", std::nullopt}));
    EXPECT_TRUE(owner.matches({"x", "/opt/firefox/x"}));
    EXPECT_FALSE(owner.matches({"x", "/opt/Firefox/x"}));  // paths keep their case
    EXPECT_FALSE(owner.matches({"x", std::nullopt}));

    int reads = 0;
    const auto table = [&](ProcessListing listing) {
        return [&reads, listing] {
            ++reads;
            return listing;
        };
    };
    const auto none = [](const std::string&) { return false; };
    const std::vector<RunningProcess> others{{"bash", "/usr/bin/bash"}, {"x", std::nullopt}};
    EXPECT_FALSE(owner.isRunningNow(none, table(others)));
    EXPECT_TRUE(
        owner.isRunningNow(none, table(std::vector<RunningProcess>{{"x", "/opt/firefox/x"}})));
    EXPECT_TRUE(owner.isRunningNow(none, table(std::nullopt)));
    EXPECT_TRUE((CleanerOwner{{}, {}, {}, {"/opt/app/"}}.isRunningNow(none, table(std::nullopt))));
    EXPECT_EQ(reads, 4);

    // Owners not known by process never read the table.
    const CleanerOwner bundled{{"org.example.app"}, {}, {}, {}};
    EXPECT_FALSE(bundled.isRunningNow(none, table(std::nullopt)));
    EXPECT_FALSE(CleanerOwner{}.isRunningNow(none, table(std::nullopt)));
    EXPECT_TRUE(bundled.isRunningNow([](const std::string& id) { return id == "org.example.app"; },
                                     table(std::nullopt)));
    EXPECT_EQ(reads, 4);
}

TEST_F(CleanerPassTest, RunAllFoldsAndTheLedgerKeepsBlockedCleanersDue) {
    TestCleaner mover("mover", cache(), {"Cache", "Code Cache ✓\nx"});
    TestCleaner empty("empty", cache(), {"Missing"});
    TestCleaner busy("busy", cache(), {"Keep"});
    busy.owner_ = CleanerOwner{{}, {"busyapp"}, {}, {}};
    TestCleaner blocked("blocked", cache(), {"Keep"});
    blocked.discovery = CleanerPath::failedDiscovery(
        cache() / "Keep", std::error_code(EACCES, std::generic_category()));
    TestCleaner broken("broken", cache(), {"Keep"});
    broken.discovery = CleanerPath::failedDiscovery(cache() / "Keep",
                                                    std::error_code(EIO, std::generic_category()));
    const std::int64_t moverBytes =
        CleanerPath::byteSizeCounting(cache() / "Cache").bytes +
        CleanerPath::byteSizeCounting(cache() / "Code Cache ✓\nx").bytes;
    const std::string reason = (cache() / "Keep").string() + ": Permission denied";

    EXPECT_EQ(CleanerPass::run(blocked, notRunning, trash.function()),
              (CleanerOutcome{0, 0, false, reason, {}, false}));
    const ReclaimReport report = CleanerPass::runAll(
        {&busy, &mover, &blocked, &empty, &broken},
        [](const CleanerOwner& owner) {
            return owner.processNames == std::vector<std::string>{"busyapp"};
        },
        trash.function());
    ReclaimReport expected;
    expected.freedBytes = moverBytes;
    expected.trashedCount = 2;
    expected.skippedRunning = {"Test busy"};
    expected.reclaimedNames = {"Test mover"};
    expected.failures = {"Test broken: " + (cache() / "Keep").string() + ": Input/output error"};
    expected.blocked = {"Test blocked"};
    expected.blockedReasons = {reason};
    expected.completed = {{"mover", moverBytes}, {"empty", 0}, {"broken", 0}};
    EXPECT_EQ(report, expected);
    EXPECT_TRUE(fs::exists(cache() / "Keep/data"));

    const WallTime week0 = WallTime{} + std::chrono::hours(24 * 365 * 56);
    const WallTime now = addSeconds(week0, ReclaimLedger::kWeekSeconds);
    ReclaimLedger ledger;
    ledger.lastRuns = {{"blocked", week0}, {"busy", week0}};
    ledger.lastFreed = {{"blocked", 7}, {"busy", 5}};
    ledger.record(report, now);
    EXPECT_EQ(
        ledger.lastRuns,
        (std::map<std::string, WallTime>{
            {"blocked", week0}, {"busy", week0}, {"mover", now}, {"empty", now}, {"broken", now}}));
    EXPECT_EQ(ledger.totalFreed(), 12 + moverBytes);
    const std::vector<std::string> ids{"never", "mover", "busy", "blocked"};
    EXPECT_EQ(ledger.dueIDs(now, ids), (std::vector<std::string>{"never", "busy", "blocked"}));
    EXPECT_EQ(ledger.dueIDs(addSeconds(now, -1), {"never", "busy", "blocked"}),
              (std::vector<std::string>{"never"}));
    EXPECT_EQ(ledger.dueIDs(addSeconds(now, -0.5), {"mover"}), std::vector<std::string>{"mover"});
    EXPECT_EQ(ledger.dueIDs(addSeconds(now, ReclaimLedger::kWeekSeconds - 1), {"mover"}),
              std::vector<std::string>{});
    EXPECT_EQ(ledger.dueIDs(addSeconds(now, ReclaimLedger::kWeekSeconds), {"mover"}),
              std::vector<std::string>{"mover"});

    EXPECT_EQ(CleanerCaption::lastPass(ledger.lastFreed["empty"], ledger.lastRuns["empty"]),
              (CleanerCaption::Text{"Last: nothing to clear · " + CleanerCaption::shortDate(now),
                                    std::nullopt}));
}

// Sets TZ for one test: the caption's date is the user's local day.
class LocalZone {
public:
    explicit LocalZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) old_ = old;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~LocalZone() {
        if (old_)
            ::setenv("TZ", old_->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> old_;
};

WallTime utc(int year, int month, int day, int hour) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    return std::chrono::system_clock::from_time_t(::timegm(&fields));
}

TEST(FreeUpSummary, ReadsInAFixedOrderJoinedBySentences) {
    using Busy = FreeUpSummary::Busy;
    const Wording exact = Wording::exact();
    EXPECT_EQ(FreeUpSummary::line(exact, 0, {}, false, {}), "Nothing to clear");
    EXPECT_EQ(FreeUpSummary::line(exact, -5, {}, false, {}), "Nothing to clear");
    EXPECT_EQ(FreeUpSummary::line(exact, 1, {}, false, {}),
              "Moved 1 byte to the Trash; empty it to reclaim the space");
    EXPECT_EQ(FreeUpSummary::line(exact, 0, {"Firefox", "Chromium"}, false, {}),
              "Skipped while running: Firefox, Chromium");
    EXPECT_EQ(FreeUpSummary::line(exact, 0, {}, true, {Busy::browsers}),
              "Some folders need Full Disk Access. Browser caches are busy with a weekly pass, try "
              "again in a minute");
    // Moves that failed are never "Nothing to clear": the first few say what stayed.
    EXPECT_EQ(FreeUpSummary::line(exact, 0, {}, false, {}, {"npm: refused /h/.npm/_cacache"}),
              "Not moved: npm: refused /h/.npm/_cacache");
    EXPECT_EQ(FreeUpSummary::line(exact, 5'000, {}, false, {}, {"a", "b", "c", "d", "e"}),
              "Moved 5 KB to the Trash; empty it to reclaim the space. Not moved: a; b; c (and 2 "
              "more)");
    EXPECT_EQ(
        FreeUpSummary::line(exact, 2'345'678'901, {"Firefox"}, true,
                            {Busy::browsers, Busy::developer}),
        "Moved 2.35 GB to the Trash; empty it to reclaim the space. Skipped while running: "
        "Firefox. Some folders need Full Disk Access. Developer caches are busy with a weekly "
        "pass, try again in a minute. Browser caches are busy with a weekly pass, try again "
        "in a minute");
    // On Linux only the product's own words change: a skipped application or a path that happens
    // to hold a platform noun is named as it is.
    EXPECT_EQ(FreeUpSummary::line(Wording::linux("restic"), 0, {"Mac Mail"}, true, {},
                                  {"npm: refused /h/Finder/.npm"}),
              "Not moved: npm: refused /h/Finder/.npm. Skipped while running: Mac Mail. Some "
              "folders cannot be read");

    const LocalZone kiritimati("<+14>-14");
    const WallTime date = utc(2026, 11, 21, 12);  // already the 22nd at UTC+14
    EXPECT_EQ(CleanerCaption::shortDate(date), "Nov 22, 2026");
    EXPECT_EQ(CleanerCaption::lastPass(1'500'000, date),
              (CleanerCaption::Text{"Last: moved 1.5 MB to the Trash · Nov 22, 2026",
                                    "Moved to the Trash; empty it to reclaim the space"}));
    EXPECT_EQ(CleanerCaption::lastPass(0, date),
              (CleanerCaption::Text{"Last: nothing to clear · Nov 22, 2026", std::nullopt}));
    EXPECT_EQ(CleanerCaption::lastPass(1'500'000, std::nullopt), std::nullopt);
    const LocalZone baker("<-12>12");
    EXPECT_EQ(CleanerCaption::shortDate(utc(2026, 1, 1, 6)), "Dec 31, 2025");
    EXPECT_EQ(CleanerCaption::shortDate(utc(2026, 3, 5, 18)), "Mar 5, 2026");
}

}  // namespace
}  // namespace kestrow
