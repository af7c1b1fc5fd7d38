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

const QByteArray idKey = R"("id":"6C1D2E3F-0000-4000-8000-0000000000E2")";

// A word object with the four required keys followed by `extra` keys.
QByteArray wordJson(const QByteArray &extra = {})
{
    return "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":1)" + extra + "}";
}

WordBlock sampleBlock()
{
    WordBlock b = word(u"say \"hi\"\\\n\t\u0001 😀"_s, 1.25, 1.5, u"1"_s, 7);
    b.sourceFileId = QUuid::createUuid();
    b.isFiller = true;
    b.volumeLevel = 0.8f;
    b.fadeInDuration = 0.1;
    b.confidence = 0.35;
    return b;
}

} // namespace

TEST(Timeline, FlattensByParagraphOrderAndGroupsOnSpeakerChangesAndLongGaps)
{
    WordBlock deleted = word(u"c"_s, 2, 3);
    deleted.isDeleted = true;
    const QList<Paragraph> paragraphs {
        paragraph(5, {word(u"x"_s, 10, 11, {}, 40), word(u"y"_s, 11, 12, {}, 41)}),
        paragraph(1, {word(u"a"_s, 0, 1, {}, 99), word(u"b"_s, 1, 2), deleted}), paragraph(3, {}),
        paragraph(1, {word(u"tied"_s, 9, 10)}), // equal sort orders keep the input order
    };
    const QList<WordBlock> flat = flattenParagraphs(paragraphs);
    EXPECT_EQ(test::documentText({paragraph(0, flat)}), u"a b c tied x y"_s);
    for (qsizetype i = 0; i < flat.size(); ++i)
        EXPECT_EQ(flat[i].sortOrder, i);

    // Grouping goes the other way: a new paragraph on a change of speaker or a gap longer
    // than two seconds, in sort order. The plain case is walked by the project test that
    // opens an old timeline.
    const std::optional<QString> none;
    const struct
    {
        const char *name;
        QList<WordBlock> words;
        QString paragraphs;
    } cases[] = {
        // Given out of order; overlap joins; nil never matches a present label.
        {"sort order and nil speakers",
         {word(u"c"_s, 10.0, 10.5, none, 2), word(u"a"_s, 0.0, 1.0, none, 0),
          word(u"b"_s, 0.8, 1.2, none, 1), word(u"d"_s, 10.6, 11.0, u"x"_s, 3),
          word(u"e"_s, 11.0, 11.2, none, 4)},
         u"a b | c | d | e"_s},
        // "c" is measured against "b", not against the last word of its own speaker.
        {"gap across paragraphs",
         {word(u"a"_s, 0, 1, u"1"_s, 0), word(u"b"_s, 1, 2, u"2"_s, 1),
          word(u"c"_s, 3.5, 4, u"2"_s, 2)},
         u"a | b c"_s},
        {"nothing", {}, {}},
    };
    for (const auto &c : cases) {
        const QList<Paragraph> grouped = groupWordBlocks(c.words);
        EXPECT_EQ(test::documentText(grouped), c.paragraphs) << c.name;
        for (qsizetype i = 0; i < grouped.size(); ++i) {
            EXPECT_EQ(grouped[i].sortOrder, i) << c.name;
            EXPECT_EQ(grouped[i].speakerLabel, grouped[i].wordBlocks[0].speakerLabel);
        }
    }
}

