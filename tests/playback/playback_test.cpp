#include "model/fileio.h"
#include "model/jsonfields.h"
#include "model/projectmetadata.h"
#include "playback/compositionplan.h"
#include "playback/guideplayerviewmodel.h"
#include "playback/videoplayerviewmodel.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"
#include "timing/pauses.h"

#include <QDir>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace kavel;
using kavel::test::FakeClock;
using kavel::test::FakeMediaEngine;
using kavel::test::FakePlayer;
using kavel::test::timedWord;

namespace {

const QUuid videoId = QUuid::fromString(u"{11111111-0000-0000-0000-000000000001}"_s);
const QUuid audioId = QUuid::fromString(u"{22222222-0000-0000-0000-000000000002}"_s);

WordBlock word(double start, double end, QUuid source = videoId)
{
    return test::timedWord(start, end, 0, source);
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
    void push(QList<WordBlock> blocks)
    {
        for (qsizetype i = 0; i < blocks.size(); ++i)
            blocks[i].sortOrder = i;
        model->setWordBlocks(blocks);
        model->scheduleRebuild();
    }

    // Three one-second words with a second between them, built and placed.
    void loadThree()
    {
        load();
        push({a, b, c});
        player->completeSeeks();
    }

    FakeMediaEngine engine;
    FakeClock clock;
    std::unique_ptr<VideoPlayerViewModel> model;
    FakePlayer *player = nullptr;
    const WordBlock a = word(1.0, 2.0), b = word(3.0, 4.0), c = word(5.0, 6.0);
};

TEST_F(PlayerModel, DeletionsRebuildAtOnceReordersAfterTheLastOfABurst)
{
    push({a, b, c});
    EXPECT_TRUE(player->compositions.isEmpty()) << "nothing is built before the tracks load";
    load();
    ASSERT_EQ(player->compositions.size(), 1);
    EXPECT_DOUBLE_EQ(model->duration(), 3.0);
    push({a, c});
    EXPECT_EQ(player->compositions.size(), 2);

    // Two moves 0.1 s apart: one rebuild 0.15 s after the second.
    push({c, a});
    clock.advance(0.1);
    push({a, c});
    clock.advance(0.149);
    EXPECT_EQ(player->compositions.size(), 2);
    clock.advance(0.002);
    EXPECT_EQ(player->compositions.size(), 3);

    // A time edit of the same count is debounced too; a text change is not an edit.
    QList<WordBlock> edited {a, c};
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

TEST_F(PlayerModel, EachWordPlaysFromItsOwnSourceAndAFailedOneIsLoggedButKeepsItsTime)
{
    load();
    player->failSegmentsOf(u"/m/video.mp4"_s, u"decoder gone"_s);
    const WordBlock bad = word(1.2345, 1.5), speech = word(10.0, 10.25, audioId);
    ::testing::internal::CaptureStdout();
    push({bad, speech});
    EXPECT_EQ(QString::fromStdString(::testing::internal::GetCapturedStdout()),
              u"[PlayerVM] Failed to insert segment for "_s + json::uuidString(bad.id)
                  + u" [1.2345-1.5] trackDur=60.0: decoder gone\n"_s);

    const QList<media::EditSegment> &laid = player->compositions.last().segments;
    ASSERT_EQ(laid.size(), 2);
    EXPECT_EQ(std::tuple(laid[0].sourcePath, laid[0].withVideo),
              std::tuple(u"/m/video.mp4"_s, true));
    EXPECT_EQ(std::tuple(laid[1].sourcePath, laid[1].withVideo, laid[1].sourceStart),
              std::tuple(u"/m/speech.wav"_s, false, 10.0));
    ASSERT_EQ(model->compositionMap().size(), 2);
    EXPECT_DOUBLE_EQ(model->compositionMap()[1].compositionStart, 0.2655);
    EXPECT_DOUBLE_EQ(model->duration(), 0.5155);
}

TEST_F(PlayerModel, EditsKeepThePlayHeadOnItsSourceMomentOrTheWordAskedFor)
{
    loadThree();
    model->togglePlayPause();
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
    EXPECT_TRUE(model->isPlaying() && player->rate() == 1.0);
    // The moment under the play head is deleted: the head lands at the end.
    push({b});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);

    // A word asked for is placed once. For one that is gone, the entry whose start is
    // nearest the play head's source moment (5.0), not the next word as an edit would.
    model->pause();
    model->setPendingSeekBlockId(c.id);
    push({a, c});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);
    EXPECT_FALSE(model->pendingSeekBlockId());
    model->setPendingSeekBlockId(b.id);
    push({a, word(4.6, 4.8), word(5.8, 6.0)});
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 1.0);

    const WordBlock last = word(5.8, 6.0);
    push({a, last});
    player->completeSeeks();
    model->seekToBlock(last);
    player->completeSeeks();
    // Another project opens at its start: neither the last play head (source 5.8) nor the
    // engine, which reports it (1.0) until the new recordings are in, places it elsewhere.
    const WordBlock first = word(0.2, 0.6, audioId), second = word(0.9, 2.0, audioId);
    clock.advance(0.2);
    model->loadSources({{audioId, QUrl::fromLocalFile(u"/m/speech.wav"_s)}});
    push({first, second});
    player->reportTime(1.0);
    EXPECT_NE(model->activeWordBlockId(), last.id);
    clock.advance(0.0);
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(player->seeks.last(), 0.0);
    EXPECT_DOUBLE_EQ(model->currentTime(), 0.0);
    EXPECT_NE(model->activeWordBlockId(), last.id);
}

