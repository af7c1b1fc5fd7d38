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

TEST_F(PlayerModel, LoadingLeavesOutSourcesThatCannotPlayAndLogsThem)
{
    const QUuid brokenId = QUuid::createUuid();
    const QUuid silentId = QUuid::createUuid();
    engine.addMedia(u"/m/silent.mp4"_s, FakeMediaEngine::videoOnly(12.0));

    ::testing::internal::CaptureStdout();
    load({{brokenId, QUrl::fromLocalFile(u"/m/not-media.txt"_s)},
          {silentId, QUrl::fromLocalFile(u"/m/silent.mp4"_s)},
          {audioId, QUrl::fromLocalFile(u"/m/speech.wav"_s)}});
    const QString log = QString::fromStdString(::testing::internal::GetCapturedStdout());

    EXPECT_TRUE(log.contains(u"[PlayerVM] Failed to load tracks for "_s + json::uuidString(brokenId)
                             + u": cannot open /m/not-media.txt\n"_s));
    EXPECT_TRUE(log.contains(u"[PlayerVM] No audio track for "_s + json::uuidString(silentId)
                             + u", skipping\n"_s));
    EXPECT_TRUE(model->tracksLoaded());
    EXPECT_DOUBLE_EQ(model->sourceDuration(), 30.0);

    // Blocks of a left-out source fall back to the first usable one.
    push({word(1.0, 2.0, silentId)});
    ASSERT_EQ(player->compositions.size(), 1);
    EXPECT_EQ(player->compositions.last().segments.first().sourcePath, u"/m/speech.wav"_s);
    EXPECT_FALSE(player->compositions.last().hasVideo);
}

TEST_F(PlayerModel, NothingIsBuiltBeforeTracksAreLoadedThenLoadingRebuilds)
{
    push({word(1.0, 2.0), word(2.0, 3.0)});
    EXPECT_TRUE(player->compositions.isEmpty());
    load();
    ASSERT_EQ(player->compositions.size(), 1);
    EXPECT_EQ(player->compositions.last().segments.size(), 2);
    EXPECT_DOUBLE_EQ(model->duration(), 2.0);
    EXPECT_DOUBLE_EQ(model->sourceDuration(), 90.0);
}

TEST_F(PlayerModel, DeletionsRebuildAtOnceReordersAfterTheLastOfABurst)
{
    load();
    const QList<WordBlock> blocks {word(1.0, 2.0), word(2.0, 3.0), word(4.0, 5.0)};
    push(blocks);
    ASSERT_EQ(player->compositions.size(), 1);

    // The same list again: nothing at all.
    push(blocks);
    clock.advance(1.0);
    EXPECT_EQ(player->compositions.size(), 1);

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
    ASSERT_EQ(list.segments.size(), 3);
    EXPECT_TRUE(list.hasVideo);
    EXPECT_DOUBLE_EQ(list.segments[0].sourceStart, 0.0);
    EXPECT_DOUBLE_EQ(list.segments[0].sourceEnd, 0.5);
    EXPECT_DOUBLE_EQ(list.segments[1].sourceStart, 59.5);
    EXPECT_DOUBLE_EQ(list.segments[1].sourceEnd, 60.0);
    EXPECT_DOUBLE_EQ(list.segments[1].compositionStart, 0.5);
    EXPECT_EQ(list.segments[2].sourcePath, u"/m/speech.wav"_s);
    EXPECT_FALSE(list.segments[2].withVideo);
    EXPECT_DOUBLE_EQ(list.segments[2].compositionStart, 1.0);

    const QList<CompositionEntry> &map = model->compositionMap();
    ASSERT_EQ(map.size(), 3);
    EXPECT_EQ(map[0].block.id, negative.id);
    EXPECT_EQ(map[1].block.id, pastEnd.id);
    EXPECT_EQ(map[2].block.id, speech.id);
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
    push({word(10.0, 11.0), word(2.0, 3.0), word(20.0, 20.5)});

    EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(0.25), 10.25);
    EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(1.5), 2.5);
    EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(-1.0), 10.0);
    EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(9.0), 27.0);
    EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(2.5), 1.5);
    EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(20.0), 2.0);
    EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(15.0), 2.5);

    push({});
    EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(7.0), 7.0);
    EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(7.0), 7.0);
}

TEST_F(PlayerModel, PeriodicReportsArePublishedAtMostTenTimesASecond)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(5.0, 6.0);
    push({a, b});
    player->completeSeeks();
    QSignalSpy timeSpy(model.get(), &VideoPlayerViewModel::currentTimeChanged);
    QSignalSpy activeSpy(model.get(), &VideoPlayerViewModel::activeWordBlockIdChanged);

    player->reportTime(0.3);
    EXPECT_EQ(model->currentTime(), 0.3);
    EXPECT_EQ(model->activeWordBlockId(), a.id);
    clock.advance(0.05);
    player->reportTime(1.2); // too soon after the last publication
    EXPECT_EQ(model->currentTime(), 0.3);
    clock.advance(0.05);
    player->reportTime(0.3005); // moved less than a millisecond
    EXPECT_EQ(model->currentTime(), 0.3);
    clock.advance(0.1);
    player->reportTime(0.4); // same word: the id is not written again
    clock.advance(0.1);
    player->reportTime(std::nan(""));
    EXPECT_EQ(model->currentTime(), 0.4);
    clock.advance(0.1);
    player->reportTime(1.5);
    EXPECT_EQ(model->activeWordBlockId(), b.id);
    clock.advance(0.1);
    player->reportTime(2.5); // past the end: no word
    EXPECT_TRUE(model->activeWordBlockId().isNull());

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
}

