#include "timing/pauses.h"
#include "ui/timeline/audiowaveformview.h"
#include "ui/timeline/pinchzoomdetector.h"
#include "ui/timeline/timelinecanvas.h"
#include "ui/timeline/timelinescale.h"
#include "ui/timeline/timelineview.h"
#include "ui/timeline/trackheader.h"
#include "uifixture.h"

#include <QGestureEvent>
#include <QImage>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPinchGesture>
#include <QPointingDevice>
#include <QScrollArea>
#include <QScrollBar>
#include <QToolButton>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;

namespace {

const QUuid someId = QUuid::fromString(QStringLiteral("{6f1d2c9a-93b4-4c1e-8a57-0d4b6e2f7a11}"));

// The ticks as the ruler shows them: major ones by their label, minor ones by their time.
QString ruler(const QList<RulerTick> &ticks)
{
    QStringList shown;
    for (const RulerTick &tick : ticks)
        shown.append(tick.major ? tick.label : QString::number(tick.time));
    return shown.join(u' ');
}

// Counts the wheel events that get past the application's filters to one widget.
class WheelCounter : public QObject
{
public:
    int count = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Wheel)
            ++count;
        return false;
    }
};

class TimelineTest : public test::UiFixture
{
protected:
    TimelineView *timeline = nullptr;

    void SetUp() override
    {
        // Paragraph durations (0.4 s per word): 1.2 s, 0.8 s, 1.6 s.
        openTranscript(
            {{u"a"_s, u"b"_s, u"c"_s}, {u"d"_s, u"e"_s}, {u"f"_s, u"g"_s, u"h"_s, u"i"_s}});
        timeline = showAlone(new TimelineView(vm, &window), {700, 220});
    }

    TimelineCanvas *canvas() const { return timeline->canvas(); }

    void wheel(QPoint delta, Qt::KeyboardModifiers modifiers)
    {
        const QPointF pos(40, 60);
        QWheelEvent event(pos, canvas()->mapToGlobal(pos), QPoint(), delta, Qt::NoButton, modifiers,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(canvas(), &event);
    }

    void mouse(QEvent::Type type, QPointF pos, Qt::MouseButtons buttons)
    {
        test::sendMouse(canvas(), type, pos, buttons);
    }
};

} // namespace

TEST(TimelineScale, RulerTicksFollowTheScale)
{
    // Below 100 points per second a tick every 5 s, from 100 on every second, below 40 every
    // 10 s; every other tick is labelled. Only the visible stretch is drawn.
    const std::tuple<double, double, double, double, QString> rulers[] = {
        {99.0, 65.0, 0.0, 1e9, u"0s 5 10s 15 20s 25 30s 35 40s 45 50s 55 1:00 65"_s},
        {100.0, 5.0, 0.0, 1e9, u"0s 1 2s 3 4s 5"_s},
        {39.0, 35.0, 0.0, 1e9, u"0s 10 20s 30"_s},
        {100.0, 600.0, 250.0, 520.0, u"3 4s 5"_s},
        {100.0, 0.0, 0.0, 1e9, QString()}, // media without length
    };
    for (const auto &[scale, duration, from, to, shown] : rulers)
        EXPECT_EQ(ruler(rulerTicks(scale, duration, from, to)), shown) << scale;
    EXPECT_DOUBLE_EQ(rulerTicks(99.0, 65.0, 0.0, 1e9).at(3).x, 15.0 * 99.0);
    EXPECT_EQ(rulerLabel(605.0), u"10:05"_s);
}

