#include "ui/image_probe.h"

#include <QAbstractButton>
#include <QDir>
#include <QLabel>
#include <QWidget>

namespace kestrow::testing {

QString screenshotPath(const QString& fileName) {
    QString dir = qEnvironmentVariable("KESTROW_TEST_PNG_DIR");
    if (dir.isEmpty()) dir = QDir::temp().filePath(QStringLiteral("kestrow-screenshots"));
    QDir().mkpath(dir);
    return QDir(dir).filePath(fileName);
}

int countPixels(const QImage& image, const QRect& area, const std::function<bool(QColor)>& match) {
    const QRect clipped = area.intersected(image.rect());
    int count = 0;
    for (int y = clipped.top(); y <= clipped.bottom(); ++y)
        for (int x = clipped.left(); x <= clipped.right(); ++x)
            if (match(image.pixelColor(x, y))) ++count;
    return count;
}

bool isCheckGreen(const QColor& colour) {
    return colour.green() > 110 && colour.green() > colour.red() + 50 &&
           colour.green() > colour.blue() + 40;
}

QStringList visibleTexts(const QWidget& root) {
    QStringList texts;
    for (const QWidget* child : root.findChildren<QWidget*>()) {
        if (!child->isVisibleTo(&root)) continue;
        if (const auto* label = qobject_cast<const QLabel*>(child))
            texts << label->text();
        else if (const auto* button = qobject_cast<const QAbstractButton*>(child))
            texts << button->text();
    }
    return texts;
}

QRect areaInGrab(const QWidget& widget, const QWidget& root, qreal devicePixelRatio) {
    const QRect logical(widget.mapTo(&root, QPoint(0, 0)), widget.size());
    return {QPoint(qRound(logical.x() * devicePixelRatio), qRound(logical.y() * devicePixelRatio)),
            QSize(qRound(logical.width() * devicePixelRatio),
                  qRound(logical.height() * devicePixelRatio))};
}

}  // namespace kestrow::testing
