#include "export/localrenderservice.h"
#include "generatedmedia.h"
#include "media/ffmpeg/captionpicture.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "media/mlt/mltengine.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFontMetricsF>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRawFont>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

constexpr double frame = 1.0 / 30.0;

struct Probe
{
    QJsonObject format, video, audio;
    double duration() const { return format.value(u"duration"_s).toString().toDouble(); }
};

Probe probe(const QString &path)
{
    QProcess process;
    process.start(
        u"ffprobe"_s,
        {u"-v"_s, u"error"_s, u"-show_format"_s, u"-show_streams"_s, u"-of"_s, u"json"_s, path});
    process.waitForFinished(30000);
    const QJsonObject root = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    Probe result;
    result.format = root.value(u"format"_s).toObject();
    for (const QJsonValue &stream : root.value(u"streams"_s).toArray()) {
        const QJsonObject s = stream.toObject();
        (s.value(u"codec_type"_s).toString() == "video"_L1 ? result.video : result.audio) = s;
    }
    return result;
}

// The order of the top-level boxes of an MPEG-4 file.
QStringList topLevelBoxes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    QStringList boxes;
    qsizetype at = 0;
    while (at + 8 <= bytes.size()) {
        quint64 size = qFromBigEndian<quint32>(bytes.constData() + at);
        if (size == 1 && at + 16 <= bytes.size())
            size = qFromBigEndian<quint64>(bytes.constData() + at + 8);
        boxes.append(QString::fromLatin1(bytes.mid(at + 4, 4)));
        if (size < 8)
            break;
        at += qsizetype(size);
    }
    return boxes;
}

// A caption takes one line when it fits across the picture, else two of about the same
// width, broken only where a line may break; its size follows the picture's height.
TEST(Render, CaptionsKeepToTwoBalancedLinesBrokenWhereTextMayBreak)
{
    const media::ffmpeg::CaptionPainter painter(QSize(1920, 1080), 0.055);
    const QRawFont face = QRawFont::fromFont(painter.font());
    for (const char32_t c : u"字幕烧录，你好。Hello"_s.toUcs4())
        EXPECT_TRUE(face.supportsCharacter(c)) << face.familyName().toStdString();

    EXPECT_EQ(painter.lines(u" 大家好，\n欢迎 "_s), QStringList {u"大家好， 欢迎"_s});
    EXPECT_TRUE(painter.lines(u" \n "_s).isEmpty());
    EXPECT_TRUE(painter.paint(u" "_s).image.isNull());

    const QString chinese = u"我们今天来谈谈字幕烧录的速度和画面"_s.repeated(3);
    QStringList lines = painter.lines(chinese);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines.join(QString()), chinese);
    EXPECT_LE(std::abs(lines[0].size() - lines[1].size()), 2) << lines.join(u'|').toStdString();

    const QString english = u"the quick brown fox jumps over the lazy dog while the captions "
                            "keep up with every single word"_s;
    lines = painter.lines(english);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines.join(u' '), english);
    const QFontMetricsF metrics(painter.font());
    const double widths[] {metrics.horizontalAdvance(lines[0]),
                           metrics.horizontalAdvance(lines[1])};
    EXPECT_LT(std::max(widths[0], widths[1]), 1920 * 0.9);
    EXPECT_LT(std::abs(widths[0] - widths[1]), metrics.horizontalAdvance(u"captions "_s));

    // What would need a third line is cut short, visibly.
    lines = painter.lines(chinese.repeated(2));
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(chinese.startsWith(lines[0]));
    EXPECT_TRUE(lines[1].endsWith(u'…'));

    // Bottom-centred, on even pixels, inside the picture; the same share of every height.
    const auto paintAt = [](QSize picture, CaptionSize size) {
        return media::ffmpeg::CaptionPainter(picture, captionHeight(size)).paint(u"Hello 世界"_s);
    };
    const auto picture = paintAt(QSize(1920, 1080), CaptionSize::medium);
    ASSERT_FALSE(picture.image.isNull());
    EXPECT_EQ(picture.position.x() % 2 + picture.position.y() % 2, 0);
    EXPECT_EQ(picture.image.width() % 2 + picture.image.height() % 2, 0);
    EXPECT_NEAR(picture.position.x() + picture.image.width() / 2.0, 960.0, 2.0);
    EXPECT_GT(picture.position.y(), 1080 * 0.8);
    EXPECT_LT(picture.position.y() + picture.image.height(), 1080 * 0.97);
    const auto smaller = paintAt(QSize(1280, 720), CaptionSize::medium);
    EXPECT_NEAR(double(smaller.image.height()) / picture.image.height(), 720.0 / 1080.0, 0.06);
    EXPECT_LT(paintAt(QSize(1920, 1080), CaptionSize::small).image.height(),
              picture.image.height());
    EXPECT_GT(paintAt(QSize(1920, 1080), CaptionSize::large).image.height(),
              picture.image.height() * 1.15);
}

