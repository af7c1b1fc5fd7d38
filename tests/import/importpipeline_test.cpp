#include "editor/audioextraction.h"
#include "editor/editorviewmodel.h"
#include "editor/importpipeline.h"
#include "importfakes.h"
#include "model/bundlelock.h"
#include "model/kavelproject.h"
#include "model/timeline.h"
#include "service/apiclient.h"
#include "service/httpstub.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

const QByteArray pending = R"({"task_id": "t-1", "status": "pending"})";

QByteArray running(double progress)
{
    return uR"({"task_id": "t-1", "status": "processing", "progress": %1})"_s.arg(progress)
        .toUtf8();
}

// Paragraphs of "hello um" three seconds apart, numbered as no editor would number them.
QByteArray completed(int paragraphs)
{
    QStringList list;
    for (double at = 0.0; at < paragraphs * 3.0; at += 3.0) {
        list << uR"({"paragraph_id": "x", "speaker_label": "1", "word_blocks": [
            {"text": "hello", "media_start": %1, "media_end": %2, "is_filler": false, "sort_order": 9},
            {"text": "um", "media_start": %2, "media_end": %3, "is_filler": true, "sort_order": 9}]})"_s
                    .arg(at + 0.5)
                    .arg(at + 0.9)
                    .arg(at + 1.2);
    }
    return (uR"({"task_id": "t-1", "status": "completed", "paragraphs": [)"_s + list.join(u',')
            + u"]}")
        .toUtf8();
}

// Each paragraph as "order speaker: word@start/order ...", fillers starred.
QStringList shown(const QList<Paragraph> &paragraphs)
{
    QStringList lines;
    for (const Paragraph &paragraph : paragraphs) {
        QString line = QString::number(paragraph.sortOrder) + u' '
            + paragraph.speakerLabel.value_or(u"-"_s) + u':';
        for (const WordBlock &w : paragraph.wordBlocks)
            line += u' ' + w.text + u'@' + QString::number(w.mediaStart) + u'/'
                + QString::number(w.sortOrder) + (w.isFiller ? u"*"_s : QString());
        lines << line;
    }
    return lines;
}

// The pipeline and an editor over a stand-in service that answers every request alike
// and at once, a converter that succeeds and a clock that moves only when told.
class Imports : public ::testing::Test
{
protected:
    Imports()
    {
        stub.setReply(200, pending);
        pipeline.setReceiver([this](const KavelProject &project, QList<Paragraph> arrived) {
            return vm.receiveTranscript(project, std::move(arrived));
        });
        // What each import said, once per change.
        QObject::connect(&pipeline, &ImportPipeline::jobChanged, &pipeline, [this](ImportJob *job) {
            QStringList &said = statuses[job];
            if (said.isEmpty() || said.constLast() != job->status())
                said.append(job->status());
            QStringList &stepsSeen = steps[job];
            if (stepsSeen.isEmpty() || stepsSeen.constLast() != job->step())
                stepsSeen.append(job->step());
        });
        QObject::connect(&pipeline, &ImportPipeline::jobAdded, &pipeline, [this](ImportJob *job) {
            QObject::connect(job->project().get(), &KavelProject::statusChanged, job,
                             [this, job] { projectStates[job].append(job->project()->status()); });
        });
    }

    ImportServices services()
    {
        ImportServices s;
        s.apiClient = &api;
        s.audioConverter = &converter;
        s.notifier = &notifier;
        s.pickFiles = [this](const ImportPickerRequest &request) {
            pickerRequests.append(request);
            return picked;
        };
        s.projectsDirectory = dir.filePath(u"projects"_s);
        s.log = {};
        return s;
    }

    QUrl media(const QString &name)
    {
        const QString path = dir.filePath(name);
        writeFile(path, "media of " + name.toUtf8());
        return QUrl::fromLocalFile(path);
    }

    // Waits until the service has answered `polls` polls in all and the import has done
    // what it does with the last answer.
    void answered(int polls)
    {
        EXPECT_TRUE(QTest::qWaitFor([&] {
            clock.advance(0.0); // what is due now, such as the player loading its sources
            return pollAnswers >= polls;
        })) << polls
            << " polls, " << pollAnswers << " answered";
    }

    void ended(ImportJob *job)
    {
        EXPECT_TRUE(QTest::qWaitFor([&] {
            clock.advance(0.0);
            return !job->isActive();
        }));
    }

