#pragma once

#include <QWidget>

#include <memory>
#include <vector>

class QLabel;
class QPushButton;
class QSpinBox;
class QToolButton;

namespace kestrow {

class BackupStatusModel;
class RingsView;

// The top of the menu: the rings picture beside the verdict and its reasons, the progress of a
// running backup, Back Up Now, and the recent history. It follows the backup status model and
// asks it for a fresh look whenever the menu opens.
class BackupSection : public QWidget {
    Q_OBJECT

public:
    explicit BackupSection(BackupStatusModel& model, QWidget* parent = nullptr);
    ~BackupSection() override;

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

protected:
    void showEvent(QShowEvent* event) override;

private:
    void update();

    BackupStatusModel& model_;
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
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
