#include "export/localrenderservice.h"
#include "generatedmedia.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "media/mlt/mltengine.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "positionmedia.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

constexpr double frame = 1.0 / 30.0;

WordBlock word(double start, double end, qint64 order)
{
    return test::timedWord(start, end, order, {}, u"词"_s);
}

struct Probe
{
    QJsonObject format;
    QJsonObject video;
    QJsonObject audio;
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

class RenderTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_dir = new QTemporaryDir;
        s_engine = new media::mlt::MltMediaEngine;
        s_renderer = new media::ffmpeg::FfmpegRenderer;
        s_video = test::makeVideoWithAudio(s_dir->path(), u"video.mp4"_s, 4.0);
        s_tone = test::makeTone(s_dir->path(), u"tone.wav"_s, 4.0);
    }

    void SetUp() override
    {
        service = std::make_unique<LocalRenderService>(*s_engine, *s_renderer);
        service->setLogSink([this](const QString &line) { log.append(line); });
    }

    QString out(const QString &name) const { return QDir(dir.path()).filePath(name); }
    static QList<PlaybackSource> sourcesOf(const QString &path)
    {
        return {{QUuid(), QUrl::fromLocalFile(path)}};
    }

    static inline QTemporaryDir *s_dir = nullptr;
    static inline media::mlt::MltMediaEngine *s_engine = nullptr;
    static inline media::ffmpeg::FfmpegRenderer *s_renderer = nullptr;
    static inline QString s_video, s_tone;
    QTemporaryDir dir;
    std::unique_ptr<LocalRenderService> service;
    QStringList log;
};

TEST_F(RenderTest, H264MovieFollowsTheCompositionAndReplacesTheOldFile)
{
    // Three stretches, the last one out of source order: two cuts.
    const QList<WordBlock> blocks {word(0.5, 1.2, 0), word(2.0, 2.6, 1), word(1.2, 1.5, 2)};
    const double expected = 0.7 + 0.6 + 0.3;
    const QString target = out(u"成片.mp4"_s);
    test::writeFile(target, QByteArray(4096, 'x'));
    ExportSettings settings;
    settings.resolution = Resolution::p720;

    QSignalSpy progress(service.get(), &LocalRenderService::progressChanged);
    QSignalSpy rendering(service.get(), &LocalRenderService::isRenderingChanged);
    test::runTask(service->renderVideo(sourcesOf(s_video), blocks, settings, target),
                  std::chrono::seconds(60))
        .get();

    const Probe p = probe(target);
    EXPECT_NEAR(p.duration(), expected, 3 * frame);
    EXPECT_EQ(p.video.value(u"codec_name"_s).toString(), u"h264"_s);
    EXPECT_EQ(p.video.value(u"width"_s).toInt(), 1280);
    EXPECT_EQ(p.video.value(u"height"_s).toInt(), 720);
    EXPECT_EQ(p.audio.value(u"codec_name"_s).toString(), u"aac"_s);
    EXPECT_NEAR(p.video.value(u"duration"_s).toString().toDouble(), expected, 3 * frame);
    EXPECT_TRUE(p.format.value(u"format_name"_s).toString().contains(u"mp4"_s));
    const QStringList boxes = topLevelBoxes(target);
    ASSERT_TRUE(boxes.contains(u"moov"_s) && boxes.contains(u"mdat"_s));
    EXPECT_LT(boxes.indexOf(u"moov"_s), boxes.indexOf(u"mdat"_s));
    // Nothing but the finished file is left beside it.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList {u"成片.mp4"_s});
    EXPECT_DOUBLE_EQ(service->progress(), 1.0);
    EXPECT_FALSE(progress.isEmpty());
    EXPECT_EQ(rendering.size(), 2);
    EXPECT_FALSE(service->isRendering());
}

