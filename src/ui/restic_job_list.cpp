#include "ui/restic_job_list.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/error_label.h"
#include "ui/restic_job_editor_dialog.h"

namespace kestrow {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

bool askInMessageBox(const RemoveJobQuestion& question, QWidget* parent) {
    QMessageBox box(QMessageBox::Question, qt(question.title), qt(question.title),
                    QMessageBox::Cancel, parent);
    box.setInformativeText(qt(question.text));
    QPushButton* confirm = box.addButton(qt(question.confirm), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == confirm;
}

QPushButton* smallButton(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setAutoDefault(false);
    button->setFocusPolicy(Qt::NoFocus);
    button->setFlat(true);
    return button;
}

}  // namespace

ResticJobList::ResticJobList(Dependencies dependencies, QWidget* parent)
    : QWidget(parent),
      d_(std::move(dependencies)),
      rowsLayout_(new QVBoxLayout),
      add_(new QPushButton(QStringLiteral("Add backup…"), this)),
      error_(new QLabel(this)) {
    setObjectName(QStringLiteral("resticJobs"));
    if (!d_.confirmRemove) d_.confirmRemove = askInMessageBox;
    add_->setAutoDefault(false);
    add_->setFocusPolicy(Qt::NoFocus);
    makeErrorLabel(error_);

    rowsLayout_->setContentsMargins(0, 0, 0, 0);
    rowsLayout_->setSpacing(0);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(add_);
    addRow->addStretch(1);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addLayout(rowsLayout_);
    column->addLayout(addRow);
    column->addWidget(error_);

    connect(add_, &QPushButton::clicked, this, [this] { addJob(); });
    refresh();
}

ResticJobList::~ResticJobList() {
    // The dialog is a window of its own (the menu hides as soon as it loses focus); it goes with
    // the list.
    delete dialog_.data();
}

void ResticJobList::refresh() {
    std::vector<ResticJob> jobs = d_.editor.jobs();
    if (shownJobs_ == jobs) return;
    for (const Row& row : rows_) row.name->parentWidget()->deleteLater();
    rows_.clear();
    for (const ResticJob& job : jobs) {
        auto* line = new QWidget(this);
        auto* name = new QLabel(qt(job.name), line);
        name->setTextFormat(Qt::PlainText);
        name->setToolTip(qt(job.repository));
        auto* edit = smallButton(QStringLiteral("Edit…"), line);
        auto* remove = smallButton(QStringLiteral("Remove…"), line);
        auto* layout = new QHBoxLayout(line);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(name, 1);
        layout->addWidget(edit);
        layout->addWidget(remove);
        rowsLayout_->addWidget(line);
        connect(edit, &QPushButton::clicked, this,
                [this, job] { openDialog(ResticJobForm::forJob(job), job.id); });
        connect(remove, &QPushButton::clicked, this, [this, job] { this->remove(job); });
        rows_.push_back({name, edit, remove});
    }
    shownJobs_ = std::move(jobs);
}

void ResticJobList::addJob() {
    openDialog(d_.newJob, std::nullopt);
}

void ResticJobList::openDialog(const ResticJobForm& form, std::optional<std::string> replacing) {
    if (dialog_) {
        dialog_->present();
        return;
    }
    error_->hide();
    dialog_ = new ResticJobEditorDialog(d_.editor, form, std::move(replacing));
    dialog_->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog_, &QDialog::accepted, this, [this] { refresh(); });
    dialog_->present();
}

void ResticJobList::remove(const ResticJob& job) {
    if (!d_.confirmRemove(removeJobQuestion(job), window())) return;
    error_->hide();
    QPointer<ResticJobList> self(this);
    d_.editor.remove(job.id, [self](const std::string& failure) {
        if (!self) return;
        if (!failure.empty()) {
            self->error_->setText(qt(failure));
            self->error_->show();
        }
        self->refresh();
    });
}

}  // namespace kestrow
