#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

class QLabel;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace kestrow {

class DuplicatesModel;

// The duplicate finder's window: where it looks, the groups it found (each with what trashing
// its extra copies would free), a checkbox per copy with the proposed ones ticked, and the button
// that moves the ticked copies to the Trash. Everything it shows comes from the model.
class DuplicatesWindow : public QWidget {
    Q_OBJECT

public:
    // Asks the user for a folder to add; empty when they cancelled.
    using FolderPicker = std::function<QString(QWidget* parent)>;

    explicit DuplicatesWindow(DuplicatesModel& model, FolderPicker pickFolder = {},
                              QWidget* parent = nullptr);
    ~DuplicatesWindow() override;

    QTreeWidget& tree() const { return *tree_; }
    QPushButton& scanButton() const { return *scan_; }
    QPushButton& addFolderButton() const { return *addFolder_; }
    QPushButton& trashButton() const { return *trash_; }
    QLabel& status() const { return *status_; }
    QLabel& caption() const { return *caption_; }
    // The row of a copy by its path; nullptr when it is not shown.
    QTreeWidgetItem* fileItem(const QString& path) const;

private:
    void rebuild();
    void showSelection();
    void showBusy();

    DuplicatesModel& model_;
    FolderPicker pickFolder_;
    QLabel* caption_;
    QPushButton* scan_;
    QPushButton* addFolder_;
    QTreeWidget* tree_;
    QLabel* status_;
    QPushButton* trash_;
    bool showing_ = false;  // check marks set by the window itself are not the user's
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
