#pragma once

#include <QDialog>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "menu/restic_job_form.h"

class QCheckBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QScrollArea;

namespace kestrow {

// Adds a restic job, or replaces one (Edit): name, repository, folders, exclusions, the password
// twice, and the two switches. Save hands the job to the editor and waits for it, with progress,
// since creating a repository takes seconds; a refusal shows inline and the dialog stays.
// The password lives only in its two fields until Save, which are emptied whenever the dialog
// ends. Cancel leaves nothing behind, even when the editor finishes adding after it.
class ResticJobEditorDialog : public QDialog {
    Q_OBJECT

public:
    // Returns the folder picked, or an empty string.
    using FolderChooser = std::function<QString(QWidget* parent, const QString& title)>;

    // `replacing`: the id of the job this one replaces once it is saved.
    ResticJobEditorDialog(ResticJobEditor& editor, const ResticJobForm& form,
                          std::optional<std::string> replacing = std::nullopt,
                          QWidget* parent = nullptr);
    ~ResticJobEditorDialog() override;

    void setFolderChooser(FolderChooser chooser) { chooseFolder_ = std::move(chooser); }
    // Shows the dialog in front, fitted to its screen the first time.
    void present();
    // Sizes the dialog for its content within `available`, its frame included once it is shown;
    // the fields scroll when the room is small.
    void fitWithin(const QRect& available);

    ResticJobForm form() const;
    bool busy() const { return busy_; }

    QLineEdit& name() const { return *name_; }
    QLineEdit& repository() const { return *repository_; }
    QListWidget& folders() const { return *folders_; }
    QPlainTextEdit& excludes() const { return *excludes_; }
    QLineEdit& password() const { return *password_; }
    QLineEdit& repeatedPassword() const { return *repeated_; }
    QCheckBox& initialise() const { return *initialise_; }
    QCheckBox& automatic() const { return *automatic_; }
    QLabel& error() const { return *error_; }
    QProgressBar& progress() const { return *progress_; }
    QPushButton& save() const { return *save_; }
    QPushButton& addFolder() const { return *addFolder_; }
    QPushButton& removeFolder() const { return *removeFolder_; }
    QPushButton& chooseRepository() const { return *chooseRepository_; }

    void done(int result) override;

private:
    void trySave();
    void finished(const ResticJobEditor::AddOutcome& outcome);
    void setBusy(bool busy);
    void showError(const std::string& sentence);
    void clearPasswords();

    ResticJobEditor& editor_;
    std::optional<std::string> replacing_;
    FolderChooser chooseFolder_;
    QWidget* fields_;
    QScrollArea* scroll_ = nullptr;
    QLineEdit* name_;
    QLineEdit* repository_;
    QPushButton* chooseRepository_;
    QListWidget* folders_;
    QPushButton* addFolder_;
    QPushButton* removeFolder_;
    QPlainTextEdit* excludes_;
    QLineEdit* password_;
    QLineEdit* repeated_;
    QCheckBox* initialise_;
    QCheckBox* automatic_;
    QLabel* error_;
    QLabel* working_;
    QProgressBar* progress_;
    QDialogButtonBox* buttons_;
    QPushButton* save_;
    bool busy_ = false;
    bool placed_ = false;
    // Shared with the editor's pending answer: set once the dialog no longer waits for it, so a
    // job that still arrives is taken away again.
    std::shared_ptr<bool> abandoned_;
};

}  // namespace kestrow