TEST_F(RenderTest, HevcAt720pIsAFullHdQuickTimeMovie)
{
    ExportSettings settings;
    settings.codec = VideoCodec::hevc;
    settings.resolution = Resolution::p720;
    settings.videoFormat = VideoFormat::mov;
    const QString target = out(u"hevc.mov"_s);
    test::runTask(service->renderVideo(sourcesOf(s_video), {word(1.0, 2.0, 0)}, settings, target),
                  std::chrono::seconds(60))
        .get();

    const Probe p = probe(target);
    EXPECT_EQ(p.video.value(u"codec_name"_s).toString(), u"hevc"_s);
    EXPECT_EQ(p.video.value(u"codec_tag_string"_s).toString(), u"hvc1"_s);
    EXPECT_EQ(p.video.value(u"width"_s).toInt(), 1920);
    EXPECT_EQ(p.video.value(u"height"_s).toInt(), 1080);
    EXPECT_TRUE(p.format.value(u"format_name"_s).toString().contains(u"mov"_s));
    EXPECT_NEAR(p.duration(), 1.0, frame);
}

TEST_F(RenderTest, MutedTrackKeepsItsLengthInSilence)
{
    const QString target = out(u"muted.m4a"_s);
    test::runTask(service->renderAudioOnly(sourcesOf(s_video),
                                           {word(0.2, 1.0, 0), word(2.0, 3.0, 1)}, true,
                                           AudioFormat::aac, target))
        .get();
    const Probe p = probe(target);
    EXPECT_EQ(p.audio.value(u"codec_name"_s).toString(), u"aac"_s);
    EXPECT_TRUE(p.video.isEmpty());
    EXPECT_NEAR(p.duration(), 1.8, 2 * frame + 0.05);
    const test::Sound sound = test::decodeSound(target, 8000);
    EXPECT_GT(sound.size(), 8000);
    float peak = 0.0f;
    for (const auto *channel : {&sound.left, &sound.right})
        for (const float sample : *channel)
            peak = std::max(peak, std::abs(sample));
    EXPECT_LT(peak, 0.001f);
}

