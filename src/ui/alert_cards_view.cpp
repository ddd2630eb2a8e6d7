#include "ui/alert_cards_view.h"

#include <QDir>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>
#include <type_traits>

#include "menu/menu_alert_feed.h"
#include "ui/color_blend.h"
#include "ui/shown_text.h"

namespace kestrow {
namespace {

constexpr int kSymbolSize = 20;

QColor urgent() {
    return QColor(214, 64, 52);
}

QColor attention() {
    return QColor(226, 140, 36);
}

// Red for what can lose data now, amber for the rest.
bool losesData(const MenuAlertKind& kind) {
    using K = MenuAlertKind;
    return std::holds_alternative<K::BootDisk>(kind.value) ||
           std::holds_alternative<K::BackupDisk>(kind.value) ||
           std::holds_alternative<K::BackupOutOfSpace>(kind.value);
}

QStyle::StandardPixmap symbol(const MenuAlertKind& kind) {
    using K = MenuAlertKind;
    return std::visit(
        [](const auto& k) {
            using T = std::decay_t<decltype(k)>;
            if constexpr (std::is_same_v<T, K::Hog> || std::is_same_v<T, K::Space>)
                return QStyle::SP_DriveHDIcon;
            if constexpr (std::is_same_v<T, K::LocalNetwork>) return QStyle::SP_DriveNetIcon;
            if constexpr (std::is_same_v<T, K::Unscheduled> || std::is_same_v<T, K::Retention>)
                return QStyle::SP_MessageBoxInformation;
            return QStyle::SP_MessageBoxWarning;
        },
        kind.value);
}

// The folder as a person reads it: under the home, from "~".
QString shownFolder(const std::string& folder) {
    const QString path = QString::fromStdString(folder);
    const QString home = QDir::homePath();
    if (path == home) return QStringLiteral("~");
    if (path.startsWith(home + QLatin1Char('/')))
        return QStringLiteral("~") + path.mid(home.size());
    return path;
}

// A card: a rounded panel tinted toward its alert's colour.
class Card : public QFrame {
public:
    Card(QColor tint, QWidget* parent) : QFrame(parent), tint_(tint) {}

protected:
    void paintEvent(QPaintEvent* /*event*/) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QColor window = palette().color(QPalette::Window);
        painter.setPen(blend(window, tint_, 0.45));
        painter.setBrush(blend(window, tint_, 0.12));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
    }

private:
    QColor tint_;
};

}  // namespace

struct AlertCardsView::Subscription {
    Signal<std::vector<MenuAlert>>::Connection alerts;
    Signal<std::optional<BackupSourceName>>::Connection source;
};

AlertCardsView::AlertCardsView(MenuAlertFeed& feed, Act act, QWidget* parent, SourceName* source)
    : QWidget(parent), feed_(feed), act_(std::move(act)), source_(source) {
    setObjectName(QStringLiteral("alertCards"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 8);
    column->setSpacing(6);
    auto* cards = new QWidget(this);
    cards_ = new QVBoxLayout(cards);
    cards_->setContentsMargins(0, 0, 0, 0);
    cards_->setSpacing(6);
    column->addWidget(cards);

    toggle_ = new QPushButton(this);
    toggle_->setObjectName(QStringLiteral("alertToggle"));
    toggle_->setFlat(true);
    toggle_->setFocusPolicy(Qt::NoFocus);
    toggle_->setCursor(Qt::PointingHandCursor);
    toggle_->setStyleSheet(
        QStringLiteral("QPushButton { text-align: left; padding: 0 8px;"
                       " color: palette(link); border: none; }"));
    connect(toggle_, &QPushButton::clicked, this, [this] {
        showAll_ = !showAll_;
        rebuild();
    });
    column->addWidget(toggle_);

    subscription_ = std::make_unique<Subscription>();
    subscription_->alerts = feed_.alerts.observe([this](const auto&) { rebuild(); });
    if (source_) subscription_->source = source_->observe([this](const auto&) { rebuild(); });
    rebuild();
}

AlertCardsView::~AlertCardsView() = default;

void AlertCardsView::rebuild() {
    // Later, not now: the button being pressed may be what asked for this.
    while (QLayoutItem* item = cards_->takeAt(0)) {
        item->widget()->hide();
        item->widget()->deleteLater();
        delete item;
    }
    const auto& alerts = feed_.alerts.get();
    // Nothing left to hide: the next time there is, the cards start collapsed again.
    if (alerts.size() <= MenuAlertOrder::kCollapsedCount) showAll_ = false;
    const auto split = MenuAlerts::split(alerts, showAll_);
    for (const MenuAlert& alert : split.shown) {
        QWidget* shown = card(alert);
        cards_->addWidget(shown);
        shown->show();  // a layout would only show it on a later turn of the event loop
    }

    const auto label =
        MenuAlertOrder::toggleLabel(split.shown.size(), split.hidden.size(), showAll_);
    toggle_->setText(label ? QString::fromStdString(*label) : QString());
    toggle_->setVisible(label.has_value());
    setVisible(!alerts.empty());
    if (QWidget* window = this->window(); window != this && window->isVisible())
        window->adjustSize();
}

QWidget* AlertCardsView::card(const MenuAlert& alert) {
    const Wording words = feed_.wording();
    const MenuAlertText text = MenuAlertText::of(alert.kind, words);
    auto* card = new Card(losesData(alert.kind) ? urgent() : attention(), this);
    card->setObjectName(QString::fromStdString(alert.kind.name()));
    auto* row = new QHBoxLayout(card);
    row->setContentsMargins(8, 8, 8, 8);
    row->setSpacing(8);

    auto* icon = new QLabel(card);
    icon->setPixmap(style()->standardIcon(symbol(alert.kind)).pixmap(kSymbolSize, kSymbolSize));
    icon->setAlignment(Qt::AlignTop);
    row->addWidget(icon, 0, Qt::AlignTop);

    auto* column = new QVBoxLayout;
    column->setSpacing(4);
    QString html =
        QStringLiteral("<b>%1</b>").arg(shown(words, text.headline).toHtmlEscaped().trimmed());
    if (text.explanation) {
        html += text.runsOn ? QStringLiteral(" ") : QStringLiteral("<br>");
        html += shown(words, *text.explanation).toHtmlEscaped();
    }
    if (!alert.folder.empty())
        html +=
            QStringLiteral("<br><small>%1</small>").arg(shownFolder(alert.folder).toHtmlEscaped());
    auto* body = new QLabel(html, card);
    body->setObjectName(QStringLiteral("alertText"));
    body->setTextFormat(Qt::RichText);
    body->setWordWrap(true);
    if (!alert.folder.empty()) body->setToolTip(QString::fromStdString(alert.folder));
    column->addWidget(body);

    if (!text.buttons.empty()) {
        auto* buttons = new QHBoxLayout;
        buttons->setSpacing(6);
        for (const MenuAlertText::Button& button : text.buttons) {
            auto* push = new QPushButton(shown(words, button.title), card);
            push->setFocusPolicy(Qt::NoFocus);
            push->setAutoDefault(false);
            if (!button.help.empty()) push->setToolTip(shown(words, button.help));
            connect(push, &QPushButton::clicked, this,
                    [this, action = button.action, alert] { act_(action, alert); });
            buttons->addWidget(push);
        }
        buttons->addStretch(1);
        column->addLayout(buttons);
    }
    row->addLayout(column, 1);
    return card;
}

}  // namespace kestrow
