#pragma once

#include <QByteArray>
#include <QList>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

namespace kavel::test {

// A one-trick HTTP peer on a loopback port for faults the real server never commits:
// it answers every request with the bytes it was given (or drops the connection, or
// says nothing at all) and keeps what it received.
class HttpStub : public QObject
{
public:
    enum class Behaviour {
        reply,
        dropConnection,
        stayQuiet,
    };

    HttpStub()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                serve(socket);
        });
    }

    // http://127.0.0.1:<port>/api
    QUrl apiBaseUrl() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/api").arg(m_server.serverPort()));
    }

    void setRawReply(QByteArray bytes) { m_reply = std::move(bytes); }
    void setReply(int status, const QByteArray &body)
    {
        m_reply = "HTTP/1.1 " + QByteArray::number(status)
            + " Stub\r\nContent-Type: application/json\r\nContent-Length: "
            + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    }
    void setBehaviour(Behaviour behaviour) { m_behaviour = behaviour; }

    const QList<QByteArray> &requests() const { return m_requests; }
    // Head and body of the last request, split after the blank line.
    QByteArray lastHead() const { return m_requests.constLast().left(headLength()); }
    QByteArray lastBody() const { return m_requests.constLast().mid(headLength()); }

private:
    qsizetype headLength() const { return m_requests.constLast().indexOf("\r\n\r\n") + 4; }

    void serve(QTcpSocket *socket)
    {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket,
                [this, socket, received = QByteArray()]() mutable {
                    received += socket->readAll();
                    const qsizetype headEnd = received.indexOf("\r\n\r\n");
                    static const QRegularExpression lengthHeader(
                        QStringLiteral("(?im)^content-length:\\s*(\\d+)"));
                    const auto match
                        = lengthHeader.match(QString::fromLatin1(received.left(headEnd)));
                    const qsizetype length = match.hasMatch() ? match.captured(1).toLongLong() : 0;
                    if (headEnd < 0 || received.size() < headEnd + 4 + length)
                        return;
                    m_requests.append(std::exchange(received, {}));
                    if (m_behaviour == Behaviour::reply) {
                        socket->write(m_reply);
                        socket->disconnectFromHost();
                    } else if (m_behaviour == Behaviour::dropConnection) {
                        socket->abort();
                        socket->deleteLater();
                    }
                });
    }

    QTcpServer m_server;
    Behaviour m_behaviour = Behaviour::reply;
    QByteArray m_reply;
    QList<QByteArray> m_requests;
};

} // namespace kavel::test
