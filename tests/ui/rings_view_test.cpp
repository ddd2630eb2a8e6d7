#include "ui/rings_view.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QMouseEvent>
#include <cmath>

#include "ui/color_blend.h"
#include "ui/image_probe.h"

namespace kestrow {
namespace {

using Tint = RingsView::Tint;

const WallTime kNow = WallTime{} + std::chrono::hours(495'000);
const RingGeometry kGeometry{8.0, 100.0, 0.6, 336.0};
constexpr int kSide = 240;

WallTime ago(double hours) {
    return addSeconds(kNow, -hours * 3600.0);
}

// Two weeks of a backup every four hours, none for two days a week ago, one failed attempt
// three days ago.
RingModel twoWeeks() {
    std::vector<WallTime> snapshots;
    for (double h = 334.0; h >= 2.0; h -= 4.0) {
        if (h > 122.0 && h < 170.0) continue;
        snapshots.push_back(ago(h));
    }
    return RingModel::make(snapshots, {ago(73.0)}, kNow, 24.0, kGeometry);
}

bool near(const QColor& a, const QColor& b, int tolerance) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

QImage render(RingsView& view) {
    view.resize(kSide, kSide);
    return view.grab().toImage();
}

// Where a model radius lands in the picture, walking right from the centre.
QPointF spotAt(const RingsView& view, double radius) {
    const double scale = (kSide / 2.0 - 2.5) / view.model().barkRadius;
    return {kSide / 2.0 + radius * scale, kSide / 2.0};
}

QPoint pointAt(const RingsView& view, double radius) {
    return spotAt(view, radius).toPoint();
}

int failurePixels(const QImage& image) {
    return testing::countPixels(image, image.rect(),
                                [](QColor c) { return near(c, RingsView::failedColor(), 40); });
}

TEST(RingsView, DrawsRingsGapsAndTheFailureAndExplainsThemOnHover) {
    RingsView view;
    view.setModel(twoWeeks());
    const RingModel& model = view.model();
    ASSERT_EQ(model.gaps.size(), 1u);
    ASSERT_EQ(model.failedCount, 1);
    const QImage image = render(view);
    ASSERT_EQ(image.size(), QSize(kSide, kSide));
    EXPECT_TRUE(image.save(testing::screenshotPath(QStringLiteral("rings_view.png"))));

    EXPECT_GT(failurePixels(image), 8);
    EXPECT_FALSE(
        near(image.pixelColor(kSide / 2, kSide / 2), image.pixelColor(pointAt(view, 98)), 30));
    EXPECT_TRUE(
        near(image.pixelColor(pointAt(view, 100)), RingsView::accentColor(Tint::neutral), 25));
    // The gap is grey against the warm wood and rings around it.
    const auto warmth = [](QColor c) { return c.red() - c.blue(); };
    const auto& gap = model.gaps[0];
    EXPECT_LT(warmth(image.pixelColor(pointAt(view, (gap.innerRadius + gap.outerRadius) / 2))), 45);
    EXPECT_GT(warmth(image.pixelColor(pointAt(view, gap.innerRadius - 3.0))), 60);
    EXPECT_GT(warmth(image.pixelColor(pointAt(view, gap.outerRadius + 3.0))), 60);

    // The tint recolours the bark and nothing outside it.
    view.setTint(Tint::bad);
    const QImage bad = render(view);
    EXPECT_TRUE(near(bad.pixelColor(pointAt(view, 100)), RingsView::accentColor(Tint::bad), 25));
    EXPECT_EQ(bad.pixelColor(2, 2), image.pixelColor(2, 2));

    const auto failed = std::find_if(model.rings.begin(), model.rings.end(),
                                     [](const RingModel::Ring& r) { return r.failed; });
    ASSERT_NE(failed, model.rings.end());
    EXPECT_TRUE(view.describeAt(spotAt(view, failed->radius)).startsWith("Failed attempt\n"));
    EXPECT_EQ(view.describeAt(spotAt(view, (gap.innerRadius + gap.outerRadius) / 2)),
              "No backup for 2 days");
    const auto& newest = model.rings[*model.newestIndex];
    ASSERT_EQ(newest.count, 2);
    EXPECT_TRUE(view.describeAt(spotAt(view, newest.radius)).startsWith("2 backups\n"));
    EXPECT_EQ(view.describeAt(QPointF(1, 1)), "");

    // Moving onto a ring puts its story in the tooltip; moving off brings back the legend.
    const auto move = [&](QPointF at) {
        QMouseEvent event(QEvent::MouseMove, at, view.mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(&view, &event);
    };
    move(spotAt(view, failed->radius));
    EXPECT_TRUE(view.toolTip().startsWith("Failed attempt\n"));
    move(QPointF(1, 1));
    EXPECT_EQ(view.toolTip(), "One ring per backup, close ones merged. Newest at the edge.");
}

TEST(RingsView, AnEmptyHistoryStillShowsTheThresholdBandAndBark) {
    RingsView view;
    view.setModel(RingModel::make({}, {}, kNow, 24.0, kGeometry));
    const QImage image = render(view);
    const RingModel& model = view.model();
    EXPECT_EQ(failurePixels(image), 0);
    const QColor band = blend(RingsView::woodColor(), RingsView::accentColor(Tint::neutral), 0.22);
    EXPECT_TRUE(
        near(image.pixelColor(pointAt(view, (model.thresholdRadius + 100.0) / 2)), band, 6));
    EXPECT_FALSE(near(image.pixelColor(pointAt(view, model.thresholdRadius - 4.0)), band, 6));
    EXPECT_TRUE(
        near(image.pixelColor(pointAt(view, 100)), RingsView::accentColor(Tint::neutral), 25));
    EXPECT_EQ(view.toolTip(), "");

    view.setModel(RingModel::make({ago(5.0), ago(30.0)}, {}, kNow, 24.0, kGeometry));
    EXPECT_EQ(view.toolTip(), "One ring per backup. Newest at the edge.");
    EXPECT_TRUE(view.describeAt(spotAt(view, view.model().rings[0].radius)).startsWith("Backup\n"));
}

}  // namespace
}  // namespace kestrow
