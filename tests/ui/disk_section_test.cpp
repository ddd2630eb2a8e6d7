#include "ui/disk_section.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QTest>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "insights/drive_health_monitor.h"
#include "insights/hog_store.h"
#include "insights/hog_watch_scheduler.h"
#include "platform/idle_time.h"
#include "platform/power_source.h"
#include "platform/smart_status.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"

namespace kestrow {
namespace {

constexpr std::int64_t kGB = 1'000'000'000;

struct DaytimeAtTheDesk final : PowerSource, IdleTime {
    std::optional<bool> onMainsPower() override { return true; }
    std::optional<double> secondsSinceLastInput() override { return 0.0; }
};

struct FailingBootDisk final : SmartStatus {
    Verdict bootDisk() override { return "Failing"; }
    BackupDisk backupDisk(const Destination&) override { return {}; }
};

// The disk section over two stored snapshots in which one folder grew fast and the free space
// shrank, with a boot disk whose SMART says it is failing.
struct DiskMenu {
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    Logger log{sink, LogArea::general};
    VirtualScheduler scheduler;
    Executor& worker = scheduler.makeSerialQueue();
    SettingsStore standard{folder / "standard.plist", log};
    DaytimeAtTheDesk desk;
    FailingBootDisk smart;
    HogStore store{folder / "sizes"};
    HogWatchScheduler hogWatch{{scheduler, scheduler.mainExecutor(), worker, standard, desk, desk,
                                store,
                                [](WallTime now) {
                                    return SizeSnapshot{now, {}, {}};
                                },
                                [](WallTime) { return 12; }, log}};
    DriveHealthMonitor health{{scheduler, scheduler.mainExecutor(), worker, smart,
                               [] { return std::optional<Destination>(); }, log}};
    MenuWindow menu{[] {}};
    DiskSection* section = nullptr;
    int duplicatesOpened = 0;

    explicit DiskMenu(bool freeSpaceKnown = true) {
        const WallTime now = scheduler.now();
        store.save({addSeconds(now, -2 * 86'400.0),
                    freeSpaceKnown ? std::optional(300 * kGB) : std::nullopt,
                    {{"/home/me/VMs", 10 * kGB}, {"/home/me", 80 * kGB}}});
        store.save({addSeconds(now, -86'400.0),
                    freeSpaceKnown ? std::optional(290 * kGB) : std::nullopt,
                    {{"/home/me/VMs", 16 * kGB}, {"/home/me", 86 * kGB}}});
        hogWatch.start();
        health.start();
        scheduler.runPending();
        QWidget* body = menu.sectionBody(MenuSection::disk);
        // An empty home: no applications and no startup entries to list.
        const EnvironmentLookup environment = folder.homeEnvironment();
        section = new DiskSection(
            {standard, hogWatch, health, scheduler.mainExecutor(), worker,
             UserLocations::resolve(environment), environment, [this] { ++duplicatesOpened; }},
            body);
        body->layout()->addWidget(section);
    }
};

// With an estimate, each fast-growing folder also has its card at the top of the menu: the
// section points there rather than listing it twice.
TEST(DiskSection, AFolderWithACardAboveIsListedAboveAndTheDaysLeftAndTheFailingDiskShow) {
    DiskMenu m;
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));
    m.scheduler.runPending();

    EXPECT_EQ(m.section->hogs().text(), QStringLiteral("A folder is growing fast"));
    EXPECT_TRUE(
        testing::visibleTexts(m.menu).contains(QStringLiteral("VMs growing fast, listed above.")));
    EXPECT_TRUE(m.section->dismissButtons().empty()) << "the card above has the quiet button";
    EXPECT_EQ(m.section->daysUntilFull().text(),
              QStringLiteral("At this rate your disk is full in 29 days"));
    EXPECT_TRUE(m.section->health().text().startsWith(
        QStringLiteral("This computer's disk (SMART): Failing")));
    ASSERT_TRUE(m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_disk.png"))));

    // Quieted from its card.
    m.hogWatch.dismiss("/home/me/VMs");
    m.scheduler.runPending();
    EXPECT_EQ(m.section->hogs().text(), QStringLiteral("Nothing grew unusually."));
    EXPECT_FALSE(
        testing::visibleTexts(m.menu).contains(QStringLiteral("VMs growing fast, listed above.")));
}

TEST(DiskSection, WithoutAnEstimateTheSectionListsTheFolderAndQuietsOnDismiss) {
    DiskMenu m(/*freeSpaceKnown=*/false);
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));
    m.scheduler.runPending();

    EXPECT_EQ(m.section->hogs().text(), QStringLiteral("A folder is growing fast"));
    ASSERT_EQ(m.section->dismissButtons().size(), 1u);
    EXPECT_EQ(m.section->dismissButtons()[0]->toolTip(),
              QStringLiteral("Quiet until it grows another 5 GB"));
    EXPECT_FALSE(m.section->daysUntilFull().isVisible());

    m.section->dismissButtons()[0]->click();
    m.scheduler.runPending();
    EXPECT_EQ(StandardSettings(m.standard).hogWatchDismissed().at("/home/me/VMs"), 16 * kGB);
    EXPECT_TRUE(m.section->dismissButtons().empty());
    EXPECT_EQ(m.section->hogs().text(), QStringLiteral("Nothing grew unusually."));

    m.section->watchSwitch().click();
    EXPECT_EQ(m.standard.boolValue(keys::hogWatchEnabled), false);
    m.section->findDuplicates().click();
    EXPECT_EQ(m.duplicatesOpened, 1);
}

}  // namespace
}  // namespace kestrow
