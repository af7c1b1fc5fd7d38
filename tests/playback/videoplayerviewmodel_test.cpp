#include "model/jsonfields.h"
#include "playback/videoplayerviewmodel.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "support/transcriptbuilder.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace kavel;
using kavel::test::FakeClock;
using kavel::test::FakeMediaEngine;
using kavel::test::FakePlayer;

namespace {

const QUuid videoId = QUuid::fromString(u"{11111111-0000-0000-0000-000000000001}"_s);
const QUuid audioId = QUuid::fromString(u"{22222222-0000-0000-0000-000000000002}"_s);

WordBlock word(double start, double end, QUuid source = videoId)
{
    return test::timedWord(start, end, 0, source);
}

QList<WordBlock> numbered(QList<WordBlock> blocks)
{
    for (qsizetype i = 0; i < blocks.size(); ++i)
        blocks[i].sortOrder = i;
    return blocks;
}

class PlayerModel : public ::testing::Test
{
protected:
    PlayerModel()
    {
        engine.addMedia(u"/m/video.mp4"_s, FakeMediaEngine::videoWithAudio(60.0));
        engine.addMedia(u"/m/speech.wav"_s, FakeMediaEngine::audioOnly(30.0));
        model = std::make_unique<VideoPlayerViewModel>(engine, clock);
        player = engine.lastPlayer;
    }

    void load(QList<PlaybackSource> sources = {
                  {videoId, QUrl::fromLocalFile(u"/m/video.mp4"_s)},
                  {audioId, QUrl::fromLocalFile(u"/m/speech.wav"_s)},
              })
    {
        model->loadSources(sources);
        clock.advance(0.0);
    }

    // The editor's way of pushing an edit.
    void push(const QList<WordBlock> &blocks)
    {
        model->setWordBlocks(numbered(blocks));
        model->scheduleRebuild();
    }

    FakeMediaEngine engine;
    FakeClock clock;
    std::unique_ptr<VideoPlayerViewModel> model;
    FakePlayer *player = nullptr;
};

TEST_F(PlayerModel, DeletionsRebuildAtOnceReordersAfterTheLastOfABurst)
{
    // Nothing is built before the tracks are loaded; loading builds.
    const QList<WordBlock> blocks {word(1.0, 2.0), word(2.0, 3.0), word(4.0, 5.0)};
    push(blocks);
    EXPECT_TRUE(player->compositions.isEmpty());
    load();
    ASSERT_EQ(player->compositions.size(), 1);
    EXPECT_DOUBLE_EQ(model->duration(), 3.0);

    // A deletion changes the count: built without waiting.
    push({blocks[0], blocks[2]});
    EXPECT_EQ(player->compositions.size(), 2);

    // Two moves 0.1 s apart: one rebuild 0.15 s after the second.
    push({blocks[2], blocks[0]});
    clock.advance(0.1);
    push({blocks[0], blocks[2]});
    clock.advance(0.149);
    EXPECT_EQ(player->compositions.size(), 2);
    clock.advance(0.002);
    ASSERT_EQ(player->compositions.size(), 3);
    EXPECT_EQ(clock.pendingCalls(), 0);

    // A time edit of the same count is debounced too; a text change is not an edit.
    QList<WordBlock> edited {blocks[0], blocks[2]};
    edited[0].text = u"changed"_s;
    push(edited);
    clock.advance(1.0);
    EXPECT_EQ(player->compositions.size(), 3);
    edited[0].mediaEnd = 2.5;
    push(edited);
    EXPECT_EQ(player->compositions.size(), 3);
    clock.advance(0.15);
    EXPECT_EQ(player->compositions.size(), 4);
}

TEST_F(PlayerModel, RebuildClampsSkipsAndLaysBlocksEndToEnd)
{
    load();
    WordBlock negative = word(-0.5, 0.5);
    WordBlock pastEnd = word(59.5, 61.0);
    WordBlock atEnd = word(59.995, 60.5);
    WordBlock inverted = word(5.0, 4.0);
    WordBlock tiny = word(7.0, 7.005);
    WordBlock speech = word(10.0, 10.25, audioId);
    push({negative, pastEnd, atEnd, inverted, tiny, speech});

    const media::EditList &list = player->compositions.last();
    const struct
    {
        QUuid id;
        double start, end, at;
        QString path;
    } laid[] = {{negative.id, 0.0, 0.5, 0.0, u"/m/video.mp4"_s},
                {pastEnd.id, 59.5, 60.0, 0.5, u"/m/video.mp4"_s},
                {speech.id, 10.0, 10.25, 1.0, u"/m/speech.wav"_s}};
    ASSERT_EQ(list.segments.size(), 3);
    ASSERT_EQ(model->compositionMap().size(), 3);
    EXPECT_TRUE(list.hasVideo);
    for (qsizetype i = 0; i < 3; ++i) {
        const media::EditSegment &segment = list.segments[i];
        EXPECT_EQ(model->compositionMap()[i].block.id, laid[i].id) << i;
        EXPECT_EQ(std::tuple(segment.sourceStart, segment.sourceEnd, segment.compositionStart),
                  std::tuple(laid[i].start, laid[i].end, laid[i].at))
            << i;
        EXPECT_EQ(segment.sourcePath, laid[i].path);
        EXPECT_EQ(segment.withVideo, i < 2);
    }
    EXPECT_DOUBLE_EQ(model->duration(), 1.25);
}

TEST_F(PlayerModel, SegmentsThatFailAreLoggedAndStillTakeTheirTime)
{
    load();
    player->failSegmentsOf(u"/m/video.mp4"_s, u"decoder gone"_s);
    const WordBlock bad = word(1.2345, 1.5);
    const WordBlock good = word(2.0, 2.5, audioId);

    ::testing::internal::CaptureStdout();
    push({bad, good});
    const QString log = QString::fromStdString(::testing::internal::GetCapturedStdout());

    EXPECT_EQ(log,
              u"[PlayerVM] Failed to insert segment for "_s + json::uuidString(bad.id)
                  + u" [1.2345-1.5] trackDur=60.0: decoder gone\n"_s);
    ASSERT_EQ(model->compositionMap().size(), 2);
    EXPECT_DOUBLE_EQ(model->compositionMap()[1].compositionStart, 0.2655);
    EXPECT_DOUBLE_EQ(model->duration(), 0.7655);
}

TEST_F(PlayerModel, EditsKeepThePlayHeadOnTheSameSourceMomentAndResumePlaying)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(5.0, 6.0);
    push({a, b, c});
    player->completeSeeks();
    model->togglePlayPause();
    EXPECT_EQ(player->rate(), 1.0);