TEST_F(PlayerModel, WithoutSourceDurationTheTrailingRangeEndsOneSecondAfterTheLastWord)
{
    media::MediaInfo unknownLength = FakeMediaEngine::videoWithAudio(20.0);
    unknownLength.duration = std::nan("");
    engine.addMedia(u"/m/stream.ts"_s, unknownLength);
    load({{videoId, QUrl::fromLocalFile(u"/m/stream.ts"_s)}});
    EXPECT_EQ(model->sourceDuration(), 0.0);
    push({word(1.0, 2.0), word(4.0, 5.0)});
    EXPECT_EQ(model->deletedTimeRanges(),
              (QList<DeletedTimeRange> {{0.0, 1.0}, {2.0, 4.0}, {5.0, 6.0}}));
}

TEST_F(PlayerModel, WithoutBlocksTheRawFirstSourcePlays)
{
    load(); // before a transcript exists
    EXPECT_EQ(player->rawSources, QStringList {u"/m/video.mp4"_s});
    push({word(1.0, 2.0)});
    ASSERT_FALSE(model->deletedTimeRanges().isEmpty());
    push({});
    EXPECT_EQ(player->rawSources.size(), 2);
    EXPECT_TRUE(model->compositionMap().isEmpty());
    EXPECT_TRUE(model->deletedTimeRanges().isEmpty());
    EXPECT_DOUBLE_EQ(model->duration(), 90.0);

    QSignalSpy durationSpy(model.get(), &VideoPlayerViewModel::durationChanged);
    player->makeSourceReady(59.5);
    ASSERT_TRUE(durationSpy.wait(1000));
    EXPECT_DOUBLE_EQ(model->duration(), 59.5);
}

TEST_F(PlayerModel, SeekToBlockUsesItsStartOrItsSourceMoment)
{
    load();
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(5.0, 6.0);
    push({a, b, c});
    model->seekToBlock(c);
    EXPECT_DOUBLE_EQ(player->seeks.last(), 2.0);
    EXPECT_DOUBLE_EQ(model->currentTime(), 2.0);
    EXPECT_EQ(model->activeWordBlockId(), c.id);

    push({a, c});
    model->seekToBlock(b); // deleted: its moment is gone, so the end of the result
    EXPECT_DOUBLE_EQ(model->currentTime(), 2.0);
    EXPECT_EQ(model->activeWordBlockId(), b.id);
}

TEST_F(PlayerModel, PlayRangePlaysOnceThenPausesAndReports)
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
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);
    EXPECT_TRUE(model->isPlaying());
    EXPECT_EQ(player->boundaryObserverCount(), 1);
    player->playTo(2.9);
    EXPECT_EQ(finished, 0);
    player->playTo(3.05);
    EXPECT_EQ(finished, 1);
    EXPECT_FALSE(model->isPlaying());
    EXPECT_EQ(player->rate(), 0.0);
    EXPECT_EQ(player->boundaryObserverCount(), 0);

    // Pausing first cancels the end-of-range call.
    model->playRange(a.id, a.id, [&] { ++finished; });
    model->togglePlayPause();
    player->playTo(5.0);
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(player->boundaryObserverCount(), 0);
}

TEST_F(PlayerModel, SpeedAndVolumeReachThePlayer)
{
    load();
    model->setPlaybackSpeed(1.5f);
    EXPECT_EQ(player->rate(), 0.0);
    model->togglePlayPause();
    EXPECT_EQ(player->rate(), 1.5);
    model->setPlaybackSpeed(0.5f);
    EXPECT_EQ(player->rate(), 0.5);
    model->setVolume(0.25f);
    EXPECT_EQ(player->volume(), 0.25f);
    model->stop();
    EXPECT_EQ(player->rate(), 0.0);
    EXPECT_FALSE(model->isPlaying());
}

TEST_F(PlayerModel, PlayAtTheEndStartsOver)
{
    load();
    push({word(1.0, 2.0), word(3.0, 4.0)});
    player->completeSeeks();
    model->setCurrentTime(1.5);
    player->seeks.clear();
    model->togglePlayPause();
    EXPECT_TRUE(player->seeks.isEmpty()); // in the middle: plays on from there
    model->togglePlayPause();

    model->setCurrentTime(model->duration() - 0.02);
    model->togglePlayPause();
    EXPECT_EQ(player->seeks, QList<double>({0.0}));
    EXPECT_EQ(model->currentTime(), 0.0);
    EXPECT_TRUE(model->isPlaying());
}

TEST_F(PlayerModel, ThumbnailsAreSnappedToHalfSecondsAndCached)
{
    load();
    const std::optional<QImage> first = model->thumbnail(videoId, 10.2);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size(), QSize(160, 90));
    ASSERT_TRUE(model->thumbnail(videoId, 10.4));
    ASSERT_TRUE(model->thumbnail(videoId, 10.1));
    ASSERT_TRUE(model->thumbnail(videoId, 10.25));
    EXPECT_EQ(engine.framesRequested, (QList<double> {10.0, 10.5}));
    EXPECT_EQ(engine.generatorsMade, 1);

    EXPECT_FALSE(model->thumbnail(videoId, 75.0));
    EXPECT_FALSE(model->thumbnail(audioId, 1.0));
    EXPECT_FALSE(model->thumbnail(QUuid::createUuid(), 1.0));
}

} // namespace
