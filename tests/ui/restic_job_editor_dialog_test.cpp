#include "ui/restic_job_editor_dialog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

#include "ui/fake_job_editor.h"
#include "ui/image_probe.h"

namespace kestrow {
namespace {

using ::testing::ElementsAre;

ResticJobForm newJob() {
    return ResticJobForm::forNewJob("/home/ada", "/home/ada/.cache", "/home/ada/.local/share");
}

void typePasswords(ResticJobEditorDialog& dialog, const QString& first, const QString& second) {
    QTest::keyClicks(&dialog.password(), first);
    QTest::keyClicks(&dialog.repeatedPassword(), second);
}

TEST(ResticJobEditorDialog, SaveWaitsForTheEditorShowsItsRefusalInlineThenCloses) {
    testing::FakeJobEditor editor;
    ResticJobEditorDialog dialog(editor, newJob());
    dialog.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    EXPECT_EQ(dialog.password().echoMode(), QLineEdit::Password);
    EXPECT_EQ(dialog.repeatedPassword().echoMode(), QLineEdit::Password);

    dialog.repository().setText(QStringLiteral("/media/ada/Backup/restic"));
    typePasswords(dialog, QStringLiteral("correct horse"), QStringLiteral("correct hose"));
    dialog.save().click();
    EXPECT_TRUE(editor.requests.empty()) << "nothing is asked of the editor with a typo";
    EXPECT_TRUE(dialog.error().isVisible());
    EXPECT_EQ(dialog.error().text(), QStringLiteral("The two passwords are not the same."));

    dialog.repeatedPassword().setText(QStringLiteral("correct horse"));
    dialog.automatic().setChecked(false);
    dialog.save().click();
    ASSERT_EQ(editor.requests.size(), 1U);
    const ResticJobEditor::AddRequest& sent = editor.requests[0];
    EXPECT_EQ(sent.password, "correct horse");
    EXPECT_EQ(sent.job.repository, "/media/ada/Backup/restic");
    EXPECT_THAT(sent.job.paths, ElementsAre("/home/ada"));
    EXPECT_EQ(sent.job.excludes.size(), 3U);
    EXPECT_TRUE(sent.initialise);
    EXPECT_FALSE(sent.job.automatic);
    // While the repository is opened: progress shows, and nothing can be changed or sent twice.
    EXPECT_TRUE(dialog.busy());
    EXPECT_TRUE(dialog.progress().isVisible());
    EXPECT_FALSE(dialog.error().isVisible());
    EXPECT_FALSE(dialog.save().isEnabled());
    EXPECT_FALSE(dialog.name().isEnabled());
    ASSERT_TRUE(dialog.grab().save(testing::screenshotPath(QStringLiteral("job_editor_busy.png"))));

    editor.answer(std::nullopt, "The folder holds files but no restic repository.");
    EXPECT_TRUE(dialog.isVisible()) << "a refusal leaves the dialog open to fix it";
    EXPECT_FALSE(dialog.busy());
    EXPECT_FALSE(dialog.progress().isVisible());
    EXPECT_TRUE(dialog.save().isEnabled());
    EXPECT_EQ(dialog.error().text(),
              QStringLiteral("The folder holds files but no restic repository."));
    EXPECT_TRUE(editor.saved.empty());
    ASSERT_TRUE(
        dialog.grab().save(testing::screenshotPath(QStringLiteral("job_editor_error.png"))));

    dialog.repository().setText(QStringLiteral("/media/ada/Backup/kestrow"));
    dialog.save().click();
    ASSERT_EQ(editor.requests.size(), 2U);
    editor.answer("j-1");
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
    ASSERT_EQ(editor.saved.size(), 1U);
    EXPECT_EQ(editor.saved[0].repository, "/media/ada/Backup/kestrow");
    EXPECT_TRUE(editor.removed.empty());
    EXPECT_TRUE(dialog.password().text().isEmpty());
    EXPECT_TRUE(dialog.repeatedPassword().text().isEmpty());
}

TEST(ResticJobEditorDialog, CancelLeavesNothingBehindEvenWhenTheEditorAnswersLater) {
    testing::FakeJobEditor editor;
    {
        ResticJobEditorDialog dialog(editor, newJob());
        dialog.show();
        dialog.repository().setText(QStringLiteral("/media/ada/Backup/restic"));
        typePasswords(dialog, QStringLiteral("pw"), QStringLiteral("pw"));
        dialog.reject();
        EXPECT_TRUE(editor.requests.empty());
        EXPECT_TRUE(dialog.password().text().isEmpty());
        EXPECT_TRUE(dialog.repeatedPassword().text().isEmpty());
    }
    {
        // Cancelled while the repository is being created: the job that still arrives goes again.
        ResticJobEditorDialog dialog(editor, newJob());
        dialog.show();
        dialog.repository().setText(QStringLiteral("/media/ada/Backup/restic"));
        typePasswords(dialog, QStringLiteral("pw"), QStringLiteral("pw"));
        dialog.save().click();
        ASSERT_EQ(editor.pending.size(), 1U);
        dialog.reject();
        EXPECT_TRUE(dialog.password().text().isEmpty());
        editor.answer("j-late");
        EXPECT_THAT(editor.removed, ElementsAre("j-late"));
        EXPECT_TRUE(editor.saved.empty());
        EXPECT_EQ(dialog.result(), QDialog::Rejected);
    }
    {
        // Closed for good before the answer: the same.
        auto dialog = std::make_unique<ResticJobEditorDialog>(editor, newJob());
        dialog->repository().setText(QStringLiteral("/srv/restic"));
        typePasswords(*dialog, QStringLiteral("pw"), QStringLiteral("pw"));
        dialog->save().click();
        dialog.reset();
        editor.answer("j-gone");
        EXPECT_THAT(editor.removed, ElementsAre("j-late", "j-gone"));
        EXPECT_TRUE(editor.saved.empty());
    }
}

TEST(ResticJobEditorDialog, EditingReplacesTheOldJobOnlyOnceTheNewOneIsSaved) {
    testing::FakeJobEditor editor;
    const ResticJob old{"j-old", "Work", "/media/ada/Backup/work", {"/home/ada/Work"}, {}, true};
    editor.saved.push_back(old);
    ResticJobEditorDialog dialog(editor, ResticJobForm::forJob(old), old.id);
    EXPECT_EQ(dialog.name().text(), QStringLiteral("Work"));
    EXPECT_FALSE(dialog.initialise().isChecked());
    typePasswords(dialog, QStringLiteral("pw"), QStringLiteral("pw"));

    dialog.save().click();
    editor.answer(std::nullopt, "Wrong password for this repository.");
    EXPECT_TRUE(editor.removed.empty()) << "the old job stays while the new one is refused";

    dialog.save().click();
    editor.answer("j-new");
    EXPECT_THAT(editor.removed, ElementsAre("j-old"));
    ASSERT_EQ(editor.saved.size(), 1U);
    EXPECT_EQ(editor.saved[0].id, "j-new");
}

TEST(ResticJobEditorDialog, FoldersAreAddedOnceAndRemovedBySelection) {
    testing::FakeJobEditor editor;
    ResticJobEditorDialog dialog(editor, newJob());
    QString picked = QStringLiteral("/srv/photos");
    dialog.setFolderChooser([&](QWidget*, const QString&) { return picked; });
    dialog.addFolder().click();
    dialog.addFolder().click();
    ASSERT_EQ(dialog.folders().count(), 2);
    EXPECT_EQ(dialog.folders().item(1)->text(), QStringLiteral("/srv/photos"));
    dialog.chooseRepository().click();
    EXPECT_EQ(dialog.repository().text(), QStringLiteral("/srv/photos"));
    picked.clear();  // the chooser was cancelled
    dialog.chooseRepository().click();
    EXPECT_EQ(dialog.repository().text(), QStringLiteral("/srv/photos"));

    EXPECT_FALSE(dialog.removeFolder().isEnabled()) << "nothing selected";
    dialog.folders().item(0)->setSelected(true);
    EXPECT_TRUE(dialog.removeFolder().isEnabled());
    dialog.removeFolder().click();
    EXPECT_THAT(dialog.form().paths, ElementsAre("/srv/photos"));
}

// On a small screen the fields scroll and Save stays reachable; on a desktop all shows.
TEST(ResticJobEditorDialog, FitsTheScreenItOpensOn) {
    testing::FakeJobEditor editor;
    struct Screen {
        const char* name;
        QRect available;
    };
    for (const Screen& screen : {Screen{"job_editor.png", QRect(0, 0, 1920, 1050)},
                                 Screen{"job_editor_640x360.png", QRect(0, 0, 640, 360)}}) {
        ResticJobEditorDialog dialog(editor, newJob());
        dialog.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
        dialog.fitWithin(screen.available);
        EXPECT_TRUE(screen.available.contains(dialog.frameGeometry())) << screen.name;
        EXPECT_TRUE(dialog.rect().contains(dialog.save().geometry().translated(
            dialog.save().parentWidget()->mapTo(&dialog, QPoint()))))
            << screen.name;
        const auto* scroll = dialog.findChild<QScrollArea*>(QStringLiteral("fields"));
        ASSERT_NE(scroll, nullptr);
        const bool scrolls = scroll->verticalScrollBar()->maximum() > 0;
        EXPECT_EQ(scrolls, screen.available.height() < 400) << screen.name;
        ASSERT_TRUE(dialog.grab().save(testing::screenshotPath(QString::fromUtf8(screen.name))));
    }
}

}  // namespace
}  // namespace kestrow
