#pragma once

#include <QPointer>
#include <QWidget>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "menu/restic_job_form.h"
#include "ui/restic_job_editor_dialog.h"

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace kestrow {

// Kestrow's own restic jobs in the menu: each with Edit and Remove, then "Add backup…". Removing
// asks first and says that the repository and its snapshots stay.
class ResticJobList : public QWidget {
    Q_OBJECT

public:
    struct Dependencies {
        ResticJobEditor& editor;
        // What "Add backup…" starts from.
        ResticJobForm newJob;
        // Asks before a job is removed; true to go ahead. By default a message box.
        std::function<bool(const RemoveJobQuestion&, QWidget* parent)> confirmRemove;
    };

    explicit ResticJobList(Dependencies dependencies, QWidget* parent = nullptr);
    ~ResticJobList() override;

    // Reads the editor's jobs again.
    void refresh();
    // Opens the job editor for a new job.
    void addJob();

    struct Row {
        QLabel* name;
        QPushButton* edit;
        QPushButton* remove;
    };
    // One per job, in the editor's order.
    const std::vector<Row>& rows() const { return rows_; }
    QPushButton& addButton() const { return *add_; }
    // Why the last removal failed; hidden otherwise.
    QLabel& error() const { return *error_; }
    // The job editor while it is open.
    ResticJobEditorDialog* dialog() const { return dialog_; }

private:
    void openDialog(const ResticJobForm& form, std::optional<std::string> replacing);
    void remove(const ResticJob& job);

    Dependencies d_;
    QVBoxLayout* rowsLayout_;
    std::vector<Row> rows_;
    // The jobs the rows show, so an unchanged list keeps its widgets (and a click in flight).
    std::optional<std::vector<ResticJob>> shownJobs_;
    QPushButton* add_;
    QLabel* error_;
    QPointer<ResticJobEditorDialog> dialog_;
};

}  // namespace kestrow
