#include "ui/timeline/audiowaveformview.h"

#include <QImage>
#include <QPainter>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace kavel::ui;

namespace {

const QUuid someId = QUuid::fromString(QStringLiteral("{6f1d2c9a-93b4-4c1e-8a57-0d4b6e2f7a11}"));

QList<qreal> heights(const WaveformGeometry &g)
{
    QList<qreal> list;
    for (const QRectF &bar : g.bars)
        list.append(bar.height());
    return list;
}

} // namespace

TEST(Waveform, BarsAreThreePointsApartCenteredAndNeverFlat)
{
    const WaveformGeometry g = waveformGeometry({someId, false, false, 1.0f}, 100.0, 30.0);
    ASSERT_EQ(g.bars.size(), 33);
    for (qsizetype i = 0; i < g.bars.size(); ++i) {
        const QRectF &bar = g.bars.at(i);
        EXPECT_EQ(bar.left(), i * 3.0);
        EXPECT_EQ(bar.width(), 2.0);
        EXPECT_NEAR(bar.top() + bar.height() / 2.0, 15.0, 1e-9);
        EXPECT_LE(bar.height(), 30.0 * 0.85 * (0.5 + 0.5) + 1e-9);
    }
    // A strip too low for its pattern still shows 2-point bars.
    for (const QRectF &bar : waveformGeometry({someId}, 100.0, 1.0).bars)
        EXPECT_EQ(bar.height(), 2.0);

    EXPECT_TRUE(waveformGeometry({someId}, 2.9, 30.0).bars.isEmpty());
    EXPECT_EQ(waveformGeometry({someId}, 2.9, 30.0).overlay, QLineF(0, 0, 2.9, 0));
}

TEST(Waveform, SameIdDrawsTheSameBarsWhateverTheFlags)
{
    const WaveformGeometry plain = waveformGeometry({someId, false, false, 1.0f}, 90.0, 40.0);
    const WaveformGeometry muted = waveformGeometry({someId, true, true, 0.2f}, 90.0, 40.0);
    EXPECT_EQ(plain.bars, muted.bars);
    EXPECT_NE(plain.barColor, muted.barColor);

    // At another height the same pattern, scaled (above the 2-point floor).
    const WaveformGeometry tall = waveformGeometry({someId}, 90.0, 80.0);
    const QList<qreal> a = heights(plain), b = heights(tall);
    ASSERT_EQ(a.size(), b.size());
    for (qsizetype i = 0; i < a.size(); ++i)
        EXPECT_NEAR(b.at(i), a.at(i) * 2.0, 1e-9);

    EXPECT_NE(heights(waveformGeometry({QUuid::createUuid()}, 90.0, 40.0)), a);
    EXPECT_EQ(waveformSeed(someId), waveformSeed(QUuid(someId.toString())));
}

TEST(Waveform, ColoursAndOverlayFollowTheFlags)
{
    const WaveformGeometry full = waveformGeometry({someId, false, false, 1.0f}, 60.0, 20.0);
    EXPECT_EQ(full.overlay, QLineF(0, 0, 60, 0));
    EXPECT_GT(full.barColor.green(), full.barColor.red());
    EXPECT_GT(full.overlayColor.red(), full.overlayColor.blue()) << "yellow";

    EXPECT_EQ(waveformGeometry({someId, false, false, 0.0f}, 60.0, 20.0).overlay,
              QLineF(0, 20, 60, 20));
    EXPECT_EQ(waveformGeometry({someId, false, false, 0.25f}, 60.0, 20.0).overlay,
              QLineF(0, 15, 60, 15));

    const WaveformGeometry detached = waveformGeometry({someId, true, false, 1.0f}, 60.0, 20.0);
    EXPECT_GT(detached.barColor.blue(), detached.barColor.green()) << "purple";

    const WaveformGeometry muted = waveformGeometry({someId, false, true, 1.0f}, 60.0, 20.0);
    EXPECT_EQ(muted.overlay, QLineF(0, 10, 60, 10));
    EXPECT_GT(muted.overlayWidth, full.overlayWidth);
    EXPECT_LT(muted.barColor.alphaF(), full.barColor.alphaF());
    EXPECT_LT(std::abs(muted.barColor.red() - muted.barColor.green()), 8) << "gray";
}

TEST(Waveform, PaintsItsBarsIntoTheRectangle)
{
    QImage image(60, 20, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    {
        QPainter painter(&image);
        paintWaveform(painter, QRectF(0, 0, 60, 20), {someId, false, false, 0.5f});
    }
    // The first bar's middle is painted green, the gap after it is not.
    EXPECT_GT(image.pixelColor(1, 10).green(), 100);
    EXPECT_EQ(image.pixelColor(2, 3), QColor(Qt::black));
}
