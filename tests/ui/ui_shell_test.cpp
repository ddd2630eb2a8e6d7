#include "app/settings/settings_store.h"
#include "menu/menu_bar_state.h"
#include "support/recording_log_sink.h"
#include "support/virtual_scheduler.h"

#include "ui/ui_shell.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

#include "support/fake_share_control.h"
#include "ui/fake_job_editor.h"
#include "ui/first_run_window.h"
#include "ui/menu_window.h"
#include "ui/rings_icon.h"
#include "ui/step_card_widget.h"

namespace kestrow {
namespace {

class UiShellTest : public ::testing::Test {
protected:
    std::unique_ptr<UiShell> makeShell(ResticJobEditor* jobEditor = nullptr) {
        return std::make_unique<UiShell>(
            menu, [this] { return facts; },
            [this](StepAction action) { performed.push_back(action); }, [this] { ++quits; },
            jobEditor, ResticJobForm::forNewJob("/home/ada", "/home/ada/.cache", "/home/ada/.d"));
    }

    QTemporaryDir dir;
    testing::RecordingLogSink sink;
    SettingsStore store{dir.filePath(QStringLiteral("standard.plist")).toStdString(),
                        Logger(sink, LogArea::general)};
    VirtualScheduler scheduler;
    MenuBarState menu{store, scheduler.mainExecutor()};
    FirstRunFacts facts;
    std::vector<StepAction> performed;
    int quits = 0;
};

TEST_F(UiShellTest, ReportsVisibleWindowsAndReusesTheFirstRunWindow) {
    const auto shell = makeShell();
    EXPECT_FALSE(shell->hasVisibleWindows());
    EXPECT_EQ(shell->firstRunWindow(), nullptr) << "built on first need only";

    shell->showFirstRunWindow();
    FirstRunWindow* window = shell->firstRunWindow();
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
    EXPECT_TRUE(shell->hasVisibleWindows());

    window->close();
    EXPECT_FALSE(shell->hasVisibleWindows());

    facts.hasAccess = true;
    shell->showFirstRunWindow();
    EXPECT_EQ(shell->firstRunWindow(), window);
    EXPECT_TRUE(shell->hasVisibleWindows());
    EXPECT_TRUE(window->cards().front()->done()) << "facts are read again on every show";
    window->close();

    shell->showMenuWindow();
    EXPECT_TRUE(shell->hasVisibleWindows());
    shell->menuWindow().hide();
    EXPECT_FALSE(shell->hasVisibleWindows());
}

TEST_F(UiShellTest, CreateBackupOpensTheJobEditorAndTheStepFollowsTheNewJob) {
    testing::FakeJobEditor editor;
    facts.backupSetup = BackupSetupFacts{};
    const auto shell = makeShell(&editor);
    shell->showFirstRunWindow();
    StepCardWidget* backup = shell->firstRunWindow()->cards().front();
    ASSERT_EQ(backup->card().action, StepAction::createBackup);

    QTest::mouseClick(backup->button(), Qt::LeftButton);
    ResticJobEditorDialog* dialog = shell->jobDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(performed.empty()) << "the shell handles it";
    QTest::mouseClick(backup->button(), Qt::LeftButton);
    EXPECT_EQ(shell->jobDialog(), dialog) << "one editor at a time";

    dialog->repository().setText(QStringLiteral("/media/ada/Backup"));
    dialog->password().setText(QStringLiteral("pw"));
    dialog->repeatedPassword().setText(QStringLiteral("pw"));
    facts.backupSetup = BackupSetupFacts{"restic", true, false};
    dialog->save().click();
    editor.answer("j-1");
    EXPECT_TRUE(backup->done()) << "the window was refreshed when the job was saved";

    // Without an editor the step goes to the app like every other.
    const auto bare = makeShell();
    bare->showFirstRunWindow();
    QTest::mouseClick(bare->firstRunWindow()->cards().front()->button(), Qt::LeftButton);
    EXPECT_EQ(performed, (std::vector<StepAction>{StepAction::createBackup}));
    EXPECT_EQ(bare->jobDialog(), nullptr);
}

TEST_F(UiShellTest, AddServerOpensTheShareEditorAndTheStepIsDoneOnceAShareExists) {
    // Without a share manager the step has nothing to open.
    const auto bare = makeShell();
    bare->showFirstRunWindow();
    StepCardWidget* bareStep = bare->firstRunWindow()->cards()[2];
    ASSERT_EQ(bareStep->card().action, StepAction::addServer);
    EXPECT_FALSE(bareStep->button()->isEnabled());
    bare->firstRunWindow()->close();

    testing::FakeShareControl shares;
    VPNServicesObservable vpns;
    UiShell shell(
        menu, [this] { return facts; }, [this](StepAction action) { performed.push_back(action); },
        [] {}, nullptr, {}, &shares, &vpns);
    shell.showFirstRunWindow();
    StepCardWidget* step = shell.firstRunWindow()->cards()[2];
    ASSERT_TRUE(step->button()->isEnabled());
    EXPECT_FALSE(step->done());
    QTest::mouseClick(step->button(), Qt::LeftButton);
    ShareEditorDialog* dialog = shell.shareDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(shell.hasVisibleWindows());
    EXPECT_TRUE(performed.empty()) << "the shell handles it";
    QTest::mouseClick(step->button(), Qt::LeftButton);
    EXPECT_EQ(shell.shareDialog(), dialog) << "one editor at a time";

    dialog->host().setText(QStringLiteral("nas.local"));
    dialog->shareName().setText(QStringLiteral("Projects"));
    dialog->save().click();
    ASSERT_EQ(shares.calls.size(), 1u);
    EXPECT_EQ(shares.calls[0].what, "add");
    EXPECT_TRUE(step->done()) << "the window was refreshed when the share was added";
}

TEST_F(UiShellTest, QuitFromThePopoverReachesTheApp) {
    const auto shell = makeShell();
    shell->showMenuWindow();
    auto* quit = shell->menuWindow().findChild<QPushButton*>(QStringLiteral("quit"));
    ASSERT_NE(quit, nullptr);
    QTest::mouseClick(quit, Qt::LeftButton);
    EXPECT_EQ(quits, 1);
}

TEST_F(UiShellTest, TrayIconFollowsTheMenuBarState) {
    auto shell = makeShell();
    if (QGuiApplication::platformName() == QStringLiteral("offscreen")) {
        EXPECT_FALSE(shell->hasTray());
    }
    EXPECT_EQ(shell->hasTray(), shell->trayIcon() != nullptr);

    if (QSystemTrayIcon* tray = shell->trayIcon()) {
        const auto image = [tray] { return tray->icon().pixmap(32).toImage(); };
        const QImage calm = image();
        EXPECT_EQ(calm, RingsIcon::pixmap(32, RingsIcon::Variant::normal).toImage());
        menu.setIconHasError(true);
        EXPECT_NE(image(), calm);
        menu.setIconHasError(false);
        EXPECT_EQ(image(), calm);

        EXPECT_TRUE(tray->isVisible());
        menu.iconVisible().set(false);
        EXPECT_FALSE(tray->isVisible());
        shell->showStatusItem();
        EXPECT_TRUE(tray->isVisible());

        // A left click opens the popover and a second one closes it.
        Q_EMIT tray->activated(QSystemTrayIcon::Trigger);
        EXPECT_TRUE(shell->menuWindow().isVisible());
        Q_EMIT tray->activated(QSystemTrayIcon::Trigger);
        EXPECT_FALSE(shell->menuWindow().isVisible());

        ASSERT_NE(tray->contextMenu(), nullptr);
        QStringList entries;
        for (QAction* action : tray->contextMenu()->actions())
            if (!action->isSeparator()) entries << action->text();
        EXPECT_EQ(entries, (QStringList{"Open Kestrow", "Quit Kestrow"}));
        tray->contextMenu()->actions().front()->trigger();
        EXPECT_TRUE(shell->menuWindow().isVisible());
        tray->contextMenu()->actions().back()->trigger();
        EXPECT_EQ(quits, 1);
    } else {
        // Without a tray every call still has to be safe, and the popover keeps the app reachable.
        menu.setIconHasError(true);
        menu.iconVisible().set(false);
        shell->showStatusItem();
        shell->showMenuWindow();
        EXPECT_TRUE(shell->menuWindow().isVisible());
    }

    // Once the shell is gone, state changes must not reach it.
    shell.reset();
    menu.setIconHasError(false);
    menu.iconVisible().set(true);
}

}  // namespace
}  // namespace kestrow
