#include "serverprocess.h"

#include "testenvironment.h"

#include <QDeadlineTimer>
#include <QRegularExpression>
#include <csignal>
#include <sys/prctl.h>

namespace kavel::test {

using namespace Qt::StringLiterals;

ServerCommand::ServerCommand(const QStringList &arguments, const QProcessEnvironment &environment)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setProcessEnvironment(environment);
    // Should the test program die without running destructors, the server goes with it
    // instead of holding its port and temporary folder.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    m_process.start(programPath(u"kavel-server"_s), arguments);
}

QString ServerCommand::log()
{
    if (m_process.isOpen())
        m_log += QString::fromUtf8(m_process.readAllStandardOutput());
    return m_log;
}

std::optional<QRegularExpressionMatch> ServerCommand::waitForLog(const QRegularExpression &pattern,
                                                                 qsizetype from,
                                                                 std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (true) {
        QRegularExpressionMatch match = pattern.match(log(), from);
        if (match.hasMatch())
            return match;
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return std::nullopt;
        m_process.waitForReadyRead(50);
    }
}

std::optional<int> ServerCommand::exitCode(std::chrono::milliseconds timeout)
{
    if (!m_process.waitForFinished(static_cast<int>(timeout.count())))
        return std::nullopt;
    log();
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void ServerCommand::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000))
        kill();
    log();
}

void ServerCommand::kill()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.kill();
    m_process.waitForFinished(5000);
    log();
}

bool ServerProcess::addUser(const QString &email, const QString &phone, const QString &password,
                            QString *error)
{
    QStringList arguments {u"add-user"_s, u"--db"_s, databasePath(), u"--password"_s, password};
    if (!email.isEmpty())
        arguments << u"--email"_s << email;
    if (!phone.isEmpty())
        arguments << u"--phone"_s << phone;
    ServerCommand command(arguments);
    const bool ok = command.exitCode() == 0;
    if (!ok && error)
        *error = command.log();
    return ok;
}

bool ServerProcess::start(QString *error, const QStringList &extra)
{
    m_server = std::make_unique<ServerCommand>(
        QStringList {u"serve"_s, u"--port"_s, u"0"_s, u"--db"_s, databasePath()} + extra);
    const auto match = m_server->waitForLog(
        QRegularExpression(u"listening on (https?://(?:127\\.0\\.0\\.1|\\[::1\\]):\\d+)"_s), 0,
        std::chrono::seconds(10));
    if (!match && error)
        *error = u"server did not start:\n"_s + m_server->log();
    if (!match)
        stop();
    m_apiBaseUrl = match ? QUrl(match->captured(1) + u"/api"_s) : QUrl();
    return match.has_value();
}

} // namespace kavel::test
