#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>

namespace kestrow {

// The product's mark: concentric rings. The tray shows it in a calm colour; the attention variant
// turns the rings warm and adds a dot, so a problem stands out even at 16 px.
class RingsIcon {
public:
    enum class Variant { normal, attention };

    static QIcon icon(Variant variant);
    // `size` is in device-independent pixels; the pixmap carries `devicePixelRatio`.
    static QPixmap pixmap(int size, Variant variant, qreal devicePixelRatio = 1.0);

    static QColor ringColor(Variant variant);
    static QColor attentionDotColor();
};

}  // namespace kestrow
