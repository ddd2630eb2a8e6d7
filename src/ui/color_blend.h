#pragma once

#include <QColor>

namespace kestrow {

// Moves `from` toward `to` by `amount` (0…1). Quiet tones are derived from the palette this way
// instead of being fixed colours, so dark themes get matching shades.
inline QColor blend(const QColor& from, const QColor& to, qreal amount) {
    const auto channel = [amount](float a, float b) {
        return static_cast<float>(a * (1.0 - amount) + b * amount);
    };
    return QColor::fromRgbF(channel(from.redF(), to.redF()), channel(from.greenF(), to.greenF()),
                            channel(from.blueF(), to.blueF()));
}

}  // namespace kestrow
