#include "ui/first_run_window.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>
#include <algorithm>

#include "ui/color_blend.h"
#include "ui/menu_bar_glyph.h"
#include "ui/rings_icon.h"
#include "ui/rings_view.h"
#include "ui/step_card_widget.h"

namespace kestrow {

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

QLabel* makeLabel(QWidget* parent, const QString& name, qreal scale, bool bold) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignHCenter);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(bold);
    label->setFont(font);
    return label;
}

void setForeground(QWidget* widget, const QColor& colour) {
    QPalette pal = widget->palette();
    pal.setColor(QPalette::WindowText, colour);
    widget->setPalette(pal);
}

}  // namespace

FirstRunWindow::FirstRunWindow(FactsSource readFacts, ActionHandler perform, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                          Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                          Qt::WindowCloseButtonHint),
      readFacts_(std::move(readFacts)),
      perform_(std::move(perform)),
      title_(makeLabel(this, QStringLiteral("title"), 1.9, true)),
      headline_(makeLabel(this, QStringLiteral("headline"), 1.1, false)),
      notice_(makeLabel(this, QStringLiteral("notice"), 1.0, true)),
      footer_(makeLabel(this, QStringLiteral("footer"), 0.95, false)),
      cardColumn_(new QVBoxLayout) {
    setObjectName(QStringLiteral("firstRunWindow"));
    // Closing only hides: the owner keeps the window and presents it again.
    setAttribute(Qt::WA_DeleteOnClose, false);
    setBackgroundRole(QPalette::Base);
    setAutoFillBackground(true);
    setWindowIcon(RingsIcon::icon(RingsIcon::Variant::normal));

    const QColor base = palette().color(QPalette::Base);
    const QColor text = palette().color(QPalette::Text);
    const QColor secondary = blend(base, text, 0.68);
    setForeground(title_, text);
    setForeground(headline_, secondary);
    setForeground(footer_, secondary);
    headline_->setWordWrap(true);
    notice_->setWordWrap(true);
    setForeground(notice_, RingsView::failedColor());

    auto* mark = new QLabel(this);
    mark->setObjectName(QStringLiteral("mark"));
    mark->setPixmap(RingsIcon::pixmap(56, RingsIcon::Variant::normal, devicePixelRatioF()));
    mark->setAlignment(Qt::AlignHCenter);

    const int glyphHeight = footer_->fontMetrics().height() * 7 / 5;
    auto* glyph = new QLabel(this);
    glyph->setObjectName(QStringLiteral("footerGlyph"));
    glyph->setPixmap(menuBarGlyph(glyphHeight, secondary, devicePixelRatioF()));
    auto* footerRow = new QHBoxLayout;
    footerRow->setSpacing(8);
    footerRow->addStretch(1);
    footerRow->addWidget(glyph, 0, Qt::AlignVCenter);
    footerRow->addWidget(footer_, 0, Qt::AlignVCenter);
    footerRow->addStretch(1);

    // A column of readable width; the cards' wrapped text takes its line length from it.
    auto* cards = new QWidget(this);
    cards->setObjectName(QStringLiteral("cards"));
    cards->setFixedWidth(std::max(520, fontMetrics().averageCharWidth() * 90));
    cards->setLayout(cardColumn_);
    cardColumn_->setContentsMargins(0, 0, 0, 0);
    cardColumn_->setSpacing(12);

    auto* page = new QVBoxLayout(this);
    page->setSizeConstraint(QLayout::SetFixedSize);
    page->setContentsMargins(40, 32, 40, 28);
    page->setSpacing(0);
    page->addWidget(mark);
    page->addSpacing(12);
    page->addWidget(title_);
    page->addSpacing(6);
    page->addWidget(headline_);
    page->addSpacing(14);
    page->addWidget(notice_);
    page->addSpacing(14);
    page->addWidget(cards);
    page->addSpacing(24);
    page->addLayout(footerRow);
}

void FirstRunWindow::refresh() {
    const FirstRunContent content =
        firstRunContent(readFacts_ ? readFacts_() : FirstRunFacts{}, Wording::linux(std::nullopt));
    setWindowTitle(qt(content.title));
    title_->setText(qt(content.title));
    headline_->setText(qt(content.headline));
    notice_->setText(qt(content.notice));
    notice_->setVisible(!content.notice.empty());
    footer_->setText(qt(content.footer));

    // The cards are reused while their count holds: a card whose button is mid-click must survive.
    if (cards_.size() != content.steps.size()) {
        for (StepCardWidget* card : cards_) {
            cardColumn_->removeWidget(card);
            card->hide();
            card->deleteLater();
        }
        cards_.clear();
        for (std::size_t i = 0; i < content.steps.size(); ++i) {
            auto* card = new StepCardWidget([this](StepAction action) { perform(action); });
            cardColumn_->addWidget(card);
            cards_.push_back(card);
        }
    }
    for (std::size_t i = 0; i < cards_.size(); ++i) cards_[i]->setCard(content.steps[i]);
}

void FirstRunWindow::present() {
    refresh();
    if (!placed_) {
        adjustSize();
        centreOnScreen();
        placed_ = true;
    }
    if (isMinimized()) setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void FirstRunWindow::perform(StepAction action) {
    if (perform_) perform_(action);
    refresh();
}

void FirstRunWindow::centreOnScreen() {
    QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
    if (!screen) return;
    QRect frame = frameGeometry();
    frame.moveCenter(screen->availableGeometry().center());
    move(frame.topLeft());
}

}  // namespace kestrow
