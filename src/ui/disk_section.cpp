#include "ui/disk_section.h"

#include <QCheckBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <filesystem>

#include "app/settings/preference_accessors.h"
#include "app/settings/settings_keys.h"
#include "insights/drive_health_monitor.h"
#include "insights/hog_watch_scheduler.h"
#include "insights/startup_items.h"
#include "insights/unused_apps.h"
#include "support/byte_count_format.h"
#include "support/executor.h"
#include "ui/color_blend.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

constexpr int kUnusedDays = 180;
constexpr int kListed = 4;  // a menu shows a few; the command line lists them all

// These texts name no backup source, only the platform's things.
const Wording& linuxWords() {
    static const Wording words = Wording::linux(std::nullopt);
    return words;
}

QLabel* wrapped(QWidget* parent, double share = 1.0) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    if (share < 1.0) {
        QPalette pal = label->palette();
        pal.setColor(QPalette::WindowText,
                     blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), share));
        label->setPalette(pal);
    }
    return label;
}

QString days(int count) {
    return count == 1 ? QStringLiteral("1 day") : QStringLiteral("%1 days").arg(count);
}

// In the menu's own words: the disk's verdict first, and what stands in for one otherwise.
QString describe(const DriveHealth::Status& status) {
    const auto text = status.text();
    const std::string_view name = status.name();
    if (name == "verified") return QStringLiteral("Verified");
    if (name == "failing") return QString::fromStdString(text.value_or("Failing"));
    if (name == "unavailable")
        return QStringLiteral("Could not be checked (%1)")
            .arg(QString::fromStdString(text.value_or("")));
    if (name == "notApplicable") return QStringLiteral("Checked by the server");
    if (text) return QStringLiteral("Not reported (%1)").arg(QString::fromStdString(*text));
    return QStringLiteral("Not reported");
}

QString bytes(std::int64_t count) {
    return QString::fromStdString(formatByteCount(count));
}

}  // namespace

DiskSection::DiskSection(Services services, QWidget* parent)
    : QWidget(parent),
      s_(std::move(services)),
      alerts_(new QWidget(this)),
      hogs_(wrapped(this)),
      daysUntilFull_(wrapped(this)),
      watch_(new QCheckBox(QStringLiteral("Watch for space hogs nightly"), this)),
      health_(wrapped(this, 0.75)),
      unused_(wrapped(this, 0.75)),
      startup_(wrapped(this, 0.75)),
      duplicates_(new QPushButton(QStringLiteral("Find duplicates…"), this)) {
    new QVBoxLayout(alerts_);
    alerts_->layout()->setContentsMargins(0, 0, 0, 0);
    watch_->setFocusPolicy(Qt::NoFocus);
    watch_->setChecked(HogWatchPreference::isEnabled(s_.standardStore));
    duplicates_->setAutoDefault(false);
    duplicates_->setFocusPolicy(Qt::NoFocus);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 2, 10, 2);
    column->setSpacing(5);
    for (QWidget* widget : std::initializer_list<QWidget*>{hogs_, alerts_, daysUntilFull_, watch_,
                                                           health_, unused_, startup_})
        column->addWidget(widget);
    column->addWidget(duplicates_, 0, Qt::AlignLeft);

    connect(watch_, &QCheckBox::toggled, this,
            [this](bool on) { s_.standardStore.set(keys::hogWatchEnabled, on); });
    connect(duplicates_, &QPushButton::clicked, this, [this] {
        if (s_.findDuplicates) s_.findDuplicates();
    });

    const auto follow = [this](auto& observable, void (DiskSection::*refresh)()) {
        using Value = std::decay_t<decltype(observable.get())>;
        subscriptions_.push_back(std::make_shared<typename Signal<Value>::Connection>(
            observable.observe([this, refresh](const Value&) { (this->*refresh)(); })));
    };
    follow(s_.hogWatch.alerts(), &DiskSection::showHogs);
    follow(s_.hogWatch.daysUntilFull(), &DiskSection::showHogs);
    follow(s_.driveHealth.health, &DiskSection::showHealth);
    showHogs();
    showHealth();
}

DiskSection::~DiskSection() = default;

std::vector<QPushButton*> DiskSection::dismissButtons() const {
    std::vector<QPushButton*> buttons;
    for (QPushButton* button : alerts_->findChildren<QPushButton*>()) buttons.push_back(button);
    return buttons;
}