TEST_F(PlayerModel, PeriodicReportsArePublishedAtMostTenTimesASecond)
{
    load();
    const WordBlock far = word(5.0, 6.0);
    push({a, far});
    player->completeSeeks();
    QSignalSpy timeSpy(model.get(), &VideoPlayerViewModel::currentTimeChanged);
    QSignalSpy activeSpy(model.get(), &VideoPlayerViewModel::activeWordBlockIdChanged);
    // After so long, the engine reports a time: the model's time and word then.
    const std::tuple<double, double, double, QUuid> reports[] = {
        {0.0, 0.3, 0.3, a.id},
        {0.05, 1.2, 0.3, a.id}, // too soon after the last publication
        {0.05, 0.3005, 0.3, a.id}, // moved less than a millisecond
        {0.1, 0.4, 0.4, a.id}, // same word: the id is not written again
        {0.1, std::nan(""), 0.4, a.id},
        {0.1, 1.5, 1.5, far.id},
        {0.1, 2.5, 2.5, QUuid()}, // past the end: no word
    };
    for (const auto &[after, report, time, active] : reports) {
        clock.advance(after);
        player->reportTime(report);
        EXPECT_EQ(std::pair(model->currentTime(), model->activeWordBlockId()),
                  std::pair(time, active))
            << report;
    }
    EXPECT_EQ(timeSpy.count(), 4);
    EXPECT_EQ(activeSpy.count(), 3);

    // A word placed under the play head stays current while the engine shows the frame
    // next to it, even one that starts in the word before.
    model->seekToBlock(far);
    for (const double frame : {0.98, 1.02}) {
        clock.advance(0.1);
        player->reportTime(frame);
        EXPECT_EQ(std::pair(model->currentTime(), model->activeWordBlockId()),
                  std::pair(1.0, far.id))
            << frame;
    }
    clock.advance(0.1);
    player->reportTime(0.9);
    EXPECT_EQ(model->activeWordBlockId(), a.id) << "a real move is followed";
    // An edit before the word moves it, and the frame before it, along.
    model->seekToBlock(far);
    push({a, word(8.0, 8.5), far});
    player->completeSeeks();
    clock.advance(0.1);
    player->reportTime(1.48);
    EXPECT_EQ(std::pair(model->currentTime(), model->activeWordBlockId()), std::pair(1.5, far.id));
}

