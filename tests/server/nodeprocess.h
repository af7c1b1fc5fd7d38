#pragma once

#include "support/testenvironment.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QRegularExpression>
#include <csignal>
#include <optional>
#include <sys/prctl.h>

namespace kavel::test {

// One kavel-server process with any arguments: an API node, a worker, or a command
// expected to fail. Killed outright when the object goes away.
class Node
{
public:
    explicit Node(const QStringList &arguments,
                  const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        using namespace Qt::StringLiterals;
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.setProcessEnvironment(environment);
        m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        m_process.start(programPath(u"kavel-server"_s), arguments);
    }
    ~Node() { kill(); }

    QString log()
    {
        m_log += QString::fromUtf8(m_process.readAllStandardOutput());
        return m_log;
    }
    std::optional<QRegularExpressionMatch> waitForLog(const QString &pattern, int seconds = 20)
    {
        using namespace Qt::StringLiterals;
        const QRegularExpression expression(pattern);
        QDeadlineTimer deadline(seconds * 1000);
        while (true) {
            QRegularExpressionMatch match = expression.match(log());
            if (match.hasMatch())
                return match;
            if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
                return std::nullopt;
            m_process.waitForReadyRead(50);
        }
    }
    // The exit code once it has ended by itself, or nothing.
    std::optional<int> exitCode(int seconds = 20)
    {
        if (!m_process.waitForFinished(seconds * 1000))
            return std::nullopt;
        log();
        return m_process.exitCode();
    }
    void kill()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.kill(); // SIGKILL: no chance to give anything back
        m_process.waitForFinished(5000);
        log();
    }

private:
    QProcess m_process;
    QString m_log;
};

} // namespace kavel::test
