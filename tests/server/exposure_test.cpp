#include "support/serverprocess.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <httplib.h>

using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

class ExposedServer : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QString error;
        ASSERT_TRUE(server.addUser(u"e@example.com"_s, {}, u"pw"_s, &error)) << error.toStdString();
    }

    // Starts `serve` with `extra` and returns its port, or 0.
    int start(const QStringList &extra = {})
    {
        QString error;
        EXPECT_TRUE(server.start(&error, QStringList {u"--workers"_s, u"0"_s} + extra))
            << error.toStdString();
        return server.apiBaseUrl().port(0);
    }

    // What the server answers to raw request bytes, without sending any body; empty
    // when it waits for more instead of answering.
    static QByteArray answerTo(int port, const QByteArray &head)
    {
        QTcpSocket socket;
        socket.connectToHost(u"127.0.0.1"_s, static_cast<quint16>(port));
        if (!socket.waitForConnected(5000))
            return {};
        socket.write(head);
        socket.waitForBytesWritten(5000);
        // Well inside the server's five-second read timeout, after which it would give
        // up on the body anyway.
        socket.waitForReadyRead(2500);
        return socket.readAll();
    }

    QTemporaryDir dir;
    ServerProcess server;
};

std::string loginBody(const std::string &account, const std::string &password)
{
    return R"({"email":")" + account + R"(","password":")" + password + R"("})";
}

} // namespace

TEST_F(ExposedServer, CommandsRefuseWhatIsUnsafeOrIncomplete)
{
    const QString database = server.databasePath();
    const QStringList serve {u"serve"_s, u"--port"_s, u"0"_s, u"--database"_s, database};
    const QStringList addUser {u"add-user"_s, u"--database"_s, database, u"--password"_s, u"x"_s};
    const struct
    {
        QStringList arguments;
        int exitCode;
        const char *says;
    } refusals[] = {
        // Plain HTTP stays on loopback unless the operator insists.
        {serve + QStringList {u"--bind"_s, u"0.0.0.0"_s}, 2,
         "refusing to serve plain HTTP on 0.0.0.0"},
        {serve + QStringList {u"--bind"_s, u"192.0.2.7"_s}, 2,
         "--tls-cert and --tls-key, or --insecure"},
        {serve + QStringList {u"--tls-cert"_s, u"c.pem"_s}, 2, "go together"},
        {serve + QStringList {u"--tls-cert"_s, u"absent.pem"_s, u"--tls-key"_s, u"absent.pem"_s}, 1,
         "cannot load the TLS certificate absent.pem"},
        {addUser + QStringList {u"--email"_s, u"e@example.com"_s}, 1,
         "a user with this e-mail address or phone number exists"},
        {addUser, 2, "usage:"},
        {{u"serve"_s, u"--prot"_s, u"1"_s}, 2, "usage:"},
    };
    for (const auto &[arguments, exitCode, says] : refusals) {
        ServerCommand refused(arguments);
        EXPECT_EQ(refused.exitCode(), exitCode) << arguments.join(u' ').toStdString();
        const QString log = refused.log();
        EXPECT_TRUE(log.contains(QString::fromUtf8(says))) << log.toStdString();
        if (!log.contains(u"usage:"_s)) {
            EXPECT_EQ(log.count(u'\n'), 1) << "one line: " << log.toStdString();
        }
    }
}