TEST_F(PlayerModel, TimesMapThroughTheBlocksOwnTimesAndDeletedRangesMarkTheUnplayedRest)
{
    load({{videoId, QUrl::fromLocalFile(u"/m/video.mp4"_s)}});
    // Played as 10-11, 2-3, 20-20.5 (edited 0-1, 1-2, 2-2.5).
    push({word(10.0, 11.0), word(2.0, 3.0), word(20.0, 20.5)});
    const std::pair<double, double> toSource[]
        = {{0.25, 10.25}, {1.5, 2.5}, {-1.0, 10.0}, {9.0, 27.0}};
    for (const auto &[t, source] : toSource)
        EXPECT_DOUBLE_EQ(model->compositionTimeToSourceTime(t), source) << t;
    // Outside every kept word: the next word in the recording, the end after the last.
    const std::pair<double, double> toComposition[]
        = {{2.5, 1.5}, {10.75, 0.75}, {0.0, 1.0}, {5.0, 0.0}, {15.0, 2.0}, {99.0, 2.5}};
    for (const auto &[source, t] : toComposition)
        EXPECT_DOUBLE_EQ(model->sourceTimeToCompositionTime(source), t) << source;

    // The cuts in the speech: stretches between kept words that none plays; the silence
    // before the first and after the last is never played, so it is no cut.
    push({word(0.04, 1.0), word(1.04, 2.0), word(5.0, 6.0), word(2.0, 3.0), word(59.95, 59.97)});
    EXPECT_EQ(model->deletedTimeRanges(), (QList<DeletedTimeRange> {{3.0, 5.0}, {6.0, 59.95}}));
    push({word(0.1, 1.0), word(1.0, 59.0)});
    EXPECT_TRUE(model->deletedTimeRanges().isEmpty());

    // Every word deleted: the raw source plays again, nothing is marked.
    push({});
    EXPECT_EQ(player->rawSources.size(), 2);
    EXPECT_TRUE(model->compositionMap().isEmpty());
    EXPECT_TRUE(model->deletedTimeRanges().isEmpty());

    // The recording's own pauses, a 3 s one among them, kept whole: it plays from its first
    // word to its last, with no cut marked. A deleted word closes the gap where it was; a
    // limit keeps that much of each pause.
    QList<Paragraph> spoken {
        {{}, {word(1.0, 2.0), word(2.4, 3.0), word(6.0, 7.0), word(7.2, 8.0)}, 0, {}}};
    recordPauses(spoken);
    const QList<WordBlock> said = spoken.first().wordBlocks;
    load({{videoId, QUrl::fromLocalFile(u"/m/video.mp4"_s)}});
    const struct
    {
        double limit;
        QList<qsizetype> kept;
        double duration;
        QList<DeletedTimeRange> unplayed;
    } pauses[] = {
        {wholePauses, {0, 1, 2, 3}, 7.0, {}},
        {wholePauses, {0, 1, 3}, 2.8, {{3.0, 7.2}}},
        {0.5, {0, 1, 2, 3}, 4.5, {{3.25, 5.75}}},
    };
    for (const auto &p : pauses) {
        QList<WordBlock> kept;
        for (const qsizetype i : p.kept)
            kept.append(said.at(i));
        model->setPauseLimit(p.limit);
        push(kept);
        EXPECT_DOUBLE_EQ(model->duration(), p.duration) << p.limit;
        EXPECT_EQ(model->deletedTimeRanges(), p.unplayed) << p.limit;
        EXPECT_DOUBLE_EQ(model->compositionMap().last().compositionEnd(), p.duration);
    }
}

TEST_F(PlayerModel, SeekingMovesThePlayHeadOverThePendingPlacementOfARebuild)
{
    load();
    // Speech starts late: the first build still starts at the first word, not the end.
    const WordBlock late = word(4.0, 5.0), later = word(6.0, 7.0);
    push({late, later});
    EXPECT_DOUBLE_EQ(player->seeks.last(), 0.0);
    const auto expectAt = [&](double at, QUuid active, const char *asked) {
        EXPECT_EQ(
            std::tuple(player->seeks.last(), model->currentTime(), model->activeWordBlockId()),
            std::tuple(at, at, active))
            << asked;
    };
    const std::tuple<double, double, QUuid> seeks[]
        = {{1.5, 1.5, later.id}, {-3.0, 0.0, late.id}, {99.0, 2.0, {}}, {0.5, 0.5, late.id}};
    for (const auto &[asked, at, active] : seeks) {
        model->seek(asked);
        expectAt(at, active, "time");
    }
    // The build's own placement, completing late, does not pull the head back.
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 0.5);
    model->setCurrentTime(0.0);
    push({later});
    model->setCurrentTime(0.25);
    player->completeSeeks();
    EXPECT_DOUBLE_EQ(model->currentTime(), 0.25);

    // To a word: where it starts, or for a deleted one the next kept word's start.
    push({late, later});
    const WordBlock between = word(5.0, 5.5);
    for (const auto &[block, at] :
         {std::pair(later, 1.0), std::pair(between, 1.0), std::pair(late, 0.0)}) {
        model->seekToBlock(block);
        expectAt(at, block.id, "word");
    }
}

