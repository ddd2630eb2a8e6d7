#include "ui/first_run_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScreen>
#include <QTest>

#include "ui/image_probe.h"
#include "ui/step_badge.h"
#include "ui/step_card_widget.h"

namespace kestrow {
namespace {

using testing::areaInGrab;
using testing::countPixels;
using ::testing::ElementsAre;
using testing::isCheckGreen;

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

TEST(FirstRunWindow, ShowsEveryTextOfTheContentAndMarksDoneSteps) {
    const FirstRunFacts facts{.hasAccess = false, .startAtLaunchEnabled = true};
    FirstRunWindow window([&] { return facts; }, [](StepAction) {});
    window.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

    const FirstRunContent content = firstRunContent(facts, Wording::linux(std::nullopt));
    const QStringList texts = testing::visibleTexts(window);
    EXPECT_EQ(window.windowTitle(), qt(content.title));
    for (const std::string* text : {&content.title, &content.headline, &content.footer})
        EXPECT_TRUE(texts.contains(qt(*text))) << *text;
    ASSERT_EQ(window.cards().size(), content.steps.size());
    for (const StepCard& step : content.steps) {
        EXPECT_TRUE(texts.contains(qt(step.title))) << step.title;
        EXPECT_TRUE(texts.contains(qt(step.text))) << step.text;
        // Start at launch is already on, so "Turn On" has nothing left to do and is gone.
        EXPECT_EQ(texts.contains(qt(step.buttonTitle)), step.number != 2) << step.buttonTitle;
    }
    const auto& cards = window.cards();
    EXPECT_FALSE(cards[0]->done());
    EXPECT_TRUE(cards[1]->done());
    EXPECT_FALSE(cards[2]->button()->isEnabled()) << "the share editor is not in this build";
    EXPECT_TRUE(cards[3]->button()->isEnabled());

    // The window sits on the screen whole, with the palette's text background behind it.
    const QRect screen = window.screen()->availableGeometry();
    EXPECT_TRUE(screen.contains(window.frameGeometry())) << "window is larger than the screen";
    EXPECT_FALSE(window.windowFlags() & Qt::WindowMaximizeButtonHint);

    const QPixmap grab = window.grab();
    ASSERT_TRUE(grab.save(testing::screenshotPath(QStringLiteral("first-run.png"))));
    const QImage image = grab.toImage();
    const qreal dpr = grab.devicePixelRatio();
    EXPECT_EQ(image.pixelColor(2, 2), window.palette().color(QPalette::Base));

    const QRect doneBadge = areaInGrab(*cards[1]->badge(), window, dpr);
    const QRect openBadge = areaInGrab(*cards[0]->badge(), window, dpr);
    const int badgeArea = doneBadge.width() * doneBadge.height();
    ASSERT_GT(badgeArea, 100) << "badge too small to read";
    EXPECT_GT(countPixels(image, doneBadge, isCheckGreen), badgeArea / 2);
    // The white tick is drawn over the green.
    EXPECT_GT(countPixels(image, doneBadge, [](QColor c) { return c == QColor(Qt::white); }), 10);
    EXPECT_EQ(countPixels(image, openBadge, isCheckGreen), 0);
    EXPECT_EQ(cards[0]->badge()->number(), 1);
    // The number's glyph leaves dark pixels inside the open badge.
    EXPECT_GT(countPixels(image, openBadge, [](QColor c) { return c.lightness() < 140; }), 8);
}

TEST(FirstRunWindow, ButtonsPerformTheirCardsActionAndTheWindowFollowsTheFacts) {
    FirstRunFacts facts;
    std::vector<StepAction> performed;
    FirstRunWindow window([&] { return facts; },
                          [&](StepAction action) {
                              performed.push_back(action);
                              if (action == StepAction::enableStartAtLaunch)
                                  facts.startAtLaunchEnabled = true;
                              if (action == StepAction::grantAccess) facts.accessAsked = true;
                          });
    window.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const std::vector<StepCardWidget*> cards = window.cards();
    ASSERT_EQ(cards.size(), 4U);

    QTest::mouseClick(cards[1]->button(), Qt::LeftButton);
    // The window re-read the facts after the action: the step is done and its button gone.
    EXPECT_TRUE(cards[1]->done());
    EXPECT_TRUE(cards[1]->button()->isHidden());

    QTest::mouseClick(cards[0]->button(), Qt::LeftButton);
    EXPECT_EQ(cards[0]->button()->text(), QStringLiteral("Open Settings"));
    QTest::mouseClick(cards[0]->button(), Qt::LeftButton);
    QTest::mouseClick(cards[2]->button(), Qt::LeftButton);  // disabled: no action
    QTest::mouseClick(cards[3]->button(), Qt::LeftButton);
    EXPECT_THAT(performed,
                ElementsAre(StepAction::enableStartAtLaunch, StepAction::grantAccess,
                            StepAction::openSystemSettings, StepAction::viewWidgetInstructions));

    // Access granted elsewhere shows up on the next refresh, on the same card widgets.
    facts.hasAccess = true;
    facts.hasShares = true;
    EXPECT_FALSE(cards[0]->done());
    window.refresh();
    EXPECT_EQ(window.cards(), cards);
    EXPECT_TRUE(cards[0]->done());
    EXPECT_TRUE(cards[0]->button()->isHidden());
    // A done share step keeps its button: more servers can still be added.
    EXPECT_TRUE(cards[2]->done());
    EXPECT_TRUE(cards[2]->button()->isVisibleTo(&window));
}

TEST(FirstRunWindow, ClosingOnlyHidesAndPresentBringsItBackWithFreshFacts) {
    FirstRunFacts facts;
    FirstRunWindow window([&] { return facts; }, [](StepAction) {});
    window.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QPoint placed = window.pos();

    EXPECT_TRUE(window.close());
    EXPECT_FALSE(window.isVisible());
    EXPECT_FALSE(window.testAttribute(Qt::WA_DeleteOnClose));

    facts.startAtLaunchEnabled = true;
    window.present();
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(window.cards()[1]->done());
    EXPECT_EQ(window.pos(), placed) << "only the first present places the window";
}

TEST(FirstRunWindow, OnLinuxItSaysNoBackupIsSetUpAndOffersToCreateOne) {
    FirstRunFacts facts;
    facts.backupSetup = BackupSetupFacts{};
    std::vector<StepAction> performed;
    FirstRunWindow window([&] { return facts; },
                          [&](StepAction action) {
                              performed.push_back(action);
                              facts.backupSetup = BackupSetupFacts{"restic", true, false};
                          });
    window.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

    const FirstRunContent content = firstRunContent(facts);
    EXPECT_TRUE(window.notice().isVisible());
    EXPECT_EQ(window.notice().text(), qt(content.notice));
    const QStringList texts = testing::visibleTexts(window);
    EXPECT_TRUE(texts.contains(QStringLiteral("Set Up a Backup")));
    for (const QString& text : texts) {
        EXPECT_FALSE(text.contains(QStringLiteral("Full Disk Access"))) << text.toStdString();
        EXPECT_FALSE(text.contains(QStringLiteral("Mac"))) << text.toStdString();
    }
    const QRect screen = window.screen()->availableGeometry();
    EXPECT_TRUE(screen.contains(window.frameGeometry())) << "window is larger than the screen";
    ASSERT_TRUE(window.grab().save(testing::screenshotPath(QStringLiteral("first-run-linux.png"))));

    // Once a backup exists the window says so: the step is done and the notice gone.
    QTest::mouseClick(window.cards()[0]->button(), Qt::LeftButton);
    EXPECT_THAT(performed, ElementsAre(StepAction::createBackup));
    EXPECT_TRUE(window.cards()[0]->done());
    EXPECT_FALSE(window.notice().isVisible());
    ASSERT_TRUE(
        window.grab().save(testing::screenshotPath(QStringLiteral("first-run-linux-done.png"))));
}

}  // namespace
}  // namespace kestrow
