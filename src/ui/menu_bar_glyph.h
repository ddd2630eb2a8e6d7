#pragma once

#include <QColor>
#include <QPixmap>

namespace kestrow {

// A small drawing of a screen with its top bar and an arrow pointing up at it: "the icon lives
// up there". `size` is the height in device-independent pixels; the glyph is a bit wider.
QPixmap menuBarGlyph(int size, const QColor& colour, qreal devicePixelRatio = 1.0);

}  // namespace kestrow