TEST_F(PlayerModel, PlaybackStopsAtTheEndAndOnlyPlaybackStillWantedResumes)
{
    loadThree();
    const auto playing = [&] { return model->isPlaying() && player->rate() == 1.0; };
    const auto stopped = [&] { return !model->isPlaying() && player->rate() == 0.0; };
    model->togglePlayPause();
    player->playTo(2.99);
    EXPECT_TRUE(playing());
    player->playTo(3.0); // the end: the model pauses and stays paused through an edit
    EXPECT_TRUE(stopped());
    push({a, b});
    player->completeSeeks();
    EXPECT_TRUE(stopped());
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
    EXPECT_TRUE(stopped());

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

    // The real engine's Preview test plays a range to its end; here, what it cannot reach:
    // unknown words are ignored, and a pause cancels the range's end.
    const qsizetype seeksBefore = player->seeks.size();
    int finished = 0;
    model->playRange(a.id, QUuid::createUuid(), [&] { ++finished; });
    model->playRange(QUuid::createUuid(), c.id, [&] { ++finished; });
    EXPECT_EQ(std::tuple(player->seeks.size(), model->isPlaying(), player->boundaryObserverCount()),
              std::tuple(seeksBefore, false, 0));

    model->playRange(b.id, c.id, [&] { ++finished; });
    EXPECT_DOUBLE_EQ(player->seeks.last(), 1.0);
    EXPECT_EQ(player->boundaryObserverCount(), 1);
    model->togglePlayPause();
    player->playTo(5.0);
    EXPECT_EQ(finished, 0);
    EXPECT_EQ(player->boundaryObserverCount(), 0);
}

TEST_F(PlayerModel, ThumbnailsAreSnappedToHalfSecondsAndCached)
{
    load();
    for (const double t : {10.2, 10.4, 10.1, 10.25})
        ASSERT_TRUE(model->thumbnail(videoId, t));
    EXPECT_EQ(engine.framesRequested, (QList<double> {10.0, 10.5}));
    // Another project's sources start a fresh cache.
    load();
    ASSERT_TRUE(model->thumbnail(videoId, 10.2));
    EXPECT_EQ(engine.framesRequested.size(), 3);
    EXPECT_FALSE(model->thumbnail(videoId, 75.0));
    EXPECT_FALSE(model->thumbnail(audioId, 1.0));
}

TEST(CompositionMap, FollowsSortOrderClampsAndSkipsAsThePreviewDoes)
{
    const QUuid source = QUuid::createUuid();
    WordBlock gained = timedWord(5.0, 6.0, 1, source);
    gained.volumeLevel = 0.5f;
    gained.isMuted = true;
    gained.fadeInDuration = 0.2;
    gained.fadeOutDuration = 0.3;
    const QList<WordBlock> blocks {
        gained,
        timedWord(-0.5, 0.25, 0, source), // starts before the recording: from 0
        timedWord(9.8, 10.6, 2, source), // runs past its 10 s end: cut there
        timedWord(9.995, 10.2, 3, source), // starts within 0.01 s of the end: skipped
        timedWord(3.0, 3.009, 4, source), // too short to play: skipped
        timedWord(1.0, 2.0, 5, QUuid::createUuid()) // unknown source: the first one
    };
    const CompositionPlan plan = planComposition(blocks, {{source, u"/a.mp4"_s, true, 10.0}});

    const QList<std::pair<double, double>> ranges {
        {0.0, 0.25}, {5.0, 6.0}, {9.8, 10.0}, {1.0, 2.0}};
    ASSERT_EQ(plan.editList.segments.size(), ranges.size());
    double at = 0.0;
    for (qsizetype i = 0; i < ranges.size(); ++i) {
        const EditSegment &s = plan.editList.segments[i];
        EXPECT_EQ(std::tuple(s.sourceStart, s.sourceEnd, s.compositionStart, s.sourcePath),
                  std::tuple(ranges[i].first, ranges[i].second, at, u"/a.mp4"_s))
            << i;
        EXPECT_EQ(plan.map[i].compositionStart, at);
        at += ranges[i].second - ranges[i].first;
    }
    EXPECT_EQ(plan.map[1].block.id, gained.id);
    EXPECT_EQ(plan.editList.segments[1].audio, (SegmentAudio {0.5f, true, 0.2, 0.3}));
    EXPECT_DOUBLE_EQ(plan.duration, 2.45);
    EXPECT_TRUE(plan.editList.hasVideo);
    EXPECT_TRUE(planComposition(blocks, {}).map.isEmpty());

    // Levels and single fades are heard in the exact-export renders; where a fade in and
    // a fade out overlap, the lower ramp wins.
    const SegmentAudio both {1.0f, false, 1.0, 1.0};
    EXPECT_NEAR(both.gainAt(0.4, 1.0), 0.4, 1e-6);
    EXPECT_NEAR(both.gainAt(0.7, 1.0), 0.3, 1e-6);
}

