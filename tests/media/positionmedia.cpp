#include "positionmedia.h"

#include "generatedmedia.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace kavel::test {

namespace {

const QString rampExpression = u"0.9*(mod(t\\,2)-1)"_s;
// The resampler rings for a few milliseconds around the sawtooth's drop.
constexpr double wrapMargin = 0.005;

QByteArray ffmpegOutput(const QStringList &arguments)
{
    QProcess process;
    process.start(u"ffmpeg"_s, QStringList {u"-v"_s, u"error"_s} + arguments);
    EXPECT_TRUE(process.waitForFinished(120000));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
    return process.readAllStandardOutput();
}

double rampTime(float value)
{
    return (double(value) / 0.9 + 1.0);
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

double rampDifference(double a, double b)
{
    double d = std::fmod(a - b, rampPeriod);
    if (d >= rampPeriod / 2)
        d -= rampPeriod;
    if (d < -rampPeriod / 2)
        d += rampPeriod;
    return d;
}

QString makeRampSound(const QString &dir, const QString &name, double seconds, int rate,
                      int channels)
{
    const QString path = QDir(dir).filePath(name);
    QString channelExpression = rampExpression;
    for (int c = 1; c < channels; ++c)
        channelExpression += u'|' + rampExpression;
    runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
               u"aevalsrc=%1:s=%2:d=%3"_s.arg(channelExpression).arg(rate).arg(seconds), u"-c:a"_s,
               u"pcm_s16le"_s, path});
    return path;
}

QString makeCountingVideo(const QString &dir, const QString &name, double seconds, int fps,
                          bool cameraLike)
{
    const QString path = QDir(dir).filePath(name);
    const QString counter = u"color=c=black:s=160x90:r=%1:d=%2,format=gray,"
                            u"geq=lum='255*mod(floor(N/pow(2,floor(X*16/W))),2)'"_s.arg(fps)
                                .arg(seconds);
    const QString ramp = u"aevalsrc=%1|%1:s=48000:d=%2"_s.arg(rampExpression).arg(seconds);
    QStringList arguments {u"-f"_s,       u"lavfi"_s,     u"-i"_s,  counter,   u"-f"_s,
                           u"lavfi"_s,    u"-i"_s,        ramp,     u"-c:v"_s, u"libx264"_s,
                           u"-preset"_s,  u"ultrafast"_s, u"-g"_s,  u"30"_s,   u"-pix_fmt"_s,
                           u"yuv420p"_s,  u"-c:a"_s,      u"aac"_s, u"-b:a"_s, u"256k"_s,
                           u"-shortest"_s};
    if (cameraLike)
        arguments << u"-x264-params"_s << u"bframes=3:b-adapt=0:b-pyramid=normal"_s
                  << u"-colorspace"_s << u"bt709"_s << u"-color_primaries"_s << u"bt709"_s
                  << u"-color_trc"_s << u"bt709"_s;
    runFfmpeg(arguments << path);
    return path;
}

Sound decodeSound(const QString &path, int rate)
{
    const QByteArray bytes = ffmpegOutput({u"-i"_s, path, u"-f"_s, u"f32le"_s, u"-ac"_s, u"2"_s,
                                           u"-ar"_s, QString::number(rate), u"-"_s});
    Sound sound;
    sound.rate = rate;
    const size_t frames = size_t(bytes.size()) / (2 * sizeof(float));
    sound.left.resize(frames);
    sound.right.resize(frames);
    const char *data = bytes.constData();
    for (size_t i = 0; i < frames; ++i) {
        std::memcpy(&sound.left[i], data + 8 * i, 4);
        std::memcpy(&sound.right[i], data + 8 * i + 4, 4);
    }
    return sound;
}

std::vector<int> decodeFrameNumbers(const QString &path)
{
    const QByteArray bytes
        = ffmpegOutput({u"-i"_s, path, u"-vsync"_s, u"0"_s, u"-vf"_s,
                        u"scale=16:1:flags=area,format=gray"_s, u"-f"_s, u"rawvideo"_s, u"-"_s});
    std::vector<int> numbers;
    for (qsizetype at = 0; at + 16 <= bytes.size(); at += 16) {
        int n = 0;
        for (int bit = 0; bit < 16; ++bit)
            if (static_cast<unsigned char>(bytes[at + bit]) > 128)
                n |= 1 << bit;
        numbers.push_back(n);
    }
    return numbers;
}

QString makeBlackVideo(const QString &dir, const QString &name, double seconds, QSize size)
{
    const QString path = QDir(dir).filePath(name);
    const QString d = QString::number(seconds);
    runFfmpeg(
        {u"-f"_s, u"lavfi"_s, u"-i"_s,
         u"color=c=black:size=%1x%2:rate=30:duration="_s.arg(size.width()).arg(size.height()) + d,
         u"-f"_s, u"lavfi"_s, u"-i"_s, u"anullsrc=r=48000:cl=stereo"_s, u"-t"_s, d, u"-c:v"_s,
         u"libx264"_s, u"-preset"_s, u"ultrafast"_s, u"-pix_fmt"_s, u"yuv420p"_s, u"-c:a"_s,
         u"aac"_s, path});
    return path;
}

std::vector<int> brightPixelsPerFrame(const QString &path, QRect area, int level)
{
    const QByteArray bytes = ffmpegOutput({u"-i"_s, path, u"-vsync"_s, u"0"_s, u"-vf"_s,
                                           u"crop=%1:%2:%3:%4,format=gray"_s.arg(area.width())
                                               .arg(area.height())
                                               .arg(area.x())
                                               .arg(area.y()),
                                           u"-f"_s, u"rawvideo"_s, u"-"_s});
    const qsizetype frame = qsizetype(area.width()) * area.height();
    std::vector<int> counts;
    for (qsizetype at = 0; at + frame <= bytes.size(); at += frame)
        counts.push_back(int(std::count_if(bytes.begin() + at, bytes.begin() + at + frame,
                                           [level](char c) { return uchar(c) > level; })));
    return counts;
}

