// The import and transcription pipeline of EditorViewModel: from picked files to a
// transcribed, saved project.

#include "clocksleep.h"
#include "editorviewmodel.h"
#include "model/errors.h"
#include "model/jsonfields.h"
#include "model/projectpaths.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "timing/cutedges.h"
#include "timing/pauses.h"
#include "usernotifier.h"

#include <QCoroFuture>
#include <QFile>
#include <QPointer>
#include <QtConcurrent/QtConcurrentRun>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

const QString failurePrefix = u"语音识别失败: "_s;

void removeConvertedCopies(const QList<ExtractedAudio> &audio)
{
    for (const ExtractedAudio &entry : audio) {
        if (entry.isConvertedCopy())
            QFile::remove(entry.audioURL.toLocalFile());
    }
}

QString describe(const std::exception &error)
{
    if (const auto *known = dynamic_cast<const Error *>(&error))
        return known->description();
    return QString::fromUtf8(error.what());
}

} // namespace

void EditorViewModel::setPendingImportURLs(const QList<QUrl> &v)
{
    assign(m_pendingImportURLs, v, &EditorViewModel::pendingImportURLsChanged);
}
void EditorViewModel::setShowImportConfirm(bool v)
{
    assign(m_showImportConfirm, v, &EditorViewModel::showImportConfirmChanged);
}
void EditorViewModel::setShowLoginRequired(bool v)
{
    assign(m_showLoginRequired, v, &EditorViewModel::showLoginRequiredChanged);
}
void EditorViewModel::setTranscriptionStep(const QString &v)
{
    assign(m_transcriptionStep, v, &EditorViewModel::transcriptionStepChanged);
}
void EditorViewModel::setTranscriptionPollCount(int v)
{
    assign(m_transcriptionPollCount, v, &EditorViewModel::transcriptionPollCountChanged);
}

void EditorViewModel::logLine(const QString &line) const
{
    if (m_import.log)
        m_import.log(line);
}

ImportPickerRequest EditorViewModel::importPickerRequest()
{
    ImportPickerRequest request;
    request.message = u"选择要编辑的视频文件（可多选）"_s;
    // MPEG-4 movie, QuickTime movie, movie, video, AVI, MPEG, MPEG-2 video, MP3, WAV,
    // AIFF, audio, MPEG-4 audio.
    request.contentTypes
        = {u"video/mp4"_s,       u"video/quicktime"_s, u"video/*"_s,    u"video/*"_s,
           u"video/x-msvideo"_s, u"video/mpeg"_s,      u"video/mp2t"_s, u"audio/mpeg"_s,
           u"audio/x-wav"_s,     u"audio/x-aiff"_s,    u"audio/*"_s,    u"audio/mp4"_s};
    return request;
}

void EditorViewModel::openFilePickerForImport()
{
    openFilePickerForImport(m_import.appState && m_import.appState->isAuthenticated());
}

void EditorViewModel::openFilePickerForImport(bool isAuthenticated)
{
    if (!isAuthenticated) {
        logLine(u"[EditorVM] Import blocked: not authenticated"_s);
        setShowLoginRequired(true);
        return;
    }
    logLine(u"[EditorVM] Opening file picker for import..."_s);
    if (!m_import.pickFiles)
        return;
    const QList<QUrl> chosen = m_import.pickFiles(importPickerRequest());
    if (chosen.isEmpty())
        return;
    setPendingImportURLs(chosen);
    setShowImportConfirm(true);
}

QCoro::Task<> EditorViewModel::importAndTranscribe(QList<QUrl> urls)
{
    QPointer<EditorViewModel> self(this);
    QString unreported;
    try {
        co_await runImport(std::move(urls));
    } catch (const std::exception &error) {
        unreported = describe(error);
        const auto *known = dynamic_cast<const Error *>(&error);
        if (self && known && !known->detail().isEmpty())
            logLine(u"[EditorVM] Import failed: "_s + unreported + u" ("_s + known->detail()
                    + u')');
    }
    // The expired task and a failed result have said so already (and stopped
    // processing); anything else is told here, in its own words.
    if (!self || !m_isProcessing)
        co_return;
    setIsProcessing(false);
    setProcessingStatus(failurePrefix + unreported);
    setTranscriptionStep({});
    if (m_importProject)
        m_importProject->setStatus(ProjectStatus::failed);
    m_importProject.reset();
}