// The guide plays a cached copy of a clip that exists as a plain file, in a loop.
TEST(GuidePlayer, PlaysACachedCopyOfTheClipInALoop)
{
    QTemporaryDir dir;
    const QString clip = QDir(dir.path()).filePath(u"demo.MOV"_s);
    test::writeFile(clip, QByteArray(5000, 'c'));
    FakeMediaEngine engine;
    QStringList log;
    const auto logTo = [&log](const QString &line) { log.append(line); };
    GuidePlayerViewModel model(engine, clip, logTo);
    FakePlayer *player = engine.lastPlayer;
    player->makeSourceReady(4.0);
    const QString cached
        = QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + u"/guide/demo.MOV"_s;
    EXPECT_EQ(player->rawSources, QStringList {cached});
    EXPECT_EQ(fileio::readFile(cached), fileio::readFile(clip));
    EXPECT_EQ(model.duration(), 4.0);
    player->reportTime(1.25);
    EXPECT_EQ(model.currentTime(), 1.25);

    // Reaching the end starts again from the beginning.
    model.play();
    player->playTo(2.0);
    player->reportTime(2.0); // standing still in the middle is no end
    EXPECT_TRUE(player->seeks.isEmpty());

    player->playTo(4.0);
    EXPECT_EQ(player->seeks, QList<double> {0.0});
    EXPECT_EQ(model.currentTime(), 0.0);
    player->setRate(0.0); // an engine that stops at the end
    player->completeSeeks();
    EXPECT_TRUE(model.isPlaying() && player->rate() == 1.0);

    // Last frames that never show: the time stands still just short of the end.
    player->playTo(3.9);
    player->reportTime(3.9);
    EXPECT_EQ(player->seeks, (QList<double> {0.0, 0.0}));
    player->completeSeeks();

    // Paused before the seek is done: the seek does not start playing again, and nothing
    // watches for the end while paused.
    player->playTo(4.0);
    model.pause();
    player->completeSeeks();
    EXPECT_EQ(player->rate(), 0.0);
    EXPECT_EQ(player->boundaryObserverCount(), 0);
    player->reportTime(3.9);
    player->reportTime(3.9);
    EXPECT_EQ(player->seeks.size(), 3);

    // A new clip replaces the copy, also when it happens to be just as long.
    for (const char fill : {'n', 'm'}) {
        test::writeFile(clip, QByteArray(7000, fill));
        GuidePlayerViewModel again(engine, clip, [](const QString &) {});
        EXPECT_EQ(fileio::readFile(cached), QByteArray(7000, fill));
    }

    // The default place: no clip is compiled into the tests.
    GuidePlayerViewModel missing(engine, GuidePlayerViewModel::defaultResourcePath(), logTo);
    EXPECT_EQ(log, QStringList {u"[Guide] demo.MOV not found in bundle"_s});
    EXPECT_TRUE(engine.lastPlayer->rawSources.isEmpty());
    missing.togglePlayPause();
    EXPECT_FALSE(missing.isPlaying());
}

} // namespace
