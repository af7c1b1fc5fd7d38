#include "model/errors.h"
#include "model/paragraph.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

const QByteArray idKey = R"("id":"6C1D2E3F-0000-4000-8000-0000000000E2")";

// A word object with the four required keys followed by `extra` keys.
QByteArray wordJson(const QByteArray &extra = {})
{
    return "{" + idKey + R"(,"text":"a","mediaStart":0,"mediaEnd":1)" + extra + "}";
}

WordBlock sampleBlock()
{
    WordBlock b;
    b.id = QUuid::createUuid();
    b.text = u"say \"hi\"\\\n\t\u0001 😀"_s;
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

TEST(WordBlockJson, RoundTripsEveryFieldAndFillsDefaults)
{
    const WordBlock b = decodeWordBlock(wordJson());
    EXPECT_EQ(b.volumeLevel, 1.0f);
    EXPECT_FALSE(b.speakerLabel.has_value());
    // A missing source id is a fresh random one each time, never a fixed value.
    EXPECT_FALSE(b.sourceFileId.isNull());
    EXPECT_NE(decodeWordBlock(wordJson()).sourceFileId, b.sourceFileId);

    const WordBlock full = sampleBlock();
    const QByteArray bytes = encodeWordBlock(full);
    // The 32-bit volume is written as the short decimal a person would expect.
    EXPECT_TRUE(bytes.contains("\"volumeLevel\": 0.8\n")) << bytes.toStdString();
    EXPECT_EQ(decodeWordBlock(bytes), full);

    Paragraph p;
    p.id = QUuid::createUuid();
    p.wordBlocks = {full, sampleBlock()};
    EXPECT_EQ(decodeParagraph(encodeParagraph(p)), p);
    p.speakerLabel = u"2"_s;
    EXPECT_EQ(decodeParagraph(encodeParagraph(p)), p);
}

TEST(WordBlockJson, MissingKeysWrongTypesAndImpossibleTimesFail)
{
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
