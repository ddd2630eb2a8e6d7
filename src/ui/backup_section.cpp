#include "ui/backup_section.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "backup/source_wording.h"
#include "timemachine/backup_status_model.h"
#include "ui/color_blend.h"
#include "ui/rings_view.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

RingsView::Tint tintFor(ProtectionState state) {
    switch (state) {
        case ProtectionState::protected_:
            return RingsView::Tint::good;
        case ProtectionState::aging:
            return RingsView::Tint::warning;
        case ProtectionState::stale:
        case ProtectionState::unavailable:
            return RingsView::Tint::bad;
        case ProtectionState::unknown:
            break;
    }
    return RingsView::Tint::neutral;
}

QString shortDate(WallTime date) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(ms.count()).toLocalTime();
    return QLocale().toString(local, QStringLiteral("ddd d MMM, HH:mm"));
}

QLabel* wrappedLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    return label;
}

void setSecondary(QLabel* label, double share) {
    QPalette pal = label->palette();
    pal.setColor(QPalette::WindowText,
                 blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), share));
    label->setPalette(pal);
}

}  // namespace

BackupSection::BackupSection(BackupStatusModel& model, QWidget* parent)
    : BackupSection(model, std::nullopt, parent) {}

BackupSection::BackupSection(BackupStatusModel& model,
                             std::optional<ResticJobList::Dependencies> jobs, QWidget* parent)
    : QWidget(parent),
      model_(model),
      source_(wrappedLabel(this)),
      rings_(new RingsView(this)),
      headline_(wrappedLabel(this)),
      details_(wrappedLabel(this)),
      progress_(wrappedLabel(this)),
      destination_(wrappedLabel(this)),
      backUpNow_(new QPushButton(QStringLiteral("Back Up Now"), this)),
      startError_(wrappedLabel(this)),
      historyToggle_(new QToolButton(this)),
      history_(new QLabel(this)),
      threshold_(new QSpinBox(this)) {
    rings_->setFixedSize(112, 112);
    QFont bold = headline_->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.08);
    headline_->setFont(bold);
    source_->setObjectName(QStringLiteral("backupSource"));
    setSecondary(source_, 0.75);
    setSecondary(details_, 0.75);
    setSecondary(destination_, 0.6);
    setSecondary(history_, 0.7);
    QPalette errorPalette = startError_->palette();
    errorPalette.setColor(QPalette::WindowText, RingsView::failedColor());
    startError_->setPalette(errorPalette);
    backUpNow_->setAutoDefault(false);
    backUpNow_->setFocusPolicy(Qt::NoFocus);
    historyToggle_->setCheckable(true);
    historyToggle_->setAutoRaise(true);
    historyToggle_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    historyToggle_->setArrowType(Qt::RightArrow);
    historyToggle_->setText(QStringLiteral("History"));
    history_->setTextFormat(Qt::RichText);
    history_->setVisible(false);

    auto* text = new QVBoxLayout;
    text->setSpacing(3);
    text->addWidget(headline_);
    text->addWidget(details_);
    text->addWidget(progress_);
    text->addWidget(destination_);
    text->addStretch(1);
    auto* top = new QHBoxLayout;
    top->setSpacing(10);
    top->addWidget(rings_, 0, Qt::AlignTop);
    top->addLayout(text, 1);
    auto* actions = new QHBoxLayout;
    actions->addWidget(backUpNow_);
    actions->addStretch(1);
    actions->addWidget(historyToggle_);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 4, 10, 2);
    column->setSpacing(6);
    column->addWidget(source_);
    column->addLayout(top);
    column->addLayout(actions);
    column->addWidget(startError_);
    column->addWidget(history_);

    auto* thresholdTitle = new QLabel(QStringLiteral("Protection threshold"), this);
    threshold_->setObjectName(QStringLiteral("threshold"));
    threshold_->setRange(1, 24 * 30);
    threshold_->setSuffix(QStringLiteral(" hours"));
    threshold_->setValue(static_cast<int>(std::lround(model_.protectedThresholdHours())));
    // Typing commits on Enter or leaving the box, not at every digit; the arrows at once.
    threshold_->setKeyboardTracking(false);
    const QString band = QStringLiteral("The shaded band at the edge of the rings is this window.");
    thresholdTitle->setToolTip(band);
    threshold_->setToolTip(band);
    auto* thresholdRow = new QHBoxLayout;
    thresholdRow->addWidget(thresholdTitle);
    thresholdRow->addStretch(1);
    thresholdRow->addWidget(threshold_);
    column->addLayout(thresholdRow);
    if (jobs) {
        jobs_ = new ResticJobList(std::move(*jobs), this);
        column->addWidget(jobs_);
    }
    connect(threshold_, &QSpinBox::valueChanged, this,
            [this](int hours) { model_.setProtectedThresholdHours(static_cast<double>(hours)); });

    connect(backUpNow_, &QPushButton::clicked, this, [this] { model_.startBackup(); });
    connect(historyToggle_, &QToolButton::toggled, this, [this](bool open) {
        historyToggle_->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        history_->setVisible(open);
    });

    const auto follow = [this](auto& observable) {
        using Value = std::decay_t<decltype(observable.get())>;
        subscriptions_.push_back(std::make_shared<typename Signal<Value>::Connection>(
            observable.observe([this](const Value&) { update(); })));
    };
    follow(model_.verdict);
    follow(model_.rings);
    follow(model_.live);
    follow(model_.history);
    follow(model_.starting);
    follow(model_.startError);
    follow(model_.destinationName);
    follow(model_.destinationReachable);
    follow(model_.backupCount);
    follow(model_.source);
    // A first restic job may just have made restic the source.
    subscriptions_.push_back(std::make_shared<Signal<std::optional<BackupSourceName>>::Connection>(
        model_.source.observe([this](const std::optional<BackupSourceName>&) {
            if (jobs_) jobs_->refresh();
        })));
    update();
}

