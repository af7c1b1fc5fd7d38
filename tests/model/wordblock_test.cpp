#include "model/errors.h"
#include "model/paragraph.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <gtest/gtest.h>
#include <unordered_set>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

const QByteArray idKey = R"("id":"6C1D2E3F-0000-4000-8000-0000000000E2")";

QJsonObject asObject(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

// A word object with the four required keys followed by `extra` keys.
QByteArray wordJson(const QByteArray &extra = {})
{
    return "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":1)" + extra + "}";
}

WordBlock sampleBlock()
{
    WordBlock b;
    b.id = QUuid::createUuid();
    b.text = u"你好"_s;
    b.speakerLabel = u"1"_s;
    b.sourceFileId = QUuid::createUuid();
    b.mediaStart = 1.25;
    b.mediaEnd = 1.5;
    b.isFiller = true;
    b.sortOrder = 7;
    b.volumeLevel = 0.8f;
    b.fadeInDuration = 0.1;
    return b;
}

} // namespace

TEST(WordBlockJson, MinimalObjectTakesEveryDefaultAndEncodesEveryKey)
{
    const QByteArray o("{" + idKey + R"(,"text":"hi","mediaStart":0.5,"mediaEnd":0.75})");
    const WordBlock b = decodeWordBlock(o);
    WordBlock expected;
    expected.id = QUuid(u"6C1D2E3F-0000-4000-8000-0000000000E2"_s);
    expected.text = u"hi"_s;
    expected.sourceFileId = b.sourceFileId;
    expected.mediaStart = 0.5;
    expected.mediaEnd = 0.75;
    EXPECT_EQ(b, expected);
    // A missing source id is a fresh random one each time, never a fixed value.
    EXPECT_FALSE(b.sourceFileId.isNull());
    EXPECT_NE(decodeWordBlock(o).sourceFileId, decodeWordBlock(o).sourceFileId);

    // Encoding writes every key, defaults included, except the nil speaker.
    const QJsonObject encoded = asObject(encodeWordBlock(b));
    EXPECT_EQ(encoded.size(), 13);
    EXPECT_FALSE(encoded.contains("speakerLabel"_L1));
    EXPECT_EQ(encoded.value("volumeLevel"_L1).toDouble(), 1.0);
    EXPECT_EQ(encoded.value("isDeleted"_L1), QJsonValue(false));
    EXPECT_EQ(encoded.value("id"_L1).toString(), u"6C1D2E3F-0000-4000-8000-0000000000E2"_s);

    const WordBlock full = sampleBlock();
    const QByteArray bytes = encodeWordBlock(full);
    EXPECT_EQ(asObject(bytes).size(), 14);
    // The 32-bit volume is written as the short decimal a person would expect.
    EXPECT_TRUE(bytes.contains("\"volumeLevel\": 0.8\n")) << bytes.toStdString();
    EXPECT_EQ(decodeWordBlock(bytes), full);

    // Text that needs escaping survives, and so do ids with every hex digit.
    WordBlock tricky = full;
    tricky.text = u"say \"hi\"\\\n\t\u0001 😀"_s;
    tricky.id = QUuid(u"ABCDEF01-2345-6789-ABCD-EF0123456789"_s);
    EXPECT_TRUE(encodeWordBlock(tricky).contains("\"ABCDEF01-2345-6789-ABCD-EF0123456789\""));
    EXPECT_EQ(decodeWordBlock(encodeWordBlock(tricky)), tricky);
}

TEST(WordBlockJson, MissingKeysWrongTypesAndImpossibleTimesFail)
{
    const QByteArray bad[] = {
        R"({"text":"a","mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":0})",
        R"({"id":null,"text":"a","mediaStart":0,"mediaEnd":1})",
        R"({"id":"not-a-uuid","text":"a","mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":5,"mediaStart":0,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":"0","mediaEnd":1})",
        wordJson(R"(,"isMuted":"yes")"),
        wordJson(R"(,"sortOrder":1.5)"),
        wordJson(R"(,"speakerLabel":3)"),
        wordJson(R"(,"sourceFileId":12)"),
        // Times no recording has: they would otherwise reach the subtitle writer's stop.
        "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":1e300})",
        "{" + idKey + R"(,"text":"a","mediaStart":-4e5,"mediaEnd":1})",
        "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":360001})",
    };
    for (const QByteArray &text : bad)
        EXPECT_THROW(decodeWordBlock(text), DecodeError) << text.toStdString();

    // Unknown keys are ignored, explicit nulls of optional keys mean "absent", and a
    // whole-number float is an acceptable integer.
    const WordBlock lenient
        = decodeWordBlock(wordJson(R"(,"future":{"x":1},"speakerLabel":null,"sortOrder":3.0)"));
    EXPECT_FALSE(lenient.speakerLabel.has_value());
    EXPECT_EQ(lenient.sortOrder, 3);

    // Errors name where they happened.
    try {
        const QByteArray second = "{" + idKey + R"(,"text":"b","mediaStart":0})";
        const QByteArray paragraph
            = "{" + idKey + R"(,"sortOrder":0,"wordBlocks":[)" + wordJson() + "," + second + "]}";
        decodeParagraph(paragraph);
        FAIL() << "expected a decode error";
    } catch (const DecodeError &error) {
        EXPECT_EQ(error.where(), u"wordBlocks[1].mediaEnd"_s);
        EXPECT_TRUE(error.description().contains(u"mediaEnd"_s));
    }
}

