// Times Kavel's exports against the ffmpeg command line on the same cut list and media,
// in one run, and prints the ratios. Not a Google Benchmark: each job runs once and is
// long enough that one run tells. Beside wall time it gives the processor time (user +
// system) each job took, which a machine busy with other work disturbs less.
//
// The floor for a movie is the encoder: ffmpeg transcoding one stretch of the source as
// long as the kept words, with the same settings. It runs right before Kavel's export so
// both see the same load.
//
//   bench_export [--video-seconds N,...] [--video-cuts N,...] [--no-trim-concat]
//                [--audio-seconds N] [--audio-cuts N] [--video-only | --sound-only] [--keep DIR]
//                [--burn-in] [--sound-finish]
//
// By default the movie runs are 200 cuts of a 120 s source and 1,000 cuts of a 600 s one;
// ffmpeg's trim+concat graph takes many minutes on the second. --burn-in adds, for each
// movie run, Kavel's 1080p export without captions, with phrase captions and with a caption
// for every word burned in. --sound-finish times, on a sound of quiet speech with clicks and
// a 50 Hz hum, the WAV export plain, brought to -14 LUFS (where the limiter takes the
// clicks), denoised (hum notches and the FFT denoiser), and both.
#include "export/localrenderservice.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "media/mlt/mltengine.h"
#include "model/errors.h"

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <random>
#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