    // Play head at source 5.5 (edited 2.5); deleting a moves it to edited 1.5.
    player->playTo(2.5);
    clock.advance(0.2);
    player->reportTime(2.5);
    EXPECT_DOUBLE_EQ(model->currentTime(), 2.5);
    player->setRate(0.0); // the item swap may pause the engine; the model must resume it
    push({b, c});
    EXPECT_DOUBLE_EQ(player->seeks.last(), 1.5);
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.5);
    EXPECT_EQ(player->rate(), 1.0);
    EXPECT_TRUE(model->isPlaying());

    // The moment under the play head is deleted: the head lands at the end.
    push({b});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);
}

TEST_F(PlayerModel, PendingSeekBlockPlacesThePlayHeadOnceThenIsCleared)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(8.0, 9.0);
    push({a, b, c});
    player->completeSeeks();

    model->setPendingSeekBlockId(c.id);
    push({a, c});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);
    EXPECT_FALSE(model->pendingSeekBlockId());

    // A block that is gone: the entry whose start is nearest the old moment (source 8.0).
    model->setPendingSeekBlockId(b.id);
    push({a, word(6.0, 7.0), word(9.5, 10.0)});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 2.0);
}

TEST_F(PlayerModel, TimeMappingsFollowTheBlocksOwnTimes)
{
    load();
    // Played as 10-11, 2-3, 20-20.5 (edited 0-1, 1-2, 2-2.5).
    push({word(10.0, 11.0), word(2.0, 3.0), word(20.0, 20.5)});

    const struct
    {
        double t, source;
    } toSource[] = {{0.25, 10.25}, {1.5, 2.5}, {-1.0, 10.0}, {9.0, 27.0}};
    for (const auto &c : toSource)
        EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(c.t), c.source) << c.t;
    // Outside every kept word: the next word in the recording, the end after the last.
    const struct
    {
        double source, t;
    } toComposition[] = {{2.5, 1.5}, {10.75, 0.75}, {0.0, 1.0}, {5.0, 0.0}, {15.0, 2.0}, {99.0, 2.5}};
    for (const auto &c : toComposition)
        EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(c.source), c.t) << c.source;
}

