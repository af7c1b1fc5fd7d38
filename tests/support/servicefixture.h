#pragma once

#include "service/apiclient.h"
#include "service/servicelog.h"
#include "support/serverprocess.h"
#include "support/taskwait.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <memory>

namespace kavel::test {

// Collects diagnostic lines instead of printing them.
struct LogRecorder
{
    std::shared_ptr<QStringList> lines = std::make_shared<QStringList>();

    service::LogSink sink() const
    {
        return [lines = lines](const QString &line) { lines->append(line); };
    }
};

// One real kavel-server for all tests of a suite, with two users:
// e-mail "ada@example.com" / "correct horse", and phone "13800000001" / "phone pass".
class RealServerSuite : public ::testing::Test
{
public:
    static inline const QString email = QStringLiteral("ada@example.com");
    static inline const QString password = QStringLiteral("correct horse");
    static inline const QString phone = QStringLiteral("13800000001");

    static void SetUpTestSuite()
    {
        server = std::make_unique<ServerProcess>();
        QString error;
        if (!server->addUser(email, {}, password, &error)
            || !server->addUser({}, phone, QStringLiteral("phone pass"), &error)
            || !server->start(&error))
            startError = error.isEmpty() ? QStringLiteral("failed") : error;
    }
    static void TearDownTestSuite() { server.reset(); }

    // Signs in with a password (the e-mail field takes a phone number too) and keeps
    // the access token on `client`.
    static void signIn(service::APIClient &client, const QString &account, const QString &secret)
    {
        const QJsonObject body {{QStringLiteral("email"), account},
                                {QStringLiteral("password"), secret}};
        client.setAccessToken(
            runTask(client.post<service::AuthTokens>(QStringLiteral("/auth/login"), body))
                .get()
                .accessToken);
    }

protected:
    void SetUp() override { ASSERT_TRUE(startError.isEmpty()) << startError.toStdString(); }

    std::unique_ptr<service::APIClient> makeClient(const LogRecorder &log = {}) const
    {
        return std::make_unique<service::APIClient>(server->apiBaseUrl(),
                                                    service::SessionTimeouts {}, log.sink());
    }

    static inline std::unique_ptr<ServerProcess> server;
    static inline QString startError;
};

} // namespace kavel::test
