#include "app/videoplayerview.h"
#include "ui/uifixture.h"

#include <QComboBox>
#include <QLabel>
#include <QScreen>
#include <QSignalSpy>
#include <QSlider>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

TEST(PlayerTime, ShowsMinutesUnderAnHourAndHoursAfter)
{
    const std::pair<double, QString> cases[] = {
        {59.9, u"00:59"_s}, {3599.99, u"59:59"_s}, {3600.0, u"1:00:00"_s}, {3725.0, u"1:02:05"_s}};
    for (const auto &[seconds, shown] : cases)
        EXPECT_EQ(playerTimeText(seconds), shown) << seconds;
}

// A 500-point track inside the insets, over 100 s: every step of the pointer seeks.
TEST(ProgressBar, PlacesDeletedRangesAndSeeksOnPressAndEveryDragStepWithinItsEnds)
{
    VideoProgressBar bar;
    bar.resize(500 + 2 * VideoProgressBar::horizontalInset, VideoProgressBar::barHeight);
    bar.setDuration(100.0);
    QList<double> seeks;
    bar.setOnSeek([&seeks](double t) { seeks.append(t); });
    const auto at = [](double x) {
        return QPoint(int(VideoProgressBar::horizontalInset + x), VideoProgressBar::barHeight / 2);
    };
    const QRectF r = bar.rangeRect({10.0, 15.0});
    EXPECT_DOUBLE_EQ(r.x() - VideoProgressBar::horizontalInset, 50.0);
    EXPECT_DOUBLE_EQ(r.width(), 25.0);

    QTest::mousePress(&bar, Qt::LeftButton, {}, at(250));
    for (const double x : {300.0, 300.0, 700.0}) { // the same point twice is one step
        QMouseEvent move(QEvent::MouseMove, QPointF(at(x)), bar.mapToGlobal(QPointF(at(x))),
                         Qt::NoButton, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&bar, &move);
    }
    QTest::mouseRelease(&bar, Qt::LeftButton, {}, at(-40));
    EXPECT_EQ(seeks, QList<double>({50.0, 60.0, 100.0, 0.0}));
    // A click where the last drag ended seeks all the same.
    QTest::mouseClick(&bar, Qt::LeftButton, {}, at(0));
    EXPECT_EQ(seeks.size(), 5);
}

using PlayerViewTest = test::UiFixture;