BackupSection::~BackupSection() = default;

void BackupSection::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    model_.refresh();
    if (jobs_) jobs_->refresh();
}

void BackupSection::update() {
    const std::optional<BackupSourceName>& source = model_.source.get();
    const Wording words = linuxWording(source);
    source_->setText(QString::fromStdString(backupSourceTitle(source)));

    const ProtectionVerdict& verdict = model_.verdict.get();
    rings_->setModel(model_.rings.get());
    rings_->setTint(tintFor(verdict.state));
    headline_->setText(verdict.reasons.empty() ? QStringLiteral("Checking backups…")
                                               : shown(words, verdict.reasons.front()));
    QStringList lines;
    for (const auto& reason : verdict.detailReasons()) lines << shown(words, reason);
    details_->setText(lines.join(QLatin1Char('\n')));
    details_->setVisible(!lines.isEmpty());

    const TimeMachineLiveStatus& live = model_.live.get();
    progress_->setText(shown(words, live.progressLine()));
    progress_->setVisible(live.running);

    QString where;
    if (const auto& name = model_.destinationName.get(); name && !name->empty()) {
        where = QString::fromStdString(*name);
        if (model_.backupCount.get() > 0)
            where += QStringLiteral(" · %1 backups").arg(model_.backupCount.get());
        if (model_.destinationReachable.get() == false) where += QStringLiteral(" · not reachable");
    }
    destination_->setText(where);
    destination_->setVisible(!where.isEmpty());

    backUpNow_->setEnabled(!model_.starting.get() && model_.destination().has_value());
    backUpNow_->setText(model_.starting.get() ? QStringLiteral("Starting…")
                                              : QStringLiteral("Back Up Now"));
    const auto& error = model_.startError.get();
    startError_->setText(error ? shown(words, *error) : QString());
    startError_->setVisible(error.has_value());

    // A table, so the outcomes line up whatever the width of each day's name.
    QString rows;
    for (const auto& entry : model_.history.get()) {
        rows += QStringLiteral("<tr><td>%1</td><td style=\"padding-left: 14px\">%2</td></tr>")
                    .arg(shortDate(entry.date).toHtmlEscaped(),
                         entry.succeeded ? QStringLiteral("Backed up")
                                         : QStringLiteral("Did not complete"));
    }
    history_->setText(rows.isEmpty() ? QStringLiteral("No backups yet")
                                     : QStringLiteral("<table>%1</table>").arg(rows));
}

}  // namespace kestrow
