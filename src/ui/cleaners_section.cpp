#include "ui/cleaners_section.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/settings/settings_keys.h"
#include "cleaners/browser_cache_reclaimer.h"
#include "cleaners/maintenance_cleaner.h"
#include "menu/cleaner_rows.h"
#include "ui/color_blend.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

QLabel* captionLabel(const QString& text, QWidget* parent, double share = 0.6) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setContentsMargins(22, 0, 0, 2);  // under the switch's text, not its box
    QPalette pal = label->palette();
    pal.setColor(QPalette::WindowText,
                 blend(pal.color(QPalette::Window), pal.color(QPalette::WindowText), share));
    label->setPalette(pal);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    return label;
}

// The cleaners' texts name no backup source, only the platform's things.
const Wording& linuxWords() {
    static const Wording words = Wording::linux(std::nullopt);
    return words;
}

QString text(const std::optional<std::string>& value) {
    return value ? shown(linuxWords(), *value) : QString();
}

}  // namespace

CleanersSection::CleanersSection(Services services, QWidget* parent)
    : QWidget(parent),
      s_(std::move(services)),
      rows_(new QWidget(this)),
      estimate_(new QLabel(this)),
      freeUp_(new QPushButton(QStringLiteral("Free Up Space"), this)),
      result_(new QLabel(this)) {
    new QVBoxLayout(rows_);
    rows_->layout()->setContentsMargins(0, 0, 0, 0);
    rows_->layout()->setSpacing(2);
    estimate_->setWordWrap(true);
    result_->setWordWrap(true);
    result_->setTextFormat(Qt::PlainText);
    result_->setVisible(false);
    freeUp_->setAutoDefault(false);
    freeUp_->setFocusPolicy(Qt::NoFocus);
    freeUp_->setToolTip(QString::fromUtf8(CleanerRows::kFreeUpHelp));

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 2, 10, 2);
    column->setSpacing(6);
    column->addWidget(rows_);
    column->addWidget(estimate_);
    column->addWidget(freeUp_, 0, Qt::AlignLeft);
    column->addWidget(result_);

    connect(freeUp_, &QPushButton::clicked, this, [this] {
        freeUp_->setEnabled(false);
        result_->setVisible(false);
        s_.developer.freeUpSpace(
            [this, alive = std::weak_ptr<bool>(alive_)](MaintenanceCleaner::FreeUpResult outcome) {
                if (alive.expired()) return;
                result_->setText(shown(linuxWords(), outcome.summary));
                result_->setVisible(true);
                freeUp_->setEnabled(true);
                refresh();
            });
    });

    const auto follow = [this](auto& observable) {
        using Value = std::decay_t<decltype(observable.get())>;
        subscriptions_.push_back(std::make_shared<typename Signal<Value>::Connection>(
            observable.observe([this](const Value&) { rebuildRows(); })));
    };
    follow(s_.developer.ledger);
    follow(s_.browsers.lastRun());
    follow(s_.browsers.blocked());
    rebuildRows();
}

CleanersSection::~CleanersSection() = default;

QCheckBox* CleanersSection::toggle(const QString& id) const {
    return rows_->findChild<QCheckBox*>(id);
}

void CleanersSection::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refresh();
}

void CleanersSection::refresh() {
    rebuildRows();
    measure();
}

void CleanersSection::rebuildRows() {
    while (QLayoutItem* item = rows_->layout()->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto addSwitch = [this](const QString& id, const QString& title, bool on,
                                  std::function<void(bool)> changed) {
        auto* box = new QCheckBox(title, rows_);
        box->setObjectName(id);
        box->setChecked(on);
        box->setFocusPolicy(Qt::NoFocus);
        connect(box, &QCheckBox::toggled, this,
                [changed = std::move(changed)](bool value) { changed(value); });
        rows_->layout()->addWidget(box);
        box->show();  // a layout only shows new children on the next turn of the event loop
        return box;
    };

    for (const auto& row : CleanerRows::offered(s_.standardStore, s_.folders, s_.xcodeInstalled)) {
        auto* box = addSwitch(QString::fromStdString(row.id), QString::fromStdString(row.title),
                              row.enabled, [this, id = row.id](bool value) {
                                  s_.standardStore.set(keys::maintenanceEnabled(id), value);
                                  s_.developer.poke();
                                  measure();
                              });
        if (row.caption) {
            auto* caption = captionLabel(text(row.caption), rows_);
            caption->setToolTip(text(row.help));
            box->setToolTip(text(row.help));
            rows_->layout()->addWidget(caption);
            caption->show();
        }
    }

    const auto browsers = CleanerRows::browsers(s_.standardStore, Wording::linux(std::nullopt));
    addSwitch(QStringLiteral("browsers"), QString::fromUtf8(CleanerRows::kBrowserTitle),
              browsers.enabled, [this](bool value) {
                  s_.standardStore.set(keys::browserReclaimEnabled, value);
                  s_.browsers.poke();
                  measure();
              });
    if (browsers.caption) {
        auto* caption = captionLabel(text(browsers.caption), rows_);
        caption->setToolTip(text(browsers.help));
        rows_->layout()->addWidget(caption);
        caption->show();
    }
    if (browsers.accessCaption) {
        auto* access = captionLabel(text(browsers.accessCaption), rows_, 0.85);
        access->setObjectName(QStringLiteral("accessCaption"));
        rows_->layout()->addWidget(access);
        access->show();
    }
}

void CleanersSection::measure() {
    const auto ids = s_.developer.enabledIDs();
    const bool browsers =
        CleanerRows::browsers(s_.standardStore, Wording::linux(std::nullopt)).enabled;
    const bool anyOn = !ids.empty() || browsers;
    freeUp_->setEnabled(anyOn && !s_.developer.ticking());
    estimate_->setText(QString::fromStdString(CleanerRows::estimateLine(anyOn, std::nullopt)));
    if (!anyOn) return;
    const int token = ++measuring_;
    s_.worker.post([this, alive = std::weak_ptr<bool>(alive_), token, ids, browsers,
                    folders = s_.folders, &main = s_.mainExecutor] {
        const std::int64_t bytes = MaintenanceCleaner::estimateBytes(ids, browsers, folders);
        main.post([this, alive, token, bytes] {
            if (alive.expired() || token != measuring_) return;
            estimate_->setText(QString::fromStdString(CleanerRows::estimateLine(true, bytes)));
        });
    });
}

}  // namespace kestrow
