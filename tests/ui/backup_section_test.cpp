#include "ui/backup_section.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>

#include "ui/demo_backup.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"
#include "ui/rings_view.h"

namespace kestrow {
namespace {

// The menu's backup section on the demo's simulated Mac, in virtual time: what a user sees when
// the menu opens, and what Back Up Now does to it.
struct DemoMenu : testing::DemoBackup {
    MenuWindow menu{[] {}};
    BackupSection* section = nullptr;

    DemoMenu() {
        QWidget* body = menu.sectionBody(MenuSection::backup);
        section = new BackupSection(model, body);
        body->layout()->addWidget(section);
        model.refreshLiveStatus();
        scheduler.advance(1.0);
    }
};

TEST(BackupSection, ShowsTheVerdictRingsAndProgressOfTheDemoMac) {
    DemoMenu demo;
    demo.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&demo.menu));
    demo.scheduler.advance(1.0);  // the refresh on opening, and the probe's answer

    const ProtectionVerdict& verdict = demo.model.verdict.get();
    ASSERT_EQ(verdict.state, ProtectionState::protected_);
    EXPECT_EQ(demo.section->headline().text(), QString::fromStdString(verdict.reasons.front()));
    EXPECT_EQ(demo.section->details().text(), QStringLiteral("Backup in progress"));
    EXPECT_TRUE(demo.section->progress().isVisible());
    EXPECT_TRUE(demo.section->progress().text().startsWith(
        QStringLiteral("Backing up — copying files · ")));
    EXPECT_EQ(demo.section->rings().model(), demo.model.rings.get());
    EXPECT_EQ(demo.section->rings().tint(), RingsView::Tint::good);
    EXPECT_EQ(demo.model.rings.get().failedCount, 1);

    demo.section->historyToggle().click();
    EXPECT_TRUE(demo.section->history().isVisible());
    EXPECT_EQ(demo.section->history().text().count(QStringLiteral("<tr>")), 8);

    const QImage shot = demo.menu.grab().toImage();
    ASSERT_TRUE(shot.save(testing::screenshotPath(QStringLiteral("menu_backup.png"))));
    const QRect rings =
        testing::areaInGrab(demo.section->rings(), demo.menu, shot.devicePixelRatio());
    EXPECT_GT(
        testing::countPixels(shot, rings, [](QColor c) { return c == RingsView::failedColor(); }),
        0);
}

TEST(BackupSection, BackUpNowShowsItIsStartingUntilTheBackupRuns) {
    DemoMenu demo;
    demo.section->show();
    demo.scheduler.advance(1.0);
    ASSERT_TRUE(demo.section->backUpNow().isEnabled());

    QTest::mouseClick(&demo.section->backUpNow(), Qt::LeftButton);
    EXPECT_TRUE(demo.model.starting.get());
    EXPECT_FALSE(demo.section->backUpNow().isEnabled());
    EXPECT_EQ(demo.section->backUpNow().text(), QStringLiteral("Starting…"));

    // The simulated Mac is already backing up, so the first check finds the backup running.
    demo.scheduler.advance(2.0);
    EXPECT_FALSE(demo.model.starting.get());
    EXPECT_TRUE(demo.section->backUpNow().isEnabled());
    EXPECT_FALSE(demo.section->startError().isVisible());
}

// The threshold setting gives the verdict and the rings for the new window at once, and the
// snapshot for whatever shows Kestrow's status outside the app carries it too.
TEST(BackupSection, ChangingTheThresholdReEvaluatesAndStoresTheSnapshotAgain) {
    DemoMenu demo;
    demo.section->show();
    demo.scheduler.advance(600.0);  // the newest backup is now 65 minutes old
    ASSERT_EQ(demo.model.verdict.get().state, ProtectionState::protected_);
    EXPECT_EQ(demo.section->threshold().value(), 24);
    const std::size_t reloads = demo.widgets.reloads.size();

    demo.section->threshold().setValue(1);
    EXPECT_EQ(demo.sharedStore.realValue("protectedThresholdHours"), 1.0);
    EXPECT_EQ(demo.model.verdict.get().state, ProtectionState::aging) << "without waiting";
    EXPECT_EQ(demo.model.rings.get().thresholdHours, 1.0);
    const auto snapshot = demo.shared.load();
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->protectedThresholdHours, 1.0);
    EXPECT_GT(demo.widgets.reloads.size(), reloads) << "the widgets were told";

    demo.section->threshold().setValue(24);
    EXPECT_EQ(demo.model.verdict.get().state, ProtectionState::protected_);
    EXPECT_EQ(demo.shared.load()->protectedThresholdHours, 24.0);
}

}  // namespace
}  // namespace kestrow
