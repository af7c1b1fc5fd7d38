#include "model/errors.h"
#include "model/timeline.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

WordBlock word(const QString &text, double start, double end, std::optional<QString> speaker = {},
               qint64 sortOrder = 0)
{
    WordBlock b = test::timedWord(start, end, sortOrder, {}, text);
    b.speakerLabel = std::move(speaker);
    return b;
}

Paragraph paragraph(qint64 sortOrder, QList<WordBlock> words)
{
    Paragraph p;
    p.id = QUuid::createUuid();
    p.sortOrder = sortOrder;
    p.wordBlocks = std::move(words);
    return p;
}

QStringList texts(const QList<WordBlock> &blocks)
{
    Paragraph p;
    p.wordBlocks = blocks;
    return test::wordTexts(p);
}

} // namespace

TEST(Flatten, OrdersByParagraphSortOrderStablyAndRenumbersWords)
{
    WordBlock deleted = word(u"c"_s, 2, 3);
    deleted.isDeleted = true;
    const QList<Paragraph> paragraphs {
        paragraph(5, {word(u"x"_s, 10, 11, {}, 40), word(u"y"_s, 11, 12, {}, 41)}),
        paragraph(1, {word(u"a"_s, 0, 1, {}, 99), word(u"b"_s, 1, 2), deleted}),
        paragraph(3, {}),
    };
    const QList<WordBlock> flat = flattenParagraphs(paragraphs);
    EXPECT_EQ(texts(flat), (QStringList {u"a"_s, u"b"_s, u"c"_s, u"x"_s, u"y"_s}));
    for (qsizetype i = 0; i < flat.size(); ++i)
        EXPECT_EQ(flat[i].sortOrder, i);

    // Equal sort orders keep the input order.
    const QList<Paragraph> tied {paragraph(0, {word(u"first"_s, 0, 1)}),
                                 paragraph(0, {word(u"second"_s, 5, 6)}),
                                 paragraph(-1, {word(u"zeroth"_s, 9, 10)})};
    EXPECT_EQ(texts(flattenParagraphs(tied)), (QStringList {u"zeroth"_s, u"first"_s, u"second"_s}));
}

TEST(Group, SplitsOnSpeakerChangeAndGapsLongerThanTwoSecondsInSortOrder)
{
    const std::optional<QString> none;
    const struct
    {
        const char *name;
        QList<WordBlock> words;
        QList<QStringList> paragraphs;
    } cases[] = {
        {"speaker and gap",
         {word(u"A"_s, 0.0, 0.5, u"1"_s, 0), word(u"B"_s, 2.5, 3.0, u"1"_s, 1),
          word(u"C"_s, 5.1, 5.4, u"1"_s, 2), word(u"D"_s, 5.5, 6.0, u"2"_s, 3)},
         {{u"A"_s, u"B"_s}, {u"C"_s}, {u"D"_s}}},
        // Given out of order; overlap joins; nil never matches a present label.
        {"sort order and nil speakers",
         {word(u"c"_s, 10.0, 10.5, none, 2), word(u"a"_s, 0.0, 1.0, none, 0),
          word(u"b"_s, 0.8, 1.2, none, 1), word(u"d"_s, 10.6, 11.0, u"x"_s, 3),
          word(u"e"_s, 11.0, 11.2, none, 4)},
         {{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s}, {u"e"_s}}},
        // "c" is measured against "b", not against the last word of its own speaker.
        {"gap across paragraphs",
         {word(u"a"_s, 0, 1, u"1"_s, 0), word(u"b"_s, 1, 2, u"2"_s, 1),
          word(u"c"_s, 3.5, 4, u"2"_s, 2)},
         {{u"a"_s}, {u"b"_s, u"c"_s}}},
        {"nothing", {}, {}},
    };
    for (const auto &c : cases) {
        const QList<Paragraph> paragraphs = groupWordBlocks(c.words);
        QList<QStringList> got;
        for (qsizetype i = 0; i < paragraphs.size(); ++i) {
            got.append(texts(paragraphs[i].wordBlocks));
            EXPECT_EQ(paragraphs[i].sortOrder, i) << c.name;
            EXPECT_EQ(paragraphs[i].speakerLabel, paragraphs[i].wordBlocks[0].speakerLabel);
        }
        EXPECT_EQ(got, c.paragraphs) << c.name;
    }
}

TEST(TimelineDocument, WritesSortedKeysReadsBackAndRejectsWhatIsNotATimeline)
{
    TimelineV2 timeline;
    timeline.paragraphs = {paragraph(0, {word(u"hello"_s, 0, 0.4, u"S"_s)}),
                           paragraph(1, {word(u"world"_s, 0.5, 0.9)})};
    const QByteArray bytes = encodeTimelineDocument(timeline);
    EXPECT_EQ(decodeTimelineDocument(bytes), timeline);
    // Keys in alphabetical order at every level, so saved files diff cleanly.
    EXPECT_LT(bytes.indexOf("\"paragraphs\""), bytes.indexOf("\"version\": 2"));
    EXPECT_LT(bytes.indexOf("\"fadeInDuration\""), bytes.indexOf("\"mediaEnd\""));

    for (const char *bad : {"not json", R"({"paragraphs": []})", R"({"version": 2})",
                            R"({"version": "2", "paragraphs": []})", "[]"})
        EXPECT_THROW(decodeTimelineDocument(bad), DecodeError) << bad;
    EXPECT_THROW(decodeFlatWordBlocks("[1]"), DecodeError);
}
