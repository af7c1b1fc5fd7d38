#include "media/mlt/mltplayer.h"
#include "mediafixture.h"
#include "model/jsonfields.h"
#include "playback/guideplayerviewmodel.h"
#include "playback/videoplayerviewmodel.h"
#include "support/transcriptbuilder.h"

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
    const QUuid truncatedId = QUuid::createUuid(), notMediaId = QUuid::createUuid();
    const QUuid silentId = QUuid::createUuid();
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

TEST_F(Preview, PlaysAcrossCutsPublishesTheActiveWordAndKeepsTheSourceMomentOnEdits)
{
    load({{videoId, QUrl::fromLocalFile(s_video)}, {secondId, QUrl::fromLocalFile(s_second)}});
    const WordBlock a = word(0.2, 0.9), b = word(1.5, 2.4), c = word(0.5, 1.5, secondId),
                    d = word(3.0, 3.9);
    push({a, b, c, d});
    EXPECT_NEAR(model.duration(), 0.7 + 0.9 + 1.0 + 0.9, 1e-9);
    // Source 0.0 is in no word, so the first build leaves the head at the end.
    EXPECT_TRUE(QTest::qWaitFor([&] { return model.currentTime() == model.duration(); }, 2000));
    model.seekToBlock(a);

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
}

TEST_F(Preview, RangePlayStopsAtTheEndOfItsLastWord)
{
    load({{videoId, QUrl::fromLocalFile(s_video)}});
    const WordBlock a = word(0.2, 0.9), b = word(1.5, 2.0), c = word(3.0, 3.9);
    push({a, b, c});

    bool finished = false;
    model.playRange(b.id, b.id, [&] { finished = true; });
    EXPECT_TRUE(model.isPlaying());
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, 4000));
    EXPECT_FALSE(model.isPlaying());
    // Stopped at the end of b (nothing after it was heard), never into c.
    EXPECT_NEAR(player().currentTime(), 1.2, 0.05);

    // Paused: a seek shows the new frame.
    model.seekToBlock(c);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return std::abs(player().currentTime() - 1.2) < 0.05; }, 2000));
}

TEST_F(Preview, WithoutWordsTheRawSourcePlaysWithItsOwnDurationAndSignalsAreLeftAlone)
{
    load({{secondId, QUrl::fromLocalFile(s_second)}});
    EXPECT_EQ(player().itemStatus(), media::ItemStatus::readyToPlay);
    ASSERT_TRUE(QTest::qWaitFor([&] { return std::abs(model.duration() - 2.0) < 0.05; }, 2000));
    EXPECT_TRUE(model.deletedTimeRanges().isEmpty());

    QSignalSpy frames(&player(), &media::mlt::MltPlayer::frameShown);
    player().setVideoSize({64, 36});
    model.togglePlayPause();
    ASSERT_TRUE(frames.wait(3000));
    const QImage image = frames.last().at(0).value<QImage>();
    EXPECT_EQ(image.size(), QSize(64, 36));
    model.pause();

    // Playing started the sound output, which must not claim the termination signals:
    // SIGTERM and Ctrl+C still end the editor.
    for (const int signal : {SIGTERM, SIGINT}) {
        struct sigaction action
        {
        };
        ASSERT_EQ(::sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL) << "signal " << signal;
    }
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
