#pragma once

#include <QWidget>

#include <memory>
#include <vector>

#include "support/wording.h"
#include "ui/restic_job_list.h"

class QLabel;
class QPushButton;
class QSpinBox;
class QToolButton;

namespace kestrow {

class BackupStatusModel;
class RingsView;

// The top of the menu: where backups come from, the rings picture beside the verdict and its
// reasons, the progress of a running backup, Back Up Now, the recent history, and Kestrow's own
// restic jobs when it runs them. It follows the backup status model and asks it for a fresh look
// whenever the menu opens. Every text is worded for Linux and the active source.
class BackupSection : public QWidget {
    Q_OBJECT

public:
    explicit BackupSection(BackupStatusModel& model, QWidget* parent = nullptr);
    // With the restic jobs' list; `jobs` empty when the active source is not restic.
    BackupSection(BackupStatusModel& model, std::optional<ResticJobList::Dependencies> jobs,
                  QWidget* parent = nullptr);
    ~BackupSection() override;

    // "Backups by restic", "Backups by Déjà Dup", …
    QLabel& source() const { return *source_; }
    RingsView& rings() const { return *rings_; }
    QLabel& headline() const { return *headline_; }
    QLabel& details() const { return *details_; }
    QLabel& progress() const { return *progress_; }
    QLabel& startError() const { return *startError_; }
    QPushButton& backUpNow() const { return *backUpNow_; }
    QToolButton& historyToggle() const { return *historyToggle_; }
    QLabel& history() const { return *history_; }
    // The protection threshold in hours: the verdict and the rings follow it at once.
    QSpinBox& threshold() const { return *threshold_; }
    // Null without a job editor.
    ResticJobList* jobs() const { return jobs_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void update();

    BackupStatusModel& model_;
    QLabel* source_;
    RingsView* rings_;
    QLabel* headline_;
    QLabel* details_;
    QLabel* progress_;
    QLabel* destination_;
    QPushButton* backUpNow_;
    QLabel* startError_;
    QToolButton* historyToggle_;
    QLabel* history_;
    QSpinBox* threshold_;
    ResticJobList* jobs_ = nullptr;
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