TEST_F(TimelineTest, ButtonsPinchesAndControlWheelZoom)
{
    const auto factor = [&](const std::function<void()> &zoom) {
        const double before = timeline->pixelsPerSecond();
        zoom();
        return timeline->pixelsPerSecond() / before;
    };
    timeline->setPixelsPerSecond(100.0);
    WheelCounter counter;
    canvas()->installEventFilter(&counter);
    EXPECT_DOUBLE_EQ(factor([&] { timeline->zoomInButton()->click(); }), 1.1);
    EXPECT_DOUBLE_EQ(factor([&] { timeline->zoomOutButton()->click(); }), 0.9);
    EXPECT_DOUBLE_EQ(factor([&] { wheel({0, 120}, Qt::ControlModifier); }), 1.1);
    // One step per event however far it goes, none for half a notch; all are consumed.
    EXPECT_DOUBLE_EQ(factor([&] { wheel({0, -360}, Qt::ControlModifier); }), 0.9);
    EXPECT_DOUBLE_EQ(factor([&] { wheel({0, 60}, Qt::ControlModifier); }), 1.0);
    EXPECT_EQ(counter.count, 0);
    // Without Ctrl the wheel is left to the timeline.
    EXPECT_DOUBLE_EQ(factor([&] { wheel({0, 120}, {}); }), 1.0);
    EXPECT_EQ(counter.count, 1);

    // A pinch arrives at the window, which hands it to the widget under the fingers; a
    // touchpad without native gestures delivers Qt's own pinch gesture instead.
    const QPointF inside = timeline->zoomDetector()->mapTo(&window, QPointF(40, 60));
    QNativeGestureEvent pinch(Qt::ZoomNativeGesture, QPointingDevice::primaryPointingDevice(), 2,
                              inside, inside, window.mapToGlobal(inside), 0.05, QPointF(), 0);
    EXPECT_DOUBLE_EQ(factor([&] { QApplication::sendEvent(window.windowHandle(), &pinch); }), 1.04);
    QPinchGesture gesture;
    gesture.setChangeFlags(QPinchGesture::ScaleFactorChanged);
    gesture.setScaleFactor(0.975);
    gesture.setHotSpot(canvas()->mapToGlobal(QPointF(40, 60)));
    QGestureEvent gestureEvent({&gesture});
    EXPECT_DOUBLE_EQ(
        factor([&] { QApplication::sendEvent(timeline->scrollArea(), &gestureEvent); }), 0.98);

    // The scale stops at its ends, also when a step would pass them.
    timeline->setPixelsPerSecond(minPixelsPerSecond + 1.0);
    timeline->zoomOutButton()->click();
    EXPECT_EQ(timeline->pixelsPerSecond(), minPixelsPerSecond);
    timeline->setPixelsPerSecond(maxPixelsPerSecond);
    timeline->zoomInButton()->click();
    EXPECT_EQ(timeline->pixelsPerSecond(), maxPixelsPerSecond);
}

