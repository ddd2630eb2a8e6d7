#include "ui/restic_job_editor_dialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>
#include <algorithm>

#include "ui/color_blend.h"
#include "ui/error_label.h"

namespace kestrow {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

QLabel* hint(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QPalette pal = label->palette();
    pal.setColor(QPalette::WindowText,
                 blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), 0.65));
    label->setPalette(pal);
    return label;
}

QString pickFolder(QWidget* parent, const QString& title) {
    return QFileDialog::getExistingDirectory(parent, title);
}

}  // namespace

ResticJobEditorDialog::ResticJobEditorDialog(ResticJobEditor& editor, const ResticJobForm& form,
                                             std::optional<std::string> replacing, QWidget* parent)
    : QDialog(parent),
      editor_(editor),
      replacing_(std::move(replacing)),
      chooseFolder_(pickFolder),
      fields_(new QWidget),
      name_(new QLineEdit(qt(form.name), fields_)),
      repository_(new QLineEdit(qt(form.repository), fields_)),
      chooseRepository_(new QPushButton(QStringLiteral("Choose Folder…"), fields_)),
      folders_(new QListWidget(fields_)),
      addFolder_(new QPushButton(QStringLiteral("Add…"), fields_)),
      removeFolder_(new QPushButton(QStringLiteral("Remove"), fields_)),
      excludes_(new QPlainTextEdit(qt(form.excludes), fields_)),
      password_(new QLineEdit(fields_)),
      repeated_(new QLineEdit(fields_)),
      initialise_(new QCheckBox(QStringLiteral("Create the repository if it is empty"), fields_)),
      automatic_(new QCheckBox(QStringLiteral("Back up automatically every hour"), fields_)),
      error_(new QLabel(this)),
      working_(new QLabel(this)),
      progress_(new QProgressBar(this)),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this)),
      save_(buttons_->button(QDialogButtonBox::Save)) {
    setObjectName(QStringLiteral("resticJobEditor"));
    setWindowTitle(replacing_ ? QStringLiteral("Edit Backup") : QStringLiteral("Add Backup"));
    setModal(true);

    repository_->setPlaceholderText(QStringLiteral("/media/backup/restic"));
    for (const std::string& path : form.paths) folders_->addItem(qt(path));
    folders_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    folders_->setFixedHeight(folders_->fontMetrics().height() * 4 + 8);
    excludes_->setFixedHeight(excludes_->fontMetrics().height() * 4 + 12);
    excludes_->setLineWrapMode(QPlainTextEdit::NoWrap);
    for (QLineEdit* field : {password_, repeated_}) {
        field->setEchoMode(QLineEdit::Password);
        // Nothing the password field holds may leave through the clipboard or an input method's
        // memory.
        field->setAttribute(Qt::WA_InputMethodEnabled, false);
        field->setContextMenuPolicy(Qt::NoContextMenu);
    }
    // An edited job is saved anew, so its repository's password is asked for again.
    if (replacing_) password_->setPlaceholderText(QStringLiteral("The repository's password"));
    initialise_->setChecked(form.initialise);
    automatic_->setChecked(form.automatic);

    auto* repositoryRow = new QHBoxLayout;
    repositoryRow->addWidget(repository_, 1);
    repositoryRow->addWidget(chooseRepository_);
    auto* folderButtons = new QVBoxLayout;
    folderButtons->addWidget(addFolder_);
    folderButtons->addWidget(removeFolder_);
    folderButtons->addStretch(1);
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(folders_, 1);
    folderRow->addLayout(folderButtons);

    auto* formLayout = new QFormLayout(fields_);
    formLayout->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    formLayout->addRow(QStringLiteral("Name:"), name_);
    formLayout->addRow(QStringLiteral("Repository:"), repositoryRow);
    formLayout->addRow(QString(),
                       hint(QStringLiteral("A folder or a drive, or a repository address such "
                                           "as sftp:user@host:/srv/restic."),
                            fields_));
    formLayout->addRow(QStringLiteral("Back up:"), folderRow);
    formLayout->addRow(QStringLiteral("Leave out:"), excludes_);
    formLayout->addRow(QString(), hint(QStringLiteral("One pattern a line."), fields_));
    formLayout->addRow(QStringLiteral("Password:"), password_);
    formLayout->addRow(QStringLiteral("Repeat:"), repeated_);
    formLayout->addRow(QString(), initialise_);
    formLayout->addRow(QString(), automatic_);

    scroll_ = new QScrollArea(this);
    scroll_->setObjectName(QStringLiteral("fields"));
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setWidgetResizable(true);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll_->setWidget(fields_);

    error_->setObjectName(QStringLiteral("error"));
    makeErrorLabel(error_);
    // Busy: how long it takes is not known, only that it is working.
    progress_->setRange(0, 0);
    progress_->setTextVisible(false);
    progress_->setMaximumHeight(working_->fontMetrics().height());
    auto* progressRow = new QHBoxLayout;
    progressRow->addWidget(working_);
    progressRow->addWidget(progress_, 1);
    working_->hide();
    progress_->hide();

    auto* page = new QVBoxLayout(this);
    page->addWidget(scroll_, 1);
    page->addWidget(error_);
    page->addLayout(progressRow);
    page->addWidget(buttons_);

    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(save_, &QPushButton::clicked, this, [this] { trySave(); });
    connect(chooseRepository_, &QPushButton::clicked, this, [this] {
        const QString folder = chooseFolder_(this, QStringLiteral("Choose Where the Backup Goes"));
        if (!folder.isEmpty()) repository_->setText(folder);
    });
    connect(addFolder_, &QPushButton::clicked, this, [this] {
        const QString folder = chooseFolder_(this, QStringLiteral("Choose a Folder to Back Up"));
        if (!folder.isEmpty() && folders_->findItems(folder, Qt::MatchExactly).isEmpty())
            folders_->addItem(folder);
    });
    connect(removeFolder_, &QPushButton::clicked, this, [this] {
        for (QListWidgetItem* item : folders_->selectedItems()) delete item;
    });
    const auto followSelection = [this] {
        removeFolder_->setEnabled(!folders_->selectedItems().isEmpty() && !busy_);
    };
    connect(folders_, &QListWidget::itemSelectionChanged, this, followSelection);
    followSelection();
}