// Without an encoder the M4A is kept under the chosen name.
TEST(Render, Mp3GoesThroughAnExternalEncoderWithATimeLimit)
{
    QTemporaryDir dir;
    const auto out = [&](const QString &name) { return dir.filePath(name); };
    media::mlt::MltMediaEngine engine;
    media::ffmpeg::FfmpegRenderer renderer;
    LocalRenderService service(engine, renderer);
    service.setLogSink([](const QString &) {});
    const QList<PlaybackSource> tone {
        {QUuid(), QUrl::fromLocalFile(test::makeTone(dir.path(), u"tone.wav"_s, 4.0))}};
    const QList<WordBlock> blocks {test::timedWord(0.0, 0.6, 0), test::timedWord(1.0, 1.6, 1)};
    const QString bin = out(u"bin/"_s);
    QDir().mkpath(bin);
    EncoderSearch search {{}, {bin}};
    const QString cache = out(u"cache"_s);
    service.setScratchDirectory(cache);
    // What the encoder sees in the chosen folder while it works.
    const QByteArray looksAround = "ls -A '" + QFile::encodeName(dir.path()) + "' > '"
        + QFile::encodeName(bin) + "during.txt'\n";
    const struct
    {
        QByteArray script;
        QString codec; // none when the export fails
        bool cancelled = false;
    } cases[] = {{"", u"aac"_s},
                 {looksAround + "exec /usr/bin/ffmpeg \"$@\"\n", u"mp3"_s},
                 {"exit 3\n", {}},
                 // Stalls: the export must end all the same, within the limit.
                 {"exec sleep 600\n", {}},
                 // Stalls under a generous limit: stopping the export must reach it.
                 {"exec sleep 600\n", {}, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.script.constData());
        QFile::remove(bin + u"ffmpeg"_s);
        if (!c.script.isEmpty()) {
            test::writeFile(bin + u"ffmpeg"_s, "#!/bin/sh\n" + c.script);
            QFile::setPermissions(bin + u"ffmpeg"_s, QFile::ReadOwner | QFile::ExeOwner);
        }
        search.baseTimeLimit
            = c.cancelled ? std::chrono::minutes(10) : std::chrono::milliseconds(1500);
        service.setEncoderSearch(search);
        if (c.cancelled)
            QTimer::singleShot(1000, &service, [&] { service.cancel(); });
        const QString target = out(u"声音.mp3"_s);
        QFile::remove(target);
        QElapsedTimer clock;
        clock.start();
        auto outcome
            = test::runTask(service.renderAudioOnly(tone, blocks, false, AudioFormat::mp3, target),
                            std::chrono::seconds(60));
        EXPECT_LT(clock.elapsed(), 20'000);
        EXPECT_EQ(!outcome.error, !c.codec.isEmpty());
        // The intermediate sound lives in the cache, never beside the result, and is gone
        // however the export ended; so is any partial result.
        EXPECT_EQ(QDir(cache).entryList(QDir::Files | QDir::Hidden), QStringList {});
        QStringList expected {u"tone.wav"_s};
        if (!c.codec.isEmpty())
            expected.append(u"声音.mp3"_s);
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), expected);
        if (c.codec.isEmpty()) {
            EXPECT_FALSE(QFile::exists(target));
            continue;
        }
        const Probe p = probe(target);
        EXPECT_EQ(p.audio.value(u"codec_name"_s).toString(), c.codec);
        EXPECT_NEAR(p.duration(), 1.2, 0.1);
        if (c.codec == "mp3"_L1) {
            EXPECT_EQ(p.audio.value(u"bit_rate"_s).toString(), u"128000"_s);
            const QByteArray during = fileio::readFile(bin + u"during.txt"_s);
            EXPECT_TRUE(during.contains("tone.wav")) << during.constData();
            EXPECT_FALSE(during.contains(".m4a")) << during.constData();
        }
    }

    // An encoder shipped with the application wins over the system's.
    test::writeFile(out(u"bundle/lame.bin"_s), "#!/bin/sh\n");
    QFile::setPermissions(out(u"bundle/lame.bin"_s), QFile::ReadOwner | QFile::ExeOwner);
    service.setEncoderSearch({out(u"bundle"_s), {u"/usr/bin/"_s}});
    EXPECT_EQ(service.findEncoder(u"lame"_s), out(u"bundle/lame.bin"_s));
    EXPECT_EQ(service.findEncoder(u"ffmpeg"_s), u"/usr/bin/ffmpeg"_s);
}

