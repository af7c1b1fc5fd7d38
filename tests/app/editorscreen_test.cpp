#include "app/framerouting.h"
#include "app/importcover.h"
#include "app/maineditorview.h"
#include "app/projecttitle.h"
#include "app/videoplayerview.h"
#include "generatedmedia.h"
#include "media/mlt/mltengine.h"
#include "model/projectmetadata.h"
#include "model/recoveryjournal.h"
#include "playback/playbackclock.h"
#include "playback/videoplayerviewmodel.h"
#include "support/testenvironment.h"
#include "ui/uifixture.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QSlider>
#include <QTemporaryDir>
#include <QToolButton>
#include <cmath>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

// Black and white pixels in turn: every pixel differs from its neighbours, so any blur or
// half-pixel shift shows.
QImage checkerboard(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y, (x + y) % 2 ? 0xffffffff : 0xff000000);
    return image;
}

// Peak signal-to-noise ratio of `a` against `b` (same size) over the three colours, in dB.
double psnr(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    double sum = 0.0;
    for (int row = 0; row < x.height(); ++row)
        for (int col = 0; col < x.width(); ++col) {
            const QRgb p = x.pixel(col, row), q = y.pixel(col, row);
            for (const int d : {qRed(p) - qRed(q), qGreen(p) - qGreen(q), qBlue(p) - qBlue(q)})
                sum += double(d) * d;
        }
    const double mse = sum / (3.0 * x.width() * x.height());
    return mse == 0.0 ? 100.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

class EditorScreenTest : public test::UiFixture
{
protected:
    std::unique_ptr<MainEditorView> view;

    void SetUp() override
    {
        QList<Paragraph> doc = test::transcript(
            {{u"嗯"_s, u"we"_s, u"go"_s, u"Go"_s}, {u"then"_s, u"呃"_s, u"stop"_s}});
        doc[0].wordBlocks[0].isFiller = true;
        doc[1].wordBlocks[1].isFiller = true;
        openParagraphs(doc);
        view = std::make_unique<MainEditorView>(vm);
    }

    QToolButton *tool(const QString &tooltip) const
    {
        QToolButton *button = view->toolButton(tooltip);
        EXPECT_NE(button, nullptr) << tooltip.toStdString();
        return button;
    }
};

TEST_F(EditorScreenTest, ToolbarButtonsReachTheEditorAndTheSearchBarStepsThroughMatches)
{
    const QString original = u"嗯 we go Go | then 呃 stop"_s, plain = u"we go Go | then stop"_s;
    const auto press = [&](const QString &tooltip, const QString &after) {
        tool(tooltip)->click();
        EXPECT_EQ(text(), after) << tooltip.toStdString();
    };
    EXPECT_FALSE(tool(u"撤销"_s)->isEnabled());
    EXPECT_TRUE(tool(u"重做"_s)->toolTip().contains(u"Ctrl+Y"_s));
    press(u"删除语气词"_s, plain);
    EXPECT_EQ(view->noticeLabel()->text(), u"已删除 2 个语气词"_s);
    press(u"删除语气词"_s, plain);
    EXPECT_EQ(view->noticeLabel()->text(), u"没有找到语气词"_s);
    EXPECT_FALSE(view->noticeLabel()->isHidden());
    press(u"撤销"_s, original);
    press(u"重做"_s, plain);
    press(u"撤销"_s, original);
    vm.selectRange(paragraph(0).id, 1, 3);
    press(u"拷贝"_s, original);
    EXPECT_EQ(QApplication::clipboard()->text(), u"we go"_s);
    QApplication::clipboard()->clear();
    press(u"剪切"_s, u"嗯 Go | then 呃 stop"_s);
    EXPECT_EQ(QApplication::clipboard()->text(), u"we go"_s);
    vm.setCursor(paragraph(1).id, 3);
    press(u"粘贴"_s, u"嗯 Go | then 呃 stop we go"_s);
    vm.selectRange(paragraph(1).id, 0, 1);
    press(u"删除 (Delete)"_s, u"嗯 Go | 呃 stop we go"_s);
    vm.setCursor(paragraph(1).id, 1);
    press(u"删除 (Delete)"_s, u"嗯 Go | 呃 we go"_s); // the word at the caret

    // Saving shows its confirmation for a while and takes the unsaved mark away.
    EXPECT_TRUE(view->savedIndicator()->isHidden());
    EXPECT_TRUE(view->projectTitle()->isModified());
    tool(u"保存"_s)->click();
    EXPECT_FALSE(view->projectTitle()->isModified());
    EXPECT_FALSE(view->savedIndicator()->isHidden());
    clock.advance(EditorViewModel::saveConfirmationSeconds + 0.1);
    EXPECT_TRUE(view->savedIndicator()->isHidden());

    // On a full disk nothing is confirmed: the failure is said, the edit stays unsaved and
    // its journal stays for the next attempt.
    {
        test::FullDisk full(dir.filePath(u"full"_s), u"256k"_s);
        auto onFull = KavelProject::create(u"Full"_s, full.path());
        onFull->setParagraphs(vm.paragraphs());
        onFull->saveTimeline();
        vm.openProject(onFull->bundleURL());
        vm.deleteParagraph(paragraph(0).id);
        clock.advance(EditorViewModel::journalDelaySeconds);
        const QString journal = journal::path(*vm.project());
        ASSERT_TRUE(QFileInfo::exists(journal));
        view->show();
        full.fill();
        full.whileFull([&] { tool(u"保存"_s)->click(); });
        EXPECT_TRUE(view->savedIndicator()->isHidden());
        EXPECT_TRUE(view->processingOverlay()->isVisible());
        const QString said = view->processingOverlay()->statusLabel()->text();
        EXPECT_TRUE(said.startsWith(u"保存失败："_s)
                    && (!full.isMounted() || said.contains(u"磁盘空间不足"_s)))
            << said.toStdString();
        EXPECT_TRUE(vm.hasUnsavedChanges());
        EXPECT_TRUE(view->projectTitle()->modifiedMark()->isVisible());
        EXPECT_TRUE(QFileInfo::exists(journal));
        view->processingOverlay()->dismissButton()->click();
        view->hide();
        vm.openProject(QUrl::fromLocalFile(dir.filePath(u"Widgets.kavel"_s)));
    }

    // Ctrl+F asks for the search bar: the field takes the cursor with its text selected,
    // each time it is asked again after the cursor went elsewhere.
    view->show();
    QApplication::setActiveWindow(view.get());
    ASSERT_TRUE(QTest::qWaitForWindowActive(view.get()));
    view->searchField()->setText(u"old"_s);
    for (int round = 0; round < 2; ++round) {
        view->exportButton()->setFocus();
        ASSERT_FALSE(vm.showSearchBar());
        vm.setShowSearchBar(true);
        EXPECT_EQ(QApplication::focusWidget(), view->searchField()) << round;
        EXPECT_EQ(view->searchField()->selectedText(), u"old"_s);
    }
    QTest::keyClick(view->searchField(), Qt::Key_Escape);
    EXPECT_NE(QApplication::focusWidget(), view->searchField());
    EXPECT_FALSE(vm.showSearchBar());

    // The counter follows the steps; with nothing found, there is nowhere to step.
    view->searchField()->setText(u"go"_s); // "Go" is found too
    EXPECT_EQ(view->searchCounter()->text(), u"1/2"_s);
    view->nextMatchButton()->click();
    EXPECT_EQ(view->searchCounter()->text(), u"2/2"_s);
    view->previousMatchButton()->click();
    EXPECT_EQ(view->searchCounter()->text(), u"1/2"_s);
    view->searchField()->setText(u"absent"_s);
    EXPECT_EQ(view->searchCounter()->text(), u"0/0"_s);
    EXPECT_FALSE(view->nextMatchButton()->isEnabled() || view->previousMatchButton()->isEnabled());
    // Emptied, or pasted whole with nothing found, the field says so either way.
    view->searchField()->clear();
    EXPECT_TRUE(view->searchCounter()->isHidden());
    view->searchField()->setText(u"absent"_s);
    EXPECT_EQ(std::pair(view->searchCounter()->isHidden(), view->searchCounter()->text()),
              std::pair(false, u"0/0"_s));

    // "保留停顿" starts on and whole; one step down is the longest limit, one up whole
    // again; a typed limit and the check box reach the project.
    auto *keep = view->findChild<QCheckBox *>();
    auto *limit = view->findChild<QDoubleSpinBox *>();
    ASSERT_TRUE(keep && limit);
    EXPECT_TRUE(keep->isChecked());
    EXPECT_EQ(limit->text(), u"完整"_s);
    limit->stepDown();
    EXPECT_EQ(limit->text(), u"2.0 秒"_s);
    EXPECT_EQ(vm.pauseLimit(), maxPauseLimit);
    limit->stepUp();
    EXPECT_EQ(vm.pauseLimit(), wholePauses);
    limit->findChild<QLineEdit *>()->setText(u"0.5 秒"_s);
    limit->interpretText();
    EXPECT_EQ(vm.pauseLimit(), 0.5);
    keep->click();
    EXPECT_EQ(vm.pauseLimit(), 0.0);
    EXPECT_FALSE(limit->isEnabled());
    // Switched on again, the limit it had comes back.
    keep->click();
    EXPECT_EQ(vm.pauseLimit(), 0.5);

    // Another project shows nothing of this one: no query, no count, its own pauses.
    vm.setPauseLimit(1.5);
    EXPECT_EQ(limit->value(), 1.5);
    view->searchField()->setText(u"go"_s);
    openTranscript({{u"other"_s}});
    EXPECT_EQ(view->searchField()->text(), QString());
    EXPECT_TRUE(view->searchCounter()->isHidden());
    EXPECT_EQ(std::pair(limit->text(), limit->isEnabled()), std::pair(u"完整"_s, true));
    // One opened with pauses off offers the default, whole, to switch on.
    vm.setPauseLimit(1.5);
    vm.setPauseLimit(0.0);
    vm.openProject(vm.project()->bundleURL());
    EXPECT_EQ(std::pair(limit->text(), keep->isChecked()), std::pair(u"完整"_s, false));
    keep->click();
    EXPECT_EQ(vm.pauseLimit(), wholePauses);
}

// The size the surface reports for frames is walked by the full-screen part below.
TEST(VideoSurface, LetterboxesTheLastFrameAndShowsAPlaceholderWithoutOne)
{
    VideoSurface surface;
    surface.resize(320, 180);
    surface.show();

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

    // Detail: a frame smaller than the surface is enlarged smoothly; one the size it is
    // shown at, or a pixel short of it (the engine renders even sizes), is drawn pixel for
    // pixel, not blurred by half a pixel or a stretch of one.
    surface.setRotationDegrees(0.0);
    const QImage checker = checkerboard({160, 90});
    surface.showFrame(checker);
    surface.resize(320, 180);
    EXPECT_EQ(surface.grab().toImage().convertToFormat(QImage::Format_RGB32),
              checker.scaled(320, 180, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    for (const QSize size : {QSize(160, 90), QSize(161, 91)}) {
        surface.resize(size);
        EXPECT_EQ(
            surface.grab().toImage().convertToFormat(QImage::Format_RGB32).copy(0, 0, 160, 90),
            checker)
            << size.width();
    }

    // Sound without a picture: the placeholder's bars on black, not the last picture.
    surface.resize(320, 180);
    surface.showFrame(QImage());
    const QSet<QRgb> placeholder = colours();
    EXPECT_TRUE(placeholder.contains(black) && placeholder.size() > 1);
    EXPECT_FALSE(placeholder.contains(white));
}

using PlayerViewTest = test::UiFixture;

TEST_F(PlayerViewTest, ControlsTheProgressBarAndFullScreenDriveThePreview)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s, u"f"_s, u"g"_s, u"h"_s}});
    VideoPlayerView view(vm.playerVM());
    VideoPlayerViewModel &player = vm.playerVM();
    test::FakePlayer *engineSide = engine.lastPlayer;
    for (int turn = 1; turn <= 4; ++turn) {
        view.rotateButton()->click();
        EXPECT_DOUBLE_EQ(player.videoRotationDegrees(), (turn % 4) * 90.0);
    }
    view.volumeSlider()->setValue(40);
    EXPECT_FLOAT_EQ(engineSide->volume(), 0.4f);
    const int fast = view.speedBox()->findData(1.5);
    view.speedBox()->setCurrentIndex(fast);
    Q_EMIT view.speedBox()->activated(fast);
    view.playButton()->click();
    EXPECT_TRUE(player.isPlaying());
    EXPECT_EQ(engineSide->rate(), 1.5);
    view.playButton()->click();
    EXPECT_FALSE(player.isPlaying());
    // A speed set elsewhere shows in the box, even one it does not offer.
    player.setPlaybackSpeed(3.0f);
    EXPECT_EQ(view.speedBox()->currentText(), u"3x"_s);

    VideoProgressBar *bar = view.progressBar();
    bar->resize(400 + 2 * VideoProgressBar::horizontalInset, VideoProgressBar::barHeight);
    const double duration = player.duration();
    ASSERT_GT(duration, 3.0);
    const auto point = [](int x) {
        return QPoint(VideoProgressBar::horizontalInset + x, VideoProgressBar::barHeight / 2);
    };
    const QList<double> &seeks = engineSide->seeks;
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
    // A frame that never comes holds the next seek back only for a moment; past the end of
    // the track the seek stops at the end, and a click where a drag ended seeks all the same.
    QTest::mouseMove(bar, point(320));
    QTest::mouseRelease(bar, Qt::LeftButton, {}, point(600));
    EXPECT_TRUE(QTest::qWaitFor([&] { return seeks.last() == duration; }, 2000));
    const qsizetype afterDrag = seeks.size();
    QTest::mouseClick(bar, Qt::LeftButton, {}, point(600));
    EXPECT_TRUE(QTest::qWaitFor([&] { return seeks.size() > afterDrag; }, 2000));
    // Deleted stretches of the recording are drawn in their place along the track.
    bar->setDuration(100.0);
    EXPECT_EQ(bar->rangeRect({10.0, 15.0}).translated(-VideoProgressBar::horizontalInset, 0),
              QRectF(40.0, 0.0, 20.0, VideoProgressBar::barHeight));

    // Full screen shows the same frames, asked for at the screen's size, until closed.
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
    EXPECT_TRUE(player.isPlaying());

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

