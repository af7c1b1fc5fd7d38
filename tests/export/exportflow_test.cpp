#include "export/exportflow.h"
#include "export/rendererror.h"
#include "fakerenderer.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "service/settings.h"
#include "support/fakemediaengine.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

class ExportFlowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        project = KavelProject::create(u"访谈"_s, dir.filePath(u"projects"_s));
        test::writeFile(dir.filePath(u"in.mp4"_s), "media");
        sourceId = project->addSourceFile(QUrl::fromLocalFile(dir.filePath(u"in.mp4"_s))).id;
        sourcePath = project->sourceFileURL(sourceId)->toLocalFile();
        sources = {{sourceId, QUrl::fromLocalFile(sourcePath)}};
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
    QStringList filesOut() { return QDir(out()).entryList(QDir::Files | QDir::Hidden); }

    QTemporaryDir dir;
    service::Settings preferences {
        std::make_unique<QSettings>(dir.filePath(u"settings.ini"_s), QSettings::IniFormat)};
    test::FakeMediaEngine engine;
    test::FakeRenderer renderer;
    std::unique_ptr<KavelProject> project;
    QUuid sourceId;
    QString sourcePath;
    QList<PlaybackSource> sources;
    QList<WordBlock> blocks;
    QList<Paragraph> paragraphs;
};

TEST_F(ExportFlowTest, ValidationStopsAtTheFirstFailureInOrder)
{
    auto flow = makeFlow();
    auto empty = KavelProject::create(u"空"_s, dir.filePath(u"projects"_s));
    // No folder wins even over a missing project.
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
}

TEST_F(ExportFlowTest, StartsInTheDefaultFolderElseInTheLastOneUsed)
{
    EXPECT_FALSE(makeFlow()->settings().outputPath);
    const QString used = dir.filePath(u"上次"_s);
    auto flow = makeFlow();
    QObject::connect(flow.get(), &ExportFlow::exportStarted, flow.get(),
                     [this](const QString &folder) { preferences.setLastExportPath(folder); });
    flow->setSettings(outputsInto(used));
    run(*flow);
    EXPECT_EQ(makeFlow()->settings().outputPath, QUrl::fromLocalFile(used));
    const QString chosen = dir.filePath(u"默认"_s);
    EXPECT_EQ(makeFlow(chosen)->settings().outputPath, QUrl::fromLocalFile(chosen));
    // The edited result lasts as long as its kept words: 0.5 s and 0.25 s.
    EXPECT_DOUBLE_EQ(flow->editedDuration({project.get(), paragraphs, false}), 0.75);
    EXPECT_DOUBLE_EQ(flow->editedDuration({project.get(), {}, false}), 0.0);
}

TEST_F(ExportFlowTest, RunsEveryEnabledStepAndNamesFilesAfterTheTitle)
{
    auto flow = makeFlow();
    ExportSettings settings = outputsInto(out());
    settings.videoFormat = VideoFormat::mov;
    settings.codec = VideoCodec::hevc;
    settings.resolution = Resolution::p720;
    flow->setSettings(settings);
    QDir(project->exportsDirectory()).removeRecursively();

    run(*flow, {project.get(), paragraphs, true});

    EXPECT_TRUE(flow->exportComplete());
    EXPECT_FALSE(flow->exportError() || flow->exportNotice());
    EXPECT_TRUE(fileio::readFile(out(u"成片.srt"_s)).startsWith("1\n00:00:00,000"));
    EXPECT_EQ(fileio::readFile(out(u"成片.wav"_s)), "rendered");
    EXPECT_EQ(fileio::readFile(out(u"成片.mov"_s)), "rendered");
    EXPECT_EQ(flow->writtenFiles(),
              (QStringList {out(u"成片.srt"_s), out(u"成片.wav"_s), out(u"成片.mov"_s)}));
    EXPECT_TRUE(QDir(project->exportsDirectory()).exists());

    ASSERT_EQ(renderer.requests.size(), 2);
    EXPECT_EQ(renderer.requests[0].format, media::RenderFormat::wav);
    const media::RenderRequest &video = renderer.requests[1];
    EXPECT_EQ(video.format, media::RenderFormat::mov);
    EXPECT_EQ(video.videoEncoding, media::VideoEncoding::hevc);
    EXPECT_EQ(video.frameSize, QSize(1920, 1080));
    // A muted audio track keeps every stretch, silent; the cut is the preview's.
    for (const media::RenderRequest &request : renderer.requests) {
        ASSERT_EQ(request.editList.segments.size(), 2);
        EXPECT_EQ(request.editList.segments.at(0).sourcePath, sourcePath);
        EXPECT_DOUBLE_EQ(request.editList.segments.at(1).compositionStart, 0.5);
        for (const media::EditSegment &segment : request.editList.segments)
            EXPECT_TRUE(segment.audio.muted);
    }

    // Sound alone has no movie: the video step is skipped with a notice, and nothing is
    // written.
    engine.addMedia(sourcePath, test::FakeMediaEngine::audioOnly(10.0));
    settings.subtitleEnabled = settings.audioEnabled = false;
    flow->setSettings(settings);
    run(*flow);
    EXPECT_TRUE(flow->exportComplete());
    EXPECT_FALSE(flow->exportError().has_value());
    EXPECT_EQ(flow->exportNotice(), u"检测到当前项目为音频素材，已自动跳过视频导出。"_s);
    EXPECT_TRUE(flow->writtenFiles().isEmpty());
    EXPECT_EQ(renderer.requests.size(), 2);
}

