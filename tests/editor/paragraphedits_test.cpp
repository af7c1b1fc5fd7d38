#include "editor/paragraphedits.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

TEST(RemoveWords, DropsEmptiedParagraphsRenumbersAndSharesTheRest)
{
    const QList<Paragraph> doc
        = transcript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s, u"f"_s}, {u"g"_s}});
    const QList<Paragraph> result
        = edits::removeWords(doc, {wordId(doc, u"b"_s), wordId(doc, u"c"_s), wordId(doc, u"e"_s)});
    EXPECT_EQ(documentText(result), u"a | d f | g"_s);
    for (qsizetype i = 0; i < result.size(); ++i)
        EXPECT_EQ(result[i].sortOrder, i);
    EXPECT_EQ(result[0].id, doc[0].id);
    EXPECT_EQ(result[1].id, doc[2].id);
    // The untouched paragraph shares its word storage with the original: undo
    // snapshots of long transcripts must not copy every word on every edit.
    EXPECT_TRUE(result[2].wordBlocks.isSharedWith(doc[3].wordBlocks));
    EXPECT_EQ(documentText(doc), u"a b | c | d e f | g"_s) << "the input must be left alone";

    EXPECT_EQ(edits::removeWords(doc, {}), doc);
    EXPECT_EQ(edits::removeWords(doc, {QUuid::createUuid()}), doc);
    QList<Paragraph> withEmpty = doc;
    withEmpty.insert(1, transcript({{}}).first());
    EXPECT_EQ(edits::removeWords(withEmpty, {}).size(), 4)
        << "empty paragraphs never survive a delete";
}

TEST(MoveParagraphs, FollowsTheListMoveRule)
{
    const QList<Paragraph> doc = transcript({{u"0"_s}, {u"1"_s}, {u"2"_s}, {u"3"_s}});
    // Dragging paragraph 0 onto paragraph 2: from < to, so toOffset = to + 1.
    EXPECT_EQ(documentText(edits::moveParagraphs(doc, {0}, 3)), u"1 | 2 | 0 | 3"_s);
    // Dragging paragraph 2 onto paragraph 0.
    const QList<Paragraph> moved = edits::moveParagraphs(doc, {2}, 0);
    EXPECT_EQ(documentText(moved), u"2 | 0 | 1 | 3"_s);
    for (qsizetype i = 0; i < moved.size(); ++i)
        EXPECT_EQ(moved[i].sortOrder, i);
    EXPECT_EQ(documentText(edits::moveParagraphs(doc, {1, 3}, 0)), u"1 | 3 | 0 | 2"_s);
    EXPECT_EQ(documentText(edits::moveParagraphs(doc, {0, 1}, 4)), u"2 | 3 | 0 | 1"_s);
    EXPECT_EQ(documentText(edits::moveParagraphs(doc, {1}, 1)), u"0 | 1 | 2 | 3"_s);
    EXPECT_EQ(documentText(edits::moveParagraphs(doc, {9}, 0)), u"0 | 1 | 2 | 3"_s);
}

TEST(InsertWords, GivesFreshIdsAndClampsTheGap)
{
    QList<Paragraph> doc = transcript({{u"a"_s, u"d"_s}});
    const QList<Paragraph> clip = transcript({{u"b"_s, u"c"_s}});
    const QList<QUuid> ids = edits::insertWords(doc, doc[0].id, 1, clip[0].wordBlocks);
    EXPECT_EQ(documentText(doc), u"a b c d"_s);
    ASSERT_EQ(ids.size(), 2);
    EXPECT_NE(ids[0], clip[0].wordBlocks[0].id);
    EXPECT_EQ(doc[0].wordBlocks[1].id, ids[0]);
    edits::insertWords(doc, doc[0].id, 99, clip[0].wordBlocks);
    EXPECT_EQ(documentText(doc), u"a b c d b c"_s);
    EXPECT_TRUE(edits::insertWords(doc, QUuid::createUuid(), 0, clip[0].wordBlocks).isEmpty());
}

