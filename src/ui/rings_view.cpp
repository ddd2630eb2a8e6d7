#include "ui/rings_view.h"

#include <QDateTime>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QToolTip>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "ui/color_blend.h"

namespace kestrow {

namespace {

// Room outside the bark for its stroke, so the outline is never clipped by the widget's edge.
constexpr qreal kMargin = 2.5;
constexpr qreal kBarkWidth = 3.0;

QPainterPath annulus(QPointF centre, qreal inner, qreal outer) {
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    path.addEllipse(centre, outer, outer);
    if (inner > 0.0) path.addEllipse(centre, inner, inner);
    return path;
}

QString shortDateTime(WallTime date) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
    return QLocale().toString(QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(ms)),
                              QLocale::ShortFormat);
}

}  // namespace

RingsView::RingsView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("ringsView"));
    setMouseTracking(true);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

QColor RingsView::woodColor() {
    return QColor(236, 208, 162);
}

QColor RingsView::ringColor() {
    return QColor(139, 94, 52);
}

QColor RingsView::failedColor() {
    return QColor(226, 84, 28);
}

QColor RingsView::accentColor(Tint tint) {
    switch (tint) {
        case Tint::good:
            return QColor(62, 132, 78);
        case Tint::warning:
            return QColor(205, 146, 30);
        case Tint::bad:
            return QColor(176, 36, 58);
        case Tint::neutral:
            break;
    }
    return QColor(112, 78, 50);
}

void RingsView::setModel(RingModel model) {
    model_ = std::move(model);
    setToolTip(generalToolTip());
    update();
}

void RingsView::setTint(Tint tint) {
    if (tint == tint_) return;
    tint_ = tint;
    update();
}

double RingsView::scale() const {
    if (!(model_.barkRadius > 0.0)) return 0.0;
    const double room = std::min(width(), height()) / 2.0 - kMargin;
    return std::max(room, 0.0) / model_.barkRadius;
}

QPointF RingsView::centre() const {
    return {width() / 2.0, height() / 2.0};
}

QString RingsView::generalToolTip() const {
    if (model_.rings.empty()) return {};
    const bool merged = std::any_of(model_.rings.begin(), model_.rings.end(),
                                    [](const RingModel::Ring& ring) { return ring.count > 1; });
    return merged ? tr("One ring per backup, close ones merged. Newest at the edge.")
                  : tr("One ring per backup. Newest at the edge.");
}

QString RingsView::describeAt(QPointF position) const {
    const double s = scale();
    if (s <= 0.0) return {};
    const QPointF offset = position - centre();
    const auto hit = model_.hit(std::hypot(offset.x(), offset.y()) / s);
    if (!hit) return {};

    if (hit->kind == RingModel::Hit::Kind::gap) {
        const RingModel::Gap& gap = model_.gaps[hit->index];
        const double hours = secondsBetween(gap.from, gap.to.value_or(model_.madeAt)) / 3600.0;
        // Rounded, not cut: a gap is longer than a day and a half, so this never says "1 days".
        return tr("No backup for %1 days").arg(std::lround(hours / 24.0));
    }
    const RingModel::Ring& ring = model_.rings[hit->index];
    QString what;
    if (ring.failed) {
        what = ring.count > 1 ? tr("%1 failed attempts").arg(ring.count) : tr("Failed attempt");
    } else {
        what = ring.count > 1 ? tr("%1 backups").arg(ring.count) : tr("Backup");
    }
    return what + QLatin1Char('\n') + shortDateTime(ring.date);
}

void RingsView::showToolTip(const QString& text, QPoint globalPosition) {
    if (text == toolTip()) return;
    setToolTip(text);
    // A tooltip already showing follows the pointer from ring to ring instead of going stale.
    if (QToolTip::isVisible()) {
        if (text.isEmpty()) {
            QToolTip::hideText();
        } else {
            QToolTip::showText(globalPosition, text, this);
        }
    }
}

void RingsView::mouseMoveEvent(QMouseEvent* event) {
    QString text = describeAt(event->position());
    if (text.isEmpty()) text = generalToolTip();
    showToolTip(text, event->globalPosition().toPoint());
    QWidget::mouseMoveEvent(event);
}

