#include "ui/backup_section.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>

#include "ui/demo_backup.h"
#include "ui/fake_job_editor.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"
#include "ui/restic_job_editor_dialog.h"
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

TEST(BackupSection, ShowsTheVerdictRingsAndProgressOfTheDemoDesktop) {
    DemoMenu demo;
    demo.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&demo.menu));
    demo.scheduler.advance(1.0);  // the refresh on opening, and the probe's answer

    const ProtectionVerdict& verdict = demo.model.verdict.get();
    ASSERT_EQ(verdict.state, ProtectionState::protected_);
    EXPECT_EQ(demo.section->headline().text(), QString::fromStdString(verdict.reasons.front()));
    EXPECT_TRUE(demo.section->details().text().startsWith(QStringLiteral("Backup in progress")));
    EXPECT_TRUE(demo.section->details().text().contains(
        QString::fromUtf8(SimulatedDesktop::kFailureReason)));
    EXPECT_TRUE(demo.section->progress().isVisible());
    EXPECT_TRUE(demo.section->progress().text().startsWith(
        QStringLiteral("Backing up — copying files · ")));
    EXPECT_EQ(demo.section->rings().model(), demo.model.rings.get());
    EXPECT_EQ(demo.section->rings().tint(), RingsView::Tint::good);

    demo.section->historyToggle().click();
    EXPECT_TRUE(demo.section->history().isVisible());
    EXPECT_EQ(demo.section->history().text().count(QStringLiteral("<tr>")), 8);

    const QImage shot = demo.menu.grab().toImage();
    ASSERT_TRUE(shot.save(testing::screenshotPath(QStringLiteral("menu_backup.png"))));
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

    // The simulated desktop is already backing up, so the first check finds the backup running.
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
    demo.scheduler.advance(600.0);  // the newest backup is now 2 hours 18 minutes old
    ASSERT_EQ(demo.model.verdict.get().state, ProtectionState::protected_);
    EXPECT_EQ(demo.section->threshold().value(), 24);
    const std::size_t reloads = demo.widgets.reloads.size();

    demo.section->threshold().setValue(2);
    EXPECT_EQ(demo.sharedStore.realValue("protectedThresholdHours"), 2.0);
    EXPECT_EQ(demo.model.verdict.get().state, ProtectionState::aging) << "without waiting";
    EXPECT_EQ(demo.model.rings.get().thresholdHours, 2.0);
    const auto snapshot = demo.shared.load();
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->protectedThresholdHours, 2.0);
    EXPECT_GT(demo.widgets.reloads.size(), reloads) << "the widgets were told";

    demo.section->threshold().setValue(24);
    EXPECT_EQ(demo.model.verdict.get().state, ProtectionState::protected_);
    EXPECT_EQ(demo.shared.load()->protectedThresholdHours, 24.0);
}

// Kestrow's own restic jobs in the menu: the source's name, each job with Edit and Remove, and
// "Add backup…", over a stand-in for the restic source's editor.
struct JobsMenu : testing::DemoBackup {
    testing::FakeJobEditor editor;
    std::vector<RemoveJobQuestion> asked;
    bool agree = false;
    MenuWindow menu{[] {}};
    BackupSection* section = nullptr;

    JobsMenu() {
        editor.saved = {{"j-1", "Home folder", "/media/ada/Backup/restic", {"/home/ada"}, {}, true},
                        {"j-2", "Photos", "sftp:ada@nas:/srv/restic", {"/srv/photos"}, {}, false}};
        model.source.set(BackupSourceName{BackupSourceKind::restic, "restic"});
        QWidget* body = menu.sectionBody(MenuSection::backup);
        section = new BackupSection(
            model,
            ResticJobList::Dependencies{
                editor,
                ResticJobForm::forNewJob("/home/ada", "/home/ada/.cache", "/home/ada/.local/share"),
                [this](const RemoveJobQuestion& question, QWidget*) {
                    asked.push_back(question);
                    return agree;
                }},
            body);
        body->layout()->addWidget(section);
        model.refreshLiveStatus();
        scheduler.advance(1.0);
    }

    QStringList jobNames() const {
        QStringList names;
        for (const auto& row : section->jobs()->rows()) names << row.name->text();
        return names;
    }
};

