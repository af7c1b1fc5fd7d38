#include "export/exportflow.h"
#include "export/rendererror.h"
#include "export/subtitlewriter.h"
#include "fakerenderer.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "service/interfacelanguage.h"
#include "service/settings.h"
#include "support/fakemediaengine.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

// A project with one ten-second video and two kept words, exported by the fake renderer.
class ExportFlowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        project = KavelProject::create(u"访谈"_s, dir.filePath(u"projects"_s));
        test::writeFile(dir.filePath(u"in.mp4"_s), "media");
        sourceId = project->addSourceFile(QUrl::fromLocalFile(dir.filePath(u"in.mp4"_s))).id;
        sourcePath = project->sourceFileURL(sourceId)->toLocalFile();
        engine.addMedia(sourcePath, test::FakeMediaEngine::videoWithAudio(10.0));
        blocks = {test::timedWord(1.0, 1.5, 0, sourceId, u"你好"_s),
                  test::timedWord(4.0, 4.25, 0, sourceId, u"世界"_s)};
        paragraphs = {Paragraph {QUuid::createUuid(), blocks, 0, {}}};
    }

    std::unique_ptr<ExportFlow> makeFlow(const QString &defaultPath = {})
    {
        preferences.setDefaultExportPath(defaultPath);
        auto flow = std::make_unique<ExportFlow>(engine, renderer, preferences);
        flow->renderService().setLogSink([](const QString &) {});
        return flow;
    }

    // Subtitles, then WAV sound, then the movie, all named 成片.
    ExportSettings outputsInto(const QString &folder)
    {
        ExportSettings settings;
        settings.title = u"成片"_s;
        settings.outputPath = QUrl::fromLocalFile(folder);
        settings.subtitleEnabled = settings.audioEnabled = true;
        settings.audioFormat = AudioFormat::wav;
        return settings;
    }

    void run(ExportFlow &flow, ExportSubject subject)
    {
        test::runTask(flow.startExport(std::move(subject))).get();
    }
    void run(ExportFlow &flow) { run(flow, {project.get(), paragraphs, false}); }
    QString out(const QString &name = {}) { return dir.filePath(u"out/"_s + name); }

    QTemporaryDir dir;
    service::Settings preferences {
        std::make_unique<QSettings>(dir.filePath(u"settings.ini"_s), QSettings::IniFormat)};
    test::FakeMediaEngine engine;
    test::FakeRenderer renderer;
    std::unique_ptr<KavelProject> project;
    QUuid sourceId;
    QString sourcePath;
    QList<WordBlock> blocks;
    QList<Paragraph> paragraphs;
};