void RingsView::leaveEvent(QEvent* event) {
    setToolTip(generalToolTip());
    QWidget::leaveEvent(event);
}

void RingsView::paintEvent(QPaintEvent* /*event*/) {
    const double s = scale();
    if (s <= 0.0) return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF c = centre();
    const QColor wood = woodColor();
    const QColor accent = accentColor(tint_);
    const qreal bark = model_.barkRadius * s;
    const auto px = [s](double radius) { return std::max(radius, 0.0) * s; };

    // Heartwood darker, sapwood lighter, as in a real cut log.
    QRadialGradient grain(c, bark);
    grain.setColorAt(0.0, blend(wood, ringColor(), 0.28));
    grain.setColorAt(0.55, blend(wood, ringColor(), 0.08));
    grain.setColorAt(1.0, wood);
    painter.setPen(Qt::NoPen);
    painter.setBrush(grain);
    painter.drawEllipse(c, bark, bark);

    const QColor grey(150, 146, 140);
    for (const RingModel::Gap& gap : model_.gaps) {
        const QPainterPath area = annulus(c, px(std::min(gap.innerRadius, gap.outerRadius)),
                                          px(std::max(gap.innerRadius, gap.outerRadius)));
        painter.setBrush(blend(wood, grey, 0.55));
        painter.drawPath(area);
        painter.setBrush(QBrush(blend(wood, grey, 0.95), Qt::BDiagPattern));
        painter.drawPath(area);
    }

    painter.setBrush(Qt::NoBrush);
    const std::vector<RingModel::Ring>& rings = model_.rings;
    for (std::size_t i = 0; i < rings.size(); ++i) {
        if (rings[i].failed || model_.newestIndex == i) continue;
        const qreal r = px(rings[i].radius);
        // Old rings crowd toward the heart; lines thinner and fainter than the space between
        // them keep them apart there instead of running into one brown disc.
        qreal room = bark;
        if (i > 0) room = std::min(room, r - px(rings[i - 1].radius));
        if (i + 1 < rings.size()) room = std::min(room, px(rings[i + 1].radius) - r);
        // Merged rings are a little heavier, so a busy day reads as more than one backup.
        const qreal width =
            rings[i].count > 1 ? std::min(1.3 + 0.25 * std::log2(rings[i].count), 2.2) : 0.9;
        QColor line = ringColor();
        line.setAlphaF(static_cast<float>(std::clamp(room / 2.5, 0.4, 0.85)));
        painter.setPen(QPen(line, std::clamp(room * 0.6, 0.6, width)));
        painter.drawEllipse(c, r, r);
    }
    // Failures go on top at full width: a warning must not be thinned away by its neighbours.
    QPen failedPen(failedColor(), 1.8);
    failedPen.setDashPattern({2.0, 1.4});
    painter.setPen(failedPen);
    for (const RingModel::Ring& ring : rings) {
        if (ring.failed) painter.drawEllipse(c, px(ring.radius), px(ring.radius));
    }

    // Over the rings, so the recent band shows even where they are dense.
    QColor band = accent;
    band.setAlphaF(0.22F);
    painter.setPen(Qt::NoPen);
    painter.setBrush(band);
    painter.drawPath(annulus(c, px(model_.thresholdRadius), bark));

    painter.setBrush(blend(ringColor(), Qt::black, 0.2));
    const qreal pith = std::max(1.5, px(model_.geometry.innerRadius) * 0.35);
    painter.drawEllipse(c, pith, pith);

    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(accent, kBarkWidth));
    painter.drawEllipse(c, bark, bark);

    if (model_.newestIndex) {
        // The newest ring is drawn last, heavier, with a marker at its top in the verdict's
        // colour, so the eye finds the latest backup first.
        const qreal r = px(rings[*model_.newestIndex].radius);
        painter.setPen(QPen(ringColor().darker(150), 2.0));
        painter.drawEllipse(c, r, r);
        painter.setPen(QPen(blend(wood, Qt::white, 0.5), 1.2));
        painter.setBrush(accent);
        const qreal marker = std::max(3.0, std::min(width(), height()) * 0.018);
        painter.drawEllipse(QPointF(c.x(), c.y() - r), marker, marker);
    }
}

}  // namespace kestrow