    QTemporaryDir dir;
    HttpStub stub;
    int pollAnswers = 0;
    service::APIClient api {stub.apiBaseUrl(), service::SessionTimeouts {},
                            [this](const QString &line) {
                                if (line.startsWith(u"[APIClient] GET Response"_s))
                                    ++pollAnswers;
                            }};
    FakeMediaEngine engine;
    FakeClock clock;
    FakeAudioConverter converter;
    RecordingNotifier notifier;
    QList<QUrl> picked;
    QList<ImportPickerRequest> pickerRequests;
    EditorViewModel vm {engine, clock, services()};
    ImportPipeline pipeline {clock, services()};

    QHash<ImportJob *, QStringList> statuses;
    QHash<ImportJob *, QStringList> steps;
    QHash<ImportJob *, QList<ProjectStatus>> projectStates;

    void expectFailed(ImportJob *job, const QString &status)
    {
        EXPECT_EQ(job->state(), ImportJob::State::failed);
        EXPECT_EQ(job->status(), status);
        EXPECT_EQ(job->summary(), u"导入失败"_s);
        EXPECT_EQ(projectStates[job].value(projectStates[job].size() - 1), ProjectStatus::failed);
        EXPECT_EQ(ImportPipeline::failureOf(job->bundlePath()), status) << "told in the bundle";
    }
};

// Saving, announcing and removing the upload copy are followed against the real server
// in importendtoend_test; here, each step in order, on a clock the test moves.
TEST_F(Imports, PickedFilesArriveAsATranscriptWhileTheServiceCountsDown)
{
    vm.openFilePickerForImport(true);
    EXPECT_FALSE(vm.showImportConfirm()) << "a cancelled picker changes nothing";
    picked = {media(u"first.mp4"_s), media(u"second.mov"_s)};
    vm.openFilePickerForImport(true);
    EXPECT_TRUE(pickerRequests.value(1).allowsMultipleSelection);
    EXPECT_TRUE(vm.showImportConfirm());

    stub.setReply(200, running(0.0));
    ImportJob *job = pipeline.start(vm.pendingImportURLs());
    vm.openProject(job->project());
    // Started at 0 %: the service is asked again at once, and answers alike; then the
    // import waits before asking again.
    answered(2);
    const QList<SourceFile> sources = job->project()->metadata().sourceFiles;
    ASSERT_EQ(sources.size(), 2);
    // Only the first source is recognised, from its converted copy; polls wait on the
    // service for news.
    ASSERT_EQ(stub.requests().size(), 3);
    const QByteArray upload = stub.requests().first();
    EXPECT_TRUE(upload.startsWith("POST /api/media/transcribe ") && upload.contains("audio_")
                && upload.contains("converted audio"));
    EXPECT_TRUE(stub.requests().at(1).startsWith("GET /api/media/transcribe/t-1?wait=25 "));

    // Half done after five seconds: five more to go, counted down between answers.
    stub.setReply(200, running(0.5));
    clock.advance(ImportPipeline::pollIntervalSeconds);
    answered(4);
    EXPECT_EQ(job->progress(), 0.5);
    EXPECT_EQ(job->summary(), u"语音识别中 50% · 预计剩余 00:05"_s);
    stub.setReply(200, completed(2));
    clock.advance(ImportPipeline::pollIntervalSeconds);
    ended(job);

    EXPECT_EQ(
        statuses[job],
        (QStringList {u"等待导入..."_s, u"正在导入视频 (1/2)..."_s, u"正在导入视频 (2/2)..."_s,
                      u"正在提取音频..."_s, u"正在上传音频进行语音识别..."_s, u"正在识别语音..."_s,
                      u"正在识别语音... (预计剩余 00:05)"_s, u"正在识别语音... (预计剩余 00:04)"_s,
                      u"正在识别语音... (预计剩余 00:03)"_s, u"正在识别语音... (预计剩余 00:02)"_s,
                      u"正在识别语音... (预计剩余 00:01)"_s, u"正在识别语音... (即将完成)"_s,
                      QString()}));
    EXPECT_EQ(steps[job],
              (QStringList {QString(), u"提取音频"_s, u"上传音频"_s, u"语音识别中"_s, QString()}));
    EXPECT_EQ(projectStates[job],
              (QList<ProjectStatus> {ProjectStatus::importingMedia, ProjectStatus::extractingAudio,
                                     ProjectStatus::transcribing, ProjectStatus::ready}));
    EXPECT_EQ(job->state(), ImportJob::State::finished);
    EXPECT_TRUE(ImportPipeline::failureOf(job->bundlePath()).isEmpty());

    // The service's paragraphs, numbered in order, with fresh ids for every paragraph and
    // word, in the open editor and its player, and saved.
    EXPECT_EQ(shown(vm.paragraphs()),
              (QStringList {u"0 1: hello@0.5/0 um@0.9/1*"_s, u"1 1: hello@3.5/0 um@3.9/1*"_s}));
    QSet<QUuid> ids;
    for (const Paragraph &paragraph : vm.paragraphs())
        ids.insert(paragraph.id);
    for (const WordBlock &word : flattenParagraphs(vm.paragraphs())) {
        ids.insert(word.id);
        EXPECT_EQ(word.sourceFileId, sources.first().id);
    }
    EXPECT_EQ(ids.size(), 2 + 4);
    EXPECT_EQ(vm.playerVM().wordBlocks(), flattenParagraphs(vm.paragraphs()));
    EXPECT_FALSE(vm.hasUnsavedChanges());
    EXPECT_EQ(KavelProject::load(QUrl::fromLocalFile(job->bundlePath()))->paragraphs(),
              vm.paragraphs());
}

