#include "ui/rings_icon.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <array>
#include <cmath>

namespace kestrow {

namespace {

constexpr std::array<int, 4> kTraySizes{16, 22, 32, 64};

}  // namespace

QColor RingsIcon::ringColor(Variant variant) {
    return variant == Variant::attention ? QColor(232, 128, 40) : QColor(54, 132, 160);
}

QColor RingsIcon::attentionDotColor() {
    return QColor(222, 53, 45);
}

QIcon RingsIcon::icon(Variant variant) {
    QIcon icon;
    for (const int size : kTraySizes) icon.addPixmap(pixmap(size, variant));
    return icon;
}

QPixmap RingsIcon::pixmap(int size, Variant variant, qreal devicePixelRatio) {
    const int devicePixels = static_cast<int>(std::lround(size * devicePixelRatio));
    QPixmap result(devicePixels, devicePixels);
    result.setDevicePixelRatio(devicePixelRatio);
    result.fill(Qt::transparent);

    QPainter painter(&result);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    const QPointF centre(s / 2.0, s / 2.0);
    // Strokes stay at least 1.5 px so the rings still read as rings in a 16 px panel.
    const qreal stroke = std::max(1.5, s / 11.0);
    const QColor colour = ringColor(variant);

    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(colour, stroke));
    const qreal outer = s / 2.0 - stroke / 2.0 - s / 32.0;
    painter.drawEllipse(centre, outer, outer);
    const qreal middle = outer * 0.6;
    painter.drawEllipse(centre, middle, middle);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    const qreal core = std::max(1.25, outer * 0.22);
    painter.drawEllipse(centre, core, core);

    if (variant == Variant::attention) {
        // The dot sits on the outer ring's upper right; clearing a margin around it keeps it
        // apart from the ring underneath.
        const qreal dot = s * 0.2;
        const QPointF dotCentre(s - dot - s / 32.0, dot + s / 32.0);
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.setBrush(Qt::black);
        painter.drawEllipse(dotCentre, dot + stroke * 0.8, dot + stroke * 0.8);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.setBrush(attentionDotColor());
        painter.drawEllipse(dotCentre, dot, dot);
    }
    return result;
}

}  // namespace kestrow
