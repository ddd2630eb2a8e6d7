#include "ui/step_badge.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>

#include "ui/color_blend.h"

namespace kestrow {

StepBadge::StepBadge(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("badge"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QColor StepBadge::doneColor() {
    return QColor(52, 168, 83);
}

void StepBadge::setStep(int number, bool done) {
    if (number == number_ && done == done_) return;
    number_ = number;
    done_ = done;
    setAccessibleName(done ? tr("Step %1, done").arg(number) : tr("Step %1").arg(number));
    update();
}

QSize StepBadge::sizeHint() const {
    const int side = fontMetrics().height() * 2;
    return {side, side};
}

void StepBadge::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(width(), height());
    const QRectF circle(0.5, 0.5, side - 1.0, side - 1.0);

    if (done_) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(doneColor());
        painter.drawEllipse(circle);
        // The check's proportions follow a classic tick: short leg down-right, long leg up-right.
        QPainterPath tick;
        tick.moveTo(side * 0.28, side * 0.52);
        tick.lineTo(side * 0.44, side * 0.67);
        tick.lineTo(side * 0.72, side * 0.36);
        painter.setPen(QPen(Qt::white, side * 0.1, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(tick);
        return;
    }

    const QPalette& pal = palette();
    const QColor text = pal.color(QPalette::Text);
    const QColor base = pal.color(QPalette::Base);
    painter.setPen(QPen(blend(base, text, 0.35), 1.5));
    painter.setBrush(blend(base, text, 0.06));
    painter.drawEllipse(circle.adjusted(0.75, 0.75, -0.75, -0.75));

    QFont font = painter.font();
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(blend(base, text, 0.7));
    painter.drawText(circle, Qt::AlignCenter, QString::number(number_));
}

}  // namespace kestrow
