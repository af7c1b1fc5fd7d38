#include "generatedmedia.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace kavel::test {

void runFfmpeg(const QStringList &arguments)
{
    QProcess process;
    process.start(u"ffmpeg"_s, QStringList {u"-v"_s, u"error"_s, u"-y"_s} + arguments);
    const bool finished = process.waitForFinished(60000);
    ASSERT_TRUE(finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        << qPrintable(arguments.join(u' ')) << "\n"
        << process.readAllStandardError().constData();
}

QString makeVideoWithAudio(const QString &dir, const QString &name, double seconds)
{
    const QString path = QDir(dir).filePath(name);
    const QString d = QString::number(seconds);
    runFfmpeg({u"-f"_s,        u"lavfi"_s,
               u"-i"_s,        u"testsrc=size=160x90:rate=30:duration="_s + d,
               u"-f"_s,        u"lavfi"_s,
               u"-i"_s,        u"aevalsrc=0.5*sin(2*PI*440*t)|0.5*sin(2*PI*440*t):s=48000:d="_s + d,
               u"-c:v"_s,      u"libx264"_s,
               u"-preset"_s,   u"ultrafast"_s,
               u"-g"_s,        u"15"_s,
               u"-pix_fmt"_s,  u"yuv420p"_s,
               u"-c:a"_s,      u"aac"_s,
               u"-shortest"_s, path});
    return path;
}

QString makeTone(const QString &dir, const QString &name, double seconds, double frequency)
{
    const QString path = QDir(dir).filePath(name);
    const QString wave = u"0.5*sin(2*PI*%1*t)"_s.arg(frequency);
    runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
               u"aevalsrc="_s + wave + u'|' + wave + u":s=48000:d="_s + QString::number(seconds),
               u"-c:a"_s, u"pcm_s16le"_s, path});
    return path;
}

QString makeVideoWithoutAudio(const QString &dir, const QString &name, double seconds)
{
    const QString path = QDir(dir).filePath(name);
    runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
               u"testsrc=size=160x90:rate=30:duration="_s + QString::number(seconds), u"-c:v"_s,
               u"libx264"_s, u"-preset"_s, u"ultrafast"_s, u"-pix_fmt"_s, u"yuv420p"_s, path});
    return path;
}

QString makeRotatedVideo(const QString &dir, const QString &name, double seconds)
{
    const QString path = QDir(dir).filePath(name);
    const QString d = QString::number(seconds);
    runFfmpeg({u"-filter_complex"_s,
               u"color=c=red:s=160x46:r=30:d=%1[a];color=c=blue:s=160x44:r=30:d=%1[b];"
               u"[a][b]vstack[v];aevalsrc=0.5*sin(2*PI*440*t):s=48000:d=%1[s]"_s.arg(d),
               u"-map"_s, u"[v]"_s, u"-map"_s, u"[s]"_s, u"-c:v"_s, u"libx264"_s, u"-preset"_s,
               u"ultrafast"_s, u"-pix_fmt"_s, u"yuv420p"_s, u"-c:a"_s, u"aac"_s,
               path + u".plain.mp4"_s});
    // The rotation tag only lands in the container when the streams are copied.
    runFfmpeg({u"-i"_s, path + u".plain.mp4"_s, u"-c"_s, u"copy"_s, u"-metadata:s:v:0"_s,
               u"rotate=90"_s, path});
    return path;
}

QString makeTruncated(const QString &dir, const QString &name, const QString &from)
{
    QFile source(from);
    EXPECT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    const QString path = QDir(dir).filePath(name);
    QFile target(path);
    EXPECT_TRUE(target.open(QIODevice::WriteOnly));
    target.write(bytes.left(bytes.size() / 2));
    return path;
}

QString makeNotMedia(const QString &dir, const QString &name)
{
    const QString path = QDir(dir).filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("these are not the frames you are looking for\n");
    return path;
}

std::pair<double, double> measureLoudness(const QString &path)
{
    QProcess ffmpeg;
    ffmpeg.start(u"ffmpeg"_s,
                 {u"-hide_banner"_s, u"-nostats"_s, u"-i"_s, path, u"-af"_s, u"ebur128=peak=true"_s,
                  u"-f"_s, u"null"_s, u"-"_s});
    EXPECT_TRUE(ffmpeg.waitForFinished(120'000));
    const QString summary
        = QString::fromUtf8(ffmpeg.readAllStandardError()).section(u"Summary:"_s, -1);
    const auto value = [&](const QString &pattern) {
        const QRegularExpressionMatch m = QRegularExpression(pattern).match(summary);
        EXPECT_TRUE(m.hasMatch()) << qPrintable(pattern) << qPrintable(summary);
        return m.captured(1).toDouble();
    };
    return {value(uR"(I:\s+(-?[\d.]+) LUFS)"_s), value(uR"(Peak:\s+(-?[\d.]+) dBFS)"_s)};
}

} // namespace kavel::test
