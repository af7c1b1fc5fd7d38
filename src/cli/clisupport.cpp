#include "clisupport.h"

#include "model/kavelproject.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <cmath>
#include <cstdio>

namespace kavel::cli {

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

QString formatSeconds(double seconds)
{
    if (!std::isfinite(seconds))
        return QStringLiteral("--:--:--.---");
    const bool negative = seconds < 0;
    const qint64 millis = std::llround(std::abs(seconds) * 1000.0);
    const qint64 h = millis / 3'600'000;
    const qint64 m = millis / 60'000 % 60;
    const qint64 s = millis / 1000 % 60;
    const qint64 ms = millis % 1000;
    return QStringLiteral("%1%2:%3:%4.%5")
        .arg(negative ? QStringLiteral("-") : QString())
        .arg(h, 2, 10, QLatin1Char('0'))
        .arg(m, 2, 10, QLatin1Char('0'))
        .arg(s, 2, 10, QLatin1Char('0'))
        .arg(ms, 3, 10, QLatin1Char('0'));
}

QStringList parsePositionals(QCommandLineParser &parser, const QString &command,
                             const QStringList &arguments, const QStringList &names,
                             bool repeatLast)
{
    parser.addHelpOption();
    for (const QString &name : names)
        parser.addPositionalArgument(name, QString());
    parser.process(QStringList {QStringLiteral("kavel-cli ") + command} + arguments);
    const QStringList values = parser.positionalArguments();
    const bool countOk = repeatLast ? values.size() >= names.size() : values.size() == names.size();
    if (!countOk)
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "用法：kavel-cli ")
                                  + command + u' ' + names.join(u' ')
                                  + (repeatLast ? QStringLiteral("...") : QString()),
                              2};
    return values;
}

std::unique_ptr<KavelProject> openBundle(const QString &path)
{
    return KavelProject::load(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

void warnIfTranscriptUnreadable(const KavelProject &project)
{
    if (!project.timelineLoadError().isEmpty())
        err() << QCoreApplication::translate("kavel::cli", "警告：%1，项目按没有词显示")
                     .arg(project.timelineLoadError())
              << Qt::endl;
}

std::unique_ptr<KavelProject> openBundleForWriting(const QString &path)
{
    return KavelProject::open(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

} // namespace kavel::cli
