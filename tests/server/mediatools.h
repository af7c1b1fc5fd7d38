#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace kavel::test {

// Runs a media tool from the system (ffmpeg, flite) and reports whether it succeeded.
inline bool runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
}

inline bool ffmpeg(const QStringList &arguments)
{
    return runTool(
        QStringLiteral("ffmpeg"),
        QStringList {QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-y")}
            + arguments);
}

} // namespace kavel::test
