#include "ui/duplicates_window.h"

#include <QDateTime>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <chrono>

#include "insights/duplicates_model.h"
#include "support/byte_count_format.h"
#include "ui/color_blend.h"

namespace kestrow {
namespace {

constexpr int kPathRole = Qt::UserRole;

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

QString modifiedText(WallTime modified) {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(modified.time_since_epoch()).count();
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(seconds), QLocale::ShortFormat);
}

QString headerText(const DuplicateGroup& group, std::optional<bool> snapshotPresent) {
    QString text = qt(formatByteCount(group.size())) + QStringLiteral(" \u00b7 ") +
                   QString::number(group.files.size()) + QStringLiteral(" copies");
    if (const auto gain = gainText(group, snapshotPresent, Wording::linux(std::nullopt)))
        text += QStringLiteral(" \u00b7 ") + qt(*gain);
    return text;
}

QString defaultPicker(QWidget* parent) {
    return QFileDialog::getExistingDirectory(parent, QStringLiteral("Add a Folder to Search"));
}

}  // namespace

DuplicatesWindow::DuplicatesWindow(DuplicatesModel& model, FolderPicker pickFolder, QWidget* parent)
    : QWidget(parent, Qt::Window),
      model_(model),
      pickFolder_(pickFolder ? std::move(pickFolder) : FolderPicker(defaultPicker)),
      caption_(new QLabel(this)),
      scan_(new QPushButton(QStringLiteral("Scan"), this)),
      addFolder_(new QPushButton(QStringLiteral("Add Folder\u2026"), this)),
      tree_(new QTreeWidget(this)),
      status_(new QLabel(this)),
      trash_(new QPushButton(QStringLiteral("Move Selected to Trash"), this)) {
    setObjectName(QStringLiteral("duplicatesWindow"));
    setWindowTitle(QStringLiteral("Duplicates"));
    setAttribute(Qt::WA_DeleteOnClose, false);
    resize(720, 480);

    caption_->setWordWrap(true);
    caption_->setTextFormat(Qt::PlainText);
    QPalette dim = caption_->palette();
    dim.setColor(QPalette::WindowText,
                 blend(dim.color(QPalette::Window), dim.color(QPalette::WindowText), 0.65));
    caption_->setPalette(dim);
    status_->setTextFormat(Qt::PlainText);
    status_->setWordWrap(true);

    tree_->setColumnCount(2);
    tree_->setHeaderLabels({QStringLiteral("File"), QStringLiteral("Modified")});
    tree_->header()->setStretchLastSection(false);
    tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    tree_->setUniformRowHeights(true);
    tree_->setTextElideMode(Qt::ElideMiddle);
    tree_->setSelectionMode(QAbstractItemView::NoSelection);

    auto* top = new QHBoxLayout;
    top->addWidget(caption_, 1);
    top->addWidget(addFolder_);
    top->addWidget(scan_);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(status_, 1);
    bottom->addWidget(trash_);
    auto* column = new QVBoxLayout(this);
    column->addLayout(top);
    column->addWidget(tree_, 1);
    column->addLayout(bottom);

    connect(scan_, &QPushButton::clicked, this, [this] { model_.scan(); });
    connect(trash_, &QPushButton::clicked, this, [this] { model_.trashSelected(); });
    connect(addFolder_, &QPushButton::clicked, this, [this] {
        const QString folder = pickFolder_(this);
        if (folder.isEmpty()) return;
        model_.addFolder(folder.toStdString());
        model_.scan();
    });
    connect(tree_, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int changed) {
        if (showing_ || changed != 0 || item->parent() == nullptr) return;
        model_.setSelected(item->data(0, kPathRole).toString().toStdString(),
                           item->checkState(0) == Qt::Checked);
    });

    const auto follow = [this](auto& observable, auto react) {
        using Value = std::decay_t<decltype(observable.get())>;
        subscriptions_.push_back(std::make_shared<typename Signal<Value>::Connection>(
            observable.observe([react](const Value&) { react(); })));
    };
    follow(model_.groups, [this] { rebuild(); });
    follow(model_.snapshotPresent, [this] { rebuild(); });
    follow(model_.selected, [this] { showSelection(); });
    follow(model_.scanning, [this] { showBusy(); });
    follow(model_.trashing, [this] { showBusy(); });
    follow(model_.status, [this] { status_->setText(qt(model_.status.get())); });
    follow(model_.extraFolders, [this] { caption_->setText(qt(model_.roots().caption())); });
    caption_->setText(qt(model_.roots().caption()));
    status_->setText(qt(model_.status.get()));
    rebuild();
    showBusy();
}

DuplicatesWindow::~DuplicatesWindow() = default;

QTreeWidgetItem* DuplicatesWindow::fileItem(const QString& path) const {
    for (int g = 0; g < tree_->topLevelItemCount(); ++g) {
        QTreeWidgetItem* header = tree_->topLevelItem(g);
        for (int f = 0; f < header->childCount(); ++f)
            if (header->child(f)->data(0, kPathRole).toString() == path) return header->child(f);
    }
    return nullptr;
}

void DuplicatesWindow::rebuild() {
    showing_ = true;
    tree_->clear();
    for (const auto& group : model_.groups.get()) {
        auto* header = new QTreeWidgetItem(tree_);
        header->setText(0, headerText(group, model_.snapshotPresent.get()));
        header->setFirstColumnSpanned(true);
        QFont bold = header->font(0);
        bold.setBold(true);
        header->setFont(0, bold);
        header->setFlags(Qt::ItemIsEnabled);
        for (const auto& file : group.files) {
            auto* row = new QTreeWidgetItem(header);
            const QString path = qt(file.path);
            row->setText(0, path);
            row->setToolTip(0, path);
            row->setData(0, kPathRole, path);
            row->setText(1, modifiedText(file.modified));
            row->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
            row->setCheckState(0, Qt::Unchecked);
        }
        header->setExpanded(true);
    }
    showing_ = false;
    showSelection();
}

void DuplicatesWindow::showSelection() {
    showing_ = true;
    const auto& selected = model_.selected.get();
    for (int g = 0; g < tree_->topLevelItemCount(); ++g) {
        QTreeWidgetItem* header = tree_->topLevelItem(g);
        for (int f = 0; f < header->childCount(); ++f) {
            QTreeWidgetItem* row = header->child(f);
            const bool on = selected.contains(row->data(0, kPathRole).toString().toStdString());
            row->setCheckState(0, on ? Qt::Checked : Qt::Unchecked);
        }
    }
    showing_ = false;
    showBusy();
}

void DuplicatesWindow::showBusy() {
    const bool busy = model_.scanning.get() || model_.trashing.get();
    scan_->setEnabled(!busy);
    addFolder_->setEnabled(!busy);
    trash_->setEnabled(!busy && !model_.selected.get().empty());
}

}  // namespace kestrow