TEST_F(RenderTest, Mp3GoesThroughAnExternalEncoderWithATimeLimit)
{
    const QList<WordBlock> blocks {word(0.0, 0.6, 0), word(1.0, 1.6, 1)};
    const QString bin = out(u"bin/"_s);
    QDir().mkpath(bin);
    const auto encoder = [&](const QByteArray &script) {
        test::writeFile(bin + u"ffmpeg"_s, "#!/bin/sh\n" + script);
        QFile::setPermissions(bin + u"ffmpeg"_s, QFile::ReadOwner | QFile::ExeOwner);
    };
    EncoderSearch search {{}, {bin}};
    const struct
    {
        QByteArray script;
        bool succeeds;
        bool cancelled = false;
    } cases[] = {{"exec /usr/bin/ffmpeg \"$@\"\n", true},
                 {"exit 3\n", false},
                 // Stalls: the export must end all the same, within the limit.
                 {"exec sleep 600\n", false},
                 // Stalls under a generous limit: stopping the export must reach it.
                 {"exec sleep 600\n", false, true}};
    for (const auto &c : cases) {
        encoder(c.script);
        search.baseTimeLimit
            = c.cancelled ? std::chrono::minutes(10) : std::chrono::milliseconds(1500);
        service->setEncoderSearch(search);
        if (c.cancelled)
            QTimer::singleShot(1000, service.get(), [&] { service->cancel(); });
        log.clear();
        const QString target = out(u"声音.mp3"_s);
        QElapsedTimer clock;
        clock.start();
        auto outcome = test::runTask(
            service->renderAudioOnly(sourcesOf(s_tone), blocks, false, AudioFormat::mp3, target),
            std::chrono::seconds(60));
        EXPECT_LT(clock.elapsed(), 20'000) << c.script.constData();
        EXPECT_EQ(!outcome.error, c.succeeds) << c.script.constData();
        EXPECT_FALSE(QFile::exists(out(u"_kavel_tmp_export.m4a"_s)));
        if (c.succeeds) {
            const Probe p = probe(target);
            EXPECT_EQ(p.audio.value(u"codec_name"_s).toString(), u"mp3"_s);
            EXPECT_EQ(p.audio.value(u"bit_rate"_s).toString(), u"128000"_s);
            EXPECT_NEAR(p.duration(), 1.2, 0.1);
            EXPECT_TRUE(log.contains(u"[AudioExport] MP3 export complete: "_s + target));
        } else {
            EXPECT_TRUE(log.contains(u"[AudioExport] ffmpeg MP3 conversion failed"_s));
            EXPECT_FALSE(QFile::exists(target));
        }
    }
}

TEST_F(RenderTest, CommandLineExportWritesEveryOutputAndFailsLoudly)
{
    auto project = KavelProject::create(u"访谈"_s, dir.path());
    const SourceFile source = project->addSourceFile(QUrl::fromLocalFile(s_video));
    Paragraph paragraph;
    paragraph.id = QUuid::createUuid();
    for (const auto &[from, to] : {std::pair {0.5, 1.0}, {1.0, 1.4}, {2.5, 3.0}}) {
        WordBlock b = word(from, to, paragraph.wordBlocks.size());
        b.sourceFileId = source.id;
        paragraph.wordBlocks.append(b);
    }
    project->setParagraphs({paragraph});
    project->saveTimeline();
    const QString folder = out(u"exports"_s);

    const auto runCli = [&](const QStringList &arguments) {
        QProcess cli;
        cli.start(test::programPath(u"kavel-cli"_s),
                  QStringList {u"export"_s, project->bundlePath(), u"--out"_s, folder} + arguments);
        EXPECT_TRUE(cli.waitForFinished(60000));
        return std::pair {cli.exitCode(), QString::fromUtf8(cli.readAllStandardError())};
    };
    auto [code, errors]
        = runCli({u"--title"_s, u"成片"_s, u"--video"_s, u"mov"_s, u"--resolution"_s, u"720p"_s,
                  u"--audio"_s, u"wav"_s, u"--srt"_s});
    EXPECT_EQ(code, 0) << qPrintable(errors);
    EXPECT_NEAR(probe(QDir(folder).filePath(u"成片.mov"_s)).duration(), 1.4, 2 * frame);
    EXPECT_NEAR(probe(QDir(folder).filePath(u"成片.wav"_s)).duration(), 1.4, 2 * frame);
    EXPECT_TRUE(QFileInfo(QDir(folder).filePath(u"成片.srt"_s)).size() > 0);

    // Phrase cues in WebVTT and the hand-off list: the two touching words are one cue and
    // one event, the third word another.
    std::tie(code, errors) = runCli({u"--title"_s, u"交接"_s, u"--vtt"_s, u"--subtitles"_s,
                                     u"phrases"_s, u"--interchange"_s, u"edl"_s});
    EXPECT_EQ(code, 0) << qPrintable(errors);
    EXPECT_FALSE(QFileInfo::exists(QDir(folder).filePath(u"交接.mp4"_s)));
    const QByteArray vtt = fileio::readFile(QDir(folder).filePath(u"交接.vtt"_s));
    EXPECT_TRUE(vtt.startsWith("WEBVTT\n\n00:00:00.000 --> 00:00:00.900\n")) << vtt.constData();
    const QByteArray edl = fileio::readFile(QDir(folder).filePath(u"交接.edl"_s));
    EXPECT_EQ(edl.count("\n00"), 2) << edl.constData();
    EXPECT_TRUE(edl.contains("00:00:00:15 00:00:01:12 01:00:00:00 01:00:00:27")) << edl.constData();

    // A step that cannot write makes the run fail, after the other steps ran.
    QDir().mkpath(QDir(folder).filePath(u"访谈.srt"_s));
    std::tie(code, errors) = runCli({u"--srt"_s, u"--audio"_s, u"aac"_s});
    EXPECT_EQ(code, 1);
    EXPECT_TRUE(errors.contains(u"字幕导出失败"_s)) << qPrintable(errors);
    EXPECT_TRUE(QFileInfo::exists(QDir(folder).filePath(u"访谈.m4a"_s)));
}

} // namespace
