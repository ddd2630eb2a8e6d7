#include "ui/menu_window.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>

#include "ui/image_probe.h"

namespace kestrow {
namespace {

TEST(MenuWindow, ShowsEmptySectionsAndQuitCallsBack) {
    int quits = 0;
    MenuWindow menu([&] { ++quits; });
    menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&menu));
    EXPECT_TRUE(menu.windowFlags() & Qt::FramelessWindowHint);

    QStringList headers;
    for (const QLabel* label : menu.findChildren<QLabel*>(QStringLiteral("sectionHeader")))
        if (label->isVisible()) headers << label->text();
    EXPECT_EQ(headers,
              (QStringList{"Backup", "Network Shares", "Keep Awake", "Weekly cleaners", "Disk"}));
    // Each subsystem fills its own section later; until then nothing stands in for it.
    for (MenuSection section :
         {MenuSection::backup, MenuSection::networkShares, MenuSection::keepAwake,
          MenuSection::weeklyCleaners, MenuSection::disk}) {
        ASSERT_NE(menu.sectionBody(section), nullptr);
        EXPECT_TRUE(menu.sectionBody(section)->findChildren<QWidget*>().isEmpty());
    }
    EXPECT_NE(menu.sectionBody(MenuSection::backup), menu.sectionBody(MenuSection::disk));

    // Without a known icon position the panel still lands whole on a screen.
    const QScreen* screen = QGuiApplication::screenAt(menu.geometry().center());
    ASSERT_NE(screen, nullptr);
    EXPECT_TRUE(screen->availableGeometry().contains(menu.geometry()));

    ASSERT_TRUE(menu.grab().save(testing::screenshotPath(QStringLiteral("menu.png"))));

    auto* quit = menu.findChild<QPushButton*>(QStringLiteral("quit"));
    ASSERT_NE(quit, nullptr);
    EXPECT_TRUE(testing::visibleTexts(menu).contains(QStringLiteral("Quit Kestrow")));
    QTest::mouseClick(quit, Qt::LeftButton);
    EXPECT_EQ(quits, 1);
    EXPECT_FALSE(menu.isVisible());
}

TEST(MenuWindow, TogglesAndHidesOnEscape) {
    MenuWindow menu([] {});
    menu.toggle();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&menu));
    menu.toggle();
    EXPECT_FALSE(menu.isVisible());
    menu.toggle();
    EXPECT_TRUE(menu.isVisible());
    QTest::keyClick(&menu, Qt::Key_Escape);
    EXPECT_FALSE(menu.isVisible());
}

TEST(MenuWindow, PlacementHangsThePanelOffTheIconAndKeepsItOnScreen) {
    const QSize panel(300, 400);
    // A top bar 28 px high: the available area starts below it.
    const QRect belowTopBar(0, 28, 1280, 772);
    EXPECT_EQ(MenuWindow::placement(panel, QRect(600, 2, 25, 24), belowTopBar), QPoint(462, 32));
    // An icon at the right edge pulls the panel left, not off the screen.
    EXPECT_EQ(MenuWindow::placement(panel, QRect(1250, 2, 24, 24), belowTopBar), QPoint(980, 32));

    // A bottom panel: the popover opens upwards, ending just above the icon.
    const QRect aboveBottomBar(0, 0, 1280, 772);
    EXPECT_EQ(MenuWindow::placement(panel, QRect(10, 776, 24, 24), aboveBottomBar), QPoint(0, 370));

    // On a screen too small for it, the panel keeps its top-left corner visible.
    const QRect tiny(100, 50, 200, 300);
    EXPECT_EQ(MenuWindow::placement(panel, QRect(250, 60, 10, 10), tiny), QPoint(100, 50));
}

}  // namespace
}  // namespace kestrow
