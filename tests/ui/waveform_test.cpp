#include "ui/timeline/audiowaveformview.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

using namespace kavel::ui;

namespace {
const QUuid someId = QUuid::fromString(QStringLiteral("{6f1d2c9a-93b4-4c1e-8a57-0d4b6e2f7a11}"));
}

TEST(Waveform, BarsAreThreePointsApartCenteredNeverFlatAndFixedPerParagraph)
{
    const WaveformGeometry g = waveformGeometry({someId, false, false, 1.0f}, 100.0, 30.0);
    ASSERT_EQ(g.bars.size(), 33);
    for (qsizetype i = 0; i < g.bars.size(); ++i) {
        const QRectF &bar = g.bars.at(i);
        EXPECT_EQ(bar.left(), i * 3.0);
        EXPECT_EQ(bar.width(), 2.0);
        EXPECT_NEAR(bar.center().y(), 15.0, 1e-9);
        EXPECT_LE(bar.height(), 30.0 * 0.85 + 1e-9);
    }
    // A strip too low for its pattern still shows 2-point bars.
    for (const QRectF &bar : waveformGeometry({someId}, 100.0, 1.0).bars)
        EXPECT_EQ(bar.height(), 2.0);
    EXPECT_TRUE(waveformGeometry({someId}, 2.9, 30.0).bars.isEmpty());

    // The pattern belongs to the paragraph: flags leave it alone, a height scales it, and
    // another paragraph looks different.
    EXPECT_EQ(waveformGeometry({someId, true, true, 0.2f}, 100.0, 30.0).bars, g.bars);
    const WaveformGeometry tall = waveformGeometry({someId}, 100.0, 60.0);
    for (qsizetype i = 0; i < g.bars.size(); ++i) {
        if (g.bars.at(i).height() > 2.0) {
            EXPECT_NEAR(tall.bars.at(i).height(), g.bars.at(i).height() * 2.0, 1e-9) << i;
        }
    }
    EXPECT_NE(waveformGeometry({QUuid::createUuid()}, 100.0, 30.0).bars, g.bars);
}

TEST(Waveform, VolumeLineStandsAtTheLevelAndMutedSoundIsDrawnApart)
{
    const auto overlay = [](bool muted, float volume) {
        return waveformGeometry({someId, false, muted, volume}, 60.0, 20.0).overlay;
    };
    EXPECT_EQ(overlay(false, 1.0f), QLineF(0, 0, 60, 0));
    EXPECT_EQ(overlay(false, 0.25f), QLineF(0, 15, 60, 15));
    EXPECT_EQ(overlay(false, 0.0f), QLineF(0, 20, 60, 20));
    EXPECT_EQ(overlay(true, 1.0f), QLineF(0, 10, 60, 10)) << "muted: a line through the middle";
    EXPECT_NE(waveformGeometry({someId, false, true, 1.0f}, 60.0, 20.0).barColor,
              waveformGeometry({someId, false, false, 1.0f}, 60.0, 20.0).barColor);

    QImage image(60, 20, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    {
        QPainter painter(&image);
        paintWaveform(painter, QRectF(0, 0, 60, 20), {someId, false, false, 0.5f});
    }
    // The first bar's middle is painted, the gap after it is not.
    EXPECT_GT(image.pixelColor(1, 10).green(), 100);
    EXPECT_EQ(image.pixelColor(2, 3), QColor(Qt::black));
}