TEST_F(ExportFlowTest, ValidationStopsAtTheFirstFailureAndTheFolderIsRemembered)
{
    auto flow = makeFlow();
    auto empty = KavelProject::create(u"空"_s, dir.filePath(u"projects"_s));
    const struct
    {
        bool folder;
        ExportSubject subject;
        QString error;
    } cases[] = {{false, {nullptr, paragraphs, false}, u"请选择导出目录"_s},
                 {true, {nullptr, paragraphs, false}, u"未找到项目"_s},
                 {true, {empty.get(), paragraphs, false}, u"项目中没有源媒体"_s},
                 {true, {project.get(), {Paragraph {}}, false}, u"没有可导出的内容"_s}};
    for (const auto &c : cases) {
        flow->setSettings(c.folder ? outputsInto(out()) : ExportSettings {});
        run(*flow, c.subject);
        EXPECT_EQ(flow->exportError(), c.error);
    }
    EXPECT_FALSE(flow->exportComplete());
    EXPECT_TRUE(renderer.requests.isEmpty());
    EXPECT_FALSE(QDir(out()).exists());
    // Choosing a folder answers the complaint about it, and only that one.
    ExportSettings noFolder = outputsInto(out());
    noFolder.outputPath.reset();
    flow->setSettings(noFolder);
    run(*flow);
    ASSERT_EQ(flow->exportError(), u"请选择导出目录"_s);
    flow->setSettings(outputsInto(out()));
    EXPECT_FALSE(flow->exportError());
    run(*flow, {nullptr, paragraphs, false});
    flow->setSettings(outputsInto(dir.filePath(u"别处"_s)));
    EXPECT_EQ(flow->exportError(), u"未找到项目"_s);

    // A new export starts in the default folder, else in the last one used.
    EXPECT_FALSE(makeFlow()->settings().outputPath);
    const QString used = dir.filePath(u"上次"_s);
    QObject::connect(flow.get(), &ExportFlow::exportStarted, flow.get(),
                     [this](const QString &folder) { preferences.setLastExportPath(folder); });
    flow->setSettings(outputsInto(used));
    run(*flow);
    EXPECT_EQ(makeFlow()->settings().outputPath, QUrl::fromLocalFile(used));
    const QString chosen = dir.filePath(u"默认"_s);
    EXPECT_EQ(makeFlow(chosen)->settings().outputPath, QUrl::fromLocalFile(chosen));
    // The movie is offered at the recording's own size class, never enlarged.
    for (const auto &[size, resolution] : {std::pair {QSize(640, 360), Resolution::p720},
                                           {QSize(1920, 1080), Resolution::p1080},
                                           {QSize(1080, 1920), Resolution::p1080},
                                           {QSize(2560, 1440), Resolution::p1080},
                                           {QSize(3840, 2160), Resolution::p4k}}) {
        media::MediaInfo info = test::FakeMediaEngine::videoWithAudio(10.0);
        info.videoSize = size;
        engine.addMedia(sourcePath, info);
        auto offered = makeFlow();
        offered->offerChoicesFor({project.get(), paragraphs, false});
        EXPECT_EQ(offered->settings().resolution, resolution) << size.width();
    }
    engine.addMedia(sourcePath, test::FakeMediaEngine::videoWithAudio(10.0));

    // A dialog offers what the project's last export chose, the folder included, over
    // the default folder; a run from the command line, which was offered nothing, keeps
    // nothing. The title follows the project.
    const ExportSubject subject {project.get(), paragraphs, false};
    ExportSettings kept = outputsInto(dir.filePath(u"这里"_s));
    kept.codec = VideoCodec::hevc;
    kept.resolution = Resolution::p4k;
    kept.videoFormat = VideoFormat::mov;
    kept.audioFormat = AudioFormat::aac;
    kept.subtitleFormat = SubtitleFormat::vtt;
    kept.subtitleStyle = SubtitleStyle::words;
    kept.burnSubtitles = true;
    kept.captionSize = CaptionSize::large;
    kept.loudness = LoudnessTarget::podcast;
    kept.denoise = NoiseReduction::strong;
    auto unoffered = makeFlow();
    unoffered->setSettings(kept);
    run(*unoffered);
    EXPECT_TRUE(unoffered->exportComplete());
    EXPECT_FALSE(QFile::exists(ExportFlow::choicesPath(*project)));
    auto first = makeFlow();
    first->offerChoicesFor(subject);
    first->setSettings(kept);
    run(*first);
    auto again = makeFlow(dir.filePath(u"默认"_s));
    again->offerChoicesFor(subject);
    ExportSettings expected = kept;
    expected.title.clear();
    EXPECT_EQ(again->settings(), expected);
    // Sound alone opens without the movie, whatever was kept; with nothing else kept
    // the sound is what it offers.
    engine.addMedia(sourcePath, test::FakeMediaEngine::audioOnly(10.0));
    again->offerChoicesFor(subject);
    EXPECT_FALSE(again->settings().videoEnabled);
    EXPECT_TRUE(again->settings().subtitleEnabled && again->settings().audioEnabled);
    QFile::remove(ExportFlow::choicesPath(*project));
    auto fresh = makeFlow();
    fresh->offerChoicesFor(subject);
    EXPECT_FALSE(fresh->settings().videoEnabled);
    EXPECT_TRUE(fresh->settings().audioEnabled);
    EXPECT_FALSE(fresh->settings().subtitleEnabled);
    // A record kept before the sound could be finished leaves it as it is; one naming a
    // target that is not offered is passed over like a damaged one.
    QJsonObject older = toJson(kept);
    older.remove(u"loudness"_s);
    older.remove(u"denoise"_s);
    test::writeFile(ExportFlow::choicesPath(*project), QJsonDocument(older).toJson());
    again->offerChoicesFor(subject);
    EXPECT_EQ(again->settings().loudness, LoudnessTarget::off);
    EXPECT_EQ(again->settings().denoise, NoiseReduction::off);
    EXPECT_EQ(again->settings().codec, VideoCodec::hevc);
    older.insert(u"loudness"_s, u"-15"_s);
    test::writeFile(ExportFlow::choicesPath(*project), QJsonDocument(older).toJson());
    auto unknownTarget = makeFlow();
    unknownTarget->offerChoicesFor(subject);
    EXPECT_EQ(unknownTarget->settings().codec, VideoCodec::h264);
    // A damaged record is passed over.
    test::writeFile(ExportFlow::choicesPath(*project), "{\"codec\": 3");
    engine.addMedia(sourcePath, test::FakeMediaEngine::videoWithAudio(10.0));
    auto damaged = makeFlow();
    damaged->offerChoicesFor(subject);
    EXPECT_EQ(damaged->settings().resolution, Resolution::p720);
    EXPECT_TRUE(damaged->settings().videoEnabled);

    // The dialog gives the edited length in minutes, or in hours once there are any.
    EXPECT_DOUBLE_EQ(flow->editedDuration({project.get(), paragraphs, false}), 0.75);
    for (const auto &[seconds, text] : {std::pair {0.0, u"0分00秒"_s},
                                        {3599.9, u"59分59秒"_s},
                                        {3600.0, u"1小时00分00秒"_s},
                                        {36125.0, u"10小时02分05秒"_s}})
        EXPECT_EQ(ExportFlow::formatDuration(seconds), text);
    // In English, as a clock reads.
    const i18n::Translations english(i18n::Language::english);
    for (const auto &[seconds, text] :
         {std::pair {7.0, u"0:07"_s}, {3599.9, u"59:59"_s}, {36125.0, u"10:02:05"_s}})
        EXPECT_EQ(ExportFlow::formatDuration(seconds), text);
}

