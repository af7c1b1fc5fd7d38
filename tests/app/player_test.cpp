#include "app/videoplayerview.h"
#include "ui/uifixture.h"

#include <QComboBox>
#include <QLabel>
#include <QSlider>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

TEST(PlayerTime, ShowsMinutesUnderAnHourAndHoursAfter)
{
    EXPECT_EQ(playerTimeText(0.0), u"00:00"_s);
    EXPECT_EQ(playerTimeText(59.9), u"00:59"_s);
    EXPECT_EQ(playerTimeText(3599.99), u"59:59"_s);
    EXPECT_EQ(playerTimeText(3600.0), u"1:00:00"_s);
    EXPECT_EQ(playerTimeText(3725.0), u"1:02:05"_s);
}

class ProgressBarTest : public ::testing::Test
{
protected:
    VideoProgressBar bar;
    QList<double> seeks;

    void SetUp() override
    {
        // A 500-point track inside the insets.
        bar.resize(500 + 2 * VideoProgressBar::horizontalInset, VideoProgressBar::barHeight);
        bar.setDuration(100.0);
        bar.setOnSeek([this](double t) { seeks.append(t); });
    }

    QPoint at(double trackX) const
    {
        return {int(VideoProgressBar::horizontalInset + trackX), VideoProgressBar::barHeight / 2};
    }
};

TEST_F(ProgressBarTest, PlacesDeletedRangesByTheDuration)
{
    const QRectF r = bar.rangeRect({10.0, 15.0});
    EXPECT_DOUBLE_EQ(r.x() - VideoProgressBar::horizontalInset, 50.0);
    EXPECT_DOUBLE_EQ(r.width(), 25.0);
    bar.setDuration(0.0);
    EXPECT_TRUE(bar.rangeRect({10.0, 15.0}).isNull());
}

TEST_F(ProgressBarTest, DraggingClampsToTheEndsAndSeeksOnRelease)
{
    QTest::mousePress(&bar, Qt::LeftButton, {}, at(250));
    EXPECT_TRUE(bar.isDragging());
    EXPECT_DOUBLE_EQ(bar.dragTime(), 50.0);

    QMouseEvent past(QEvent::MouseMove, QPointF(at(700)), bar.mapToGlobal(QPointF(at(700))),
                     Qt::NoButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&bar, &past);
    EXPECT_DOUBLE_EQ(bar.dragTime(), 100.0);
    EXPECT_TRUE(seeks.isEmpty());

    QTest::mouseRelease(&bar, Qt::LeftButton, {}, at(-40));
    EXPECT_FALSE(bar.isDragging());
    EXPECT_DOUBLE_EQ(bar.dragTime(), 0.0);
    EXPECT_EQ(seeks, QList<double>({0.0}));
}

class PlayerViewTest : public test::UiFixture
{
};

TEST_F(PlayerViewTest, ControlsDriveThePreview)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}});
    VideoPlayerView view(vm.playerVM());
    VideoPlayerViewModel &player = vm.playerVM();

    for (int turn = 1; turn <= 4; ++turn) {
        view.rotateButton()->click();
        EXPECT_DOUBLE_EQ(player.videoRotationDegrees(), (turn % 4) * 90.0);
    }

    EXPECT_FALSE(player.isPlaying());
    view.playButton()->click();
    EXPECT_TRUE(player.isPlaying());
    EXPECT_EQ(view.playButton()->toolTip(), u"暂停"_s);
    view.playButton()->click();
    EXPECT_FALSE(player.isPlaying());
    EXPECT_EQ(view.playButton()->toolTip(), u"播放"_s);

    view.volumeSlider()->setValue(40);
    EXPECT_FLOAT_EQ(player.volume(), 0.4f);

    const int fast = view.speedBox()->findData(1.5);
    ASSERT_GE(fast, 0);
    view.speedBox()->setCurrentIndex(fast);
    Q_EMIT view.speedBox()->activated(fast);
    EXPECT_FLOAT_EQ(player.playbackSpeed(), 1.5f);

    // A speed set elsewhere shows in the box, even one it does not offer.
    player.setPlaybackSpeed(0.75f);
    EXPECT_EQ(view.speedBox()->currentText(), u"0.75x"_s);
    player.setPlaybackSpeed(3.0f);
    EXPECT_EQ(view.speedBox()->currentText(), u"3x"_s);
}

TEST_F(PlayerViewTest, TimeLabelFollowsTheModel)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s, u"f"_s, u"g"_s, u"h"_s}});
    VideoPlayerView view(vm.playerVM());
    vm.playerVM().setCurrentTime(2.5);
    EXPECT_EQ(view.timeLabel()->text(), u"00:02 / 00:03"_s);
}

TEST(VideoSurface, KeepsTheLastFrameAndReportsItsSize)
{
    VideoSurface surface;
    QList<QSize> sizes;
    QObject::connect(&surface, &VideoSurface::sizeChanged, &surface,
                     [&sizes](QSize s) { sizes.append(s); });
    surface.resize(320, 180);
    surface.show();
    QCoreApplication::processEvents();
    ASSERT_FALSE(sizes.isEmpty());
    EXPECT_EQ(sizes.last(), QSize(320, 180) * surface.devicePixelRatioF());

    QImage frame(64, 36, QImage::Format_RGB32);
    frame.fill(Qt::white);
    surface.showFrame(frame);
    const QImage shot = surface.grab().toImage();
    // Letterboxed exactly: a 16:9 frame on a 16:9 surface fills it.
    EXPECT_EQ(QColor(shot.pixel(shot.width() / 2, shot.height() / 2)), QColor(Qt::white));
    surface.setRotationDegrees(90.0);
    const QImage turned = surface.grab().toImage();
    // Turned a quarter, the picture is pillarboxed: the left edge is black.
    EXPECT_EQ(QColor(turned.pixel(2, turned.height() / 2)), QColor(Qt::black));
}

} // namespace

namespace {

TEST_F(PlayerViewTest, FullScreenShowsTheSameFramesUntilClosed)
{
    openTranscript({{u"a"_s, u"b"_s}});
    VideoPlayerView view(vm.playerVM());
    QImage frame(32, 18, QImage::Format_RGB32);
    frame.fill(Qt::green);
    view.showFrame(frame);
    EXPECT_EQ(view.fullscreenButton()->toolTip(), u"全屏 (双击视频)"_s);

    view.fullscreenButton()->click();
    ASSERT_TRUE(view.isFullscreen());
    FullscreenVideoWindow *fullscreen = view.fullscreenWindow();
    EXPECT_EQ(fullscreen->surface()->frame(), frame); // the last frame, before the next arrives
    frame.fill(Qt::blue);
    view.showFrame(frame);
    EXPECT_EQ(fullscreen->surface()->frame(), frame);

    fullscreen->closeButton()->click();
    EXPECT_FALSE(view.isFullscreen());

    // A double click on the video opens it too, and Escape closes it.
    QTest::mouseDClick(view.surface(), Qt::LeftButton);
    ASSERT_TRUE(view.isFullscreen());
    QTest::keyClick(view.fullscreenWindow(), Qt::Key_Escape);
    EXPECT_FALSE(view.isFullscreen());
}

} // namespace