TEST_F(TimelineTest, ClipsMatchTheirParagraphsTheRulerSeeksAndDraggingReordersUnlessLocked)
{
    const double durations[] = {1.2, 0.8, 1.6};
    for (const double scale : {250.0, 100.0}) {
        timeline->setPixelsPerSecond(scale);
        double x = TimelineCanvas::leadingSpace;
        for (qsizetype i = 0; i < 3; ++i) {
            const double width = durations[i] * scale;
            for (TrackType track : {TrackType::video, TrackType::audio}) {
                EXPECT_NEAR(canvas()->clipRect(track, i).left(), x, 1e-9);
                EXPECT_NEAR(canvas()->clipRect(track, i).width(), width, 1e-9);
            }
            x += width;
        }
    }
    EXPECT_EQ(canvas()->paragraphAtX(canvas()->timeToX(1.3)), 1);

    // 1.5 s into the edit is inside "d" (1.2 s to 1.6 s).
    mouse(QEvent::MouseButtonPress, QPointF(150.0, 5.0), Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, QPointF(150.0, 5.0), Qt::NoButton);
    EXPECT_NEAR(engine.lastPlayer->seeks.last(), 1.2, 1e-9);

    // Far along the timeline the view scrolls to the play head.
    timeline->setPixelsPerSecond(500.0);
    vm.playerVM().setCurrentTime(2.0);
    QScrollBar *bar = timeline->scrollArea()->horizontalScrollBar();
    const double x = canvas()->playheadX();
    EXPECT_GT(bar->value(), 0);
    EXPECT_GE(x, bar->value());
    EXPECT_LE(x, bar->value() + timeline->scrollArea()->viewport()->width());

    // A zoom keeps the play head where it stood on screen.
    const double onScreen = x - bar->value();
    timeline->applyZoom(-1.0);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return std::abs(canvas()->playheadX() - bar->value() - onScreen) <= 1.0; }));

    // Dragging a clip reorders the paragraphs live.
    timeline->setPixelsPerSecond(100.0);
    const QUuid first = paragraph(0).id;
    auto centre
        = [&](TrackType track, qsizetype i) { return canvas()->clipRect(track, i).center(); };

    mouse(QEvent::MouseButtonPress, centre(TrackType::video, 0), Qt::LeftButton);
    mouse(QEvent::MouseMove, centre(TrackType::video, 0) + QPointF(10, 0), Qt::LeftButton);
    EXPECT_EQ(canvas()->draggedParagraphId(), first);
    EXPECT_EQ(text(), u"a b c | d e | f g h i"_s);
    mouse(QEvent::MouseMove, centre(TrackType::video, 2), Qt::LeftButton);
    EXPECT_EQ(text(), u"d e | f g h i | a b c"_s);
    mouse(QEvent::MouseButtonRelease, centre(TrackType::video, 2), Qt::NoButton);
    EXPECT_EQ(canvas()->draggedParagraphId(), std::nullopt);
    // The whole drag is one step to undo.
    vm.undoManager().undo();
    EXPECT_EQ(text(), u"a b c | d e | f g h i"_s);
    EXPECT_FALSE(vm.undoManager().canUndo());
    vm.undoManager().redo();
    EXPECT_EQ(text(), u"d e | f g h i | a b c"_s);

    // The headers' toggles set the track flags and show them when set elsewhere.
    timeline->audioHeader()->lockToggle()->click();
    timeline->videoHeader()->muteToggle()->click();
    timeline->audioHeader()->muteToggle()->click();
    EXPECT_TRUE(vm.isAudioTrackLocked() && vm.isVideoTrackMuted() && vm.isAudioTrackMuted());
    EXPECT_FALSE(vm.isVideoTrackLocked());
    vm.setIsVideoTrackLocked(true);
    EXPECT_TRUE(timeline->videoHeader()->lockToggle()->isChecked());

    mouse(QEvent::MouseButtonPress, centre(TrackType::audio, 0), Qt::LeftButton);
    mouse(QEvent::MouseMove, centre(TrackType::audio, 2), Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, centre(TrackType::audio, 2), Qt::NoButton);
    EXPECT_EQ(text(), u"d e | f g h i | a b c"_s);

    // Pauses of 0.6 s and 1.6 s in the recording: the clips hold what the player keeps of
    // them, so the last one ends where the player's duration says, whole or limited.
    QList<Paragraph> spoken {
        {{}, {test::timedWord(0.0, 0.4, 0), test::timedWord(1.0, 1.4, 1)}, 0, {}},
        {{}, {test::timedWord(3.0, 3.5, 0)}, 1, {}}};
    recordPauses(spoken);
    projectTitle = u"Pauses"_s;
    openParagraphs(spoken);
    const struct
    {
        double limit;
        double firstEnd;
        double duration;
    } kept[] = {{wholePauses, 2.2, 3.5}, {0.4, 1.4, 2.1}, {0.0, 0.8, 1.3}};
    for (const auto &k : kept) {
        vm.setPauseLimit(k.limit);
        clock.advance(VideoPlayerViewModel::rebuildDelay);
        EXPECT_DOUBLE_EQ(vm.playerVM().duration(), k.duration) << k.limit;
        EXPECT_NEAR(canvas()->clipRect(TrackType::video, 0).right(), canvas()->timeToX(k.firstEnd),
                    1e-9)
            << k.limit;
        EXPECT_NEAR(canvas()->clipRect(TrackType::audio, 1).right(), canvas()->timeToX(k.duration),
                    1e-9)
            << k.limit;
    }
}