QImage grayFrame(const QString &path, int index)
{
    const QString png = path + u".frame.png"_s;
    runFfmpeg({u"-i"_s, path, u"-vf"_s, u"select=eq(n\\,%1),format=gray"_s.arg(index),
               u"-frames:v"_s, u"1"_s, png});
    QImage image(png);
    QFile::remove(png);
    return image.convertToFormat(QImage::Format_Grayscale8);
}

QString makeNoiseSound(const QString &dir, const QString &name, double seconds, int rate,
                       int channels)
{
    const QString path = QDir(dir).filePath(name);
    runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
               u"anoisesrc=d=%1:c=white:r=%2:a=0.3:seed=7"_s.arg(seconds).arg(rate), u"-ac"_s,
               QString::number(channels), u"-c:a"_s, u"pcm_s16le"_s, path});
    return path;
}

std::int64_t bestLag(const Sound &sound, const Sound &reference, std::int64_t from, std::int64_t to,
                     std::int64_t maxLag)
{
    std::int64_t best = 0;
    double bestScore = -1e300;
    for (std::int64_t lag = -maxLag; lag <= maxLag; ++lag) {
        double score = 0;
        for (std::int64_t n = from; n < to; ++n)
            score += double(reference.left[size_t(n)]) * sound.left[size_t(n + lag)];
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

double worstLag(const Sound &sound, const Sound &reference, const EditList &edit)
{
    const int rate = sound.rate;
    const auto maxLag = std::int64_t(0.003 * rate);
    double worst = 0.0;
    for (const EditSegment &segment : edit.segments) {
        // Inside the word, clear of the codec's smearing of the joins.
        const auto from = std::int64_t((segment.compositionStart + 0.015) * rate);
        const auto to = std::min(from + std::int64_t(0.02 * rate),
                                 std::int64_t((segment.compositionEnd() - 0.015) * rate));
        if (to - from < std::int64_t(0.005 * rate) || from < maxLag
            || to + maxLag > std::min(sound.size(), reference.size()))
            continue;
        worst
            = std::max(worst, std::abs(double(bestLag(sound, reference, from, to, maxLag))) / rate);
    }
    return worst;
}

QList<WordBlock> randomEdit(double seconds, int runs, std::mt19937 &random, const QUuid &source)
{
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<std::pair<double, double>> words;
    for (double t = 0.05; t < seconds - 0.5;) {
        const double pick = unit(random);
        const double length = pick < 0.1 ? 1.0 / 30.0 : 0.04 + 0.26 * unit(random);
        words.emplace_back(t, t + length);
        const double gap = unit(random);
        t += length + (gap < 0.4 ? 0.0 : gap < 0.6 ? 0.01 : 0.02 + 0.2 * unit(random));
    }
    QList<WordBlock> edit;
    std::uniform_int_distribution<size_t> start(0, words.size() - 5);
    for (int r = 0; r < runs; ++r) {
        const size_t first = start(random);
        const size_t count = 1 + size_t(unit(random) * unit(random) * 4);
        for (size_t i = first; i < first + count; ++i) {
            WordBlock block;
            block.id = QUuid::createUuid();
            block.text = u"w%1"_s.arg(i);
            block.sourceFileId = source;
            block.mediaStart = words[i].first;
            block.mediaEnd = words[i].second;
            block.sortOrder = edit.size();
            edit.append(block);
        }
    }
    return edit;
}

double rampTimeAround(const Sound &sound, double t)
{
    std::vector<double> times;
    const auto first = std::max<std::int64_t>(std::llround((t - 0.002) * sound.rate), 0);
    const auto last = std::min<std::int64_t>(std::llround((t + 0.002) * sound.rate), sound.size());
    // Unfold around the first reading so a window across the drop still has one median.
    const double reference = first < last ? rampTime(sound.left[size_t(first)]) : 0.0;
    for (std::int64_t n = first; n < last; ++n)
        times.push_back(reference + rampDifference(rampTime(sound.left[size_t(n)]), reference)
                        - (double(n) / sound.rate - t));
    return median(times);
}

SoundOffsets measureSoundOffsets(const Sound &sound, const EditList &edit)
{
    SoundOffsets offsets;
    const double rate = sound.rate;
    for (qsizetype i = 0; i < edit.segments.size(); ++i) {
        const EditSegment &segment = edit.segments.at(i);
        // Joins that jump are smoothed over 5 ms; contiguous ones are not.
        const double from = segment.compositionStart + (edit.continuesPrevious(i) ? 0.0005 : 0.006);
        const double to
            = segment.compositionEnd() - (edit.continuesPrevious(i + 1) ? 0.0005 : 0.006);
        if (to - from < 0.004)
            continue;
        ++offsets.segmentsChecked;
        for (auto n = std::max<std::int64_t>(std::int64_t(std::ceil(from * rate)), 0);
             n < std::min(std::int64_t(to * rate), sound.size()); ++n) {
            const double expected = segment.sourceStart + (n / rate - segment.compositionStart);
            const double phase = std::fmod(expected, rampPeriod);
            if (phase < wrapMargin || phase > rampPeriod - wrapMargin)
                continue;
            offsets.worstSample
                = std::max(offsets.worstSample,
                           std::abs(rampDifference(rampTime(sound.left[size_t(n)]), expected)));
        }
    }
    return offsets;
}

} // namespace kavel::test
