#include "insights/hog_watch_scheduler.h"

#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "support/iso_date.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t GB = 1'000'000'000;
constexpr double kHour = 3'600.0;
constexpr double kDay = 86'400.0;

WallTime date(const char* iso) {
    return parseIsoDate(iso).value();
}

class FakePower final : public PowerSource {
public:
    std::optional<bool> answer = true;
    std::optional<bool> onMainsPower() override { return answer; }
};

class FakeIdle final : public IdleTime {
public:
    std::optional<double> answer = 3'600.0;
    std::optional<double> secondsSinceLastInput() override { return answer; }
};

// Everything a watch needs, with the night of 2026-11-14 at 02:00 UTC as "now" and a local time
// zone that is UTC plus `utcOffsetHours`.
class Rig {
public:
    testing::TempFolder temp;
    UserLocations folders{
        temp.path(), temp / ".config", temp / ".local/share", temp / ".cache", {}};
    testing::RecordingLogSink sink;
    SettingsStore settings{folders.standardStoreFile(), Logger(sink, LogArea::general)};
    VirtualScheduler scheduler{date("2026-11-14T02:00:00Z")};
    Executor& worker = scheduler.makeSerialQueue();
    FakePower power;
    FakeIdle idle;
    HogStore hogs{HogStore::folderIn(folders)};
    int utcOffsetHours = 0;

    // What the fake scan finds, how long it takes, and when it was asked.
    std::map<std::string, std::int64_t> sizes;
    std::optional<std::int64_t> freeBytes;
    double scanSeconds = 0.0;
    std::function<void()> scanTrouble;
    std::vector<WallTime> scans;
    // Each call in order: "background" when the scan's priority drops, "scan" when it walks.
    std::vector<std::string> steps;
    SizeSnapshot::Kind scannedKind = SizeSnapshot::Kind::nightly;

    std::unique_ptr<HogWatchScheduler> watch;

    HogWatchScheduler& start() {
        watch = std::make_unique<HogWatchScheduler>(HogWatchScheduler::Dependencies{
            scheduler, scheduler.mainExecutor(), worker, settings, power, idle, hogs,
            [this](WallTime now) {
                scans.push_back(now);
                steps.push_back("scan");
                if (scanTrouble) scanTrouble();
                if (scanSeconds > 0.0) scheduler.sleep(scanSeconds);
                return SizeSnapshot{now, freeBytes, sizes, scannedKind};
            },
            [this](WallTime time) {
                const auto hours = std::chrono::floor<std::chrono::hours>(time.time_since_epoch());
                return static_cast<int>(((hours.count() + utcOffsetHours) % 24 + 24) % 24);
            },
            Logger(sink, LogArea::general), [this] { steps.push_back("background"); }});
        watch->start();
        return *watch;
    }
    void store(double secondsAgo, std::map<std::string, std::int64_t> folderSizes,
               std::optional<std::int64_t> free = std::nullopt) {
        ASSERT_TRUE(
            hogs.save({addSeconds(scheduler.now(), -secondsAgo), free, std::move(folderSizes)}));
    }
    bool logged(std::string_view fragment) const { return sink.contains(fragment); }
};

TEST(HogWatchScheduler, QuietNightScanIsSavedAndPublished) {
    Rig rig;
    rig.store(2 * kDay, {{"/h/vm", 10 * GB}}, 520 * GB);
    rig.sizes = {{"/h/vm", 16 * GB}};
    rig.freeBytes = 500 * GB;
    HogWatchScheduler& watch = rig.start();
    int published = 0;
    auto connection = watch.alerts().observe([&](const auto&) { ++published; });
    rig.scheduler.runPending();

    ASSERT_EQ(rig.scans, std::vector<WallTime>{date("2026-11-14T02:00:00Z")});
    EXPECT_FALSE(watch.scanning());
    EXPECT_EQ(watch.alerts().get(),
              (std::vector<HogAlert>{{"/h/vm", 16 * GB, 6 * GB, false, 2, {}, {}}}));
    EXPECT_EQ(published, 1);
    EXPECT_EQ(watch.daysUntilFull().get(), 50);
    const auto stored = rig.hogs.load();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored.back(), (SizeSnapshot{date("2026-11-14T02:00:00Z"), 500 * GB, rig.sizes}));
    EXPECT_TRUE(fs::exists(rig.hogs.folder() / "2026-11-14T020000Z.json"));
}

TEST(HogWatchScheduler, EveryScanDropsToBackgroundPriorityFirstAndIsKeptAsNightly) {
    Rig rig;
    rig.scannedKind = SizeSnapshot::Kind::manual;  // whatever the scanner says
    rig.start();
    rig.scheduler.runPending();
    EXPECT_EQ(rig.steps, (std::vector<std::string>{"background", "scan"}));
    ASSERT_EQ(rig.hogs.load().size(), 1u);
    EXPECT_EQ(rig.hogs.load().back().kind, SizeSnapshot::Kind::nightly);

    // The next night's scan runs at background priority too; ticks that do not scan never ask.
    rig.scheduler.advance(kDay);
    EXPECT_EQ(rig.steps, (std::vector<std::string>{"background", "scan", "background", "scan"}));
}

