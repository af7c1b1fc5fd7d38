#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>
#include <memory>

namespace kavel::test {

// A one-trick HTTP peer on a loopback port for faults the real server never commits:
// it answers every request with the bytes it was given (or those given for the request's
// path), drops the connection, says nothing at all or trickles its answer a byte at a
// time, and keeps what it received. Over TLS it shows a certificate nobody trusts.
class HttpStub : public QObject
{
public:
    enum class Behaviour {
        reply,
        dropConnection,
        stayQuiet,
        trickle,
    };
    enum class Transport { plain, untrustedTls };

    explicit HttpStub(Transport transport = Transport::plain)
    {
        if (transport == Transport::untrustedTls) {
            auto tls = std::make_unique<QSslServer>();
            tls->setSslConfiguration(selfSignedConfiguration());
            // The handshake fails on the client's side; nothing is left to serve.
            m_server = std::move(tls);
        } else {
            m_server = std::make_unique<QTcpServer>();
        }
        m_scheme = transport == Transport::plain ? "http" : "https";
        m_server->listen(QHostAddress::LocalHost, 0);
        connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection())
                serve(socket);
        });
    }

    // http://127.0.0.1:<port>/api
    QUrl apiBaseUrl() const
    {
        return QUrl(QStringLiteral("%1://127.0.0.1:%2/api")
                        .arg(QLatin1StringView(m_scheme))
                        .arg(m_server->serverPort()));
    }

    static QByteArray response(int status, const QByteArray &body)
    {
        return "HTTP/1.1 " + QByteArray::number(status)
            + " Stub\r\nContent-Type: application/json\r\nContent-Length: "
            + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    }
    void setRawReply(QByteArray bytes) { m_reply = std::move(bytes); }
    void setReply(int status, const QByteArray &body) { m_reply = response(status, body); }
    // Requests whose path holds `pathPart` get these bytes instead; the longest part wins.
    void setRawReplyFor(const QByteArray &pathPart, QByteArray bytes)
    {
        m_replies.insert(pathPart, std::move(bytes));
    }
    void setBehaviour(Behaviour behaviour) { m_behaviour = behaviour; }

    const QList<QByteArray> &requests() const { return m_requests; }
    // Head and body of the last request, split after the blank line.
    QByteArray lastHead() const { return m_requests.constLast().left(headLength()); }
    QByteArray lastBody() const { return m_requests.constLast().mid(headLength()); }

private:
    qsizetype headLength() const { return m_requests.constLast().indexOf("\r\n\r\n") + 4; }

    QByteArray replyFor(const QByteArray &request) const
    {
        const QByteArray path = request.left(request.indexOf("\r\n"));
        QByteArray chosen = m_reply;
        qsizetype best = -1;
        for (auto it = m_replies.cbegin(); it != m_replies.cend(); ++it) {
            if (path.contains(it.key()) && it.key().size() > best) {
                best = it.key().size();
                chosen = it.value();
            }
        }
        return chosen;
    }

    QSslConfiguration selfSignedConfiguration()
    {
        const QString key = m_tlsFiles.filePath(QStringLiteral("key.pem"));
        const QString certificate = m_tlsFiles.filePath(QStringLiteral("cert.pem"));
        QProcess openssl;
        openssl.setStandardErrorFile(QProcess::nullDevice());
        openssl.start(QStringLiteral("openssl"),
                      {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                       QStringLiteral("rsa:2048"), QStringLiteral("-nodes"),
                       QStringLiteral("-days"), QStringLiteral("1"), QStringLiteral("-subj"),
                       QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-keyout"), key,
                       QStringLiteral("-out"), certificate});
        openssl.waitForFinished();
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        QFile keyFile(key);
        keyFile.open(QIODevice::ReadOnly);
        configuration.setPrivateKey(QSslKey(&keyFile, QSsl::Rsa));
        configuration.setLocalCertificateChain(QSslCertificate::fromPath(certificate));
        return configuration;
    }

    void serve(QTcpSocket *socket)
    {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(
            socket, &QTcpSocket::readyRead, socket,
            [this, socket, received = QByteArray()]() mutable {
                received += socket->readAll();
                const qsizetype headEnd = received.indexOf("\r\n\r\n");
                static const QRegularExpression lengthHeader(
                    QStringLiteral("(?im)^content-length:\\s*(\\d+)"));
                const auto match = lengthHeader.match(QString::fromLatin1(received.left(headEnd)));
                const qsizetype length = match.hasMatch() ? match.captured(1).toLongLong() : 0;
                if (headEnd < 0 || received.size() < headEnd + 4 + length)
                    return;
                m_requests.append(std::exchange(received, {}));
                const QByteArray reply = replyFor(m_requests.constLast());
                // An empty answer is a connection dropped in the middle of the exchange.
                if (m_behaviour == Behaviour::dropConnection
                    || (m_behaviour == Behaviour::reply && reply.isEmpty())) {
                    socket->abort();
                    socket->deleteLater();
                } else if (m_behaviour == Behaviour::reply) {
                    socket->write(reply);
                    socket->disconnectFromHost();
                } else if (m_behaviour == Behaviour::trickle) {
                    auto *drip = new QTimer(socket);
                    connect(drip, &QTimer::timeout, socket, [socket, reply, sent = 0]() mutable {
                        if (sent < reply.size())
                            socket->write(reply.mid(sent++, 1));
                    });
                    drip->start(500);
                }
            });
    }

    QTemporaryDir m_tlsFiles;
    std::unique_ptr<QTcpServer> m_server;
    QByteArray m_scheme;
    Behaviour m_behaviour = Behaviour::reply;
    QByteArray m_reply;
    QMap<QByteArray, QByteArray> m_replies;
    QList<QByteArray> m_requests;
};

} // namespace kavel::test
