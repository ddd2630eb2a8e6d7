#pragma once

#include <QColor>
#include <QImage>
#include <QRect>
#include <QString>
#include <QStringList>
#include <functional>

class QWidget;

namespace kestrow::testing {

// Where a test writes a screenshot: $KESTROW_TEST_PNG_DIR (created on demand) or the temp dir.
QString screenshotPath(const QString& fileName);

// Pixels inside `area` (in the image's device pixels) for which `match` holds.
int countPixels(const QImage& image, const QRect& area, const std::function<bool(QColor)>& match);

// The green of a done step's badge, allowing for antialiasing but not for greys or blues.
bool isCheckGreen(const QColor& colour);

// Texts of the labels and buttons of `root` that a user can see right now.
QStringList visibleTexts(const QWidget& root);

// `widget`'s area inside a grab of `root`, in the grab's device pixels.
QRect areaInGrab(const QWidget& widget, const QWidget& root, qreal devicePixelRatio);

}  // namespace kestrow::testing