TEST(HogWatchScheduler, EachConditionHoldsTheScanBack) {
    struct Case {
        const char* name;
        std::function<void(Rig&)> hold;
        std::function<void(Rig&)> release;  // effective from the next tick
    };
    const std::vector<Case> cases{
        {"switched off", [](Rig& r) { r.settings.set(keys::hogWatchEnabled, PlistValue(false)); },
         [](Rig& r) { r.settings.set(keys::hogWatchEnabled, PlistValue(true)); }},
        {"on battery", [](Rig& r) { r.power.answer = false; },
         [](Rig& r) { r.power.answer = true; }},
        {"power unknown", [](Rig& r) { r.power.answer.reset(); },
         [](Rig& r) { r.power.answer = true; }},
        {"user at work", [](Rig& r) { r.idle.answer = 599.0; },
         [](Rig& r) { r.idle.answer = 600.0; }},
        {"idle unknown", [](Rig& r) { r.idle.answer.reset(); },
         [](Rig& r) { r.idle.answer = 600.0; }},
        {"six o'clock local", [](Rig& r) { r.utcOffsetHours = 4; },
         [](Rig& r) { r.utcOffsetHours = 3; }},
        {"snapshot 71,400 s old", [](Rig& r) { r.store(71'400.0, {}); },
         [](Rig&) { /* 72,000 s old at the next tick */ }},
    };
    for (const Case& c : cases) {
        Rig rig;
        c.hold(rig);
        rig.start();
        rig.scheduler.advance(HogWatchScheduler::kTickSeconds - 1.0);
        EXPECT_TRUE(rig.scans.empty()) << c.name;
        c.release(rig);
        rig.scheduler.advance(1.0);
        EXPECT_EQ(rig.scans.size(), 1u) << c.name;
    }
}

TEST(HogWatchScheduler, OneScanANightAndAFutureSnapshotIsNotRecent) {
    Rig rig;
    rig.store(-kHour, {});  // the clock was set back
    rig.start();
    rig.scheduler.runPending();
    ASSERT_EQ(rig.scans.size(), 1u);
    rig.scheduler.advance(20 * kHour);
    EXPECT_EQ(rig.scans.size(), 1u) << "the rest of the night and the day";
    rig.scheduler.advance(2 * kHour);
    ASSERT_EQ(rig.scans.size(), 2u);
    EXPECT_EQ(rig.scans[1], date("2026-11-15T00:00:00Z")) << "the first tick of the next night";

    rig.watch->stop();
    rig.scheduler.advance(3 * kDay);
    EXPECT_EQ(rig.scans.size(), 2u) << "no ticks after stop()";
}

TEST(HogWatchScheduler, NoSecondScanWhileOneRunsAndAFailedSaveIsTriedAgain) {
    Rig rig;
    rig.temp.write(".local/share/Orvel", "a file where the folder should be");
    rig.sizes = {{"/h/new", 6 * GB}};
    rig.scanSeconds = 1'800.0;
    HogWatchScheduler& watch = rig.start();
    rig.scheduler.advance(1'500.0);
    EXPECT_EQ(rig.scans.size(), 1u) << "ticks while the scan runs start nothing";
    EXPECT_TRUE(watch.scanning());

    rig.scheduler.advance(600.0);
    EXPECT_TRUE(rig.logged("Hog watch: could not save snapshot ("));
    // Tonight's finding is shown even though it could not be kept.
    ASSERT_EQ(watch.alerts().get().size(), 1u);
    EXPECT_EQ(watch.alerts().get()[0].path, "/h/new");
    EXPECT_EQ(rig.scans.size(), 2u) << "nothing was saved, so the next tick scans again";
}

TEST(HogWatchScheduler, AFailingScanIsLoggedAndFreesTheWatch) {
    Rig rig;
    rig.scanTrouble = [] { throw std::runtime_error("disk on fire"); };
    HogWatchScheduler& watch = rig.start();
    rig.scheduler.runPending();
    EXPECT_TRUE(rig.logged("Hog watch: scan failed (disk on fire)"));
    EXPECT_FALSE(watch.scanning());
    rig.scheduler.advance(HogWatchScheduler::kTickSeconds);
    EXPECT_EQ(rig.scans.size(), 2u);
}

TEST(HogWatchScheduler, DismissKeepsTheCurrentSizeAndQuietsTheAlert) {
    Rig rig;
    rig.utcOffsetHours = 10;  // daytime: only what is stored matters
    rig.store(2 * kDay, {{"/h/vm", 10 * GB}, {"/h/logs", 1 * GB}});
    rig.store(kHour, {{"/h/vm", 16 * GB}, {"/h/logs", 8 * GB}});
    rig.settings.set(keys::hogWatchDismissed, PlistValue(PlistDict{{"/gone", PlistValue(3)}}));
    HogWatchScheduler& watch = rig.start();
    ASSERT_EQ(watch.alerts().get().size(), 2u);
    EXPECT_EQ(watch.alerts().get()[0].path, "/h/logs");

    watch.dismiss("/h/vm");
    EXPECT_EQ(StandardSettings(rig.settings).hogWatchDismissed(),
              (std::map<std::string, std::int64_t>{{"/gone", 3}, {"/h/vm", 16 * GB}}));
    ASSERT_EQ(watch.alerts().get().size(), 1u);
    EXPECT_EQ(watch.alerts().get()[0].path, "/h/logs");

    watch.dismiss("/h/nowhere");
    EXPECT_EQ(StandardSettings(rig.settings).hogWatchDismissed().size(), 2u);
    EXPECT_TRUE(rig.scans.empty());
}

TEST(HogWatchScheduler, SystemLocalHourFollowsTheTimeZone) {
    const char* saved = ::getenv("TZ");
    const std::optional<std::string> before =
        saved ? std::optional<std::string>(saved) : std::nullopt;
    const WallTime night = date("2026-11-14T02:00:00Z");
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    EXPECT_EQ(HogWatchScheduler::systemLocalHour(night), 2);
    ::setenv("TZ", "<+0530>-5:30", 1);
    ::tzset();
    EXPECT_EQ(HogWatchScheduler::systemLocalHour(night), 7);
    if (before) {
        ::setenv("TZ", before->c_str(), 1);
    } else {
        ::unsetenv("TZ");
    }
    ::tzset();
}

}  // namespace
}  // namespace kestrow
