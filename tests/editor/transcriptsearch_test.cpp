#include "editor/transcriptsearch.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

TEST(TranscriptSearch, MatchesAcrossWordJoinsIgnoringCase)
{
    const QList<Paragraph> doc = transcript({{u"x"_s, u"a"_s, u"B"_s, u"y"_s}, {u"Ab"_s}});
    const QList<SearchHit> hits = searchTranscript(doc, u"  ab \n"_s);
    ASSERT_EQ(hits.size(), 2);
    EXPECT_EQ(hits[0].paragraphId, doc[0].id);
    EXPECT_EQ(hits[0].blockIds, (QList<QUuid> {wordId(doc, u"a"_s), wordId(doc, u"B"_s)}));
    EXPECT_EQ(hits[1].paragraphId, doc[1].id);
    EXPECT_EQ(hits[1].blockIds, QList<QUuid> {wordId(doc, u"Ab"_s)});

    EXPECT_EQ(searchTranscript(doc, u"XAB"_s).size(), 1);
    // Matching never runs from one paragraph into the next.
    EXPECT_TRUE(searchTranscript(doc, u"yab"_s).isEmpty());
    EXPECT_TRUE(searchTranscript(doc, u"   "_s).isEmpty());
    EXPECT_TRUE(searchTranscript(doc, QString()).isEmpty());
}

TEST(TranscriptSearch, OccurrencesDoNotOverlapAndTouchEveryWordTheyCross)
{
    const QList<Paragraph> doc
        = transcript({{u"aa"_s, u"aa"_s}, {u"我们"_s, u"今天"_s, u"讨论"_s}});
    EXPECT_EQ(searchTranscript(doc, u"aa"_s).size(), 2);
    const QList<SearchHit> three = searchTranscript(doc, u"aaa"_s);
    ASSERT_EQ(three.size(), 1);
    EXPECT_EQ(three[0].blockIds.size(), 2);

    const QList<SearchHit> chinese = searchTranscript(doc, u"们今天讨"_s);
    ASSERT_EQ(chinese.size(), 1);
    EXPECT_EQ(chinese[0].blockIds.size(), 3);
}

TEST(TranscriptSearch, EmptyWordsAreNeverPartOfAHit)
{
    QList<Paragraph> doc = transcript({{u"ab"_s, u""_s, u"cd"_s}});
    const QList<SearchHit> hits = searchTranscript(doc, u"bc"_s);
    ASSERT_EQ(hits.size(), 1);
    EXPECT_EQ(hits[0].blockIds, (QList<QUuid> {wordId(doc, u"ab"_s), wordId(doc, u"cd"_s)}));
}