TEST_F(Imports, OtherProjectsStayEditableAndASecondImportWaitsItsTurn)
{
    // An earlier project is open, edited, with history: the imports leave it alone.
    auto earlier = KavelProject::create(u"旧项目"_s, dir.filePath(u"projects"_s));
    earlier->setParagraphs(test::transcript({{u"old"_s, u"words"_s}, {u"more"_s}, {u"last"_s}}));
    earlier->saveTimeline();
    vm.openProject(earlier->bundleURL());
    vm.deleteParagraph(vm.paragraphs().last().id);

    converter.completeAtOnce = false;
    ImportJob *first = pipeline.start({media(u"talk.wav"_s)});
    ImportJob *second = pipeline.start({media(u"lesson.wav"_s)});
    EXPECT_EQ(pipeline.activeCount(), 2);
    EXPECT_EQ(second->state(), ImportJob::State::waiting);
    EXPECT_EQ(second->summary(), u"等待导入"_s);
    EXPECT_EQ(pipeline.jobFor(second->bundlePath()), second);
    ASSERT_EQ(first->step(), u"提取音频"_s);
    // The extraction tells how far it has come.
    converter.current().setProgress(0.42);
    clock.advance(AudioExtractor::progressInterval);
    EXPECT_EQ(first->status(), u"正在提取音频... 42%"_s);
    EXPECT_EQ(first->summary(), u"提取音频 42%"_s);

    // Meanwhile the open project is edited and undone as ever.
    EXPECT_EQ(vm.project()->bundleURL(), earlier->bundleURL());
    vm.deleteParagraph(vm.paragraphs().first().id);
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs().size(), 2);
    const QList<Paragraph> onScreen = vm.paragraphs();
    ASSERT_TRUE(vm.save());

    converter.current().finish(media::ConversionStatus::completed);
    stub.setReply(200, completed(1));
    ended(first);
    // The second one starts once the first has ended.
    EXPECT_TRUE(QTest::qWaitFor([&] { return second->step() == u"提取音频"_s; }));
    converter.current().finish(media::ConversionStatus::completed);
    ended(second);

    EXPECT_EQ(vm.project()->bundleURL(), earlier->bundleURL());
    EXPECT_EQ(vm.paragraphs(), onScreen);
    EXPECT_TRUE(vm.undoManager().canUndo());
    EXPECT_EQ(KavelProject::load(earlier->bundleURL())->paragraphs(), onScreen);
    for (ImportJob *job : {first, second}) {
        EXPECT_EQ(job->state(), ImportJob::State::finished);
        // Done, the import lets go of its bundle: it can be renamed or deleted from its
        // card, or edited by another program, like any project that is not open.
        EXPECT_FALSE(BundleLock::isHeldHere(job->bundlePath()));
        EXPECT_FALSE(job->project());
        const auto bundle = KavelProject::load(QUrl::fromLocalFile(job->bundlePath()));
        EXPECT_EQ(shown(bundle->paragraphs()), QStringList {u"0 1: hello@0.5/0 um@0.9/1*"_s});
        // Every word names a recording of its own bundle.
        for (const WordBlock &w : flattenParagraphs(bundle->paragraphs()))
            EXPECT_TRUE(bundle->sourceFileURL(w.sourceFileId)) << w.text.toStdString();
    }
    EXPECT_EQ(pipeline.activeCount(), 0);
}

