#include "playback/compositionplan.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>
#include <random>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

using kavel::test::timedWord;

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
        EXPECT_EQ(std::pair(s.sourceStart, s.sourceEnd), ranges[i]) << i;
        EXPECT_EQ(s.compositionStart, at) << i;
        EXPECT_EQ(plan.map[i].compositionStart, at);
        EXPECT_EQ(s.sourcePath, u"/a.mp4"_s);
        at += ranges[i].second - ranges[i].first;
    }
    EXPECT_EQ(plan.map[1].block.id, gained.id);
    EXPECT_EQ(plan.editList.segments[1].audio, (SegmentAudio {0.5f, true, 0.2, 0.3}));
    EXPECT_DOUBLE_EQ(plan.duration, 2.45);
    EXPECT_TRUE(plan.editList.hasVideo);
    EXPECT_TRUE(planComposition(blocks, {}).map.isEmpty());
}

TEST(CompositionMap, FadesRampOverAtMostTheWordAndTheLowerRampWins)
{
    const struct
    {
        SegmentAudio audio;
        double into, length, gain;
    } cases[] = {
        {{1.0f, false, 2.0, 0.0}, 0.25, 0.5, 0.5}, // a fade longer than the word spans it
        {{1.0f, false, 2.0, 0.0}, 0.5, 0.5, 1.0},  {{0.8f, false, 0.1, 0.0}, 0.05, 1.0, 0.4},
        {{0.8f, false, 0.0, 0.2}, 0.9, 1.0, 0.4},  {{1.0f, false, 1.0, 1.0}, 0.4, 1.0, 0.4},
        {{1.0f, false, 1.0, 1.0}, 0.7, 1.0, 0.3},  {{1.0f, true, 0.0, 0.0}, 0.5, 1.0, 0.0},
    };
    for (const auto &c : cases)
        EXPECT_NEAR(c.audio.gainAt(c.into, c.length), c.gain, 1e-6)
            << c.audio.fadeIn << " " << c.audio.fadeOut << " at " << c.into;
}

TEST(CompositionMap, GridsAreTakenFromRunningTimesSoNothingAddsUp)
{
    // Thousands of odd lengths: on every grid each segment starts within half a step of its
    // exact time, and the segments tile the grid without gap or overlap.
    const QUuid source = QUuid::createUuid();
    std::mt19937 random(7);
    std::uniform_real_distribution<double> length(0.01, 0.4);
    QList<WordBlock> blocks;
    for (int i = 0; i < 5000; ++i) {
        const double start = i * 0.7;
        blocks.append(timedWord(start, start + length(random), i, source));
    }
    const EditList edit = planComposition(blocks, {{source, {}, true, 0.0}}).editList;
    for (const timing::Rate rate : {timing::Rate {30000, 1001}, timing::Rate {25, 1}}) {
        std::int64_t frame = 0;
        for (const EditSegment &s : edit.segments) {
            const timing::Span frames = timing::outputFrames(s, rate);
            EXPECT_EQ(frames.begin, frame);
            EXPECT_LE(rate.secondsAt(frames.begin) - s.compositionStart, rate.secondsAt(1) + 1e-9);
            EXPECT_GE(rate.secondsAt(frames.begin), s.compositionStart - 1e-6);
            frame = frames.end;
        }
        EXPECT_EQ(frame, timing::frameCount(edit.duration(), rate));
    }
    std::int64_t sample = 0;
    for (const EditSegment &s : edit.segments) {
        const timing::Span samples = timing::outputSamples(s, 44100);
        EXPECT_EQ(samples.begin, sample);
        EXPECT_LE(std::abs(samples.begin / 44100.0 - s.compositionStart), 0.5 / 44100 + 1e-12);
        sample = samples.end;
    }
    EXPECT_EQ(sample, timing::sampleAt(edit.duration(), 44100));
    EXPECT_EQ(edit.segmentAt(edit.segments[1234].compositionStart), 1234);
    EXPECT_EQ(edit.segmentAt(edit.duration()), -1);
}

} // namespace
