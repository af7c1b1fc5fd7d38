#include "playback/compositionplan.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

using kavel::test::timedWord;

TEST(CompositionPlan, FollowsSortOrderStablyAndCarriesGain)
{
    const QUuid source = QUuid::createUuid();
    WordBlock first = timedWord(5.0, 6.0, 1, source);
    first.volumeLevel = 0.5f;
    first.isMuted = true;
    first.fadeInDuration = 0.2;
    first.fadeOutDuration = 0.3;
    const WordBlock second = timedWord(1.0, 2.0, 1, source);
    const WordBlock zeroth = timedWord(9.0, 9.5, 0, source);
    const CompositionPlan plan
        = planComposition({first, second, zeroth}, {{source, u"/a.mp4"_s, true, 100.0}});

    ASSERT_EQ(plan.map.size(), 3);
    EXPECT_EQ(plan.map[0].block.id, zeroth.id);
    EXPECT_EQ(plan.map[1].block.id, first.id);
    EXPECT_EQ(plan.map[2].block.id, second.id);
    EXPECT_EQ(plan.editList.segments[1].audio, (media::SegmentAudio {0.5f, true, 0.2, 0.3}));
    EXPECT_EQ(plan.editList.segments[2].blockId, second.id);
    EXPECT_DOUBLE_EQ(plan.duration, 2.5);
    EXPECT_TRUE(plan.editList.hasVideo);
}

TEST(CompositionPlan, ThousandsOfOddLengthsAccumulateNoRounding)
{
    const QUuid source = QUuid::createUuid();
    QList<WordBlock> blocks;
    double expected = 0.0;
    for (int i = 0; i < 5000; ++i) {
        // 1/600 s multiples, which is what the media layer keeps.
        const double start = i * 0.7;
        const double length = (97 + i % 13) / 600.0;
        blocks.append(timedWord(start, start + length, i, source));
        expected += 97 + i % 13;
    }
    const CompositionPlan plan = planComposition(blocks, {{source, u"/a.mp4"_s, true, 0.0}});
    EXPECT_EQ(plan.duration, expected / 600.0);
    EXPECT_EQ(plan.map.last().compositionStart, (expected - (97 + 4999 % 13)) / 600.0);
    EXPECT_DOUBLE_EQ(plan.editList.duration(), plan.duration);
}

TEST(CompositionPlan, NoSourcesGiveAnEmptyPlan)
{
    const CompositionPlan plan = planComposition({timedWord(0, 1, 0, QUuid::createUuid())}, {});
    EXPECT_TRUE(plan.map.isEmpty());
    EXPECT_EQ(plan.duration, 0.0);
}

} // namespace