QCoro::Task<> EditorViewModel::runImport(QList<QUrl> urls)
{
    QPointer<EditorViewModel> self(this);
    setIsProcessing(true);
    m_transcriptionEstimateTotalSeconds = transcriptionEstimateSeconds;
    setProcessingStatus(u"正在创建项目..."_s);
    if (!m_import.apiClient || !m_audioExtractor)
        throw Error(u"导入需要语音识别服务和媒体引擎"_s);

    const QString directory
        = m_import.projectsDirectory.isEmpty() ? projectsDirectory() : m_import.projectsDirectory;
    const QString title = titleForMedia(urls.value(0).toLocalFile(), directory);
    m_importProject = KavelProject::create(title, directory);
    m_importProject->claim();
    m_project = m_importProject;
    Q_EMIT projectChanged();
    // A new project starts empty: nothing of the one open before may be carried into it,
    // nor undone back into it.
    m_savedParagraphs.clear();
    setParagraphs({});
    clearSelection();
    m_undoManager->clear();
    syncPlayer();
    const std::shared_ptr<KavelProject> project = m_importProject;
    // The shell can show the editor now: the project exists and fills in as we go.
    setNavigateToEditor(true);

    project->setStatus(ProjectStatus::importingMedia);
    for (qsizetype i = 0; i < urls.size(); ++i) {
        setProcessingStatus(u"正在导入视频 (%1/%2)..."_s.arg(i + 1).arg(urls.size()));
        project->addSourceFile(urls.at(i));
    }

    project->setStatus(ProjectStatus::extractingAudio);
    setTranscriptionStep(u"提取音频"_s);
    setProcessingStatus(u"正在提取音频..."_s);
    const QList<ExtractedAudio> audio = co_await m_audioExtractor->extractAudio(*project);
    if (!self) {
        removeConvertedCopies(audio);
        co_return;
    }
    if (audio.isEmpty())
        throw KavelProjectError(KavelProjectError::Code::noSourceVideo);
    // Only now, so that the preview does not open and decode the same files while the
    // engine is converting them.
    if (m_project == project)
        loadProjectSources();

    // One recording is recognised per import: the first source's.
    const ExtractedAudio &upload = audio.first();
    project->setStatus(ProjectStatus::transcribing);
    setTranscriptionStep(u"上传音频"_s);
    setProcessingStatus(u"正在上传音频进行语音识别..."_s);
    service::TranscribeResponse task;
    try {
        task = co_await m_import.apiClient->transcribe(upload.audioURL.toLocalFile());
    } catch (...) {
        removeConvertedCopies(audio);
        throw;
    }
    // The service has its own copy now; ours was made only to be sent.
    removeConvertedCopies(audio);
    if (!self)
        co_return;
    m_pendingASRSourceFileId = upload.sourceFileId;

    setTranscriptionStep(u"语音识别中"_s);
    setProcessingStatus(u"正在识别语音..."_s);
    co_await pollTranscription(task.taskId);
}

QCoro::Task<> EditorViewModel::pollTranscription(QString taskId)
{
    QPointer<EditorViewModel> self(this);
    setTranscriptionPollCount(0);
    for (;;) {
        service::TranscriptionResult result;
        try {
            result = co_await m_import.apiClient->getTranscriptionResult(taskId);
        } catch (const service::APIError &error) {
            if (self && error.code() == service::APIError::Code::httpError
                && error.statusCode() == 404) {
                failTranscription(
                    u"语音识别任务已失效（可能服务器已重启），请重新导入视频再试。"_s);
                throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
            }
            throw;
        }
        if (!self)
            co_return;
        if (result.isCompleted()) {
            const std::vector<float> power = co_await measureSourcePower();
            if (!self)
                co_return;
            finishTranscription(result, power);
            co_return;
        }
        if (result.isFailed()) {
            failTranscription(failurePrefix + result.errorMessage.value_or(u"未知错误"_s));
            if (m_import.notifier)
                m_import.notifier->deliver(u"Kavel"_s, u"语音识别失败，请重试。"_s);
            throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
        }

        co_await sleepOn(m_clock, transcriptionPollSeconds, this);
        setTranscriptionPollCount(m_transcriptionPollCount + 1);
        const int remaining = m_transcriptionEstimateTotalSeconds
            - static_cast<int>(transcriptionPollSeconds) * m_transcriptionPollCount;
        if (remaining < 1)
            setProcessingStatus(u"正在识别语音... (即将完成)"_s);
        else
            setProcessingStatus(QString::asprintf("正在识别语音... (预计剩余 %02d:%02d)",
                                                  remaining / 60, remaining % 60));
    }
}

