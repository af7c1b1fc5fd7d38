#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>
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

    HttpStub();

    // http://127.0.0.1:<port>/api
    QUrl apiBaseUrl() const;

    void setRawReply(QByteArray bytes);
    void setReply(int status, const QByteArray &body,
                  const QByteArray &contentType = "application/json");
    void setBehaviour(Behaviour behaviour) { m_behaviour = behaviour; }

    const QList<QByteArray> &requests() const { return m_requests; }
    // Head and body of the last request, split at the blank line.
    QByteArray lastHead() const;
    QByteArray lastBody() const;

private:
    void serve(QTcpSocket *socket);

    QTcpServer m_server;
    Behaviour m_behaviour = Behaviour::reply;
    QByteArray m_reply;
    QList<QByteArray> m_requests;
};

} // namespace kavel::test
