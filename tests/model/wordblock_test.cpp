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

QJsonObject asObject(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
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

TEST(WordBlockJson, MinimalObjectTakesEveryDefault)
{
    const QByteArray o(
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"hi","mediaStart":0.5,"mediaEnd":0.75})");
    const WordBlock b = decodeWordBlock(o);
    WordBlock expected;
    expected.id = QUuid(u"6C1D2E3F-0000-4000-8000-0000000000E2"_s);
    expected.text = u"hi"_s;
    expected.sourceFileId = b.sourceFileId;
    expected.mediaStart = 0.5;
    expected.mediaEnd = 0.75;
    EXPECT_EQ(b, expected);
    EXPECT_FALSE(b.sourceFileId.isNull());

    // A missing source id is a fresh random one each time, never a fixed value.
    EXPECT_NE(decodeWordBlock(o).sourceFileId, decodeWordBlock(o).sourceFileId);

    // Encoding writes every key, defaults included, except the nil speaker.
    const QJsonObject encoded = asObject(encodeWordBlock(b));
    EXPECT_EQ(encoded.size(), 13);
    EXPECT_FALSE(encoded.contains("speakerLabel"_L1));
    EXPECT_EQ(encoded.value("volumeLevel"_L1).toDouble(), 1.0);
    EXPECT_EQ(encoded.value("isDeleted"_L1), QJsonValue(false));
    EXPECT_EQ(encoded.value("id"_L1).toString(), u"6C1D2E3F-0000-4000-8000-0000000000E2"_s);
}

TEST(WordBlockJson, RoundTripKeepsEveryField)
{
    const WordBlock b = sampleBlock();
    const QByteArray encoded = encodeWordBlock(b);
    EXPECT_EQ(asObject(encoded).size(), 14);
    // The 32-bit volume is written as the short decimal a person would expect.
    EXPECT_TRUE(encoded.contains("\"volumeLevel\": 0.8\n")) << encoded.toStdString();
    EXPECT_EQ(decodeWordBlock(encoded), b);

    // Text that needs escaping survives, and so do ids with every hex digit.
    WordBlock tricky = b;
    tricky.text = u"say \"hi\"\\\n\t\u0001 😀"_s;
    tricky.id = QUuid(u"ABCDEF01-2345-6789-ABCD-EF0123456789"_s);
    EXPECT_TRUE(encodeWordBlock(tricky).contains("\"ABCDEF01-2345-6789-ABCD-EF0123456789\""));
    EXPECT_EQ(decodeWordBlock(encodeWordBlock(tricky)), tricky);
    EXPECT_EQ(asObject(encodeWordBlock(tricky)).value("text"_L1).toString(), tricky.text);
}

TEST(WordBlockJson, RequiredKeysAndWrongTypesFail)
{
    const char *missing[] = {
        R"({"text":"a","mediaStart":0,"mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","mediaStart":0,"mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0})",
        R"({"id":null,"text":"a","mediaStart":0,"mediaEnd":1})",
    };
    for (const char *text : missing)
        EXPECT_THROW(decodeWordBlock(QByteArray(text)), DecodeError) << text;

    const char *wrongType[] = {
        R"({"id":"not-a-uuid","text":"a","mediaStart":0,"mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":5,"mediaStart":0,"mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":"0","mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1,"isMuted":"yes"})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1,"sortOrder":1.5})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1,"speakerLabel":3})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1,"sourceFileId":12})",
        // Times no recording has: they would otherwise reach the subtitle writer's stop.
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1e300})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":-4e5,"mediaEnd":1})",
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":360001})",
    };
    for (const char *text : wrongType)
        EXPECT_THROW(decodeWordBlock(QByteArray(text)), DecodeError) << text;

    // Unknown keys are ignored, explicit nulls of optional keys mean "absent", and a
    // whole-number float is an acceptable integer.
    const WordBlock lenient = decodeWordBlock(QByteArray(
        R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1,
            "future":{"x":1},"speakerLabel":null,"sortOrder":3.0})"));
    EXPECT_FALSE(lenient.speakerLabel.has_value());
    EXPECT_EQ(lenient.sortOrder, 3);
}

TEST(WordBlockJson, ErrorsNameWhereTheyHappened)
{
    const QByteArray o(R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","sortOrder":0,
        "wordBlocks":[{"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"a","mediaStart":0,"mediaEnd":1},
                      {"id":"6C1D2E3F-0000-4000-8000-0000000000E2","text":"b","mediaStart":0}]})");
    try {
        decodeParagraph(o);
        FAIL() << "expected a decode error";
    } catch (const DecodeError &error) {
        EXPECT_EQ(error.where(), u"wordBlocks[1].mediaEnd"_s);
        EXPECT_TRUE(error.description().contains(u"mediaEnd"_s));
    }
}

TEST(ParagraphJson, OnlySpeakerMayBeAbsent)
{
    const char *noSortOrder = R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","wordBlocks":[]})";
    EXPECT_THROW(decodeParagraph(noSortOrder), DecodeError);
    const char *noWords = R"({"id":"6C1D2E3F-0000-4000-8000-0000000000E2","sortOrder":1})";
    EXPECT_THROW(decodeParagraph(noWords), DecodeError);

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

TEST(WordBlockIdentity, EqualityAndHashCoverEveryField)
{
    const WordBlock a = sampleBlock();
    WordBlock b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));

    b.isDeleted = true;
    EXPECT_NE(a, b);
    b = a;
    b.speakerLabel.reset();
    EXPECT_NE(a, b);
    b = a;
    b.fadeOutDuration = 0.01;
    EXPECT_NE(a, b);

    // Numeric equality for floats: signed zeros are equal (and hash alike), NaN is not.
    WordBlock zero = a;
    zero.mediaStart = 0.0;
    WordBlock negativeZero = a;
    negativeZero.mediaStart = -0.0;
    EXPECT_EQ(zero, negativeZero);
    EXPECT_EQ(qHash(zero), qHash(negativeZero));
    WordBlock nan = a;
    nan.mediaEnd = std::nan("");
    EXPECT_NE(nan, nan);

    // Usable as a key of standard and Qt hashed containers.
    std::unordered_set<WordBlock> set {a, b, zero, negativeZero};
    EXPECT_EQ(set.size(), 3u);

    // An absent speaker and an empty one are different values.
    WordBlock empty = a;
    empty.speakerLabel = QString();
    WordBlock none = a;
    none.speakerLabel.reset();
    EXPECT_NE(empty, none);
    EXPECT_NE(qHash(empty), qHash(none));
}

TEST(ParagraphIdentity, EqualityFollowsWordsAndHashAgrees)
{
    Paragraph p;
    p.id = QUuid::createUuid();
    p.wordBlocks = {sampleBlock()};
    Paragraph q = p;
    EXPECT_EQ(p, q);
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
    WordBlock a = sampleBlock();
    a.mediaStart = 1.0;
    a.mediaEnd = 1.5;
    WordBlock b = a;
    b.mediaStart = 3.0;
    b.mediaEnd = 3.25;
    b.isDeleted = true;
    p.wordBlocks = {a, b};
    EXPECT_DOUBLE_EQ(p.totalDuration(), 0.75);
}
