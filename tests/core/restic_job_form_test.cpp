#include "menu/restic_job_form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backup/source_wording.h"

namespace kestrow {
namespace {

using ::testing::ElementsAre;

ResticJobForm filled() {
    ResticJobForm form =
        ResticJobForm::forNewJob("/home/ada", "/home/ada/.cache", "/home/ada/.local/share");
    form.repository = "/media/ada/Backup/restic";
    return form;
}

TEST(ResticJobForm, ANewJobBacksUpTheHomeWithoutCachesTrashOrKestrowsRecords) {
    const ResticJobForm form = filled();
    EXPECT_FALSE(form.name.empty());
    EXPECT_THAT(form.paths, ElementsAre("/home/ada"));
    EXPECT_THAT(form.excludeList(), ElementsAre("/home/ada/.cache", "/home/ada/.local/share/Trash",
                                                "/home/ada/.local/share/kestrow"));
    EXPECT_TRUE(form.initialise);
    EXPECT_TRUE(form.automatic);
}

TEST(ResticJobForm, ExclusionsAreReadOneALineTrimmedWithoutBlanks) {
    ResticJobForm form;
    form.excludes = "  *.iso\r\n\n\t\n/home/ada/VMs  \n   \nnode_modules";
    EXPECT_THAT(form.excludeList(), ElementsAre("*.iso", "/home/ada/VMs", "node_modules"));
    form.excludes = "\n \n";
    EXPECT_TRUE(form.excludeList().empty());
}

TEST(ResticJobForm, SaysWhatIsMissingBeforeAnythingIsAsked) {
    EXPECT_EQ(filled().problem("pw", "pw"), std::nullopt);

    ResticJobForm form = filled();
    form.name = "   ";
    EXPECT_EQ(form.problem("pw", "pw"), "Give the backup a name.");
    form = filled();
    form.repository = " \t";
    EXPECT_EQ(form.problem("pw", "pw"), "Choose where the backup goes.");
    form = filled();
    form.paths = {" ", ""};
    EXPECT_EQ(form.problem("pw", "pw"), "Choose at least one folder to back up.");
    form.paths.clear();
    EXPECT_EQ(form.problem("pw", "pw"), "Choose at least one folder to back up.");

    EXPECT_EQ(filled().problem("", ""), "Enter the repository's password.");
    EXPECT_EQ(filled().problem("secret", "Secret"), "The two passwords are not the same.");
    // A password is taken exactly as typed: a space more is another password.
    EXPECT_EQ(filled().problem("secret ", "secret"), "The two passwords are not the same.");
}

TEST(ResticJobForm, TheRequestCarriesTheTrimmedFieldsAndThePasswordExactly) {
    ResticJobForm form = filled();
    form.name = "  Photos ";
    form.repository = " sftp:ada@nas:/srv/restic ";
    form.paths = {" /home/ada/Pictures ", "", "/srv/photos"};
    form.excludes = "*.tmp\n";
    form.initialise = false;
    form.automatic = false;
    const ResticJobEditor::AddRequest request = form.request("  two words  ");
    EXPECT_TRUE(request.job.id.empty()) << "the editor makes the id";
    EXPECT_EQ(request.job.name, "Photos");
    EXPECT_EQ(request.job.repository, "sftp:ada@nas:/srv/restic");
    EXPECT_THAT(request.job.paths, ElementsAre("/home/ada/Pictures", "/srv/photos"));
    EXPECT_THAT(request.job.excludes, ElementsAre("*.tmp"));
    EXPECT_FALSE(request.job.automatic);
    EXPECT_FALSE(request.initialise);
    EXPECT_EQ(request.password, "  two words  ");
}

TEST(ResticJobForm, EditingAJobOffersItBackUnchangedAndInitialisesNothing) {
    const ResticJob job{
        "j-1", "Work", "/media/ada/Backup/work", {"/home/ada/Work", "/srv/src"}, {"*.o", "build"},
        false};
    const ResticJobForm form = ResticJobForm::forJob(job);
    EXPECT_FALSE(form.initialise);
    ResticJob back = form.request("pw").job;
    back.id = job.id;
    EXPECT_EQ(back, job);
}

TEST(ResticJobForm, TheMenuNamesTheSourceAndRemovalSaysTheSnapshotsStay) {
    EXPECT_EQ(backupSourceTitle(std::nullopt), "No backup is set up");
    EXPECT_EQ(backupSourceTitle(BackupSourceName{BackupSourceKind::restic, "restic"}),
              "Backups by restic");
    EXPECT_EQ(backupSourceTitle(BackupSourceName{BackupSourceKind::dejaDup, "Déjà Dup"}),
              "Backups by Déjà Dup");

    const RemoveJobQuestion question =
        removeJobQuestion({"j-1", "Work", "/media/ada/Backup/work", {"/home/ada"}, {}, true});
    EXPECT_NE(question.title.find("“Work”"), std::string::npos);
    EXPECT_NE(question.text.find("/media/ada/Backup/work"), std::string::npos);
    EXPECT_NE(question.text.find("snapshots stay"), std::string::npos);
}

TEST(ResticJobForm, TheSourcesWordingKeepsTimeMachineOnlyForTimeMachine) {
    const std::string text = "Back up this Mac with Time Machine.";
    EXPECT_EQ(linuxWording(BackupSourceName{BackupSourceKind::timeMachine, "Time Machine"})(text),
              "Back up this computer with Time Machine.");
    EXPECT_EQ(linuxWording(BackupSourceName{BackupSourceKind::restic, "restic"})(text),
              "Back up this computer with restic.");
    EXPECT_EQ(linuxWording(std::nullopt)("Reveal in Finder"), "Reveal in Files");
}

}  // namespace
}  // namespace kestrow
