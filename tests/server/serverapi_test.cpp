#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"

#include <QProcess>
#include <QTemporaryDir>

using namespace kavel;
using namespace kavel::service;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

QJsonObject fields(std::initializer_list<std::pair<QString, QString>> pairs)
{
    QJsonObject object;
    for (const auto &[key, value] : pairs)
        object.insert(key, value);
    return object;
}

std::optional<APIError> postError(APIClient &client, const QString &path, const QJsonObject &body)
{
    return runTask(client.post<wire::EmptyResponse>(path, body)).errorAs<APIError>();
}

} // namespace

class ServerApi : public RealServerSuite
{
protected:
    QString signIn(APIClient &client, const QString &account, const QString &secret)
    {
        const AuthTokens tokens
            = runTask(
                  client.post<AuthTokens>(u"/auth/login"_s,
                                          fields({{u"email"_s, account}, {u"password"_s, secret}})))
                  .get();
        client.setAccessToken(tokens.accessToken);
        return tokens.accessToken;
    }
};

TEST_F(ServerApi, SignInAcceptsEitherAccountNameAndRejectsMalformedBodies)
{
    auto client = makeClient();
    EXPECT_FALSE(signIn(*client, phone, u"phone pass"_s).isEmpty());
    const User user = runTask(client->get<User>(u"/auth/me"_s)).get();
    EXPECT_EQ(user.phone, phone);
    EXPECT_FALSE(user.email);

    EXPECT_EQ(postError(*client, u"/auth/login"_s, fields({{u"email"_s, email}}))->statusCode(),
              401);
    EXPECT_EQ(postError(*client, u"/auth/login"_s, fields({{u"user"_s, email}}))->statusCode(),
              422);
    EXPECT_EQ(postError(*client, u"/auth/sms-code"_s, {})->statusCode(), 422);
}

TEST_F(ServerApi, CodesCannotBeRequestedAgainWithinAMinuteAndDoNotRevealAccounts)
{
    auto client = makeClient();
    const qsizetype from = server->log().size();
    // A number without an account is answered exactly as one with an account.
    for (const QString &number : {phone, u"13900000000"_s}) {
        const QJsonObject body = fields({{u"phone"_s, number}});
        EXPECT_FALSE(postError(*client, u"/auth/sms-code"_s, body)) << number.toStdString();
        EXPECT_EQ(postError(*client, u"/auth/sms-code"_s, body)->statusCode(), 429);
    }
    ASSERT_TRUE(server->waitForLog(QRegularExpression(u"SMS code for "_s + phone), from));
    EXPECT_EQ(server->log().mid(from).count(u"SMS code for "_s), 1);
}

TEST_F(ServerApi, TasksAreVisibleOnlyToTheirOwner)
{
    auto owner = makeClient();
    signIn(*owner, email, password);
    QTemporaryDir dir;
    const QString file = dir.filePath(u"x.wav"_s);
    writeFile(file, "not really audio");
    const TranscribeResponse task = runTask(owner->transcribe(file)).get();
    EXPECT_EQ(runTask(owner->getTranscriptionResult(task.taskId)).get().taskId, task.taskId);

    auto stranger = makeClient();
    signIn(*stranger, phone, u"phone pass"_s);
    const auto error = runTask(stranger->getTranscriptionResult(task.taskId)).errorAs<APIError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->statusCode(), 404);

    // A JSON body is not an upload.
    EXPECT_EQ(postError(*owner, u"/media/transcribe"_s, {})->statusCode(), 422);
}

TEST(ServerCommandLine, AddUserRefusesDuplicatesAndIncompleteInput)
{
    ServerProcess server;
    ASSERT_TRUE(server.addUser(u"x@y.z"_s, {}, u"pw"_s));
    QString error;
    EXPECT_FALSE(server.addUser(u"x@y.z"_s, {}, u"other"_s, &error));
    EXPECT_TRUE(error.contains(u"exists"_s)) << error.toStdString();
    EXPECT_FALSE(server.addUser({}, {}, u"pw"_s));

    QProcess badCommand;
    badCommand.start(programPath(u"kavel-server"_s), {u"serve"_s, u"--prot"_s, u"1"_s});
    ASSERT_TRUE(badCommand.waitForFinished(10000));
    EXPECT_EQ(badCommand.exitCode(), 2);
}