void DiskSection::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    scanReports();
}

void DiskSection::showHogs() {
    while (QLayoutItem* item = alerts_->layout()->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto& alerts = s_.hogWatch.alerts().get();
    hogs_->setText(alerts.empty() ? QStringLiteral("Nothing grew unusually.")
                                  : QStringLiteral("A folder is growing fast"));
    // With an estimate each hog also has its card at the top of the menu (the same rule as the
    // cards'), so the section points there instead of telling it twice.
    const bool listedAbove = s_.hogWatch.daysUntilFull().get().has_value();
    for (const HogAlert& alert : alerts) {
        auto* row = new QWidget(alerts_);
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        const QString name =
            QString::fromStdString(std::filesystem::path(alert.path).filename().string());
        auto* label = wrapped(row);
        label->setToolTip(QString::fromStdString(alert.path));
        line->addWidget(label, 1);
        alerts_->layout()->addWidget(row);
        if (listedAbove) {
            label->setText(name + QStringLiteral(" growing fast, listed above."));
            row->show();
            continue;
        }
        QString text =
            alert.isNew ? QStringLiteral("%1: %2, new").arg(name, bytes(alert.size))
                        : QStringLiteral("%1: %2, grew %3 in %4")
                              .arg(name, bytes(alert.size), bytes(alert.growth), days(alert.days));
        if (alert.outside)
            text += QStringLiteral(" (%1 outside the folders listed)").arg(bytes(*alert.outside));
        label->setText(text);
        auto* dismiss = new QPushButton(QStringLiteral("Dismiss"), row);
        dismiss->setObjectName(QString::fromStdString(alert.path));
        dismiss->setToolTip(QStringLiteral("Quiet until it grows another 5 GB"));
        dismiss->setFocusPolicy(Qt::NoFocus);
        connect(dismiss, &QPushButton::clicked, this,
                [this, path = alert.path] { s_.hogWatch.dismiss(path); });
        line->addWidget(dismiss);
        row->show();
    }
    const auto full = s_.hogWatch.daysUntilFull().get();
    daysUntilFull_->setText(
        full ? QStringLiteral("At this rate your disk is full in %1").arg(days(*full)) : QString());
    daysUntilFull_->setVisible(full.has_value());
}

void DiskSection::showHealth() {
    const auto& reading = s_.driveHealth.health.get();
    if (!reading) {
        health_->setText(shown(linuxWords(), "This Mac's disk (SMART): not checked yet"));
        return;
    }
    QString text = shown(linuxWords(), "This Mac's disk (SMART): %1").arg(describe(reading->first));
    if (reading->second) {
        text += QStringLiteral("\nBackup disk (SMART): %1").arg(describe(*reading->second));
    }
    health_->setText(text);
}

void DiskSection::scanReports() {
    s_.worker.post([this, alive = std::weak_ptr<bool>(alive_), folders = s_.folders,
                    environment = s_.environment, &main = s_.mainExecutor] {
        const auto now = std::chrono::system_clock::now();
        auto unused = UnusedApps::unused(
            UnusedApps::applications(UnusedApps::Sources::standard(environment)), now);
        auto items = StartupItems::list(StartupItems::Roots::standard(folders));
        main.post([this, alive, unused = std::move(unused), items = std::move(items)] {
            if (alive.expired()) return;
            if (unused.empty()) {
                unused_->setText(QStringLiteral("None unopened for %1 days").arg(kUnusedDays));
            } else {
                QStringList names;
                for (std::size_t i = 0; i < unused.size() && i < kListed; ++i)
                    names << QString::fromStdString(
                        std::filesystem::path(unused[i].path).stem().string());
                unused_->setText(
                    QStringLiteral("Unopened for %1 days: %2%3")
                        .arg(kUnusedDays)
                        .arg(names.join(QStringLiteral(", ")))
                        .arg(unused.size() > kListed ? QStringLiteral(", …") : QString()));
            }
            QStringList labels;
            for (const auto& item : items) labels << QString::fromStdString(item.label);
            startup_->setText(items.size() == 1
                                  ? QStringLiteral("1 startup item")
                                  : QStringLiteral("%1 startup items").arg(items.size()));
            startup_->setToolTip(labels.join(QLatin1Char('\n')));
        });
    });
}

}  // namespace kestrow
