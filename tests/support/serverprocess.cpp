#include "serverprocess.h"

#include "testenvironment.h"

#include <QDeadlineTimer>
#include <QRegularExpression>
#include <QTest>
#include <csignal>
#include <sys/prctl.h>

namespace kavel::test {

using namespace Qt::StringLiterals;

ServerProcess::ServerProcess()
    : m_directory(QDir::tempPath() + u"/kavel-server-test-XXXXXX"_s)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    // Should the test program die without running destructors, the server goes with it
    // instead of holding its port and temporary folder.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                     [this] { readOutput(); });
}

ServerProcess::~ServerProcess()
{
    stop();
}

QString ServerProcess::databasePath() const
{
    return m_directory.filePath(u"kavel.db"_s);
}

QUrl ServerProcess::apiBaseUrl() const
{
    return QUrl(u"http://127.0.0.1:%1/api"_s.arg(m_port));
}

bool ServerProcess::addUser(const QString &email, const QString &phone, const QString &password,
                            QString *error)
{
    QStringList arguments {u"add-user"_s, u"--db"_s, databasePath(), u"--password"_s, password};
    if (!email.isEmpty())
        arguments << u"--email"_s << email;
    if (!phone.isEmpty())
        arguments << u"--phone"_s << phone;
    QProcess command;
    command.start(programPath(u"kavel-server"_s), arguments);
    const bool ok = command.waitForFinished(30000) && command.exitStatus() == QProcess::NormalExit
        && command.exitCode() == 0;
    if (!ok && error)
        *error = QString::fromUtf8(command.readAllStandardError()) + command.errorString();
    return ok;
}

bool ServerProcess::start(QString *error)
{
    if (!m_directory.isValid()) {
        if (error)
            *error = u"no temporary folder"_s;
        return false;
    }
    // A restarted server must be found by its new line, not by the old run's.
    const qsizetype from = log().size();
    m_process.start(programPath(u"kavel-server"_s),
                    {u"serve"_s, u"--port"_s, u"0"_s, u"--db"_s, databasePath()});
    const auto match
        = waitForLog(QRegularExpression(u"listening on http://127\\.0\\.0\\.1:(\\d+)"_s), from);
    if (!match) {
        if (error)
            *error = u"server did not start: "_s + m_process.errorString() + u"\n"_s + log();
        stop();
        return false;
    }
    m_port = match->captured(1).toInt();
    return true;
}

void ServerProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    readOutput();
}

void ServerProcess::readOutput()
{
    if (m_process.isOpen())
        m_log += QString::fromUtf8(m_process.readAllStandardOutput());
}

QString ServerProcess::log()
{
    readOutput();
    return m_log;
}

std::optional<QRegularExpressionMatch> ServerProcess::waitForLog(const QRegularExpression &pattern,
                                                                 qsizetype from,
                                                                 std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (true) {
        readOutput();
        QRegularExpressionMatch match = pattern.match(m_log, from);
        if (match.hasMatch())
            return match;
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return std::nullopt;
        m_process.waitForReadyRead(50);
    }
}

} // namespace kavel::test
