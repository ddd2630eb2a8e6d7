#include "ui/alert_cards_view.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QTest>

#include "app/settings/standard_settings.h"
#include "menu/menu_alert_feed.h"
#include "ui/demo_backup.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"

namespace kestrow {
namespace {

// The cards at the top of the menu over the demo desktop.
struct DemoAlerts : testing::DemoBackup {
    MenuAlertFeed feed{{model, standard, nullptr, nullptr,
                        [] { return std::optional<std::int64_t>(SimulatedDesktop::kHomeFreeBytes); }}};
    std::vector<std::pair<MenuAlertAction, MenuAlert>> pressed;
    MenuWindow menu{[] {}};
    AlertCardsView* cards = nullptr;

    DemoAlerts() {
        cards = new AlertCardsView(
            feed,
            [this](MenuAlertAction action, const MenuAlert& alert) {
                pressed.emplace_back(action, alert);
                if (action == MenuAlertAction::turnOnNightlyBackup) feed.turnOnNightlyBackup();
            },
            menu.alertArea(), &model.source);
        menu.alertArea()->layout()->addWidget(cards);
        model.refresh();
        scheduler.advance(1.0);
    }

    // The kinds of the cards on show, top to bottom.
    QStringList shownCards() const {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QStringList names;
        for (const QWidget* card : cards->findChildren<QFrame*>()) {
            if (card->isVisibleTo(cards) && qobject_cast<const QLabel*>(card) == nullptr)
                names << card->objectName();
        }
        return names;
    }

    QPushButton* button(const QString& title) const {
        for (QPushButton* push : cards->findChildren<QPushButton*>()) {
            if (push->isVisibleTo(cards) && push->text() == title) return push;
        }
        return nullptr;
    }
};

TEST(AlertCardsView, ShowsTheTwoMostUrgentThenAllAndActsOnTheScheduleCard) {
    DemoAlerts demo;
    // The demo's restic job backs up by itself, so its own facts raise only low space; three
    // cards are raised here to see the two most urgent, then all.
    EXPECT_EQ(demo.feed.alerts.get().size(), 1u);
    demo.feed.alerts.set({{{MenuAlertKind::Space{}}, {}},
                          {{MenuAlertKind::Retention{}}, {}},
                          {{MenuAlertKind::Unscheduled{}}, {}}});
    demo.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&demo.menu));

    EXPECT_EQ(demo.shownCards(), (QStringList{"unscheduled", "space"}));
    ASSERT_TRUE(demo.cards->toggle()->isVisible());
    EXPECT_EQ(demo.cards->toggle()->text(), QStringLiteral("Show 1 more alert"));
    const QStringList texts = testing::visibleTexts(demo.menu);
    EXPECT_TRUE(texts.contains(
        QStringLiteral("<b>No backups scheduled.</b><br>Automatic backups and Nightly backup "
                       "are both off, so nothing will back this computer up.")))
        << texts.join('\n').toStdString();
    EXPECT_TRUE(texts.contains(QStringLiteral(
        "<b>This computer is low on space.</b> Free up space below, or backups may stop.")));
    // The cards sit above the first section.
    EXPECT_LT(demo.cards->mapTo(&demo.menu, QPoint()).y(),
              demo.menu.sectionBody(MenuSection::backup)->mapTo(&demo.menu, QPoint()).y());
    ASSERT_TRUE(demo.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_alerts.png"))));

    demo.cards->toggle()->click();
    EXPECT_EQ(demo.shownCards(), (QStringList{"unscheduled", "space", "retention"}));
    EXPECT_EQ(demo.cards->toggle()->text(), QStringLiteral("Show fewer alerts"));
    // The cards speak of the source that backs the computer up, and follow it when it changes.
    const QString retention = QStringLiteral(
        "<b>The backup disk is full, so %1 is deleting history faster than you may "
        "want.</b>");
    demo.model.source.set(BackupSourceName{BackupSourceKind::timeMachine, "Time Machine"});
    EXPECT_TRUE(testing::visibleTexts(*demo.cards).contains(retention.arg("Time Machine")));
    demo.model.source.set(BackupSourceName{BackupSourceKind::restic, "restic"});
    // restic deletes no history by itself: its card says what is true for it.
    EXPECT_TRUE(testing::visibleTexts(*demo.cards)
                    .contains(QStringLiteral(
                        "<b>The backup disk is nearly full, so new backups may not fit.</b>")))
        << testing::visibleTexts(*demo.cards).join('\n').toStdString();
    ASSERT_TRUE(
        demo.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_alerts_all.png"))));

    // Pressing the button turns the nightly backup on; its card goes, and with two left there is
    // nothing to collapse.
    QPushButton* schedule = demo.button(QStringLiteral("Turn on Nightly backup"));
    ASSERT_NE(schedule, nullptr);
    schedule->click();
    ASSERT_EQ(demo.pressed.size(), 1u);
    EXPECT_EQ(demo.pressed[0].second.kind, MenuAlertKind{MenuAlertKind::Unscheduled{}});
    EXPECT_TRUE(StandardSettings(demo.standard).nightlyBackupEnabled());
    EXPECT_FALSE(demo.shownCards().contains("unscheduled"));
    EXPECT_FALSE(demo.cards->toggle()->isVisible());

    // With nothing raised the area takes no room.
    demo.feed.alerts.set({});
    EXPECT_FALSE(demo.cards->isVisible());
}

TEST(AlertCardsView, AFastGrowingFoldersButtonsNameItsFolder) {
    DemoAlerts demo;
    demo.feed.alerts.set({{{MenuAlertKind::Hog{3}}, "/srv/videos"},
                          {{MenuAlertKind::BootDisk{"Failing <soon>"}}, {}}});
    // The cards scroll with the sections, so they are laid out once the menu is open.
    demo.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&demo.menu));
    EXPECT_EQ(demo.shownCards(), (QStringList{"bootDisk", "hog"}));
    EXPECT_TRUE(
        testing::visibleTexts(*demo.cards)
            .contains(QStringLiteral("<b>This computer's disk reports Failing &lt;soon&gt;</b>")));
    ASSERT_TRUE(
        demo.cards->grab().save(testing::screenshotPath(QStringLiteral("menu_alert_hog.png"))));
    QPushButton* quiet = demo.button(QStringLiteral("This is expected"));
    ASSERT_NE(quiet, nullptr);
    EXPECT_EQ(quiet->toolTip(), QStringLiteral("Quiet until it grows another 5 GB"));
    quiet->click();
    ASSERT_NE(demo.button(QStringLiteral("Reveal in Files")), nullptr);
    demo.button(QStringLiteral("Reveal in Files"))->click();
    ASSERT_EQ(demo.pressed.size(), 2u);
    EXPECT_EQ(demo.pressed[0].first, MenuAlertAction::quiet);
    EXPECT_EQ(demo.pressed[0].second.folder, "/srv/videos");
    EXPECT_EQ(demo.pressed[1].first, MenuAlertAction::reveal);
}

}  // namespace
}  // namespace kestrow