TEST_F(ExposedServer, ServesHttpsWithTheGivenCertificate)
{
    const QString cert = dir.filePath(u"cert.pem"_s);
    const QString key = dir.filePath(u"key.pem"_s);
    ASSERT_EQ(QProcess::execute(u"openssl"_s,
                                u"req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 "
                                "-addext subjectAltName=IP:127.0.0.1"_s.split(u' ')
                                    << u"-keyout"_s << key << u"-out"_s << cert),
              0);
    const int port = start({u"--tls-cert"_s, cert, u"--tls-key"_s, key});
    ASSERT_NE(port, 0);

    httplib::SSLClient client("127.0.0.1", port);
    client.set_ca_cert_path(cert.toStdString().c_str());
    client.enable_server_certificate_verification(true);
    const auto reply
        = client.Post("/api/auth/login", loginBody("e@example.com", "pw"), "application/json");
    ASSERT_TRUE(reply) << httplib::to_string(reply.error());
    EXPECT_EQ(reply->status, 200);

    httplib::Client plain("127.0.0.1", port);
    EXPECT_FALSE(plain.Get("/signup")) << "no plain HTTP on the TLS port";
}

TEST_F(ExposedServer, BodiesAreRefusedFromTheirHeadersAlone)
{
    const int port = start();
    ASSERT_NE(port, 0);
    httplib::Client client("127.0.0.1", port);
    const auto signIn
        = client.Post("/api/auth/login", loginBody("e@example.com", "pw"), "application/json");
    ASSERT_TRUE(signIn && signIn->status == 200);
    const QByteArray token
        = QJsonDocument::fromJson(QByteArray::fromStdString(signIn->body))[u"access_token"_s]
              .toString()
              .toUtf8();

    const QByteArray upload = "POST /api/media/transcribe HTTP/1.1\r\nHost: k\r\n"
                              "Content-Type: multipart/form-data; boundary=b\r\n";
    const struct
    {
        QByteArray head;
        const char *status;
    } cases[] = {
        {upload + "Content-Length: 2147483000\r\n\r\n", "401"},
        {upload + "Transfer-Encoding: chunked\r\n\r\n", "401"},
        {upload + "Authorization: Bearer " + token + "\r\nContent-Length: 3221225472\r\n\r\n",
         "413"},
        {"POST /api/auth/login HTTP/1.1\r\nHost: k\r\nContent-Length: 1000000\r\n\r\n", "413"},
        {"POST /api/auth/login HTTP/1.1\r\nHost: k\r\nTransfer-Encoding: chunked\r\n\r\n", "413"},
    };
    for (const auto &[head, status] : cases) {
        const QByteArray answer = answerTo(port, head);
        EXPECT_TRUE(answer.startsWith(QByteArray(QByteArray("HTTP/1.1 ") + status)))
            << head.toStdString() << " -> " << answer.toStdString();
    }
}

TEST_F(ExposedServer, SignInsAreRateLimitedPerAccountAndPerAddress)
{
    const int port = start();
    ASSERT_NE(port, 0);
    httplib::Client client("127.0.0.1", port);
    const auto attempt = [&client](const std::string &account, const std::string &password) {
        return client.Post("/api/auth/login", loginBody(account, password), "application/json");
    };
    // Wrong passwords refused before the first answer that says how long to wait.
    const auto refusalsBeforePause = [&attempt](const std::function<std::string(int)> &account) {
        for (int refusals = 0; refusals < 40; ++refusals) {
            const auto reply = attempt(account(refusals), "guess");
            if (reply && reply->status == 401)
                continue;
            const int wait = reply ? std::atoi(reply->get_header_value("Retry-After").c_str()) : 0;
            EXPECT_TRUE(reply && reply->status == 429 && wait >= 1 && wait <= 60) << wait;
            return refusals;
        }
        return 40;
    };
    // Guessing one account's password: a few tries, then a pause, even for the right one.
    const int sameAccount = refusalsBeforePause([](int) { return std::string("e@example.com"); });
    EXPECT_EQ(sameAccount, 10);
    EXPECT_EQ(attempt("e@example.com", "pw")->status, 429);
    // Other accounts are unaffected, until one address has tried too many of them.
    const int others
        = refusalsBeforePause([](int i) { return "someone" + std::to_string(i) + "@example.com"; });
    EXPECT_EQ(sameAccount + others + 2, 30) << "the address's attempts, all told";
}