// Failed steps are collected without stopping the others; the next start clears them and
// names every file after the title.
TEST_F(ExportFlowTest, RunsEveryEnabledStepAndCollectsTheFailures)
{
    auto flow = makeFlow();
    ExportSettings settings = outputsInto(out());
    settings.videoFormat = VideoFormat::mov;
    settings.codec = VideoCodec::hevc;
    settings.resolution = Resolution::p720;
    flow->setSettings(settings);
    QDir().mkpath(out(u"成片.srt"_s)); // a folder takes the subtitle path
    renderer.failing = true;
    test::writeFile(out(u"成片.mov"_s), "previous export");
    run(*flow);
    // Each step names its cause, the subtitles' too.
    EXPECT_EQ(flow->exportError(),
              u"字幕导出失败: 未能存储文件“成片.srt”。，音频导出失败: "
              "磁盘已满，视频导出失败: 磁盘已满"_s);
    // A failed render leaves the earlier file and no partial one.
    EXPECT_EQ(QDir(out()).entryList(QDir::Files | QDir::Hidden), QStringList {u"成片.mov"_s});
    EXPECT_EQ(fileio::readFile(out(u"成片.mov"_s)), "previous export");

    // A step that ends well but leaves an empty file has not exported anything.
    renderer.failing = false;
    renderer.bytes.clear();
    settings.subtitleEnabled = settings.videoEnabled = false;
    flow->setSettings(settings);
    run(*flow);
    EXPECT_EQ(flow->exportError(), u"音频导出失败: 未生成有效的文件"_s);
    EXPECT_TRUE(flow->writtenFiles().isEmpty());

    renderer.bytes = "rendered";
    renderer.requests.clear();
    settings.subtitleEnabled = settings.videoEnabled = true;
    settings.burnSubtitles = true;
    settings.captionSize = CaptionSize::small;
    settings.loudness = LoudnessTarget::podcast;
    settings.denoise = NoiseReduction::light;
    flow->setSettings(settings);
    QDir(out(u"成片.srt"_s)).removeRecursively();
    QDir(project->exportsDirectory()).removeRecursively();
    QSignalSpy completeChanges(flow.get(), &ExportFlow::exportCompleteChanged);
    run(*flow, {project.get(), paragraphs, true});
    EXPECT_FALSE(flow->exportError() || flow->exportNotice());
    EXPECT_EQ(completeChanges.size(), 2);
    EXPECT_EQ(flow->writtenFiles(),
              (QStringList {out(u"成片.srt"_s), out(u"成片.wav"_s), out(u"成片.mov"_s)}));
    EXPECT_TRUE(fileio::readFile(out(u"成片.srt"_s)).startsWith("1\n00:00:00,000"));
    EXPECT_EQ(fileio::readFile(out(u"成片.mov"_s)), "rendered");
    EXPECT_TRUE(QDir(project->exportsDirectory()).exists());
    ASSERT_EQ(renderer.requests.size(), 2);
    EXPECT_EQ(renderer.requests[0].format, media::RenderFormat::wav);
    EXPECT_EQ(renderer.requests[1].videoEncoding, media::VideoEncoding::hevc);
    EXPECT_EQ(renderer.requests[1].frameSize, QSize(1280, 720));
    // The movie carries the cues of the subtitle file, smaller than by default; the sound
    // carries none.
    EXPECT_TRUE(renderer.requests[0].captions.isEmpty());
    QList<SubtitleCue> burned;
    for (const media::Caption &caption : renderer.requests[1].captions)
        burned.append({caption.start, caption.end, caption.text});
    EXPECT_EQ(subRipDocument(burned), fileio::readFile(out(u"成片.srt"_s)));
    EXPECT_LT(renderer.requests[1].captionHeight, media::RenderRequest {}.captionHeight);
    // A muted audio track keeps every stretch, silent; the cut is the preview's.
    for (const media::RenderRequest &request : renderer.requests) {
        ASSERT_EQ(request.editList.segments.size(), 2);
        EXPECT_EQ(request.editList.segments.at(0).sourcePath, sourcePath);
        EXPECT_DOUBLE_EQ(request.editList.segments.at(1).compositionStart, 0.5);
        EXPECT_TRUE(request.editList.segments.at(0).audio.muted);
        // The sound of the movie and of the sound file are finished alike.
        EXPECT_EQ(request.sound.loudnessTarget, -16.0);
        EXPECT_EQ(request.sound.denoise, media::Denoise::light);
    }
    settings.loudness = LoudnessTarget::off;
    settings.denoise = NoiseReduction::off;

    // A stop during the movie keeps the subtitles and sound finished before it and
    // leaves no part of the movie.
    QObject::connect(flow.get(), &ExportFlow::stepStarted, flow.get(), [&](const QString &step) {
        if (step != u"video"_s)
            return;
        renderer.pollsToFinish = 1000;
        QTimer::singleShot(0, flow.get(), [&] { flow->cancel(); });
    });
    QFile::remove(out(u"成片.mov"_s));
    run(*flow);
    EXPECT_TRUE(flow->exportCancelled());
    EXPECT_FALSE(flow->exportComplete());
    EXPECT_EQ(flow->writtenFiles(), (QStringList {out(u"成片.srt"_s), out(u"成片.wav"_s)}));
    EXPECT_EQ(flow->interruptedFile(), out(u"成片.mov"_s));
    QStringList left = QDir(out()).entryList(QDir::Files | QDir::Hidden);
    left.sort();
    EXPECT_EQ(left, (QStringList {u"成片.srt"_s, u"成片.wav"_s}));
    renderer.pollsToFinish = 3;
    settings.videoEnabled = false;
    flow->setSettings(settings);
    run(*flow); // the next run starts clean
    EXPECT_FALSE(flow->exportCancelled());
    EXPECT_TRUE(flow->interruptedFile().isEmpty());
    settings.videoEnabled = true;

    // Sound alone has no movie: the video step is skipped with a notice.
    engine.addMedia(sourcePath, test::FakeMediaEngine::audioOnly(10.0));
    settings.subtitleEnabled = settings.audioEnabled = false;
    flow->setSettings(settings);
    run(*flow);
    EXPECT_TRUE(flow->exportComplete());
    EXPECT_EQ(flow->exportNotice(), u"检测到当前项目为音频素材，已自动跳过视频导出。"_s);
    EXPECT_TRUE(flow->writtenFiles().isEmpty());
}

