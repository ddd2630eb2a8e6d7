#pragma once

#include <QColor>
#include <QString>
#include <QWidget>
#include <optional>

#include "menu/ring_model.h"

namespace kestrow {

// The backup history as a tree's cross-section seen from above: the model's rings centred in the
// widget and scaled so the bark touches its shorter side. Hovering a ring or a gap tells what it
// stands for.
class RingsView : public QWidget {
    Q_OBJECT

public:
    // The verdict the caller wants the bark to carry; the rings themselves never change colour.
    enum class Tint { good, warning, bad, neutral };

    explicit RingsView(QWidget* parent = nullptr);

    void setModel(RingModel model);
    const RingModel& model() const { return model_; }
    void setTint(Tint tint);
    Tint tint() const { return tint_; }

    // What the pointer at `position` (widget coordinates) is over, in the words of its tooltip;
    // empty when it is over nothing in particular.
    QString describeAt(QPointF position) const;

    QSize sizeHint() const override { return {180, 180}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width; }

    static QColor woodColor();
    static QColor ringColor();
    static QColor failedColor();
    static QColor accentColor(Tint tint);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    // Pixels per model unit; 0 when there is nothing to draw.
    double scale() const;
    QPointF centre() const;
    QString generalToolTip() const;
    void showToolTip(const QString& text, QPoint globalPosition);

    RingModel model_;
    Tint tint_ = Tint::neutral;
};

}  // namespace kestrow
