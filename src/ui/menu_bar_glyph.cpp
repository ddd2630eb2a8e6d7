#include "ui/menu_bar_glyph.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace kestrow {

QPixmap menuBarGlyph(int size, const QColor& colour, qreal devicePixelRatio) {
    const qreal h = size;
    const qreal w = std::round(h * 1.3);
    QPixmap result(static_cast<int>(std::lround(w * devicePixelRatio)),
                   static_cast<int>(std::lround(h * devicePixelRatio)));
    result.setDevicePixelRatio(devicePixelRatio);
    result.fill(Qt::transparent);

    QPainter painter(&result);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal stroke = std::max(1.2, h / 14.0);
    const QRectF screen(stroke / 2, stroke / 2 + h * 0.06, w - stroke, h * 0.88 - stroke);
    painter.setPen(QPen(colour, stroke));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(screen, h * 0.14, h * 0.14);

    // The bar itself is filled so it reads as the menu bar at a glance.
    const qreal barHeight = h * 0.2;
    QPainterPath bar;
    bar.addRoundedRect(screen, h * 0.14, h * 0.14);
    QPainterPath top;
    top.addRect(QRectF(screen.left(), screen.top(), screen.width(), barHeight));
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawPath(bar.intersected(top));

    const qreal cx = screen.center().x();
    const qreal tipY = screen.top() + barHeight + h * 0.1;
    const qreal tailY = screen.bottom() - h * 0.12;
    const qreal wing = h * 0.17;
    QPen arrowPen(colour, stroke * 1.1, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(arrowPen);
    painter.setBrush(Qt::NoBrush);
    painter.drawLine(QPointF(cx, tailY), QPointF(cx, tipY));
    QPainterPath head;
    head.moveTo(cx - wing, tipY + wing);
    head.lineTo(cx, tipY);
    head.lineTo(cx + wing, tipY + wing);
    painter.drawPath(head);
    return result;
}

}  // namespace kestrow