TEST(BackupSection, NamesTheSourceAndListsTheJobsWithTheirButtons) {
    JobsMenu m;
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));
    EXPECT_EQ(m.section->source().text(), QStringLiteral("Backups by restic"));
    ASSERT_NE(m.section->jobs(), nullptr);
    EXPECT_EQ(m.jobNames(), (QStringList{"Home folder", "Photos"}));
    EXPECT_EQ(m.section->jobs()->rows()[1].name->toolTip(),
              QStringLiteral("sftp:ada@nas:/srv/restic"));
    EXPECT_TRUE(m.section->jobs()->addButton().isVisible());
    EXPECT_EQ(m.section->jobs()->addButton().text(), QStringLiteral("Add backup…"));
    ASSERT_TRUE(m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_jobs.png"))));

    // A netbook's screen: the panel keeps to it and the job list can be scrolled to.
    m.menu.hide();
    m.menu.showWithin(QRect(770, 456, 24, 24), QRect(0, 0, 800, 452));
    EXPECT_TRUE(QRect(0, 0, 800, 452).contains(m.menu.geometry()));
    ASSERT_TRUE(
        m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_jobs_800x452.png"))));

    m.model.source.set(BackupSourceName{BackupSourceKind::dejaDup, "Déjà Dup"});
    EXPECT_EQ(m.section->source().text(), QStringLiteral("Backups by Déjà Dup"));
    m.model.source.set(std::nullopt);
    EXPECT_EQ(m.section->source().text(), QStringLiteral("No backup is set up"));
}

TEST(BackupSection, RemovingAJobAsksFirstAndKeepsItWhenTheUserSaysNo) {
    JobsMenu m;
    m.section->show();
    m.section->jobs()->rows()[1].remove->click();
    ASSERT_EQ(m.asked.size(), 1U);
    EXPECT_NE(m.asked[0].text.find("sftp:ada@nas:/srv/restic"), std::string::npos);
    EXPECT_TRUE(m.editor.removed.empty());
    EXPECT_EQ(m.jobNames().size(), 2);

    m.agree = true;
    m.editor.removeError = "The keyring is locked.";
    m.section->jobs()->rows()[1].remove->click();
    EXPECT_THAT(m.editor.removed, ::testing::ElementsAre("j-2"));
    EXPECT_TRUE(m.section->jobs()->error().isVisibleTo(m.section));
    EXPECT_EQ(m.section->jobs()->error().text(), QStringLiteral("The keyring is locked."));
    EXPECT_EQ(m.jobNames().size(), 2) << "a refused removal leaves the job listed";

    m.editor.removeError.clear();
    m.section->jobs()->rows()[1].remove->click();
    EXPECT_EQ(m.jobNames(), (QStringList{"Home folder"}));
    EXPECT_FALSE(m.section->jobs()->error().isVisibleTo(m.section));
}

TEST(BackupSection, AddAndEditOpenTheEditorAndASavedJobJoinsTheList) {
    JobsMenu m;
    m.section->show();
    m.section->jobs()->addButton().click();
    ResticJobEditorDialog* dialog = m.section->jobs()->dialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(dialog->folders().item(0)->text(), QStringLiteral("/home/ada"));
    // Pressing again brings the same editor forward rather than a second one.
    m.section->jobs()->addButton().click();
    EXPECT_EQ(m.section->jobs()->dialog(), dialog);

    dialog->name().setText(QStringLiteral("Music"));
    dialog->repository().setText(QStringLiteral("/media/ada/Music"));
    dialog->password().setText(QStringLiteral("pw"));
    dialog->repeatedPassword().setText(QStringLiteral("pw"));
    dialog->save().click();
    m.editor.answer("j-3");
    EXPECT_EQ(m.jobNames(), (QStringList{"Home folder", "Photos", "Music"}));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(m.section->jobs()->dialog(), nullptr) << "the closed editor is gone";

    m.section->jobs()->rows()[1].edit->click();
    dialog = m.section->jobs()->dialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->name().text(), QStringLiteral("Photos"));
    EXPECT_EQ(dialog->repository().text(), QStringLiteral("sftp:ada@nas:/srv/restic"));
    EXPECT_FALSE(dialog->automatic().isChecked());
    dialog->reject();
}

TEST(BackupSection, WithoutAnEditorThereIsNoJobList) {
    DemoMenu demo;
    EXPECT_EQ(demo.section->jobs(), nullptr);
    EXPECT_EQ(demo.section->source().text(), QStringLiteral("Backups by restic"));
}

}  // namespace
}  // namespace kestrow