TEST(WordBlockJson, RoundTripsEveryFieldFillsDefaultsAndRefusesWhatNoRecordingHas)
{
    const WordBlock b = decodeWordBlock(wordJson());
    EXPECT_EQ(b.volumeLevel, 1.0f);
    EXPECT_FALSE(b.speakerLabel.has_value());
    // Files from before the recogniser's doubt was kept hold words it was sure of.
    EXPECT_EQ(b.confidence, 1.0);
    EXPECT_FALSE(b.needsCheck());
    // A missing source id is a fresh random one each time, never a fixed value.
    EXPECT_FALSE(b.sourceFileId.isNull());
    EXPECT_NE(decodeWordBlock(wordJson()).sourceFileId, b.sourceFileId);

    const WordBlock full = sampleBlock();
    const QByteArray bytes = encodeWordBlock(full);
    // The 32-bit volume is written as the short decimal a person would expect.
    EXPECT_TRUE(bytes.contains("\"volumeLevel\": 0.8\n")) << bytes.toStdString();
    EXPECT_EQ(decodeWordBlock(bytes), full);
    EXPECT_TRUE(full.needsCheck());
    // A word the recogniser was sure of carries no confidence key at all.
    EXPECT_TRUE(bytes.contains("\"confidence\": 0.35")) << bytes.toStdString();
    EXPECT_FALSE(encodeWordBlock(decodeWordBlock(wordJson())).contains("confidence"));
    EXPECT_TRUE(decodeWordBlock(wordJson(R"(,"confidence":0.6)")).confidence == 0.6
                && !decodeWordBlock(wordJson(R"(,"confidence":0.6)")).needsCheck());
    Paragraph p = paragraph(3, {full, sampleBlock()});
    // Keys in alphabetical order at every level, so saved files diff cleanly.
    const QByteArray document = encodeTimelineDocument({2, {p}});
    EXPECT_EQ(decodeTimelineDocument(document).paragraphs, QList<Paragraph> {p});
    EXPECT_LT(document.indexOf("\"paragraphs\""), document.indexOf("\"version\": 2"));
    EXPECT_LT(document.indexOf("\"fadeInDuration\""), document.indexOf("\"mediaEnd\""));
    p.speakerLabel = u"2"_s;
    EXPECT_EQ(decodeParagraph(encodeParagraph(p)), p);

    const QByteArray bad[] = {
        R"({"text":"a","mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":0})",
        R"({"id":"not-a-uuid","text":"a","mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":5,"mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":"0","mediaEnd":1})",
        wordJson(R"(,"isMuted":"yes")"),
        wordJson(R"(,"sortOrder":1.5)"),
        wordJson(R"(,"confidence":"low")"),
        wordJson(R"(,"confidence":1.5)"),
        wordJson(R"(,"confidence":-0.1)"),
        // Times no recording has: they would otherwise reach the subtitle writer's stop.
        "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":1e300})",
        "{" + idKey + R"(,"text":"a","mediaStart":-4e5,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":360001})",
    };
    for (const QByteArray &text : bad)
        EXPECT_THROW(decodeWordBlock(text), DecodeError) << text.toStdString();
    EXPECT_THROW(decodeParagraph(QByteArray("{" + idKey + R"(,"wordBlocks":[]})")), DecodeError);

    // Unknown keys are ignored, explicit nulls of optional keys mean "absent", and a
    // whole-number float is an acceptable integer.
    const WordBlock lenient
        = decodeWordBlock(wordJson(R"(,"future":{"x":1},"speakerLabel":null,"sortOrder":3.0)"));
    EXPECT_FALSE(lenient.speakerLabel.has_value());
    EXPECT_EQ(lenient.sortOrder, 3);

    // Errors name where they happened.
    try {
        const QByteArray second = "{" + idKey + R"(,"text":"b","mediaStart":0})";
        decodeParagraph(QByteArray("{" + idKey + R"(,"sortOrder":0,"wordBlocks":[)" + wordJson()
                                   + "," + second + "]}"));
        FAIL() << "expected a decode error";
    } catch (const DecodeError &error) {
        EXPECT_EQ(error.where(), u"wordBlocks[1].mediaEnd"_s);
    }
}

// Undo, the player's rebuild check and the save all compare words by value: a field left
// out of equality would make an edit of it invisible to them.
TEST(WordBlockIdentity, EqualityAndHashCoverEveryField)
{
    const WordBlock a = sampleBlock();
    const std::function<void(WordBlock &)> changes[] = {
        [](WordBlock &b) { b.isDeleted = true; },
        [](WordBlock &b) { b.speakerLabel.reset(); },
        [](WordBlock &b) { b.speakerLabel = QString(); },
        [](WordBlock &b) { b.fadeOutDuration = 0.01; },
        [](WordBlock &b) { b.volumeLevel = 0.5f; },
        [](WordBlock &b) { b.confidence = 1.0; },
    };
    for (const auto &change : changes) {
        WordBlock b = a;
        change(b);
        EXPECT_NE(a, b);
        EXPECT_NE(qHash(a), qHash(b));
    }
    // Signed zeros are one time (and hash alike).
    WordBlock zero = a, negativeZero = a;
    zero.mediaStart = 0.0;
    negativeZero.mediaStart = -0.0;
    EXPECT_EQ(zero, negativeZero);
    EXPECT_EQ(qHash(zero), qHash(negativeZero));
}