KavelProject *EditorViewModel::openImportProject() const
{
    if (!m_project || !m_importProject)
        return nullptr;
    return m_project->bundlePath() == m_importProject->bundlePath() ? m_project.get() : nullptr;
}

QCoro::Task<std::vector<float>> EditorViewModel::measureSourcePower()
{
    if (!m_import.measureLoudness || !m_importProject || !m_pendingASRSourceFileId)
        co_return {};
    const std::optional<QUrl> url = m_importProject->sourceFileURL(*m_pendingASRSourceFileId);
    if (!url)
        co_return {};
    struct Measured
    {
        std::vector<float> power;
        QString failure;
    };
    const auto measure = m_import.measureLoudness;
    const QString path = url->toLocalFile();
    // Named, not awaited as a temporary: GCC 12 frees such a temporary's strings twice.
    QFuture<Measured> future = QtConcurrent::run([measure, path] {
        try {
            return Measured {measure(path), {}};
        } catch (const Error &error) {
            return Measured {{}, error.description()};
        }
    });
    co_await future;
    Measured measured = future.takeResult();
    // Unrefined edges are still the recogniser's usable edges.
    if (!measured.failure.isEmpty())
        logLine(u"[EditorVM] Word edges left as recognised: "_s + measured.failure);
    co_return std::move(measured.power);
}

QList<Paragraph> EditorViewModel::arrivedParagraphs(const service::TranscriptionResult &result,
                                                    qint64 existingParagraphs,
                                                    const std::vector<float> &sourcePower) const
{
    const QUuid sourceId = m_pendingASRSourceFileId.value_or(placeholderSourceFileId);
    QList<Paragraph> arrived = service::paragraphsFromPayload(
        result.paragraphs.value_or(QList<service::ParagraphPayload> {}), sourceId,
        existingParagraphs);
    if (!sourcePower.empty()) {
        const qsizetype moved = refineCutEdges(arrived, sourceId, sourcePower);
        logLine(u"[EditorVM] Moved %1 word edges into quiet"_s.arg(moved));
    }
    recordPauses(arrived);
    return arrived;
}

void EditorViewModel::finishTranscription(const service::TranscriptionResult &result,
                                          const std::vector<float> &sourcePower)
{

    if (KavelProject *open = openImportProject()) {
        const QList<Paragraph> arrived
            = arrivedParagraphs(result, m_paragraphs.size(), sourcePower);
        setParagraphs(m_paragraphs + arrived);
        // Undo must not reach back past the transcript's arrival.
        m_undoManager->clear();
        syncPlayer();
        open->setParagraphs(m_paragraphs);
        if (!saveImportedTranscript(*open))
            return;
        m_savedParagraphs = m_paragraphs;
    } else if (m_importProject) {
        // The user moved on to another project: the transcript goes into its own bundle,
        // as that bundle stands on disk now, and the open editor is left alone.
        std::shared_ptr<KavelProject> target = m_importProject;
        try {
            target = KavelProject::load(m_importProject->bundleURL());
        } catch (const Error &error) {
            logLine(u"[EditorVM] Reloading the imported project failed: "_s + error.description());
        }
        const QList<Paragraph> arrived
            = arrivedParagraphs(result, target->paragraphs().size(), sourcePower);
        target->setParagraphs(target->paragraphs() + arrived);
        if (!saveImportedTranscript(*target))
            return;
    }
    m_importProject.reset();
    setIsProcessing(false);
    setProcessingStatus({});
    setTranscriptionStep({});
    if (m_import.notifier)
        m_import.notifier->deliver(u"Kavel"_s, u"嘿，您的视频已经准备好了，让我们开始吧！"_s);
}

bool EditorViewModel::saveImportedTranscript(KavelProject &project)
{
    try {
        project.saveTimeline();
        project.setStatus(ProjectStatus::ready);
        if (m_importProject && &project != m_importProject.get())
            m_importProject->setStatus(ProjectStatus::ready);
        return true;
    } catch (const Error &error) {
        // An import is done only once its transcript is on disk. What arrived stays in
        // memory (and on screen when the project is open) for the user's next save.
        logLine(u"[EditorVM] Saving the transcript failed: "_s + error.description());
        failTranscription(failurePrefix + error.description());
        m_importProject.reset();
        return false;
    }
}

void EditorViewModel::failTranscription(const QString &status)
{
    setIsProcessing(false);
    setProcessingStatus(status);
    setTranscriptionStep({});
    if (m_importProject)
        m_importProject->setStatus(ProjectStatus::failed);
}

} // namespace kavel
