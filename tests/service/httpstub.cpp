#include "httpstub.h"

#include <QRegularExpression>
#include <QTcpSocket>

namespace kavel::test {

using namespace Qt::StringLiterals;

HttpStub::HttpStub()
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server.nextPendingConnection())
            serve(socket);
    });
}

QUrl HttpStub::apiBaseUrl() const
{
    return QUrl(u"http://127.0.0.1:%1/api"_s.arg(m_server.serverPort()));
}

void HttpStub::setRawReply(QByteArray bytes)
{
    m_reply = std::move(bytes);
}

void HttpStub::setReply(int status, const QByteArray &body, const QByteArray &contentType)
{
    m_reply = "HTTP/1.1 " + QByteArray::number(status) + " Stub\r\nContent-Type: " + contentType
        + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n"
        + body;
}

QByteArray HttpStub::lastHead() const
{
    const QByteArray &request = m_requests.constLast();
    return request.left(request.indexOf("\r\n\r\n") + 4);
}

QByteArray HttpStub::lastBody() const
{
    const QByteArray &request = m_requests.constLast();
    return request.mid(request.indexOf("\r\n\r\n") + 4);
}

void HttpStub::serve(QTcpSocket *socket)
{
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QTcpSocket::readyRead, socket,
            [this, socket, received = QByteArray()]() mutable {
                received += socket->readAll();
                const qsizetype headEnd = received.indexOf("\r\n\r\n");
                if (headEnd < 0)
                    return;
                static const QRegularExpression lengthHeader(u"(?im)^content-length:\\s*(\\d+)"_s);
                const auto match = lengthHeader.match(QString::fromLatin1(received.left(headEnd)));
                const qsizetype length = match.hasMatch() ? match.captured(1).toLongLong() : 0;
                if (received.size() < headEnd + 4 + length)
                    return;
                m_requests.append(received);
                received.clear();
                switch (m_behaviour) {
                case Behaviour::reply:
                    socket->write(m_reply);
                    socket->disconnectFromHost();
                    break;
                case Behaviour::dropConnection:
                    socket->abort();
                    socket->deleteLater();
                    break;
                case Behaviour::stayQuiet:
                    break;
                }
            });
}

} // namespace kavel::test