// One project read by every command that takes a bundle. Its exports go through the
// application's render service, so this is where the movies' codecs and sizes are checked.
TEST(Render, CommandLineReadsTheBundleExportsEveryOutputAndFailsLoudly)
{
    QTemporaryDir dir;
    const auto out = [&](const QString &name) { return dir.filePath(name); };
    auto project = KavelProject::create(u"访谈"_s, dir.path());
    const SourceFile source = project->addSourceFile(
        QUrl::fromLocalFile(test::makeVideoWithAudio(dir.path(), u"video.mp4"_s, 4.0)));
    Paragraph paragraph {QUuid::createUuid(), {}, 0, {}};
    for (const auto &[from, to] : {std::pair {0.5, 1.0}, {1.0, 1.4}, {2.5, 3.0}})
        paragraph.wordBlocks.append(
            test::timedWord(from, to, paragraph.wordBlocks.size(), source.id, u"词"_s));
    project->setParagraphs({paragraph});
    project->saveTimeline();
    const QString folder = out(u"exports"_s);
    const auto at = [&](const QString &name) { return QDir(folder).filePath(name); };

    const auto runCli = [&](const QStringList &arguments, int expectedExit = 0) {
        QProcess cli;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"KAVEL_PROJECTS_DIR"_s, dir.path());
        cli.setProcessEnvironment(environment);
        cli.start(test::programPath(u"kavel-cli"_s), arguments);
        EXPECT_TRUE(cli.waitForFinished(60000));
        const QString errors = QString::fromUtf8(cli.readAllStandardError());
        EXPECT_EQ(cli.exitCode(), expectedExit) << qPrintable(errors);
        return std::pair {QString::fromUtf8(cli.readAllStandardOutput()), errors};
    };
    const auto exportCli = [&](const QStringList &arguments, int expectedExit = 0) {
        return runCli(QStringList {u"export"_s, project->bundlePath(), u"--out"_s, folder}
                          + arguments,
                      expectedExit)
            .second;
    };
    // The index comes first, so players can start before the whole file is there.
    const auto expectMovie
        = [&](const QString &name, const QString &codec, const QString &tag, int width) {
              SCOPED_TRACE(name.toStdString());
              const Probe p = probe(at(name));
              EXPECT_NEAR(p.duration(), 1.4, 2 * frame);
              EXPECT_NEAR(p.video.value(u"duration"_s).toString().toDouble(), 1.4, 2 * frame);
              EXPECT_EQ(p.video.value(u"codec_name"_s).toString(), codec);
              EXPECT_EQ(p.video.value(u"codec_tag_string"_s).toString(), tag);
              EXPECT_EQ(p.video.value(u"width"_s).toInt(), width);
              EXPECT_EQ(p.audio.value(u"codec_name"_s).toString(), u"aac"_s);
              const QStringList boxes = topLevelBoxes(at(name));
              ASSERT_TRUE(boxes.contains(u"moov"_s) && boxes.contains(u"mdat"_s));
              EXPECT_LT(boxes.indexOf(u"moov"_s), boxes.indexOf(u"mdat"_s));
          };

    const QJsonArray list
        = QJsonDocument::fromJson(runCli({u"list"_s, u"--json"_s}).first.toUtf8()).array();
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list.first().toObject().value(u"wordBlockCount"_s).toInt(), 3);
    EXPECT_EQ(list.first().toObject().value(u"durationText"_s).toString(), u"00:04"_s);
    EXPECT_TRUE(runCli({u"list"_s}).first.startsWith(u"访谈  "_s));
    runCli({u"thumbnail"_s, project->bundlePath(), out(u"card.png"_s)});
    EXPECT_EQ(QImage(out(u"card.png"_s)).size(), QSize(320, 180));

    const QStringList lines = runCli({u"composition"_s, project->bundlePath()}).first.split(u'\n');
    ASSERT_GE(lines.size(), 8);
    EXPECT_EQ(lines[0], u"duration 1.400"_s);
    EXPECT_TRUE(lines[4].startsWith(u"  0.900  "_s) && lines[4].endsWith(u"[2.500-3.000]  词"_s));
    // Cut only between the words: the silence around the speech is never played.
    EXPECT_EQ(lines.mid(5, 3), (QStringList {u"deleted 1"_s, u"  1.400-2.500"_s, u""_s}));
    runCli({u"composition"_s, out(u"none.kavel"_s)}, 1);

    // The size chosen is the size written, for HEVC as for H.264; QuickTime plays HEVC
    // only under the hvc1 tag. The file of an earlier export is replaced.
    test::writeFile(at(u"成片.mov"_s), QByteArray(4096, 'x'));
    exportCli({u"--title"_s, u"成片"_s, u"--video"_s, u"mov"_s, u"--codec"_s, u"hevc"_s,
               u"--resolution"_s, u"720p"_s, u"--audio"_s, u"wav"_s, u"--srt"_s});
    expectMovie(u"成片.mov"_s, u"hevc"_s, u"hvc1"_s, 1280);
    EXPECT_NEAR(probe(at(u"成片.wav"_s)).duration(), 1.4, 2 * frame);
    EXPECT_TRUE(QFileInfo(at(u"成片.srt"_s)).size() > 0);

    // The movie's sound and the sound file are brought to the loudness chosen, under the
    // true-peak ceiling, and the summary says how loud the cut was and is. A target that
    // is not offered is refused before anything is written.
    const QString leveled
        = runCli({u"export"_s, project->bundlePath(), u"--out"_s, folder, u"--title"_s, u"响度"_s,
                  u"--video"_s, u"mp4"_s, u"--audio"_s, u"wav"_s, u"--loudness"_s, u"-16"_s,
                  u"--denoise"_s, u"light"_s})
              .first;
    EXPECT_TRUE(leveled.contains(QRegularExpression(
        u"响度：-\\d+\\.\\d LUFS → -1[56]\\.\\d LUFS，真峰值 -\\d+\\.\\d dBTP"_s)))
        << leveled.toStdString();
    for (const QString &name : {u"响度.mp4"_s, u"响度.wav"_s}) {
        const auto [loudness, peak] = test::measureLoudness(at(name));
        EXPECT_NEAR(loudness, -16.0, 0.5) << name.toStdString();
        EXPECT_LE(peak, -1.0) << name.toStdString();
    }
    EXPECT_TRUE(exportCli({u"--loudness"_s, u"-15"_s}, 2).contains(u"--loudness"_s));
    EXPECT_TRUE(exportCli({u"--denoise"_s, u"max"_s}, 2).contains(u"--denoise"_s));

    // Phrase cues (the default) in WebVTT and the hand-off list: the two touching words are
    // one event and the third word another, but a word alone after the pause is no cue of
    // its own while the phrase before has room for it.
    exportCli({u"--title"_s, u"交接"_s, u"--vtt"_s, u"--interchange"_s, u"edl"_s});
    const QByteArray vtt = fileio::readFile(at(u"交接.vtt"_s));
    EXPECT_EQ(vtt, "WEBVTT\n\n00:00:00.000 --> 00:00:01.400\n词词词\n");
    const QByteArray edl = fileio::readFile(at(u"交接.edl"_s));
    EXPECT_EQ(edl.count("\n00"), 2) << edl.constData();
    EXPECT_TRUE(edl.contains("00:00:00:15 00:00:01:12 01:00:00:00 01:00:00:27")) << edl.constData();

    // A step that cannot write makes the run fail, after the other steps ran. Without a
    // size asked for, a small recording is written at the smallest class, not at 1080p.
    QDir().mkpath(at(u"访谈.srt"_s));
    EXPECT_TRUE(exportCli({u"--srt"_s, u"--audio"_s, u"aac"_s, u"--video"_s, u"mp4"_s}, 1)
                    .contains(u"字幕导出失败"_s));
    expectMovie(u"访谈.mp4"_s, u"h264"_s, u"avc1"_s, 1280);
    const Probe aac = probe(at(u"访谈.m4a"_s));
    EXPECT_TRUE(aac.video.isEmpty());
    EXPECT_NEAR(aac.duration(), 1.4, 2 * frame + 0.05);

    // On a full disk every step fails and says why; the older files of the same names are
    // not this run's and are not listed as written, and the sound's intermediate file
    // is never named.
    {
        test::FullDisk full(out(u"full"_s), u"512k"_s);
        const auto inFull = [&](const QString &name) { return QDir(full.path()).filePath(name); };
        test::writeFile(inFull(u"满.srt"_s), "an older export");
        test::writeFile(inFull(u"满.mp3"_s), "an older export");
        test::writeFile(inFull(u"满.mp4"_s), "an older export");
        full.fill();
        std::pair<QString, QString> outcome;
        full.whileFull([&] {
            outcome
                = runCli({u"export"_s, project->bundlePath(), u"--out"_s, full.path(), u"--title"_s,
                          u"满"_s, u"--srt"_s, u"--audio"_s, u"mp3"_s, u"--video"_s, u"mp4"_s},
                         1);
        });
        const auto &[summary, errors] = outcome;
        EXPECT_TRUE(summary.contains(u"字幕  未写入"_s) && summary.contains(u"音频  未写入"_s)
                    && summary.contains(u"视频  未写入"_s))
            << summary.toStdString();
        EXPECT_FALSE(errors.contains(u"_kavel_tmp"_s)) << errors.toStdString();
        const QString said = errors.section(u"kavel-cli: "_s, -1);
        EXPECT_TRUE(said.contains(u"字幕导出失败: "_s) && said.contains(u"音频导出失败: "_s)
                    && said.contains(u"视频导出失败: "_s))
            << said.toStdString();
        if (full.isMounted()) {
            EXPECT_EQ(said.count(u"磁盘空间不足"_s), 3) << said.toStdString();
        }
        EXPECT_EQ(fileio::readFile(inFull(u"满.srt"_s)), "an older export");
    }

    // Nothing but the finished files is left beside them.
    QStringList files = QDir(folder).entryList(QDir::Files | QDir::Hidden);
    files.sort();
    QStringList finished {u"成片.mov"_s, u"成片.wav"_s, u"成片.srt"_s, u"交接.vtt"_s, u"交接.edl"_s,
                          u"访谈.m4a"_s, u"访谈.mp4"_s, u"响度.mp4"_s, u"响度.wav"_s};
    finished.sort();
    EXPECT_EQ(files, finished);
}

} // namespace