double cpuSeconds(int who)
{
    rusage usage {};
    getrusage(who, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Wall and processor seconds of one job.
struct Timing
{
    double wall = 0;
    double cpu = 0;
};

void runFfmpeg(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(u"ffmpeg"_s, QStringList {u"-v"_s, u"error"_s, u"-y"_s} + arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", qPrintable(arguments.join(u' ')));
        std::exit(1);
    }
}

// Keeps `cuts` stretches of about equal length spread over the source, each a run of
// words a quarter-second long, so the edit looks like a transcript with deletions.
QList<WordBlock> cutList(double sourceSeconds, int cuts, std::mt19937 &random)
{
    QList<WordBlock> blocks;
    const double slot = sourceSeconds / cuts;
    std::uniform_real_distribution<double> offset(0.0, slot * 0.3);
    qint64 order = 0;
    // Words of their own, so burned-in captions draw glyphs of many shapes.
    const QString text = u"我们今天来谈谈字幕烧录的速度和画面"_s;
    for (int i = 0; i < cuts; ++i) {
        double t = i * slot + offset(random);
        const double end = i * slot + slot * 0.8;
        while (t + 0.25 <= end) {
            WordBlock b;
            b.id = QUuid::createUuid();
            b.text = text.at(order % text.size());
            b.mediaStart = t;
            b.mediaEnd = t + 0.25;
            b.sortOrder = order++;
            blocks.append(b);
            t += 0.25;
        }
    }
    return blocks;
}

// Merges contiguous words into the stretches ffmpeg is told to keep.
QList<std::pair<double, double>> stretches(const QList<WordBlock> &blocks)
{
    QList<std::pair<double, double>> result;
    for (const WordBlock &b : blocks) {
        if (!result.isEmpty() && std::abs(result.last().second - b.mediaStart) < 1e-9)
            result.last().second = b.mediaEnd;
        else
            result.append({b.mediaStart, b.mediaEnd});
    }
    return result;
}

QString trimConcatGraph(const QList<std::pair<double, double>> &kept, bool video)
{
    QString graph;
    QString inputs;
    for (qsizetype i = 0; i < kept.size(); ++i) {
        const QString from = QString::number(kept[i].first, 'f', 6);
        const QString to = QString::number(kept[i].second, 'f', 6);
        if (video)
            graph += u"[0:v]trim=%1:%2,setpts=PTS-STARTPTS[v%3];"_s.arg(from, to).arg(i);
        graph += u"[0:a]atrim=%1:%2,asetpts=PTS-STARTPTS[a%3];"_s.arg(from, to).arg(i);
        inputs += video ? u"[v%1][a%1]"_s.arg(i) : u"[a%1]"_s.arg(i);
    }
    graph += inputs + u"concat=n=%1:v=%2:a=1"_s.arg(kept.size()).arg(video ? 1 : 0);
    graph += video ? u"[v][a]"_s : u"[a]"_s;
    return graph;
}

QCoro::Task<> settle(QCoro::Task<> task, bool &done, QString &error)
{
    try {
        co_await std::move(task);
    } catch (const Error &e) {
        error = e.description();
    } catch (const std::exception &e) {
        error = QString::fromLocal8Bit(e.what());
    }
    done = true;
}

// Waits by hand rather than with QCoro::waitFor, which never returns when the task has
// already finished by the time it starts waiting.
Timing timeKavel(QCoro::Task<> task)
{
    const double cpu = cpuSeconds(RUSAGE_SELF);
    QElapsedTimer timer;
    timer.start();
    bool done = false;
    QString error;
    auto waiting = settle(std::move(task), done, error);
    // Sleeps between events: a spinning wait would take a core from the export it times.
    QTimer tick;
    tick.start(100);
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    if (!error.isEmpty()) {
        std::fprintf(stderr, "export failed: %s\n", qPrintable(error));
        std::exit(1);
    }
    return {timer.elapsed() / 1000.0, cpuSeconds(RUSAGE_SELF) - cpu};
}

Timing timeFfmpeg(const QStringList &arguments)
{
    const double cpu = cpuSeconds(RUSAGE_CHILDREN);
    QElapsedTimer timer;
    timer.start();
    runFfmpeg(arguments);
    return {timer.elapsed() / 1000.0, cpuSeconds(RUSAGE_CHILDREN) - cpu};
}

// The settings Kavel's movie export uses, for ffmpeg's outputs.
QStringList movieSettings(const QString &output)
{
    return {u"-c:v"_s, u"libx264"_s,  u"-preset"_s,   u"veryfast"_s,   u"-crf"_s,
            u"23"_s,   u"-pix_fmt"_s, u"yuv420p"_s,   u"-c:a"_s,       u"aac"_s,
            u"-b:a"_s, u"160k"_s,     u"-movflags"_s, u"+faststart"_s, output};
}

QString loadAverage()
{
    QFile file(u"/proc/loadavg"_s);
    if (!file.open(QIODevice::ReadOnly))
        return u"?"_s;
    return QString::fromLatin1(file.readAll()).section(u' ', 0, 2);
}

} // namespace

int main(int argc, char *argv[])
{
    // Captions are drawn with Qt's fonts, without a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "minimal:enable_fonts");
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption videoSeconds(
        u"video-seconds"_s,
        u"length of the 720p source of each run, or one length for all of them"_s, u"N,..."_s,
        u"120,600"_s);
    const QCommandLineOption videoCuts(
        u"video-cuts"_s, u"stretches kept from it, one run per comma-separated count"_s, u"N,..."_s,
        u"200,1000"_s);
    const QCommandLineOption audioSeconds(u"audio-seconds"_s, u"length of the sound source"_s,
                                          u"N"_s, u"3600"_s);
    const QCommandLineOption audioCuts(u"audio-cuts"_s, u"stretches kept from it"_s, u"N"_s,
                                       u"2000"_s);
    const QCommandLineOption keep(u"keep"_s, u"work in DIR and keep the files"_s, u"DIR"_s);
    const QCommandLineOption soundOnly(u"sound-only"_s, u"skip the video comparison"_s);
    const QCommandLineOption videoOnly(u"video-only"_s, u"skip the sound comparison"_s);
    const QCommandLineOption noGraph(u"no-trim-concat"_s,
                                     u"skip ffmpeg's trim+concat graph, slow at many cuts"_s);
    const QCommandLineOption burnIn(u"burn-in"_s,
                                    u"also time 1080p exports with and without burned captions"_s);
    const QCommandLineOption soundFinish(u"sound-finish"_s,
                                         u"also time WAV exports with loudness and denoising"_s);
    parser.addOptions({videoSeconds, videoCuts, audioSeconds, audioCuts, keep, soundOnly, videoOnly,
                       noGraph, burnIn, soundFinish});
    parser.process(app);

    QTemporaryDir temporary;
    const QString dir = parser.isSet(keep) ? parser.value(keep) : temporary.path();
    QDir().mkpath(dir);
    const auto path = [&](const QString &name) { return QDir(dir).filePath(name); };

    media::mlt::MltMediaEngine engine;
    media::ffmpeg::FfmpegRenderer renderer;
    LocalRenderService service(engine, renderer);
    service.setLogSink([](const QString &) {});
    std::mt19937 random(7);

    if (!parser.isSet(soundOnly)) {
        // Video: a 720p H.264/AAC source, cut, encoded by both at x264 veryfast CRF 23.
        const QStringList counts = parser.value(videoCuts).split(u',');
        const QStringList lengths = parser.value(videoSeconds).split(u',');
        for (qsizetype run = 0; run < counts.size(); ++run) {
            const double vSeconds = lengths.value(std::min(run, lengths.size() - 1)).toDouble();
            const QString video = path(u"source720-%1.mp4"_s.arg(vSeconds));
            if (!QFileInfo::exists(video)) {
                std::printf("making a %.0f s 720p source...\n", vSeconds);
                std::fflush(stdout);
                const QString d = QString::number(vSeconds);
                runFfmpeg({u"-f"_s,       u"lavfi"_s,
                           u"-i"_s,       u"testsrc2=size=1280x720:rate=30:duration="_s + d,
                           u"-f"_s,       u"lavfi"_s,
                           u"-i"_s,       u"sine=frequency=440:sample_rate=48000:duration="_s + d,
                           u"-c:v"_s,     u"libx264"_s,
                           u"-preset"_s,  u"veryfast"_s,
                           u"-g"_s,       u"60"_s,
                           u"-pix_fmt"_s, u"yuv420p"_s,
                           u"-c:a"_s,     u"aac"_s,
                           u"-ac"_s,      u"2"_s,
                           video});
            }
            const QList<WordBlock> videoBlocks = cutList(vSeconds, counts[run].toInt(), random);
            const auto videoKept = stretches(videoBlocks);
            double kept = 0;
            for (const auto &[from, to] : videoKept)
                kept += to - from;
            const QString loadBefore = loadAverage();
            const Timing encodeOnly
                = timeFfmpeg(QStringList {u"-t"_s, QString::number(kept, 'f', 6), u"-i"_s, video}
                             + movieSettings(path(u"encode-only.mp4"_s)));
            ExportSettings settings;
            settings.resolution = Resolution::p720;
            const Timing kavelVideo
                = timeKavel(service.renderVideo({{QUuid(), QUrl::fromLocalFile(video)}},
                                                videoBlocks, settings, path(u"kavel.mp4"_s)));
            std::printf("video  %lld cuts, %.1f s kept of %.0f s, 720p H.264, load %s\n"
                        "       kavel %.2f s (cpu %.2f s)   encode-only %.2f s (cpu %.2f s)"
                        "   ratio kavel/encode-only %.2f (cpu %.2f)\n",
                        static_cast<long long>(videoKept.size()), kept, vSeconds,
                        qPrintable(loadBefore), kavelVideo.wall, kavelVideo.cpu, encodeOnly.wall,
                        encodeOnly.cpu, kavelVideo.wall / encodeOnly.wall,
                        kavelVideo.cpu / encodeOnly.cpu);
            std::fflush(stdout);
            if (parser.isSet(burnIn)) {
                settings.resolution = Resolution::p1080;
                const auto timeCaptions = [&](bool burn, SubtitleStyle style) {
                    settings.burnSubtitles = burn;
                    settings.subtitleStyle = style;
                    return timeKavel(service.renderVideo({{QUuid(), QUrl::fromLocalFile(video)}},
                                                         videoBlocks, settings,
                                                         path(u"kavel1080.mp4"_s)));
                };
                const Timing plain = timeCaptions(false, SubtitleStyle::phrases);
                const Timing phrases = timeCaptions(true, SubtitleStyle::phrases);
                const Timing words = timeCaptions(true, SubtitleStyle::words);
                std::printf("       1080p kavel %.2f s (cpu %.2f s)   phrases burned in %.2f s "
                            "(cpu %.2f s)   words burned in %.2f s (cpu %.2f s)\n"
                            "       ratio burned/plain: phrases %.3f (cpu %.3f), words %.3f "
                            "(cpu %.3f)\n",
                            plain.wall, plain.cpu, phrases.wall, phrases.cpu, words.wall, words.cpu,
                            phrases.wall / plain.wall, phrases.cpu / plain.cpu,
                            words.wall / plain.wall, words.cpu / plain.cpu);
                std::fflush(stdout);
            }
            if (parser.isSet(noGraph))
                continue;
            const QString videoGraphFile = path(u"video-graph.txt"_s);
            {
                QFile graph(videoGraphFile);
                graph.open(QIODevice::WriteOnly);
                graph.write(trimConcatGraph(videoKept, true).toUtf8());
            }
            const Timing ffmpegVideo
                = timeFfmpeg(QStringList {u"-i"_s, video, u"-filter_complex_script"_s,
                                          videoGraphFile, u"-map"_s, u"[v]"_s, u"-map"_s, u"[a]"_s}
                             + movieSettings(path(u"ffmpeg.mp4"_s)));
            std::printf("       ffmpeg trim+concat %.2f s (cpu %.2f s)   ratio kavel/ffmpeg %.2f\n",
                        ffmpegVideo.wall, ffmpegVideo.cpu, kavelVideo.wall / ffmpegVideo.wall);
            std::fflush(stdout);
        }
    }
    if (parser.isSet(videoOnly))
        return 0;

    // Sound: an hour of AAC, 2,000 stretches kept, written as WAV.
    const double aSeconds = parser.value(audioSeconds).toDouble();
    const QString sound = path(u"source.m4a"_s);
    if (!QFileInfo::exists(sound)) {
        std::printf("making a %.0f s AAC source...\n", aSeconds);
        std::fflush(stdout);
        runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
                   u"sine=frequency=300:sample_rate=48000:duration="_s + QString::number(aSeconds),
                   u"-ac"_s, u"2"_s, u"-c:a"_s, u"aac"_s, sound});
    }
    const QList<WordBlock> soundBlocks = cutList(aSeconds, parser.value(audioCuts).toInt(), random);
    const auto soundKept = stretches(soundBlocks);
    double soundLength = 0;
    for (const auto &[from, to] : soundKept)
        soundLength += to - from;
    const double kavelWav
        = timeKavel(service.renderAudioOnly({{QUuid(), QUrl::fromLocalFile(sound)}}, soundBlocks,
                                            false, AudioFormat::wav, path(u"kavel.wav"_s)))
              .wall;
    std::printf("wav    %lld cuts, %.0f s kept of %.0f s\n"
                "       kavel %.2f s (%.0fx real time)\n",
                static_cast<long long>(soundKept.size()), soundLength, aSeconds, kavelWav,
                soundLength / kavelWav);
    std::fflush(stdout);
    // A filter graph of thousands of atrims feeds every decoded sample to every one of
    // them; the concat demuxer with in and out points is how ffmpeg cuts this many.
    const QString listFile = path(u"sound-cuts.txt"_s);
    {
        QFile list(listFile);
        list.open(QIODevice::WriteOnly);
        for (const auto &[from, to] : soundKept)
            list.write(u"file '%1'\ninpoint %2\noutpoint %3\n"_s
                           .arg(sound, QString::number(from, 'f', 6), QString::number(to, 'f', 6))
                           .toUtf8());
    }
    const double ffmpegWav = timeFfmpeg({u"-f"_s, u"concat"_s, u"-safe"_s, u"0"_s, u"-i"_s,
                                         listFile, u"-c:a"_s, u"pcm_s16le"_s, u"-ar"_s, u"44100"_s,
                                         u"-ac"_s, u"2"_s, path(u"ffmpeg.wav"_s)})
                                 .wall;
    std::printf("       ffmpeg concat demuxer %.2f s   ratio kavel/ffmpeg %.2f\n", ffmpegWav,
                kavelWav / ffmpegWav);
    std::fflush(stdout);
    if (!parser.isSet(soundFinish))
        return 0;

    const QString speech = path(u"speech-clicks-hum.wav"_s);
    if (!QFileInfo::exists(speech)) {
        std::printf("making a %.0f s source of speech, clicks and hum...\n", aSeconds);
        std::fflush(stdout);
        runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
                   u"aevalsrc='(0.05*sin(2*PI*140*t)+0.03*sin(2*PI*280*t)+0.015*sin(2*PI*1100*t)"
                   "+0.01*(random(0)*2-1))*pow(sin(2*PI*2.2*t),2)+if(lt(mod(t,0.83),0.0006),0.17,0)"
                   "+0.01*sin(2*PI*50*t)+0.005*sin(2*PI*100*t)':s=48000:d="_s
                       + QString::number(aSeconds),
                   u"-ac"_s, u"2"_s, u"-c:a"_s, u"pcm_s16le"_s, speech});
    }
    const auto timeFinish = [&](media::SoundFinish finish) {
        service.setSoundFinish(finish);
        return timeKavel(service.renderAudioOnly({{QUuid(), QUrl::fromLocalFile(speech)}},
                                                 soundBlocks, false, AudioFormat::wav,
                                                 path(u"kavel-finished.wav"_s)));
    };
    const Timing plainSound = timeFinish({});
    const Timing loudness = timeFinish({-14.0, media::Denoise::off});
    const Timing denoised = timeFinish({std::nullopt, media::Denoise::light});
    const Timing both = timeFinish({-14.0, media::Denoise::light});
    std::printf("finish %.0f s kept: plain %.2f s (cpu %.2f)   -14 LUFS %.2f s (cpu %.2f)   "
                "denoised %.2f s (cpu %.2f)   both %.2f s (cpu %.2f)\n",
                soundLength, plainSound.wall, plainSound.cpu, loudness.wall, loudness.cpu,
                denoised.wall, denoised.cpu, both.wall, both.cpu);
    return 0;
}
