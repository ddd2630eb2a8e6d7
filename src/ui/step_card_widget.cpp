#include "ui/step_card_widget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/color_blend.h"
#include "ui/step_badge.h"

namespace kestrow {

namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

StepCardWidget::StepCardWidget(ActionHandler onAction, QWidget* parent)
    : QWidget(parent),
      onAction_(std::move(onAction)),
      badge_(new StepBadge(this)),
      title_(new QLabel(this)),
      text_(new QLabel(this)),
      button_(new QPushButton(this)) {
    title_->setObjectName(QStringLiteral("title"));
    text_->setObjectName(QStringLiteral("text"));
    button_->setObjectName(QStringLiteral("button"));

    QFont titleFont = title_->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.08);
    title_->setFont(titleFont);
    text_->setWordWrap(true);
    text_->setTextFormat(Qt::PlainText);
    title_->setTextFormat(Qt::PlainText);
    QPalette textPalette = text_->palette();
    textPalette.setColor(QPalette::WindowText, blend(palette().color(QPalette::Base),
                                                     palette().color(QPalette::Text), 0.72));
    text_->setPalette(textPalette);

    button_->setAutoDefault(false);
    const QFontMetrics metrics = button_->fontMetrics();
    button_->setMinimumSize(metrics.averageCharWidth() * 17, metrics.height() * 2);
    connect(button_, &QPushButton::clicked, this, [this] {
        if (onAction_) onAction_(card_.action);
    });

    auto* words = new QVBoxLayout;
    words->setSpacing(4);
    words->addWidget(title_);
    words->addWidget(text_);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(16, 14, 16, 14);
    row->setSpacing(14);
    row->addWidget(badge_, 0, Qt::AlignTop);
    row->addLayout(words, 1);
    row->addWidget(button_, 0, Qt::AlignVCenter);
}

void StepCardWidget::setCard(const StepCard& card) {
    card_ = card;
    setObjectName(QStringLiteral("step-%1").arg(card.number));
    badge_->setStep(card.number, card.done);
    title_->setText(qt(card.title));
    text_->setText(qt(card.text));
    button_->setText(qt(card.buttonTitle));
    button_->setEnabled(card.buttonEnabled);
    button_->setHidden(!card.buttonShown);
}

void StepCardWidget::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor base = palette().color(QPalette::Base);
    const QColor text = palette().color(QPalette::Text);
    painter.setPen(QPen(blend(base, text, 0.11), 1.0));
    painter.setBrush(blend(base, text, 0.03));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 10.0, 10.0);
}

}  // namespace kestrow
