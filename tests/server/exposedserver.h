// A kavel-server started for each test, reached over loopback the way a client or an
// attacker would reach it.
#pragma once

#include "support/serverprocess.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace kavel::test {

using namespace Qt::StringLiterals;

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

    // What the server answers to raw request bytes (a head without its body, say),
    // sent from the loopback address `from`; empty when it waits for more instead of
    // answering (for `wait` milliseconds).
    static QByteArray answerTo(int port, const QByteArray &head, const QString &from = {},
                               int wait = 2500)
    {
        QTcpSocket socket;
        if (!from.isEmpty())
            socket.bind(QHostAddress(from));
        socket.connectToHost(u"127.0.0.1"_s, static_cast<quint16>(port));
        if (!socket.waitForConnected(5000))
            return {};
        socket.write(head);
        socket.waitForBytesWritten(5000);
        // Well inside the server's five-second read timeout, after which it would give
        // up on the body anyway.
        socket.waitForReadyRead(wait);
        return socket.readAll();
    }

    QByteArray signIn(int port)
    {
        const auto reply
            = httplib::Client("127.0.0.1", port)
                  .Post("/api/auth/login", R"({"email":"e@example.com","password":"pw"})",
                        "application/json");
        EXPECT_TRUE(reply && reply->status == 200);
        return reply
            ? QJsonDocument::fromJson(QByteArray::fromStdString(reply->body))[u"access_token"_s]
                  .toString()
                  .toUtf8()
            : QByteArray();
    }

    // Forgets the server's peak memory so far (a password hash at its start takes
    // 64 MiB for a moment).
    void forgetPeakMemory()
    {
        QFile refs(u"/proc/%1/clear_refs"_s.arg(server.processId()));
        ASSERT_TRUE(refs.open(QIODevice::WriteOnly) && refs.write("5") == 1);
    }
    // The server's own figure from /proc, in MiB.
    double memory(const char *field)
    {
        QFile status(u"/proc/%1/status"_s.arg(server.processId()));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        const QRegularExpression line(QString::fromLatin1(field) + u":\\s+(\\d+) kB"_s);
        return line.match(QString::fromLatin1(status.readAll())).captured(1).toDouble() / 1024.0;
    }

    QTemporaryDir dir;
    ServerProcess server;
};

inline std::string loginBody(const std::string &account, const std::string &password)
{
    return R"({"email":")" + account + R"(","password":")" + password + R"("})";
}

inline QByteArray post(const char *path, const std::string &body)
{
    return QByteArray("POST ") + path + " HTTP/1.1\r\nHost: k\r\nConnection: close\r\n"
        + "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\n\r\n" + QByteArray::fromStdString(body);
}

// The value of one series in a Prometheus text exposition, or -1 when it is absent.
inline double metric(const std::string &exposition, const std::string &series)
{
    const auto at = exposition.find("\n" + series + " ");
    return at == std::string::npos ? -1 : std::stod(exposition.substr(at + series.size() + 2));
}

// Status and Retry-After of a raw answer (0 for either when absent).
inline std::pair<int, int> statusAndWait(const QByteArray &answer)
{
    const auto wait = QRegularExpression(u"\r\nRetry-After: (\\d+)\r\n"_s,
                                         QRegularExpression::CaseInsensitiveOption)
                          .match(QString::fromLatin1(answer));
    return {answer.startsWith("HTTP/1.1 ") ? answer.mid(9, 3).toInt() : 0,
            wait.hasMatch() ? wait.captured(1).toInt() : 0};
}

} // namespace kavel::test