TEST(ParagraphJson, OnlySpeakerMayBeAbsent)
{
    EXPECT_THROW(decodeParagraph(QByteArray("{" + idKey + R"(,"wordBlocks":[]})")), DecodeError);
    EXPECT_THROW(decodeParagraph(QByteArray("{" + idKey + R"(,"sortOrder":1})")), DecodeError);

    Paragraph p;
    p.id = QUuid::createUuid();
    p.sortOrder = 4;
    p.wordBlocks = {sampleBlock(), sampleBlock()};
    EXPECT_FALSE(asObject(encodeParagraph(p)).contains("speakerLabel"_L1));
    EXPECT_EQ(decodeParagraph(encodeParagraph(p)), p);
    p.speakerLabel = u"2"_s;
    EXPECT_EQ(asObject(encodeParagraph(p)).value("speakerLabel"_L1).toString(), u"2"_s);
    EXPECT_EQ(decodeParagraph(encodeParagraph(p)), p);
}

// Undo, the player's rebuild check and the save all compare words by value: a field left
// out of equality would make an edit of it invisible to them.
TEST(WordBlockIdentity, EqualityAndHashCoverEveryField)
{
    const WordBlock a = sampleBlock();
    EXPECT_EQ(a, WordBlock(a));
    EXPECT_EQ(qHash(a), qHash(WordBlock(a)));
    const std::function<void(WordBlock &)> changes[] = {
        [](WordBlock &b) { b.isDeleted = true; },
        [](WordBlock &b) { b.speakerLabel.reset(); },
        [](WordBlock &b) { b.fadeOutDuration = 0.01; },
    };
    for (const auto &change : changes) {
        WordBlock b = a;
        change(b);
        EXPECT_NE(a, b);
        EXPECT_NE(qHash(a), qHash(b));
    }

    // An absent speaker and an empty one are different values.
    WordBlock empty = a, none = a;
    empty.speakerLabel = QString();
    none.speakerLabel.reset();
    EXPECT_NE(empty, none);
    EXPECT_NE(qHash(empty), qHash(none));

    // Numeric equality for floats: signed zeros are equal (and hash alike), NaN is not.
    WordBlock zero = a, negativeZero = a, nan = a;
    zero.mediaStart = 0.0;
    negativeZero.mediaStart = -0.0;
    nan.mediaEnd = std::nan("");
    EXPECT_EQ(zero, negativeZero);
    EXPECT_EQ(qHash(zero), qHash(negativeZero));
    EXPECT_NE(nan, nan);
    EXPECT_EQ((std::unordered_set<WordBlock> {a, zero, negativeZero}).size(), 2u);

    Paragraph p;
    p.wordBlocks = {a};
    Paragraph q = p;
    EXPECT_EQ(qHash(p), qHash(q));
    q.wordBlocks.first().volumeLevel = 0.5f;
    EXPECT_NE(p, q);
    q = p;
    q.speakerLabel = u"A"_s;
    EXPECT_NE(p, q);
}

TEST(ParagraphDuration, SumsEveryWordIncludingDeletedOnes)
{
    Paragraph p;
    EXPECT_EQ(p.totalDuration(), 0.0);
    WordBlock a = sampleBlock(), b = sampleBlock();
    b.mediaStart = 3.0;
    b.mediaEnd = 3.5;
    b.isDeleted = true;
    p.wordBlocks = {a, b};
    EXPECT_DOUBLE_EQ(p.totalDuration(), 0.75);
}
