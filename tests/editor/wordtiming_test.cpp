// Word times that are changed before the composition map is made: pauses given back
// between neighbours, and recognised edges moved into the quiet beside them.
#include "support/transcriptbuilder.h"
#include "timing/compositionmap.h"
#include "timing/cutedges.h"
#include "timing/pauses.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

// Four words of one recording, with pauses of 0.3, 1.0 and 0.05 s after them.
QList<Paragraph> recorded()
{
    const QUuid source = QUuid::createUuid();
    Paragraph first, second;
    first.wordBlocks = {test::timedWord(0.0, 0.5, 0, source, u"a"_s),
                        test::timedWord(0.8, 1.2, 1, source, u"b"_s)};
    second.wordBlocks = {test::timedWord(2.2, 2.6, 0, source, u"c"_s),
                         test::timedWord(2.65, 3.0, 1, source, u"d"_s)};
    second.sortOrder = 1;
    QList<Paragraph> paragraphs {first, second};
    recordPauses(paragraphs);
    return paragraphs;
}

QList<WordBlock> words(const QList<Paragraph> &paragraphs, const QStringList &texts)
{
    QList<WordBlock> picked;
    for (const QString &text : texts)
        for (const Paragraph &p : paragraphs)
            for (const WordBlock &w : p.wordBlocks)
                if (w.text == text)
                    picked.append(w);
    return picked;
}

} // namespace

TEST(Pauses, NeighboursGetBackTheirPauseUpToTheLimitAndNothingElseChanges)
{
    const QList<Paragraph> paragraphs = recorded();
    EXPECT_DOUBLE_EQ(paragraphs[0].wordBlocks[1].pauseAfter, 1.0); // across paragraphs too
    EXPECT_EQ(paragraphs[1].wordBlocks[1].pauseAfter, 0.0);

    struct Case
    {
        QStringList kept;
        double limit;
        QList<std::pair<double, double>> times;
    };
    const QList<Case> cases {
        // Whole pauses fit: the words meet halfway and play as one stretch.
        {{u"a"_s, u"b"_s, u"c"_s, u"d"_s}, 2.0, {{0, 0.65}, {0.65, 1.7}, {1.7, 2.625}, {2.625, 3}}},
        // A longer pause keeps the limit, half on each side.
        {{u"a"_s, u"b"_s, u"c"_s}, 0.4, {{0, 0.65}, {0.65, 1.4}, {2.0, 2.6}}},
        // A deleted word between, a reorder, or no limit: the words stay as they are.
        {{u"a"_s, u"c"_s}, 2.0, {{0, 0.5}, {2.2, 2.6}}},
        {{u"c"_s, u"a"_s, u"b"_s}, 0.0, {{2.2, 2.6}, {0, 0.5}, {0.8, 1.2}}},
        {{u"b"_s, u"a"_s}, 2.0, {{0.8, 1.2}, {0, 0.5}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.kept.join(u' ').toStdString() + " limit " + std::to_string(c.limit));
        const QList<WordBlock> result = withPauses(words(paragraphs, c.kept), c.limit);
        ASSERT_EQ(result.size(), c.times.size());
        for (qsizetype i = 0; i < result.size(); ++i) {
            EXPECT_NEAR(result[i].mediaStart, c.times[i].first, 1e-9) << i;
            EXPECT_NEAR(result[i].mediaEnd, c.times[i].second, 1e-9) << i;
        }
    }

    // The map is made of the words with their pauses: the preview and exports hold them.
    QList<WordBlock> all = words(paragraphs, {u"a"_s, u"b"_s, u"c"_s, u"d"_s});
    for (qsizetype i = 0; i < all.size(); ++i)
        all[i].sortOrder = i;
    const CompositionPlan plan
        = planComposition(all, {{all[0].sourceFileId, {}, false, 10.0}}, 2.0);
    EXPECT_DOUBLE_EQ(plan.duration, 3.0);
    EXPECT_TRUE(plan.editList.continuesPrevious(3));
}

TEST(CutEdges, EdgesMoveIntoTheQuietestTenMillisecondsWithinReach)
{
    // 1 s of steady sound with quiet dips at 190 ms, 330 ms and 700 ms.
    std::vector<float> power(1000, 1.0f);
    for (const int dip : {190, 330, 700})
        for (int ms = dip - 5; ms < dip + 5; ++ms)
            power[size_t(ms)] = 0.001f;
    const QUuid source = QUuid::createUuid();
    Paragraph paragraph;
    paragraph.wordBlocks = {
        test::timedWord(0.150, 0.300, 0, source, u"a"_s), // start 40 ms from a dip, end 30
        test::timedWord(0.320, 0.500, 1, source, u"b"_s), // the dip at 330 is a's, not b's
        test::timedWord(0.600, 0.900, 2, source, u"c"_s), // no dip within 60 ms of either
        test::timedWord(0.950, 0.990, 3, QUuid::createUuid(), u"other"_s),
    };
    QList<Paragraph> paragraphs {paragraph};
    EXPECT_EQ(refineCutEdges(paragraphs, source, power), 2);
    const QList<WordBlock> &refined = paragraphs[0].wordBlocks;
    EXPECT_DOUBLE_EQ(refined[0].mediaStart, 0.190);
    // The end may reach 330 ms, but not past the next word's start at 320 ms.
    EXPECT_DOUBLE_EQ(refined[0].mediaEnd, 0.300);
    EXPECT_DOUBLE_EQ(refined[1].mediaStart, 0.330);
    EXPECT_DOUBLE_EQ(refined[2].mediaStart, 0.600);
    EXPECT_DOUBLE_EQ(refined[2].mediaEnd, 0.900);
    EXPECT_EQ(refined[3], paragraph.wordBlocks[3]);

    // In silence nothing moves.
    QList<Paragraph> silent {paragraph};
    EXPECT_EQ(refineCutEdges(silent, source, std::vector<float>(1000, 0.0f)), 0);
}
