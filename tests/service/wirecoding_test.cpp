#include "service/apiclient.h"
#include "service/transcriptionrecords.h"
#include "service/wirecoding.h"

#include <QSet>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::service;
using namespace Qt::StringLiterals;

TEST(WireCoding, KeysConvertBetweenCamelAndSnakeCase)
{
    const QList<std::pair<QString, QString>> pairs {
        {u"taskId"_s, u"task_id"_s},
        {u"mediaStart"_s, u"media_start"_s},
        {u"accessToken"_s, u"access_token"_s},
        {u"status"_s, u"status"_s},
        {u"_privateKey_"_s, u"_private_key_"_s},
    };
    for (const auto &[camel, snake] : pairs) {
        EXPECT_EQ(wire::toSnakeCase(camel), snake) << camel.toStdString();
        EXPECT_EQ(wire::fromSnakeCase(snake), camel) << snake.toStdString();
    }
    const QJsonObject nested {{u"wordBlocks"_s, QJsonArray {QJsonObject {{u"isFiller"_s, true}}}}};
    const QJsonValue snake = wire::keysToSnakeCase(nested);
    EXPECT_TRUE(snake[u"word_blocks"_s][0][u"is_filler"_s].toBool());
    EXPECT_EQ(wire::keysFromSnakeCase(snake), QJsonValue(nested));
}

TEST(WireCoding, DatesDecodeWithOrWithoutFractionalSeconds)
{
    const auto date = [](const char *text) {
        return wire::decodeDate(QJsonValue(QString::fromLatin1(text)), u"createdAt"_s);
    };
    const QDateTime expected(QDate(2024, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
    EXPECT_EQ(date("2024-01-02T03:04:05.678Z"), expected);
    EXPECT_EQ(date("2024-01-02T03:04:05Z"), expected.addMSecs(-678));
    EXPECT_EQ(date("2024-01-02T11:04:05+08:00"), expected.addMSecs(-678));

    for (const char *bad : {"2024-01-02", "2024-01-02T03:04:05", "2024-13-02T03:04:05Z", ""}) {
        try {
            date(bad);
            ADD_FAILURE() << "accepted " << bad;
        } catch (const DecodeError &error) {
            EXPECT_EQ(error.reason(), u"日期无法解析"_s);
            EXPECT_EQ(error.detail(), QString::fromLatin1(bad));
            EXPECT_EQ(error.where(), u"createdAt");
        }
    }
}

TEST(WireCoding, TranscriptionResultDecodesAndPointsAtBadWords)
{
    const TranscriptionResult running
        = wire::decode<TranscriptionResult>(R"({"task_id":"t1","status":"processing"})");
    EXPECT_FALSE(running.isCompleted());
    EXPECT_FALSE(running.isFailed());
    EXPECT_FALSE(running.paragraphs);

    const TranscriptionResult done = wire::decode<TranscriptionResult>(R"({
        "task_id":"t1","status":"completed","paragraphs":[{"paragraph_id":"p","speaker_label":"A",
        "word_blocks":[{"text":"hi","media_start":0.5,"media_end":0.75,"is_filler":false,
        "sort_order":7}]}]})");
    ASSERT_TRUE(done.paragraphs);
    ASSERT_EQ(done.paragraphs->size(), 1);
    const WordBlockPayload &word = done.paragraphs->at(0).wordBlocks.at(0);
    EXPECT_EQ(word.text, u"hi");
    EXPECT_EQ(word.mediaStart, 0.5);
    EXPECT_EQ(word.sortOrder, 7);
    EXPECT_EQ(done.paragraphs->at(0).speakerLabel, u"A"_s);
    // Payload records are values: equal records hash alike and collapse in a set.
    const QSet<ParagraphPayload> set {done.paragraphs->at(0), done.paragraphs->at(0)};
    EXPECT_EQ(set.size(), 1);

    EXPECT_THROW(wire::decode<wire::EmptyResponse>("[]"), DecodeError);
    EXPECT_THROW(wire::decode<wire::EmptyResponse>("not json"), DecodeError);
    try {
        wire::decode<TranscriptionResult>(
            R"({"task_id":"t","status":"completed","paragraphs":[
            {"word_blocks":[{"text":"a","media_start":0,"media_end":1,"is_filler":false,
            "sort_order":0},{"text":"b","media_start":"x","media_end":1,"is_filler":false,
            "sort_order":1}]}]})");
        ADD_FAILURE() << "accepted a string time";
    } catch (const DecodeError &error) {
        EXPECT_EQ(error.where(), u"paragraphs[0].wordBlocks[1].mediaStart");
        EXPECT_EQ(APIError::decodingError(error).description(),
                  u"数据解析错误: "_s + error.description());
    }
}

// The upload's body is checked byte for byte against a stub server in
// apiclient_test.
TEST(APIClientAddressing, MediaTypeFollowsTheExtensionAndPathsJoinWithOneSlash)
{
    const QList<std::pair<const char *, const char *>> types {
        {"a.m4a", "audio/mp4"},
        {"a.MP4", "audio/mp4"},
        {"a.wav", "audio/wav"},
        {"a.mp3", "audio/mpeg"},
        {"a.aac", "audio/aac"},
        {"a.aiff", "audio/aiff"},
        {"a.Aif", "audio/aiff"},
        {"a.flac", "audio/flac"},
        {"a.ogg", "audio/ogg"},
        {"noextension", "application/octet-stream"},
        {"a.opus", "application/octet-stream"},
    };
    for (const auto &[name, type] : types)
        EXPECT_EQ(APIClient::mediaTypeForFile(QString::fromLatin1(name)), QLatin1StringView(type))
            << name;

    // The real server tests use a root without a slash; a user may well type one.
    APIClient withSlash(QUrl(u"http://127.0.0.1:9/api/"_s), {}, {});
    for (const QString &path : {u"/auth/me"_s, u"auth/me"_s})
        EXPECT_EQ(withSlash.endpoint(path), QUrl(u"http://127.0.0.1:9/api/auth/me"_s));
    EXPECT_THROW(APIClient(QUrl(u"not a url"_s)), std::invalid_argument);
}
