#include "media/mlt/mltplayer.h"
#include "mediafixture.h"
#include "model/jsonfields.h"
#include "playback/guideplayerviewmodel.h"
#include "playback/videoplayerviewmodel.h"
#include "support/transcriptbuilder.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

const QUuid videoId = QUuid::fromString(u"{11111111-0000-0000-0000-000000000001}"_s);
const QUuid secondId = QUuid::fromString(u"{22222222-0000-0000-0000-000000000002}"_s);

WordBlock word(double start, double end, QUuid source = videoId)
{
    return kavel::test::timedWord(start, end, 0, source);
}

// The preview model on the real engine and a real clock, playing through the consumer.
class Preview : public kavel::test::MediaFixture
{
protected:
    Preview()
        : model(engine(), clock)
    { }

    void load(const QList<PlaybackSource> &sources)
    {
        model.loadSources(sources);
        ASSERT_TRUE(QTest::qWaitFor([&] { return model.tracksLoaded(); }, 5000));
    }

    void push(QList<WordBlock> blocks)
    {
        for (qsizetype i = 0; i < blocks.size(); ++i)
            blocks[i].sortOrder = i;
        model.setWordBlocks(blocks);
        model.scheduleRebuild();
    }

    media::mlt::MltPlayer &player() { return static_cast<media::mlt::MltPlayer &>(model.player()); }

    SystemPlaybackClock clock;
    VideoPlayerViewModel model;
};

TEST_F(Preview, UnusableSourcesAreLeftOutWithTheirLogLines)
{
    const QUuid truncatedId = QUuid::createUuid(), notMediaId = QUuid::createUuid(),
                silentId = QUuid::createUuid();
    ::testing::internal::CaptureStdout();
    load({{notMediaId, QUrl::fromLocalFile(s_notMedia)},
          {silentId, QUrl::fromLocalFile(s_silentVideo)},
          {truncatedId, QUrl::fromLocalFile(s_truncated)},
          {secondId, QUrl::fromLocalFile(s_second)}});
    const QString log = QString::fromStdString(::testing::internal::GetCapturedStdout());
    EXPECT_TRUE(log.contains(u"[PlayerVM] Failed to load tracks for "_s
                             + json::uuidString(notMediaId) + u": "_s));
    EXPECT_TRUE(log.contains(u"[PlayerVM] No audio track for "_s + json::uuidString(silentId)
                             + u", skipping"_s));
    EXPECT_TRUE(log.contains(json::uuidString(truncatedId)));
    EXPECT_NEAR(model.sourceDuration(), 2.0, 0.05);

    // Blocks of every source still play, on the one usable source.
    push({word(0.2, 0.6, silentId), word(-1.0, 0.3, secondId), word(1.8, 9.0, secondId)});
    EXPECT_EQ(model.compositionMap().size(), 3);
    EXPECT_NEAR(model.duration(), 0.4 + 0.3 + 0.2, 1e-9);
}

TEST_F(Preview, PlaysAcrossCutsKeepsTheSourceMomentOnEditsAndStopsAtARangesEnd)
{
    load({{videoId, QUrl::fromLocalFile(s_video)}, {secondId, QUrl::fromLocalFile(s_second)}});
    const WordBlock a = word(0.2, 0.9), b = word(1.5, 2.4), c = word(0.5, 1.5, secondId),
                    d = word(3.0, 3.9);
    push({a, b, c, d});
    EXPECT_NEAR(model.duration(), 0.7 + 0.9 + 1.0 + 0.9, 1e-9);
    // Source 0.0 is in no word: the first build starts at the first word that follows.
    player().setVideoSize({64, 36});
    QSignalSpy frames(&player(), &media::mlt::MltPlayer::frameShown);
    ASSERT_TRUE(frames.wait(2000));
    EXPECT_EQ(model.currentTime(), 0.0);
    EXPECT_NEAR(frames.last().at(1).toDouble(), 0.0, 0.05);

    model.togglePlayPause();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.activeWordBlockId() == b.id; }, 4000))
        << "time " << model.currentTime();
    EXPECT_GT(player().framesShown(), 10);

    // Deleting the word before the play head keeps the same source moment playing.
    const double before = model.compositionTimeToSourceTime(model.currentTime());
    push({b, c, d});
    const double after = model.compositionTimeToSourceTime(player().currentTime());
    EXPECT_NEAR(after, before, 0.1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.activeWordBlockId() == c.id; }, 4000));
    EXPECT_TRUE(model.isPlaying());

    // A seek while playing shows its frame and plays on from there.
    model.seekToBlock(b);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.activeWordBlockId() == c.id; }, 4000));
    EXPECT_TRUE(model.isPlaying());
    model.pause();

    // A range stops at the end of its last word (b, 0.9 s in), never going into the next.
    bool finished = false;
    model.playRange(b.id, b.id, [&] { finished = true; });
    EXPECT_TRUE(model.isPlaying());
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, 4000));
    EXPECT_FALSE(model.isPlaying());
    EXPECT_NEAR(player().currentTime(), 0.9, 0.05);
    // Paused, a seek shows its frame: d starts at 1.9 s.
    model.seekToBlock(d);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return std::abs(player().currentTime() - 1.9) < 0.05; }, 2000));
}

