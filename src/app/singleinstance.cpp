#include "singleinstance.h"

#include "model/errors.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>
#include <QTextStream>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

constexpr int answerMilliseconds = 5000;

void log(const QString &line)
{
    QTextStream(stdout) << u"[SingleInstance] "_s << line << Qt::endl;
}

} // namespace

SingleInstance::SingleInstance(QString socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(std::move(socketPath))
{ }

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultSocketPath()
{
    // The runtime folder belongs to the user alone; the uid in the name keeps users
    // apart where it falls back to a shared one.
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return QDir(runtime).filePath(u"kavel-%1.socket"_s.arg(::getuid()));
}

SingleInstance::Role SingleInstance::handOverOrListen(const QStringList &paths)
{
    QDir().mkpath(QFileInfo(m_socketPath).absolutePath());
    // Two starts at the same moment: one finds no one to hand to and starts listening
    // while the other waits here, then hands over to it.
    QLockFile starting(m_socketPath + u".lock"_s);
    starting.tryLock(answerMilliseconds);

    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    if (socket.waitForConnected(answerMilliseconds)) {
        QJsonArray absolute;
        for (const QString &path : paths)
            absolute.append(QFileInfo(path).absoluteFilePath());
        socket.write(QJsonDocument(absolute).toJson(QJsonDocument::Compact) + '\n');
        socket.flush();
        while (!socket.canReadLine() && socket.waitForReadyRead(answerMilliseconds)) { }
        if (socket.readLine().trimmed() == "ok")
            return Role::handedOver;
        throw Error(tr("Kavel 已经在运行，但没有响应。请关闭它后再试。"), m_socketPath);
    }

    // Nobody answers: a socket file left by a Kavel that crashed is in the way.
    QLocalServer::removeServer(m_socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath)) {
        log(u"Cannot listen on "_s + m_socketPath + u": "_s + m_server->errorString());
        return Role::first;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
    return Role::first;
}

void SingleInstance::acceptConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine())
                return;
            const QJsonDocument message = QJsonDocument::fromJson(socket->readLine());
            QStringList paths;
            for (const QJsonValue &value : message.array())
                paths.append(value.toString());
            socket->write("ok\n");
            socket->flush();
            socket->disconnectFromServer();
            log(u"Handed over: "_s + paths.join(u", "_s));
            Q_EMIT filesReceived(paths);
        });
    }
}

} // namespace kavel::app
