// Word times that are changed before the composition map is made: pauses given back
// between neighbours, and recognised edges moved into the quiet beside them.
#include "model/projectmetadata.h"
#include "support/transcriptbuilder.h"
#include "timing/compositionmap.h"
#include "timing/cutedges.h"
#include "timing/pauses.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

// Each word's (start, end) to the microsecond, so that a whole result compares at once.
QList<std::pair<double, double>> spans(const QList<WordBlock> &words)
{
    QList<std::pair<double, double>> times;
    for (const WordBlock &w : words)
        times.append({std::round(w.mediaStart * 1e6) / 1e6, std::round(w.mediaEnd * 1e6) / 1e6});
    return times;
}

} // namespace

TEST(Pauses, NeighboursGetBackTheirPauseUpToTheLimitAndNothingElseChanges)
{
    // Four words of one recording, with pauses of 0.3, 1.0 (across paragraphs) and 0.05 s.
    const QUuid source = QUuid::createUuid();
    const auto word = [&](double start, double end, qint64 order, const QString &text) {
        return test::timedWord(start, end, order, source, text);
    };
    QList<Paragraph> paragraphs {
        {{}, {word(0.0, 0.5, 0, u"a"_s), word(0.8, 1.2, 1, u"b"_s)}, 0, {}},
        {{}, {word(2.2, 2.6, 0, u"c"_s), word(2.65, 3.0, 1, u"d"_s)}, 1, {}}};
    recordPauses(paragraphs);
    const auto words = [&](const QString &texts) {
        QList<WordBlock> picked;
        for (const QChar text : texts)
            picked.append(paragraphs[text > u'b'].wordBlocks[(text.unicode() - u'a') % 2]);
        return picked;
    };

    const struct
    {
        QString kept;
        double limit;
        QList<std::pair<double, double>> times;
    } cases[] = {
        // Whole pauses fit: the words meet halfway and play as one stretch.
        {u"abcd"_s, 2.0, {{0, 0.65}, {0.65, 1.7}, {1.7, 2.625}, {2.625, 3}}},
        {u"abc"_s, wholePauses, {{0, 0.65}, {0.65, 1.7}, {1.7, 2.6}}},
        // A longer pause keeps the limit, half on each side.
        {u"abc"_s, 0.4, {{0, 0.65}, {0.65, 1.4}, {2.0, 2.6}}},
        // A deleted word between, a reorder, or no limit: the words stay as they are.
        {u"ac"_s, 2.0, {{0, 0.5}, {2.2, 2.6}}},
        {u"cab"_s, 0.0, {{2.2, 2.6}, {0, 0.5}, {0.8, 1.2}}},
        {u"ba"_s, 2.0, {{0.8, 1.2}, {0, 0.5}}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(spans(withPauses(words(c.kept), c.limit)), c.times) << c.kept.toStdString();

    // The map is made of the words with their pauses: the preview and exports hold them.
    QList<WordBlock> all = words(u"abcd"_s);
    for (qsizetype i = 0; i < all.size(); ++i)
        all[i].sortOrder = i;
    const CompositionPlan plan = planComposition(all, {{source, {}, false, 10.0}}, 2.0);
    EXPECT_DOUBLE_EQ(plan.duration, 3.0);
    EXPECT_TRUE(plan.editList.continuesPrevious(3));
}

TEST(CutEdges, EdgesMoveIntoTheQuietestTenMillisecondsWithinReach)
{
    // 1 s of steady sound with quiet dips at 190 ms, 330 ms and 700 ms.
    std::vector<float> power(1000, 1.0f);
    for (const int dip : {190, 330, 700})
        std::fill_n(power.begin() + dip - 5, 10, 0.001f);
    const QUuid source = QUuid::createUuid();
    Paragraph paragraph;
    paragraph.wordBlocks = {
        test::timedWord(0.150, 0.300, 0, source), // start 40 ms from a dip, end 30
        test::timedWord(0.320, 0.500, 1, source), // the dip at 330 is a's, not b's
        test::timedWord(0.600, 0.900, 2, source), // no dip within 60 ms of either
        test::timedWord(0.950, 0.990, 3, QUuid::createUuid()),
    };
    QList<Paragraph> paragraphs {paragraph};
    EXPECT_EQ(refineCutEdges(paragraphs, source, power), 2);
    // The first end may reach 330 ms, but not past the next word's start at 320 ms.
    EXPECT_EQ(spans(paragraphs[0].wordBlocks),
              (QList<std::pair<double, double>> {
                  {0.190, 0.300}, {0.330, 0.500}, {0.600, 0.900}, {0.950, 0.990}}));

    QList<Paragraph> silent {paragraph};
    EXPECT_EQ(refineCutEdges(silent, source, std::vector<float>(1000, 0.0f)), 0);
}