// At every zoom step the play head at 0 shows whole with the "0s" label readable beside
// it, the ruler and tracks reach the view's right edge, and the scroll bar, when there
// is one, lies below the tracks.
TEST_F(TimelineTest, EveryZoomStepKeepsTheStartLabelTheRulerAndTheScrollBarInPlace)
{
    const auto isRed = [](QRgb p) { return qRed(p) > 200 && qGreen(p) < 120; };
    const auto isLabel = [](QRgb p) { return qGray(p) > 90 && qRed(p) - qBlue(p) < 40; };
    QScrollArea *area = timeline->scrollArea();
    const int x0 = int(canvas()->timeToX(0.0)), half = int(TimelineCanvas::playheadKnobHalfWidth);
    for (double scale = minPixelsPerSecond; scale < maxPixelsPerSecond;
         scale = zoomedPixelsPerSecond(scale, 1.0)) {
        timeline->setPixelsPerSecond(scale);
        area->horizontalScrollBar()->setValue(0);
        QCoreApplication::processEvents();
        const QImage ruler = canvas()->grab(QRect(0, 0, 40, TimelineCanvas::rulerHeight)).toImage();
        EXPECT_TRUE(isRed(ruler.pixel(x0 - half + 1, 4)) && isRed(ruler.pixel(x0 + half - 1, 4)))
            << scale;
        int labelPixels = 0;
        for (int x = x0 + half + 1; x < ruler.width(); ++x)
            for (int y = 0; y < TimelineCanvas::rulerHeight - 10; ++y)
                labelPixels += isLabel(ruler.pixel(x, y));
        EXPECT_GT(labelPixels, 3) << scale;

        // The scroll bar lies outside the viewport, so tracks inside it are above the bar.
        EXPECT_GE(canvas()->width(), area->viewport()->width()) << scale;
        const int tracksEnd
            = canvas()
                  ->mapTo(area, QPoint(0, int(canvas()->trackRect(TrackType::audio).bottom())))
                  .y();
        EXPECT_LE(tracksEnd, area->viewport()->height()) << scale;
    }
}

// The bars are a pattern of the paragraph's own, not its sound: only the volume line and
// the colour tell its level and whether it is muted.
TEST(Waveform, VolumeLineStandsAtTheLevelAndMutedSoundIsDrawnApart)
{
    const WaveformGeometry g = waveformGeometry({someId, false, false, 1.0f}, 100.0, 30.0);
    for (const QRectF &bar : g.bars)
        EXPECT_NEAR(bar.center().y(), 15.0, 1e-9);
    EXPECT_EQ(waveformGeometry({someId, true, true, 0.2f}, 100.0, 30.0).bars, g.bars);
    EXPECT_NE(waveformGeometry({QUuid::createUuid()}, 100.0, 30.0).bars, g.bars);
    for (const QRectF &bar : waveformGeometry({someId}, 100.0, 1.0).bars)
        EXPECT_EQ(bar.height(), 2.0) << "a strip too low for its pattern still shows bars";

    // Muted, the line runs through the middle.
    const std::tuple<bool, float, qreal> volumeLines[]
        = {{false, 1.0f, 0.0}, {false, 0.25f, 15.0}, {false, 0.0f, 20.0}, {true, 1.0f, 10.0}};
    for (const auto &[muted, volume, y] : volumeLines)
        EXPECT_EQ(waveformGeometry({someId, false, muted, volume}, 60.0, 20.0).overlay,
                  QLineF(0, y, 60, y))
            << volume;
    EXPECT_NE(waveformGeometry({someId, false, true, 1.0f}, 60.0, 20.0).barColor,
              waveformGeometry({someId, false, false, 1.0f}, 60.0, 20.0).barColor);

    // The first bar's middle is painted, the gap after it is not.
    QImage image(60, 20, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    QPainter painter(&image);
    paintWaveform(painter, QRectF(0, 0, 60, 20), {someId, false, false, 0.5f});
    painter.end();
    EXPECT_GT(image.pixelColor(1, 10).green(), 100);
    EXPECT_EQ(image.pixelColor(2, 3), QColor(Qt::black));
}
