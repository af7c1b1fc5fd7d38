#pragma once

#include <QProcess>
#include <QRegularExpressionMatch>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>
#include <chrono>
#include <optional>

namespace kavel::test {

// A real kavel-server on a free loopback port with a database in a temporary folder.
// Stopped (and its folder removed) when the object goes away.
class ServerProcess
{
public:
    ServerProcess();
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    // Adds a user through the `add-user` command; call before or after start(). Returns
    // false and fills `error` when the command fails.
    bool addUser(const QString &email, const QString &phone, const QString &password,
                 QString *error = nullptr);

    // Starts `serve --port 0` and waits until it names its port.
    bool start(QString *error = nullptr);
    void stop();

    int port() const { return m_port; }
    // The API root the client is configured with: http://127.0.0.1:<port>/api
    QUrl apiBaseUrl() const;
    QString databasePath() const;

    // Everything the server has written to standard output so far.
    QString log();
    // Waits for a log line matching `pattern` that appears after `from` characters of
    // the log; returns the match, or nothing on time-out.
    std::optional<QRegularExpressionMatch>
    waitForLog(const QRegularExpression &pattern, qsizetype from = 0,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    void readOutput();

    QTemporaryDir m_directory;
    QProcess m_process;
    QString m_log;
    int m_port = 0;
};

} // namespace kavel::test