ResticJobEditorDialog::~ResticJobEditorDialog() {
    if (abandoned_) *abandoned_ = true;
    clearPasswords();
}

ResticJobForm ResticJobEditorDialog::form() const {
    ResticJobForm form;
    form.name = name_->text().toStdString();
    form.repository = repository_->text().toStdString();
    for (int row = 0; row < folders_->count(); ++row)
        form.paths.push_back(folders_->item(row)->text().toStdString());
    form.excludes = excludes_->toPlainText().toStdString();
    form.initialise = initialise_->isChecked();
    form.automatic = automatic_->isChecked();
    return form;
}

void ResticJobEditorDialog::present() {
    show();
    if (!placed_) {
        if (QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen())
            fitWithin(screen->availableGeometry());
        placed_ = true;
    }
    raise();
    activateWindow();
}

void ResticJobEditorDialog::fitWithin(const QRect& available) {
    // A scroll area asks for less than its content; the dialog asks for all of the fields, and
    // the screen decides how much of that it gets. The window's frame is known once it is shown.
    const QSize chrome = frameGeometry().size() - geometry().size();
    const QSize room = available.size() - chrome;
    const QSize fields = fields_->sizeHint();
    const QSize scroll = scroll_->sizeHint();
    const QSize wanted = sizeHint() + QSize(std::max(0, fields.width() - scroll.width()) +
                                                scroll_->verticalScrollBar()->sizeHint().width(),
                                            std::max(0, fields.height() - scroll.height()));
    resize(std::min(wanted.width(), room.width()), std::min(wanted.height(), room.height()));
    QRect frame(QPoint(), frameGeometry().size());
    frame.moveCenter(available.center());
    move(frame.topLeft());
}

void ResticJobEditorDialog::trySave() {
    if (busy_) return;
    const ResticJobForm current = form();
    std::string password = password_->text().toStdString();
    if (auto problem = current.problem(password, repeated_->text().toStdString())) {
        showError(*problem);
        return;
    }
    error_->hide();
    working_->setText(current.initialise ? QStringLiteral("Opening or creating the repository…")
                                         : QStringLiteral("Opening the repository…"));
    setBusy(true);
    abandoned_ = std::make_shared<bool>(false);
    QPointer<ResticJobEditorDialog> self(this);
    editor_.add(current.request(std::move(password)),
                [self, abandoned = abandoned_,
                 editor = &editor_](const ResticJobEditor::AddOutcome& outcome) {
                    if (*abandoned || !self) {
                        // The user gave up on it: what was added after all goes again.
                        if (outcome.id) editor->remove(*outcome.id, [](const std::string&) {});
                        return;
                    }
                    self->finished(outcome);
                });
}

void ResticJobEditorDialog::finished(const ResticJobEditor::AddOutcome& outcome) {
    abandoned_.reset();
    setBusy(false);
    if (!outcome.id) {
        showError(outcome.error.empty() ? std::string("The backup could not be added.")
                                        : outcome.error);
        return;
    }
    // The new job stands before the old one goes, so a failure never leaves neither. Should the
    // removal fail, both stay listed in the menu, where the old one can be removed again.
    if (replacing_ && *replacing_ != *outcome.id)
        editor_.remove(*replacing_, [](const std::string&) {});
    accept();
}

void ResticJobEditorDialog::setBusy(bool busy) {
    busy_ = busy;
    fields_->setEnabled(!busy);
    save_->setEnabled(!busy);
    working_->setVisible(busy);
    progress_->setVisible(busy);
}

void ResticJobEditorDialog::showError(const std::string& sentence) {
    error_->setText(qt(sentence));
    error_->show();
}

void ResticJobEditorDialog::clearPasswords() {
    password_->clear();
    repeated_->clear();
}

void ResticJobEditorDialog::done(int result) {
    // Cancelled while the editor works: whatever it still adds is taken away when it answers.
    if (busy_ && abandoned_) *abandoned_ = true;
    abandoned_.reset();
    busy_ = false;
    clearPasswords();
    QDialog::done(result);
}

}  // namespace kestrow
