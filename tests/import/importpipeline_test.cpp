#include "editor/editorviewmodel.h"
#include "importfakes.h"
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
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

const QByteArray pending = R"({"task_id": "t-1", "status": "pending"})";

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

// The editor over a stand-in service that answers every request alike, a converter that
// always succeeds and a clock that moves only when told.
class ImportPipeline : public ::testing::Test
{
protected:
    ImportPipeline()
    {
        stub.setReply(200, pending);
        QObject::connect(&vm, &EditorViewModel::processingStatusChanged, &vm,
                         [this] { statuses.append(vm.processingStatus()); });
        QObject::connect(&vm, &EditorViewModel::transcriptionStepChanged, &vm,
                         [this] { steps.append(vm.transcriptionStep()); });
        QObject::connect(&vm, &EditorViewModel::projectChanged, &vm, [this] {
            QObject::connect(vm.project(), &KavelProject::statusChanged, &vm,
                             [this] { projectStates.append(vm.project()->status()); });
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
        return s;
    }

    QUrl media(const QString &name)
    {
        const QString path = dir.filePath(name);
        writeFile(path, "media of " + name.toUtf8());
        return QUrl::fromLocalFile(path);
    }

    // Starts the import and lets it run up to its first wait between polls.
    QCoro::Task<> start(const QList<QUrl> &urls)
    {
        clock.advance(1.0); // whatever the previous import left to the player
        auto task = vm.importAndTranscribe(urls);
        waitForNextSleep();
        return task;
    }

    void waitForNextSleep()
    {
        // While polling, the pipeline's sleep is the only thing on the clock.
        EXPECT_TRUE(QTest::qWaitFor([this] {
            clock.advance(0.0); // what is due now, such as the player loading its sources
            return (vm.transcriptionStep() == u"语音识别中"_s && clock.pendingCalls() > 0)
                || !vm.isProcessing();
        }));
    }

    // One poll interval passes; the next poll is answered with `reply`.
    void poll(const QByteArray &reply = pending)
    {
        stub.setReply(200, reply);
        clock.advance(EditorViewModel::transcriptionPollSeconds);
        waitForNextSleep();
    }

    QTemporaryDir dir;
    HttpStub stub;
    service::APIClient api {stub.apiBaseUrl(), service::SessionTimeouts {}, service::LogSink {}};
    FakeMediaEngine engine;
    FakeClock clock;
    FakeAudioConverter converter;
    RecordingNotifier notifier;
    QList<QUrl> picked;
    QList<ImportPickerRequest> pickerRequests;
    EditorViewModel vm {engine, clock, services()};

    QStringList statuses;
    QStringList steps;
    QList<ProjectStatus> projectStates;

    void expectFailed(const QString &status)
    {
        EXPECT_EQ(vm.processingStatus(), status);
        EXPECT_EQ(vm.project()->status(), ProjectStatus::failed);
        EXPECT_FALSE(vm.isProcessing() || !vm.transcriptionStep().isEmpty());
    }
};

// Saving, announcing and removing the upload copy are followed against the real server
// in importendtoend_test; here, each step in order, on a clock the test moves.
TEST_F(ImportPipeline, PickedFilesArriveAsATranscriptNumberedAndInThePlayer)
{
    vm.openFilePickerForImport(true);
    EXPECT_FALSE(vm.showImportConfirm()) << "a cancelled picker changes nothing";
    picked = {media(u"first.mp4"_s), media(u"second.mov"_s)};
    vm.openFilePickerForImport(true);
    EXPECT_TRUE(pickerRequests.value(1).allowsMultipleSelection);
    EXPECT_TRUE(vm.showImportConfirm());

    auto task = start(vm.pendingImportURLs());
    ASSERT_TRUE(vm.project());
    EXPECT_TRUE(vm.navigateToEditor());
    const QList<SourceFile> sources = vm.project()->metadata().sourceFiles;
    ASSERT_EQ(sources.size(), 2);
    EXPECT_EQ(vm.pendingASRSourceFileId(), sources.first().id);

    // Only the first source is recognised, from its converted copy.
    ASSERT_EQ(stub.requests().size(), 2);
    const QByteArray upload = stub.requests().first();
    EXPECT_TRUE(upload.startsWith("POST /api/media/transcribe ") && upload.contains("audio_")
                && upload.contains("converted audio"));

    poll();
    poll(completed(2));
    runTask(std::move(task)).get();

    EXPECT_EQ(
        statuses,
        (QStringList {u"正在创建项目..."_s, u"正在导入视频 (1/2)..."_s, u"正在导入视频 (2/2)..."_s,
                      u"正在提取音频..."_s, u"正在上传音频进行语音识别..."_s, u"正在识别语音..."_s,
                      u"正在识别语音... (预计剩余 02:55)"_s, u"正在识别语音... (预计剩余 02:50)"_s,
                      QString()}));
    EXPECT_EQ(steps, (QStringList {u"提取音频"_s, u"上传音频"_s, u"语音识别中"_s, QString()}));
    EXPECT_EQ(projectStates,
              (QList<ProjectStatus> {ProjectStatus::importingMedia, ProjectStatus::extractingAudio,
                                     ProjectStatus::transcribing, ProjectStatus::ready}));

    // The service's paragraphs, numbered in order, with fresh ids for every paragraph and word.
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
}

TEST_F(ImportPipeline, TheTranscriptGoesToTheImportsOwnBundleWhateverIsOpen)
{
    // An earlier project is open, edited, with history: none of it reaches the import.
    auto earlier = KavelProject::create(u"旧项目"_s, dir.filePath(u"projects"_s));
    earlier->setParagraphs(test::transcript({{u"old"_s, u"words"_s}, {u"more"_s}}));
    earlier->saveTimeline();
    vm.openProject(earlier->bundleURL());
    vm.deleteParagraph(vm.paragraphs().last().id);
    ASSERT_TRUE(vm.undoManager().canUndo());

    auto task = start({media(u"talk.wav"_s)});
    const QUrl imported = vm.project()->bundleURL();
    EXPECT_TRUE(vm.paragraphs().isEmpty());
    EXPECT_FALSE(vm.undoManager().canUndo());

    // The user opens the earlier project again while recognition runs.
    vm.openProject(earlier->bundleURL());
    const QList<Paragraph> onScreen = vm.paragraphs();
    poll(completed(1));
    runTask(std::move(task)).get();

    EXPECT_EQ(vm.project()->bundleURL(), earlier->bundleURL());
    EXPECT_EQ(vm.paragraphs(), onScreen);
    EXPECT_EQ(KavelProject::load(earlier->bundleURL())->paragraphs(), earlier->paragraphs());
    const auto bundle = KavelProject::load(imported);
    EXPECT_EQ(shown(bundle->paragraphs()), QStringList {u"0 1: hello@0.5/0 um@0.9/1*"_s});
    // Every word names a recording of its own bundle.
    for (const WordBlock &w : flattenParagraphs(bundle->paragraphs()))
        EXPECT_TRUE(bundle->sourceFileURL(w.sourceFileId)) << w.text.toStdString();

    // Back in the imported project, the transcript is there and undo has nothing to undo.
    vm.openProject(imported);
    EXPECT_EQ(vm.paragraphs(), bundle->paragraphs());
    EXPECT_FALSE(vm.undoManager().canUndo());
}

// The service's own failures (a forgotten task, a dropped connection) are covered against
// a real server in importendtoend_test.
TEST_F(ImportPipeline, FailedExtractionOrRecognitionSaysWhyAfterTheEstimateRunsOut)
{
    // A video whose sound cannot be extracted never reaches the service.
    converter.completeAtOnce = false;
    auto extraction = vm.importAndTranscribe({media(u"film.mkv"_s)});
    converter.current().finish(media::ConversionStatus::failed);
    runTask(std::move(extraction)).get();
    expectFailed(u"语音识别失败: 音频提取失败"_s);
    EXPECT_TRUE(stub.requests().isEmpty());
    EXPECT_TRUE(notifier.delivered.isEmpty()) << "only a failed result is announced";

    converter.completeAtOnce = true;
    auto task = start({media(u"talk.wav"_s)});
    for (int i = 0; i < 35; ++i)
        poll();
    EXPECT_EQ(vm.processingStatus(), u"正在识别语音... (预计剩余 00:05)"_s);
    poll();
    EXPECT_EQ(vm.processingStatus(), u"正在识别语音... (即将完成)"_s);
    poll(); // polling goes on after the estimate has run out

    poll(R"({"task_id": "t-1", "status": "failed"})");
    runTask(std::move(task)).get();
    expectFailed(u"语音识别失败: 未知错误"_s);
    EXPECT_EQ(notifier.delivered,
              (QList<QPair<QString, QString>> {{u"Kavel"_s, u"语音识别失败，请重试。"_s}}));
}

} // namespace