TEST_F(ExportFlowTest, EngineFailuresBecomeRenderErrorsAndAGoneServiceEndsItsExport)
{
    LocalRenderService &service = makeFlow()->renderService();
    const QString target = dir.filePath(u"a.mp4"_s);
    const QUrl unreadable = QUrl::fromLocalFile(dir.filePath(u"x"_s));
    renderer.refuseToStart = true;
    for (const auto &[source, error] :
         {std::pair {QUrl::fromLocalFile(sourcePath), u"无法创建导出会话"_s},
          {unreadable, u"视频中没有可用的轨道"_s}}) {
        auto outcome = test::runTask(service.renderVideo({{sourceId, source}}, blocks, {}, target));
        ASSERT_TRUE(outcome.errorAs<RenderError>());
        EXPECT_EQ(outcome.errorAs<RenderError>()->description(), error);
    }

    renderer.refuseToStart = false;
    renderer.pollsToFinish = 1000;
    auto *doomed = new LocalRenderService(engine, renderer);
    QObject::connect(doomed, &LocalRenderService::progressChanged, doomed, &QObject::deleteLater);
    auto outcome = test::runTask(
        doomed->renderAudioOnly({{sourceId, QUrl::fromLocalFile(sourcePath)}}, blocks, false,
                                AudioFormat::wav, dir.filePath(u"gone.wav"_s)));
    ASSERT_TRUE(outcome.error);
    EXPECT_FALSE(outcome.errorAs<Error>());
    EXPECT_EQ(QDir(dir.path()).entryList({u"*.wav"_s}, QDir::Files | QDir::Hidden), QStringList {});
}

} // namespace