TEST_F(PlayerModel, PeriodicReportsArePublishedAtMostTenTimesASecond)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(5.0, 6.0);
    push({a, b});
    player->completeSeeks();
    QSignalSpy timeSpy(model.get(), &VideoPlayerViewModel::currentTimeChanged);
    QSignalSpy activeSpy(model.get(), &VideoPlayerViewModel::activeWordBlockIdChanged);

    const struct
    {
        double after, report, time;
        QUuid active;
    } reports[] = {
        {0.0, 0.3, 0.3, a.id},
        {0.05, 1.2, 0.3, a.id}, // too soon after the last publication
        {0.05, 0.3005, 0.3, a.id}, // moved less than a millisecond
        {0.1, 0.4, 0.4, a.id}, // same word: the id is not written again
        {0.1, std::nan(""), 0.4, a.id},
        {0.1, 1.5, 1.5, b.id},
        {0.1, 2.5, 2.5, QUuid()}, // past the end: no word
    };
    for (const auto &r : reports) {
        clock.advance(r.after);
        player->reportTime(r.report);
        EXPECT_EQ(model->currentTime(), r.time) << r.report;
        EXPECT_EQ(model->activeWordBlockId(), r.active) << r.report;
    }

    EXPECT_EQ(timeSpy.count(), 4);
    EXPECT_EQ(activeSpy.count(), 3);
}

TEST_F(PlayerModel, DeletedRangesMarkTheUnplayedSourceStretches)
{
    load({{videoId, QUrl::fromLocalFile(u"/m/video.mp4"_s)}});
    push({word(0.04, 1.0), word(1.04, 2.0), word(5.0, 6.0), word(2.0, 3.0), word(59.95, 59.97)});
    EXPECT_EQ(model->deletedTimeRanges(), (QList<DeletedTimeRange> {{3.0, 5.0}, {6.0, 59.95}}));
    push({word(0.1, 1.0), word(1.0, 59.0)});
    EXPECT_EQ(model->deletedTimeRanges(), (QList<DeletedTimeRange> {{0.0, 0.1}, {59.0, 60.0}}));

    // Every word deleted: the raw source plays again, nothing is marked.
    push({});
    EXPECT_EQ(player->rawSources.size(), 2);
    EXPECT_TRUE(model->compositionMap().isEmpty());
    EXPECT_TRUE(model->deletedTimeRanges().isEmpty());

    // A source of unknown length: the trailing range ends a second after the last word.
    media::MediaInfo unknownLength = FakeMediaEngine::videoWithAudio(20.0);
    unknownLength.duration = std::nan("");
    engine.addMedia(u"/m/stream.ts"_s, unknownLength);
    load({{videoId, QUrl::fromLocalFile(u"/m/stream.ts"_s)}});
    EXPECT_EQ(model->sourceDuration(), 0.0);
    push({word(1.0, 2.0), word(4.0, 5.0)});
    EXPECT_EQ(model->deletedTimeRanges(),
              (QList<DeletedTimeRange> {{0.0, 1.0}, {2.0, 4.0}, {5.0, 6.0}}));
}

TEST_F(PlayerModel, SeekingMovesThePlayHeadOverThePendingPlacementOfARebuild)
{
    load();
    // Speech starts late: the first build still starts at the first word, not the end.
    const WordBlock a = word(4.0, 5.0), b = word(6.0, 7.0);
    push({a, b});
    EXPECT_DOUBLE_EQ(player->seeks.last(), 0.0);

    const struct
    {
        double asked, at;
        QUuid active;
    } cases[] = {{1.5, 1.5, b.id}, {-3.0, 0.0, a.id}, {99.0, 2.0, QUuid()}, {0.5, 0.5, a.id}};
    for (const auto &c : cases) {
        model->seek(c.asked);
        EXPECT_DOUBLE_EQ(player->seeks.last(), c.at) << c.asked;
        EXPECT_DOUBLE_EQ(model->currentTime(), c.at) << c.asked;
        EXPECT_EQ(model->activeWordBlockId(), c.active) << c.asked;
    }
    // The build's own placement, completing late, does not pull the head back.
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 0.5);
    model->setCurrentTime(0.0);
    push({b});
    model->setCurrentTime(0.25);
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 0.25);

    // To a word: where it starts, or for a deleted one the next kept word's start.
    push({a, b});
    const struct
    {
        WordBlock block;
        double at;
    } toWords[] = {{b, 1.0}, {word(5.0, 5.5), 1.0}, {a, 0.0}};
    for (const auto &c : toWords) {
        model->seekToBlock(c.block);
        EXPECT_DOUBLE_EQ(player->seeks.last(), c.at);
        EXPECT_DOUBLE_EQ(model->currentTime(), c.at);
        EXPECT_EQ(model->activeWordBlockId(), c.block.id);
    }
}