TEST_F(PlayerViewTest, ControlsAndTheProgressBarDriveThePreview)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s, u"f"_s, u"g"_s, u"h"_s}});
    VideoPlayerView view(vm.playerVM());
    VideoPlayerViewModel &player = vm.playerVM();
    for (int turn = 1; turn <= 4; ++turn) {
        view.rotateButton()->click();
        EXPECT_DOUBLE_EQ(player.videoRotationDegrees(), (turn % 4) * 90.0);
    }
    view.volumeSlider()->setValue(40);
    EXPECT_FLOAT_EQ(player.volume(), 0.4f);
    const int fast = view.speedBox()->findData(1.5);
    ASSERT_GE(fast, 0);
    view.speedBox()->setCurrentIndex(fast);
    Q_EMIT view.speedBox()->activated(fast);
    EXPECT_FLOAT_EQ(player.playbackSpeed(), 1.5f);
    // A speed set elsewhere shows in the box, even one it does not offer.
    player.setPlaybackSpeed(3.0f);
    EXPECT_EQ(view.speedBox()->currentText(), u"3x"_s);
    view.playButton()->click();
    EXPECT_TRUE(player.isPlaying());
    view.playButton()->click();
    EXPECT_FALSE(player.isPlaying());

    VideoProgressBar *bar = view.progressBar();
    bar->resize(400 + 2 * VideoProgressBar::horizontalInset, VideoProgressBar::barHeight);
    const double duration = player.duration();
    ASSERT_GT(duration, 3.0);
    const auto point = [](int x) {
        return QPoint(VideoProgressBar::horizontalInset + x, VideoProgressBar::barHeight / 2);
    };
    const QList<double> &seeks = engine.lastPlayer->seeks;
    QTest::mouseClick(bar, Qt::LeftButton, {}, point(300));
    EXPECT_DOUBLE_EQ(seeks.last(), duration * 0.75);
    EXPECT_EQ(view.timeLabel()->text(), u"00:02 / 00:03"_s);

    // Dragging on: one seek is out until its frame shows; then the latest position goes.
    const qsizetype before = seeks.size();
    QTest::mousePress(bar, Qt::LeftButton, {}, point(100));
    QTest::mouseMove(bar, point(240));
    EXPECT_EQ(seeks.size(), before);
    view.showFrame(QImage(16, 9, QImage::Format_RGB32));
    ASSERT_EQ(seeks.size(), before + 1);
    EXPECT_DOUBLE_EQ(seeks.last(), duration * 0.6);
    // A frame that never comes holds the next seek back only for a moment.
    QTest::mouseRelease(bar, Qt::LeftButton, {}, point(320));
    EXPECT_TRUE(QTest::qWaitFor([&] { return seeks.last() == duration * 0.8; }, 2000));
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

    const auto colours = [&surface] {
        const QImage shot = surface.grab().toImage();
        QSet<QRgb> seen;
        for (int x = 0; x < shot.width(); x += 4)
            seen.insert(shot.pixel(x, shot.height() / 3 + 8));
        return seen;
    };
    const QRgb black = QColor(Qt::black).rgb(), white = QColor(Qt::white).rgb();
    EXPECT_EQ(colours(), QSet<QRgb> {black}); // nothing shown yet

    // Letterboxed exactly: a 16:9 frame on a 16:9 surface fills it; turned a quarter,
    // the picture is pillarboxed.
    QImage frame(64, 36, QImage::Format_RGB32);
    frame.fill(Qt::white);
    surface.showFrame(frame);
    EXPECT_EQ(colours(), QSet<QRgb> {white});
    surface.setRotationDegrees(90.0);
    const QImage turned = surface.grab().toImage();
    EXPECT_EQ(turned.pixel(2, turned.height() / 2), black);

    // Sound without a picture: the placeholder's bars on black, not the last picture.
    surface.showFrame(QImage());
    const QSet<QRgb> placeholder = colours();
    EXPECT_TRUE(placeholder.contains(black));
    EXPECT_GT(placeholder.size(), 1);
    EXPECT_FALSE(placeholder.contains(white));
}

TEST_F(PlayerViewTest, FullScreenShowsTheSameFramesAtTheScreensSizeUntilClosed)
{
    openTranscript({{u"a"_s, u"b"_s}});
    VideoPlayerView view(vm.playerVM());
    view.resize(480, 360);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    QSignalSpy frameSizes(&view, &VideoPlayerView::frameSizeChanged);
    const QSize inWindow = view.frameSize();
    QImage frame(32, 18, QImage::Format_RGB32);
    frame.fill(Qt::green);
    view.showFrame(frame);

    view.fullscreenButton()->click();
    FullscreenVideoWindow *fullscreen = view.fullscreenWindow();
    ASSERT_TRUE(fullscreen && QTest::qWaitForWindowExposed(fullscreen));
    // The engine is asked for frames as big as the screen, not the small surface's.
    ASSERT_TRUE(QTest::qWaitFor([&] { return !frameSizes.isEmpty(); }));
    EXPECT_EQ(frameSizes.last().first().toSize(),
              view.screen()->size() * fullscreen->devicePixelRatioF());
    EXPECT_EQ(fullscreen->surface()->frame(), frame); // the last frame, before the next arrives
    frame.fill(Qt::blue);
    view.showFrame(frame);
    EXPECT_EQ(fullscreen->surface()->frame(), frame);
    QTest::keyClick(fullscreen, Qt::Key_Space);
    EXPECT_TRUE(vm.playerVM().isPlaying());

    fullscreen->closeButton()->click();
    EXPECT_FALSE(view.isFullscreen());
    EXPECT_EQ(frameSizes.last().first().toSize(), inWindow);

    // A double click on the video opens it too, and Escape closes it.
    QTest::mouseDClick(view.surface(), Qt::LeftButton);
    ASSERT_TRUE(view.isFullscreen());
    QTest::keyClick(view.fullscreenWindow(), Qt::Key_Escape);
    EXPECT_FALSE(view.isFullscreen());
}

} // namespace