TEST_F(ExportFlowTest, FailingStepsAreCollectedWithoutStoppingTheOthers)
{
    auto flow = makeFlow();
    ExportSettings settings = outputsInto(out());
    flow->setSettings(settings);
    // The subtitle path is taken by a folder, so writing it fails.
    QDir().mkpath(out(u"成片.srt"_s));
    renderer.failing = true;
    test::writeFile(out(u"成片.mp4"_s), "previous export");

    run(*flow);

    EXPECT_TRUE(flow->exportComplete());
    EXPECT_EQ(flow->exportError(),
              u"字幕导出失败，音频导出失败: 磁盘已满，视频导出失败: 导出失败"_s);
    EXPECT_EQ(renderer.requests.size(), 2);
    // A failed render leaves the earlier file and no partial one.
    EXPECT_EQ(fileio::readFile(out(u"成片.mp4"_s)), "previous export");
    EXPECT_EQ(filesOut(), QStringList {u"成片.mp4"_s});

    // A step that ends well but leaves an empty file has not exported anything.
    renderer.failing = false;
    renderer.bytes.clear();
    settings.subtitleEnabled = settings.videoEnabled = false;
    flow->setSettings(settings);
    run(*flow);
    EXPECT_EQ(flow->exportError(), u"音频导出失败: 未生成有效的文件"_s);
    EXPECT_TRUE(flow->writtenFiles().isEmpty());

    // A new start clears the outcome of the last one.
    renderer.bytes = "rendered";
    flow->setSettings(outputsInto(out()));
    QDir(out(u"成片.srt"_s)).removeRecursively();
    QSignalSpy completeChanges(flow.get(), &ExportFlow::exportCompleteChanged);
    run(*flow);
    EXPECT_FALSE(flow->exportError().has_value());
    EXPECT_EQ(completeChanges.size(), 2);
    EXPECT_EQ(fileio::readFile(out(u"成片.mp4"_s)), "rendered");
}

TEST_F(ExportFlowTest, CancellingEndsTheWholeRunAndTakesBackItsFiles)
{
    auto flow = makeFlow();
    flow->setSettings(outputsInto(out()));
    test::writeFile(out(u"其他.mp4"_s), "not ours");
    renderer.pollsToFinish = 1000;
    QObject::connect(&flow->renderService(), &LocalRenderService::progressChanged, flow.get(),
                     [&] { flow->cancel(); });

    run(*flow);

    EXPECT_TRUE(flow->exportCancelled());
    EXPECT_FALSE(flow->exportComplete() || flow->exportError() || flow->isExporting());
    EXPECT_TRUE(flow->writtenFiles().isEmpty());
    EXPECT_EQ(renderer.requests.size(), 1) << "the movie is not started after a stop";
    EXPECT_EQ(filesOut(), QStringList {u"其他.mp4"_s});
}

TEST_F(ExportFlowTest, EngineFailuresBecomeRenderErrors)
{
    LocalRenderService &service = makeFlow()->renderService();
    const QString target = dir.filePath(u"a.mp4"_s);
    renderer.refuseToStart = true;
    auto refused = test::runTask(service.renderVideo(sources, blocks, {}, target));
    ASSERT_TRUE(refused.errorAs<RenderError>());
    EXPECT_EQ(refused.errorAs<RenderError>()->code(), RenderError::Code::exportSessionFailed);
    EXPECT_EQ(refused.errorAs<RenderError>()->description(), u"无法创建导出会话"_s);

    const QList<PlaybackSource> unreadable {{sourceId, QUrl::fromLocalFile(dir.filePath(u"x"_s))}};
    auto noTracks = test::runTask(service.renderVideo(unreadable, blocks, {}, target));
    ASSERT_TRUE(noTracks.errorAs<RenderError>());
    EXPECT_EQ(noTracks.errorAs<RenderError>()->description(), u"视频中没有可用的轨道"_s);
    EXPECT_EQ(service.error(), u"视频中没有可用的轨道"_s);
}

TEST_F(ExportFlowTest, DestroyingTheServiceEndsItsExport)
{
    renderer.pollsToFinish = 1000;
    auto *service = new LocalRenderService(engine, renderer);
    QObject::connect(service, &LocalRenderService::progressChanged, service, &QObject::deleteLater);
    auto outcome = test::runTask(service->renderAudioOnly(sources, blocks, false, AudioFormat::wav,
                                                          dir.filePath(u"gone.wav"_s)));
    ASSERT_TRUE(outcome.error);
    EXPECT_FALSE(outcome.errorAs<Error>());
    EXPECT_EQ(QDir(dir.path()).entryList({u"*.wav"_s}, QDir::Files | QDir::Hidden), QStringList {});
}

TEST(ExportDuration, FormatsMinutesOrHours)
{
    EXPECT_EQ(ExportFlow::formatDuration(0.0), u"0分00秒"_s);
    EXPECT_EQ(ExportFlow::formatDuration(3599.9), u"59分59秒"_s);
    EXPECT_EQ(ExportFlow::formatDuration(3600.0), u"1小时00分00秒"_s);
    EXPECT_EQ(ExportFlow::formatDuration(36125.0), u"10小时02分05秒"_s);
}

} // namespace
