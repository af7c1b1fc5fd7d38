#pragma once

#include <QProcess>
#include <QRegularExpressionMatch>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>
#include <chrono>
#include <memory>
#include <optional>

namespace kavel::test {

// One kavel-server process with any arguments: an API node, a worker, or a command
// expected to fail. Killed outright when the object goes away.
class ServerCommand
{
public:
    explicit ServerCommand(const QStringList &arguments,
                           const QProcessEnvironment &environment
                           = QProcessEnvironment::systemEnvironment());
    ~ServerCommand() { kill(); }
    ServerCommand(const ServerCommand &) = delete;
    ServerCommand &operator=(const ServerCommand &) = delete;

    // Everything it has written so far, standard error included.
    QString log();
    // Waits for a log line matching `pattern` that appears after `from` characters of
    // the log; returns the match, or nothing on time-out or exit.
    std::optional<QRegularExpressionMatch>
    waitForLog(const QRegularExpression &pattern, qsizetype from = 0,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // The exit code once it has ended by itself, or nothing.
    std::optional<int> exitCode(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    qint64 processId() const { return m_process.processId(); }
    // SIGTERM, as an operator stops it; then SIGKILL if it does not go.
    void stop();
    // SIGKILL: no chance to give anything back.
    void kill();

private:
    QProcess m_process;
    QString m_log;
};

// A real kavel-server on a free loopback port with a database in a temporary folder.
// Stopped (and its folder removed) when the object goes away.
class ServerProcess
{
public:
    ~ServerProcess() { stop(); }

    // Runs `add-user`, before or after start(); on failure fills `error` with its log.
    bool addUser(const QString &email, const QString &phone, const QString &password,
                 QString *error = nullptr);
    // Starts `serve --port 0` with `extra` and waits until it names its address.
    bool start(QString *error = nullptr, const QStringList &extra = {});
    void stop()
    {
        if (m_server)
            m_server->stop();
    }

    // The API root the client is configured with: http://127.0.0.1:<port>/api
    QUrl apiBaseUrl() const { return m_apiBaseUrl; }
    QString databasePath() const { return m_directory.filePath(QStringLiteral("kavel.db")); }
    qint64 processId() const { return m_server ? m_server->processId() : 0; }

    // What the server has written since it was last started.
    QString log() { return m_server ? m_server->log() : QString(); }
    std::optional<QRegularExpressionMatch>
    waitForLog(const QRegularExpression &pattern, qsizetype from = 0,
               std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        return m_server ? m_server->waitForLog(pattern, from, timeout) : std::nullopt;
    }

private:
    QTemporaryDir m_directory;
    std::unique_ptr<ServerCommand> m_server;
    QUrl m_apiBaseUrl;
};

} // namespace kavel::test