// The service's own failures (a forgotten task, a dropped connection) are covered against
// a real server in importendtoend_test.
TEST_F(Imports, FailuresAndInterruptionsSayWhyInTheirOwnProjectOnly)
{
    // A video whose sound cannot be extracted never reaches the service.
    converter.completeAtOnce = false;
    ImportJob *extraction = pipeline.start({media(u"film.mkv"_s)});
    converter.current().finish(media::ConversionStatus::failed);
    ended(extraction);
    expectFailed(extraction, u"语音识别失败: 音频提取失败"_s);
    EXPECT_TRUE(stub.requests().isEmpty());
    EXPECT_TRUE(notifier.delivered.isEmpty()) << "only a failed result is announced";

    // A service that neither waits nor tells its progress is asked every five seconds,
    // and nothing is promised.
    converter.completeAtOnce = true;
    ImportJob *job = pipeline.start({media(u"talk.wav"_s)});
    answered(1);
    clock.advance(ImportPipeline::pollIntervalSeconds - 0.5);
    EXPECT_EQ(stub.requests().size(), 2) << "the upload and one poll";
    clock.advance(0.5);
    answered(2);
    EXPECT_EQ(job->status(), u"正在识别语音..."_s);
    EXPECT_FALSE(job->remainingSeconds());
    // Begun at last and half done five seconds after it was last seen waiting: a first
    // burst of progress is counted from then, not from its own answer, and the second
    // answer a moment later does not change the pace.
    stub.setReply(200, running(0.5));
    clock.advance(ImportPipeline::pollIntervalSeconds);
    answered(4);
    EXPECT_EQ(job->summary(), u"语音识别中 50% · 预计剩余 00:05"_s);

    stub.setReply(200, R"({"task_id": "t-1", "status": "failed"})");
    clock.advance(ImportPipeline::pollIntervalSeconds);
    ended(job);
    expectFailed(job, u"语音识别失败: 未知错误"_s);
    EXPECT_EQ(notifier.delivered,
              (QList<QPair<QString, QString>> {{u"Kavel"_s, u"语音识别失败，请重试。"_s}}));

    // Quitting ends what still runs as failed, in its bundle too; an import a crash cut
    // short is found at the next start.
    stub.setReply(200, pending);
    converter.completeAtOnce = false;
    ImportJob *quit = pipeline.start({media(u"quit.wav"_s)});
    ImportJob *crashed = pipeline.start({media(u"crash.wav"_s)});
    const QString quitCache = quit->project()->cacheDirectory();
    pipeline.interruptAll();
    expectFailed(quit, u"导入被中断（应用已退出），请重新导入。"_s);
    // Its extraction is stopped with it: the engine must not go on under a program that
    // is ending.
    EXPECT_EQ(converter.current().status(), media::ConversionStatus::cancelled);
    EXPECT_TRUE(QTest::qWaitFor([&] { return QDir(quitCache).isEmpty(QDir::Files); }));
    EXPECT_EQ(stub.requests().size(), 6) << "nothing more was sent";
    EXPECT_EQ(pipeline.activeCount(), 0);
    writeFile(QDir(crashed->bundlePath()).filePath(u"import.json"_s), R"({"state": "running"})");
    // The crash left the sound it was making behind; nothing else in the cache is touched.
    const QDir crashedCache(QDir(crashed->bundlePath()).filePath(u"cache"_s));
    writeFile(crashedCache.filePath(u"audio_0A1B.m4a"_s), "half a conversion");
    writeFile(crashedCache.filePath(u"timeline-damaged-1.json"_s), "kept");
    EXPECT_EQ(ImportPipeline::markInterrupted(dir.filePath(u"projects"_s)), 1);
    EXPECT_EQ(crashedCache.entryList(QDir::Files), QStringList {u"timeline-damaged-1.json"_s});
    EXPECT_EQ(ImportPipeline::failureOf(crashed->bundlePath()),
              u"导入被中断（应用已退出），请重新导入。"_s);
    EXPECT_EQ(ImportPipeline::markInterrupted(dir.filePath(u"projects"_s)), 0);

    // An import that another process still runs (kavel-cli import) is not this one's to
    // end; once that process is gone, it was cut short too.
    QProcess cli;
    cli.start(u"sleep"_s, {u"30"_s});
    ASSERT_TRUE(cli.waitForStarted());
    const QString elsewhere
        = KavelProject::create(u"命令行导入"_s, dir.filePath(u"projects"_s))->bundlePath();
    writeFile(QDir(elsewhere).filePath(u"import.json"_s), R"({"state": "running"})");
    claimBundleFor(elsewhere, cli.processId(), u"sleep"_s);
    EXPECT_EQ(ImportPipeline::markInterrupted(dir.filePath(u"projects"_s)), 0);
    EXPECT_EQ(ImportPipeline::failureOf(elsewhere), QString());
    cli.kill();
    cli.waitForFinished();
    EXPECT_EQ(ImportPipeline::markInterrupted(dir.filePath(u"projects"_s)), 1);
    EXPECT_EQ(ImportPipeline::failureOf(elsewhere), u"导入被中断（应用已退出），请重新导入。"_s);
}

} // namespace
