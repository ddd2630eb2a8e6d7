#include "ui/cleaners_section.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QTest>

#include "app/settings/settings_keys.h"
#include "cleaners/browser_cache_reclaimer.h"
#include "cleaners/maintenance_cleaner.h"
#include "platform/demo/demo_caches.h"
#include "platform/linux/freedesktop_trash.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"

namespace kestrow {
namespace {

struct NothingRuns final : RunningProcesses {
    ProcessListing current() override { return std::vector<RunningProcess>{}; }
    bool applicationRunning(const std::string&) override { return false; }
};

// The menu's cleaner section over the demo's pretend home, in virtual time.
struct CleanersMenu {
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    Logger log{sink, LogArea::general};
    VirtualScheduler scheduler;
    Executor& worker = scheduler.makeSerialQueue();
    SettingsStore standard{folder / "standard.plist", log};
    DemoCaches caches{folder / "demo"};
    FreedesktopTrash trash{caches.folders().dataHome};
    NothingRuns processes;
    BrowserCacheReclaimer browsers{{scheduler, scheduler.mainExecutor(), worker, standard,
                                    processes, trash, caches.folders(), log}};
    MaintenanceCleaner developer{
        {[this] { return scheduler.now(); },
         standard,
         3600.0,
         MaintenanceCleaner::cleanersOnDisk(worker, scheduler.mainExecutor(), caches.folders(),
                                            processes, trash),
         [this](std::function<void(BrowserResult)> done) { browsers.reclaimNow(std::move(done)); },
         {}},
        scheduler.mainExecutor(),
        log};
    MenuWindow menu{[] {}};
    CleanersSection* section = nullptr;

    CleanersMenu() {
        caches.seed();
        QWidget* body = menu.sectionBody(MenuSection::weeklyCleaners);
        section = new CleanersSection({standard, developer, browsers, scheduler.mainExecutor(),
                                       worker, caches.folders(), false},
                                      body);
        body->layout()->addWidget(section);
    }
};

TEST(CleanersSection, SwitchesMeasureAndFreeUpSpaceWithTheExactLines) {
    CleanersMenu m;
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));
    EXPECT_EQ(m.section->estimate().text(), QStringLiteral("Turn on a cleaner in Weekly cleaners"));
    EXPECT_FALSE(m.section->freeUp().isEnabled());
    ASSERT_NE(m.section->toggle("npm"), nullptr);
    ASSERT_NE(m.section->toggle("pip"), nullptr);
    EXPECT_EQ(m.section->toggle("xcode"), nullptr) << "no Xcode on Linux";
    EXPECT_EQ(m.section->toggle("homebrew"), nullptr) << "no Homebrew cache in this home";

    m.section->toggle("npm")->click();
    EXPECT_EQ(m.standard.boolValue(keys::maintenanceEnabled("npm")), true);
    EXPECT_EQ(m.section->estimate().text(),
              QStringLiteral("Measuring what your cleaners can free…"));
    m.scheduler.runPending();
    // The switch's poke ran the weekly pass at once: the npm cache is gone and captioned.
    EXPECT_FALSE(std::filesystem::exists(m.caches.folders().home / ".npm/_cacache"));
    EXPECT_TRUE(testing::visibleTexts(m.menu).join("|").contains(
        QStringLiteral("Last: moved 3.1 MB to the Trash · ")))
        << testing::visibleTexts(m.menu).join("|").toStdString();
    m.section->refresh();
    m.scheduler.runPending();
    EXPECT_EQ(m.section->estimate().text(),
              QStringLiteral("Your cleaners have nothing to free now"));

    m.section->toggle("browsers")->click();
    m.scheduler.runPending();
    m.caches.seed();  // the caches grew back
    m.section->refresh();
    m.scheduler.runPending();
    EXPECT_TRUE(m.section->estimate().text().endsWith(QStringLiteral(" from your cleaners")))
        << m.section->estimate().text().toStdString();
    ASSERT_TRUE(m.section->freeUp().isEnabled());
    ASSERT_TRUE(m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_cleaners.png"))));

    QTest::mouseClick(&m.section->freeUp(), Qt::LeftButton);
    m.scheduler.runPending();
    EXPECT_TRUE(m.section->result().isVisible());
    EXPECT_EQ(m.section->result().text(),
              QStringLiteral("Moved 10.5 MB to the Trash; empty it to reclaim the space"));
    EXPECT_TRUE(std::filesystem::exists(m.caches.folders().cacheHome / "pip/http/demo"))
        << "pip is off and keeps its cache";
}

}  // namespace
}  // namespace kestrow
