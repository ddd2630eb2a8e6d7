#include "ui/menu_window.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
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
    EXPECT_EQ(MenuWindow::placement(panel, QRect(600, 2, 25, 24), belowTopBar),
              QRect(462, 32, 300, 400));
    // An icon at the right edge pulls the panel left, not off the screen.
    EXPECT_EQ(MenuWindow::placement(panel, QRect(1250, 2, 24, 24), belowTopBar),
              QRect(980, 32, 300, 400));
    // Taller than the screen: cut to the room below the icon, never pushed up over it.
    EXPECT_EQ(MenuWindow::placement(QSize(300, 900), QRect(600, 2, 25, 24), belowTopBar),
              QRect(462, 32, 300, 768));

    // A bottom panel: the popover opens upwards, ending just above the icon.
    const QRect aboveBottomBar(0, 0, 1280, 772);
    EXPECT_EQ(MenuWindow::placement(panel, QRect(10, 776, 24, 24), aboveBottomBar),
              QRect(0, 370, 300, 400));
    EXPECT_EQ(MenuWindow::placement(QSize(300, 900), QRect(10, 776, 24, 24), aboveBottomBar),
              QRect(0, 0, 300, 770));

    // Side panels: the popover opens beside the icon, level with it.
    EXPECT_EQ(MenuWindow::placement(panel, QRect(12, 380, 24, 24), QRect(48, 0, 1232, 800)),
              QRect(48, 191, 300, 400));
    EXPECT_EQ(MenuWindow::placement(panel, QRect(1244, 380, 24, 24), QRect(0, 0, 1232, 800)),
              QRect(932, 191, 300, 400));

    // On a screen too small for it, the panel fits the room below the icon and stays off it.
    const QRect tiny(100, 50, 200, 300);
    const QRect icon(250, 60, 10, 10);
    const QRect placed = MenuWindow::placement(panel, icon, tiny);
    EXPECT_EQ(placed, QRect(100, 76, 200, 274));
    EXPECT_FALSE(placed.intersects(icon));
}

// Filled sections on the small screens of netbooks and small tablets: the panel keeps to the free
// area, scrolls, leaves the icon uncovered, and Quit stays in view.
TEST(MenuWindow, OnASmallScreenTheSectionsScrollAndTheIconStaysUncovered) {
    struct Screen {
        const char* name;
        QRect available;
        QRect icon;
    };
    const std::vector<Screen> screens{
        {"menu_1024x600.png", QRect(0, 28, 1024, 572), QRect(990, 2, 24, 24)},
        {"menu_800x480.png", QRect(0, 0, 800, 452), QRect(770, 456, 24, 24)},
    };
    for (const Screen& screen : screens) {
        MenuWindow menu([] {});
        for (MenuSection section :
             {MenuSection::backup, MenuSection::weeklyCleaners, MenuSection::disk}) {
            QWidget* body = menu.sectionBody(section);
            for (int line = 1; line <= 12; ++line)
                body->layout()->addWidget(new QLabel(QStringLiteral("Line %1").arg(line), body));
        }
        menu.showWithin(screen.icon, screen.available);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&menu));
        const QRect placed = menu.geometry();
        EXPECT_TRUE(screen.available.contains(placed)) << screen.name;
        EXPECT_FALSE(placed.intersects(screen.icon)) << screen.name;
        EXPECT_GT(placed.height(), screen.available.height() / 2) << "uses the room it has";
        EXPECT_GT(menu.scrollArea()->verticalScrollBar()->maximum(), 0) << screen.name;

        const auto* quit = menu.findChild<QPushButton*>(QStringLiteral("quit"));
        ASSERT_NE(quit, nullptr);
        EXPECT_TRUE(menu.rect().contains(quit->geometry())) << "Quit is never scrolled away";
        EXPECT_TRUE(menu.rect().contains(menu.startAtLogin()->geometry()));
        EXPECT_EQ(menu.startAtLogin()->text(), QStringLiteral("Start at login"));
        ASSERT_TRUE(menu.grab().save(testing::screenshotPath(QString::fromUtf8(screen.name))));

        // The last section can be scrolled into view.
        menu.scrollArea()->verticalScrollBar()->setValue(
            menu.scrollArea()->verticalScrollBar()->maximum());
        QWidget* disk = menu.sectionBody(MenuSection::disk);
        const QRect lastLine = disk->layout()->itemAt(11)->widget()->geometry();
        const QPoint inViewport = disk->mapTo(menu.scrollArea()->viewport(), lastLine.bottomLeft());
        EXPECT_TRUE(menu.scrollArea()->viewport()->rect().contains(inViewport)) << screen.name;
    }
}

// What a section gains while the panel is open resizes it, still inside the room.
TEST(MenuWindow, GrowingContentRefitsTheOpenPanel) {
    MenuWindow menu([] {});
    const QRect available(0, 28, 1024, 572);
    const QRect icon(990, 2, 24, 24);
    menu.showWithin(icon, available);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&menu));
    const int before = menu.height();
    QWidget* body = menu.sectionBody(MenuSection::backup);
    for (int line = 1; line <= 60; ++line)
        body->layout()->addWidget(new QLabel(QStringLiteral("Line %1").arg(line), body));
    QTRY_VERIFY(menu.height() > before);
    EXPECT_TRUE(available.contains(menu.geometry()));
    EXPECT_EQ(menu.geometry().bottom(), available.bottom()) << "as tall as the room, no taller";
}

}  // namespace
}  // namespace kestrow
