#include "service/apiclient.h"
#include "service/wirecoding.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::service;
using namespace Qt::StringLiterals;

// Keys in both directions and whole transcription records are decoded on every test
// against the real server and the import's stand-in service; here, what those never send.
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
