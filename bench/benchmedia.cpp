#include "benchmedia.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace kavel::bench {

namespace {

QString make(const QString &name, const QStringList &arguments)
{
    const QString dir = QDir::temp().filePath(u"kavel-bench-media"_s);
    QDir().mkpath(dir);
    const QString path = QDir(dir).filePath(name);
    if (QFileInfo(path).size() > 0)
        return path;
    std::fprintf(stderr, "making %s ...\n", qPrintable(path));
    QProcess ffmpeg;
    ffmpeg.start(u"ffmpeg"_s,
                 QStringList {u"-v"_s, u"error"_s, u"-y"_s} + arguments
                     + QStringList {path + u".part.mp4"_s});
    if (!ffmpeg.waitForFinished(-1) || ffmpeg.exitCode() != 0) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", ffmpeg.readAllStandardError().constData());
        std::exit(EXIT_FAILURE);
    }
    QFile::rename(path + u".part.mp4"_s, path);
    return path;
}

} // namespace

QString hourLongSource()
{
    return make(
        u"hour.mp4"_s,
        {u"-f"_s,       u"lavfi"_s,     u"-i"_s,   u"testsrc=size=64x36:rate=30:duration=3600"_s,
         u"-f"_s,       u"lavfi"_s,     u"-i"_s,   u"anullsrc=r=48000:cl=stereo"_s,
         u"-t"_s,       u"3600"_s,      u"-c:v"_s, u"libx264"_s,
         u"-preset"_s,  u"ultrafast"_s, u"-g"_s,   u"60"_s,
         u"-pix_fmt"_s, u"yuv420p"_s,   u"-c:a"_s, u"aac"_s,
         u"-b:a"_s,     u"32k"_s});
}

QString fullHdSource()
{
    return make(u"fullhd.mp4"_s,
                {u"-f"_s, u"lavfi"_s, u"-i"_s, u"testsrc2=size=1920x1080:rate=30:duration=12"_s,
                 u"-f"_s, u"lavfi"_s, u"-i"_s,
                 u"sine=frequency=440:sample_rate=48000:duration=12"_s, u"-c:v"_s, u"libx264"_s,
                 u"-preset"_s, u"ultrafast"_s, u"-g"_s, u"30"_s, u"-pix_fmt"_s, u"yuv420p"_s,
                 u"-c:a"_s, u"aac"_s, u"-shortest"_s});
}

bool waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return done();
}

qint64 residentBytes()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
    return 0;
}

} // namespace kavel::bench
