#include "ui/rings_icon.h"

#include <gtest/gtest.h>

#include <QPainter>

#include "ui/image_probe.h"

namespace kestrow {
namespace {

using Variant = RingsIcon::Variant;

int matching(const QImage& image, const QColor& colour) {
    return testing::countPixels(image, image.rect(), [&](QColor c) { return c == colour; });
}

// Solid stretches met walking right from the centre: a ring mark crosses each ring once.
int solidRunsFromCentre(const QImage& image) {
    int runs = 0;
    bool inRun = false;
    const int y = image.height() / 2;
    for (int x = image.width() / 2; x < image.width(); ++x) {
        const bool solid = image.pixelColor(x, y).alpha() >= 128;
        if (solid && !inRun) ++runs;
        inRun = solid;
    }
    return runs;
}

// Every size of both variants on a light and a dark panel, for a look at contrast by eye.
void saveSampler() {
    QImage sampler(200, 4 * 80, QImage::Format_RGB32);
    QPainter painter(&sampler);
    const QColor panels[] = {QColor(240, 240, 240), QColor(40, 40, 44)};
    int row = 0;
    for (const QColor& panel : panels) {
        for (const Variant variant : {Variant::normal, Variant::attention}) {
            painter.fillRect(0, row * 80, sampler.width(), 80, panel);
            int x = 8;
            for (const int size : {16, 22, 32, 64}) {
                painter.drawPixmap(x, row * 80 + (80 - size) / 2, RingsIcon::pixmap(size, variant));
                x += size + 16;
            }
            ++row;
        }
    }
    painter.end();
    EXPECT_TRUE(sampler.save(testing::screenshotPath(QStringLiteral("rings.png"))));
}

TEST(RingsIcon, AttentionVariantStandsOutAtEveryTraySize) {
    for (const int size : {16, 22, 32, 64}) {
        SCOPED_TRACE(size);
        const QImage normal = RingsIcon::pixmap(size, Variant::normal).toImage();
        const QImage attention = RingsIcon::pixmap(size, Variant::attention).toImage();
        ASSERT_EQ(normal.size(), QSize(size, size));
        ASSERT_EQ(attention.size(), QSize(size, size));

        // Rings with clear gaps between them, not a blurred disc, even at 16 px.
        EXPECT_EQ(solidRunsFromCentre(normal), 3);
        EXPECT_EQ(normal.pixelColor(size / 2, size / 2), RingsIcon::ringColor(Variant::normal));
        EXPECT_EQ(normal.pixelColor(0, 0).alpha(), 0);
        EXPECT_GT(matching(normal, RingsIcon::ringColor(Variant::normal)), size);

        EXPECT_NE(normal, attention);
        EXPECT_EQ(matching(normal, RingsIcon::attentionDotColor()), 0);
        EXPECT_GT(matching(attention, RingsIcon::attentionDotColor()), size / 2);
        EXPECT_GT(matching(attention, RingsIcon::ringColor(Variant::attention)), size / 2);
    }
    saveSampler();
}

}  // namespace
}  // namespace kestrow