namespace {

// The preview on the real engine. A 1280x720 recording of fine detail (a one-pixel
// checkerboard, small text) shown big, as full screen shows it: the picture must carry the
// recording's detail, not a small preview's frame blown up. The view grows while paused,
// which is when the old frame would stay on screen.
TEST(PlayerViewOnTheEngine, AGrownPreviewShowsTheRecordingsOwnDetail)
{
    QTemporaryDir dir;
    QImage source = checkerboard({1280, 720});
    {
        QPainter painter(&source);
        painter.fillRect(QRect(40, 40, 600, 60), Qt::black);
        painter.setPen(Qt::white);
        QFont small = painter.font();
        small.setPixelSize(11);
        painter.setFont(small);
        painter.drawText(QPoint(50, 70), u"00:00:01:17 small burnt-in time code 0123456789"_s);
    }
    const QString still = dir.filePath(u"detail.png"_s), movie = dir.filePath(u"detail.mp4"_s);
    ASSERT_TRUE(source.save(still));
    // Grey only and without loss, so the frames decode to the very pixels drawn.
    test::runFfmpeg(
        {u"-loop"_s, u"1"_s,        u"-framerate"_s, u"25"_s,      u"-i"_s,
         still,      u"-f"_s,       u"lavfi"_s,      u"-i"_s,      u"anullsrc=r=48000:cl=stereo"_s,
         u"-t"_s,    u"2"_s,        u"-c:v"_s,       u"libx264"_s, u"-qp"_s,
         u"0"_s,     u"-pix_fmt"_s, u"yuv420p"_s,    u"-c:a"_s,    u"aac"_s,
         movie});

    media::mlt::MltMediaEngine engine;
    SystemPlaybackClock clock;
    VideoPlayerViewModel player(engine, clock);
    VideoPlayerView view(player);
    routeFrames(player.player(), &view, &VideoPlayerView::frameSizeChanged, view.frameSize(),
                [&view](const QImage &frame) { view.showFrame(frame); });
    view.resize(480, 360);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    player.loadSources({{QUuid::createUuid(), QUrl::fromLocalFile(movie)}});
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.tracksLoaded(); }, 5000));
    player.seek(0.5);
    const auto shown = [&] { return view.surface()->frame().size(); };
    ASSERT_TRUE(QTest::qWaitFor([&] { return !shown().isEmpty(); }, 5000));
    // The small preview stays cheap: frames come at its size, not the recording's.
    EXPECT_EQ(shown(), QSize(480, 270));

    // Grown past the recording's size: frames come at the recording's own size (the engine
    // adds no detail by enlarging) and the view enlarges them.
    const int controls = view.height() - view.surface()->height();
    view.resize(1600, 1000 + controls);
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown() == QSize(1280, 720); }, 5000))
        << shown().width();
    EXPECT_FALSE(player.isPlaying());
    const QSize fitted(1600, 900);
    const QRect picture(QPoint((view.surface()->width() - fitted.width()) / 2,
                               (view.surface()->height() - fitted.height()) / 2),
                        fitted);
    const QImage grabbed = view.surface()->grab().toImage().copy(picture);
    const QImage expected = source.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    EXPECT_GE(psnr(grabbed, expected), 30.0);
}

} // namespace