TEST_F(Preview, WithoutWordsTheRawSourcePlaysWithItsOwnDurationAndSignalsAreLeftAlone)
{
    load({{secondId, QUrl::fromLocalFile(s_second)}});
    EXPECT_EQ(player().itemStatus(), media::ItemStatus::readyToPlay);
    ASSERT_TRUE(QTest::qWaitFor([&] { return std::abs(model.duration() - 2.0) < 0.05; }, 2000));
    EXPECT_TRUE(model.deletedTimeRanges().isEmpty());

    QSignalSpy frames(&player(), &media::mlt::MltPlayer::frameShown);
    const auto lastSize = [&] { return frames.last().at(0).value<QImage>().size(); };
    // Frames keep the picture's 16:9 in any box they are asked to fit, and are never
    // rendered bigger than the 160x90 picture itself: the view enlarges them.
    player().setVideoSize({64, 64});
    model.togglePlayPause();
    ASSERT_TRUE(frames.wait(3000));
    EXPECT_EQ(lastSize(), QSize(64, 36));
    player().setVideoSize({300, 100});
    ASSERT_TRUE(QTest::qWaitFor([&] { return lastSize() == QSize(160, 90); }, 3000));
    player().setVideoSize({1600, 1000});
    EXPECT_FALSE(QTest::qWaitFor([&] { return lastSize() != QSize(160, 90); }, 300));
    model.pause();
    // Frames already on their way still show.
    while (frames.wait(300)) { }

    // Paused, a new size shows the same moment again at once, without playing on.
    const double pausedAt = player().currentTime();
    frames.clear();
    player().setVideoSize({80, 80});
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return !frames.isEmpty() && lastSize() == QSize(80, 44); }, 2000));
    EXPECT_DOUBLE_EQ(frames.last().at(1).toDouble(), pausedAt);
    EXPECT_DOUBLE_EQ(player().currentTime(), pausedAt);

    // Playing started the sound output, which must not claim the termination signals:
    // SIGTERM and Ctrl+C still end the editor.
    for (const int signal : {SIGTERM, SIGINT}) {
        struct sigaction action = {};
        ASSERT_EQ(::sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL) << "signal " << signal;
    }
}

// Sound alone has no picture: its frames come as null images, for the view's placeholder.
// Without any sound output the preview still plays, silently and in real time.
TEST_F(Preview, SoundAlonePlaysWithoutPicturesAndWithoutSoundOutputOnTheClock)
{
    const QByteArray driver = qgetenv("SDL_AUDIODRIVER");
    qputenv("SDL_AUDIODRIVER", "kavel-no-such-output");
    ::testing::internal::CaptureStdout();
    load({{secondId, QUrl::fromLocalFile(s_tone)}});
    push({word(0.5, 3.5, secondId)});
    QSignalSpy frames(&player(), &media::mlt::MltPlayer::frameShown);
    player().setVideoSize({64, 36});
    QElapsedTimer wall;
    wall.start();
    model.togglePlayPause();
    const bool played = QTest::qWaitFor([&] { return model.currentTime() > 1.5; }, 5000);
    const qint64 elapsed = wall.elapsed();
    model.pause();
    const QString log = QString::fromStdString(::testing::internal::GetCapturedStdout());
    qputenv("SDL_AUDIODRIVER", driver);

    ASSERT_TRUE(played) << "time " << model.currentTime();
    EXPECT_GT(elapsed, 1200); // timed by the clock, not decoded as fast as possible
    EXPECT_EQ(log.count(u"[Player] Playing without sound: no sound output could be opened"_s), 1)
        << log.toStdString();
    ASSERT_FALSE(frames.isEmpty());
    for (const QList<QVariant> &frame : std::as_const(frames))
        EXPECT_TRUE(frame.at(0).value<QImage>().isNull());
}

using GuideLoop = kavel::test::MediaFixture;

// However the engine behaves at the end of the clip, the guide's video comes back to the
// beginning and plays on.
TEST_F(GuideLoop, TheDemonstrationStartsAgainAfterItsEnd)
{
    GuidePlayerViewModel guide(engine(), s_second, [](const QString &) {});
    ASSERT_TRUE(QTest::qWaitFor([&] { return guide.duration() > 0.0; }, 5000));
    EXPECT_NEAR(guide.duration(), 2.0, 0.05);

    guide.play();
    ASSERT_TRUE(QTest::qWaitFor([&] { return guide.currentTime() > 1.5; }, 8000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return guide.currentTime() < 0.5; }, 8000))
        << "time " << guide.currentTime();
    EXPECT_TRUE(guide.isPlaying());
    ASSERT_TRUE(QTest::qWaitFor([&] { return guide.currentTime() > 0.7; }, 8000))
        << "time " << guide.currentTime();
    guide.pause();
}

} // namespace