TEST_F(PlayerModel, PlaybackStopsAtTheEndAndOnlyPlaybackStillWantedResumesAfterAnEdit)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(5.0, 6.0);
    push({a, b, c});
    player->completeSeeks();
    const auto playing = [&] { return model->isPlaying() && player->rate() == 1.0; };

    model->togglePlayPause();
    player->playTo(2.99);
    EXPECT_TRUE(playing());
    player->playTo(3.0); // the end: the model pauses and stays paused through an edit
    EXPECT_FALSE(model->isPlaying());
    EXPECT_EQ(player->rate(), 0.0);
    push({a, b});
    player->completeSeeks();
    EXPECT_FALSE(model->isPlaying());
    EXPECT_EQ(player->rate(), 0.0);
    // Play there starts the result over; in the middle it plays on from where it is.
    for (const double at : {model->duration() - 0.02, 1.5}) {
        model->setCurrentTime(at);
        player->seeks.clear();
        model->togglePlayPause();
        EXPECT_EQ(player->seeks, at > 1.5 ? QList<double> {0.0} : QList<double> {}) << at;
        EXPECT_TRUE(playing());
        model->pause();
    }

    // A pause while an edit's seek is under way is not undone when the seek lands.
    model->seek(0.5);
    model->togglePlayPause();
    push({a});
    model->pause();
    player->completeSeeks();
    EXPECT_FALSE(model->isPlaying());
    EXPECT_EQ(player->rate(), 0.0);

    // An engine that never shows the last frame: a play head standing just short of the
    // end ends playback; one standing anywhere else is only a slow frame.
    push({a, b, c});
    player->completeSeeks();
    for (const double stand : {1.0, 2.9}) {
        model->seek(stand - 0.5);
        model->togglePlayPause();
        player->playTo(stand);
        for (int report = 0; report < 6; ++report) {
            clock.advance(0.05);
            player->reportTime(stand);
        }
        EXPECT_EQ(playing(), stand < 2.0) << stand;
        model->pause();
    }
}

// The real engine's Preview test plays a range to its end; here, what it cannot reach.
TEST_F(PlayerModel, PlayRangeIgnoresUnknownWordsAndAPauseCancelsItsEnd)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(5.0, 6.0);
    push({a, b, c});
    player->completeSeeks();
    const qsizetype seeksBefore = player->seeks.size();

    int finished = 0;
    model->playRange(a.id, QUuid::createUuid(), [&] { ++finished; });
    model->playRange(QUuid::createUuid(), c.id, [&] { ++finished; });
    EXPECT_EQ(player->seeks.size(), seeksBefore);
    EXPECT_FALSE(model->isPlaying());
    EXPECT_EQ(player->boundaryObserverCount(), 0);

    model->playRange(b.id, c.id, [&] { ++finished; });
    EXPECT_DOUBLE_EQ(player->seeks.last(), 1.0);
    EXPECT_EQ(player->boundaryObserverCount(), 1);
    model->togglePlayPause();
    player->playTo(5.0);
    EXPECT_EQ(finished, 0);
    EXPECT_EQ(player->boundaryObserverCount(), 0);
}

TEST_F(PlayerModel, SpeedAndVolumeReachThePlayer)
{
    load();
    model->setPlaybackSpeed(1.5f);
    model->togglePlayPause();
    EXPECT_EQ(player->rate(), 1.5);
    model->setVolume(0.25f);
    EXPECT_EQ(player->volume(), 0.25f);
}

TEST_F(PlayerModel, ThumbnailsAreSnappedToHalfSecondsAndCached)
{
    load();
    const std::optional<QImage> first = model->thumbnail(videoId, 10.2);
    ASSERT_TRUE(first);
    for (const double t : {10.4, 10.1, 10.25})
        ASSERT_TRUE(model->thumbnail(videoId, t));
    EXPECT_EQ(engine.framesRequested, (QList<double> {10.0, 10.5}));
    EXPECT_EQ(engine.generatorsMade, 1);
    // Another project's sources start a fresh cache.
    load();
    ASSERT_TRUE(model->thumbnail(videoId, 10.2));
    EXPECT_EQ(engine.framesRequested.size(), 3);
    EXPECT_FALSE(model->thumbnail(videoId, 75.0));
    EXPECT_FALSE(model->thumbnail(audioId, 1.0));
}

} // namespace
