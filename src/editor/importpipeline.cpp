#include "importpipeline.h"

#include "audioextraction.h"
#include "clocksleep.h"
#include "model/bundlelock.h"
#include "model/errors.h"
#include "model/fileio.h"
#include "model/jsonfields.h"
#include "model/kavelproject.h"
#include "model/projectpaths.h"
#include "service/apiclient.h"
#include "service/apierror.h"
#include "service/recognitionlanguage.h"
#include "timing/cutedges.h"
#include "timing/pauses.h"
#include "usernotifier.h"

#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

QString failurePrefix()
{
    return ImportPipeline::tr("语音识别失败: ");
}

const QString noteName = u"import.json"_s;
QString interruptedText()
{
    return ImportPipeline::tr("导入被中断（应用已退出），请重新导入。");
}

QString describe(const std::exception &error)
{
    // Signed in a moment ago, the session can still run out before the recognition does;
    // that is no fault of the service, and signing in again is what helps.
    if (const auto *refused = dynamic_cast<const service::APIError *>(&error);
        refused && refused->statusCode() == 401)
        return ImportPipeline::tr("登录已过期，请重新登录后再导入");
    if (const auto *known = dynamic_cast<const Error *>(&error))
        return known->description();
    return QString::fromUtf8(error.what());
}

void removeConvertedCopies(const QList<ExtractedAudio> &audio)
{
    for (const ExtractedAudio &entry : audio) {
        if (entry.isConvertedCopy())
            QFile::remove(entry.audioURL.toLocalFile());
    }
}

// The note an import keeps in its bundle: {"state": "running"} while it runs, the reason
// once it failed, nothing once it finished. A note that cannot be written costs only the
// marking after a crash; the import goes on.
void writeNote(const QString &bundlePath, const QString &state, const QString &message = {})
{
    QJsonObject note {{u"state"_s, state}};
    if (!message.isEmpty())
        note.insert(u"message"_s, message);
    try {
        fileio::writeFileAtomically(QDir(bundlePath).filePath(noteName),
                                    QJsonDocument(note).toJson(QJsonDocument::Compact));
    } catch (const Error &) { }
}

QJsonObject readNote(const QString &bundlePath)
{
    QFile file(QDir(bundlePath).filePath(noteName));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

// Counts down the service's estimate between its answers, once a second.
class Countdown
{
public:
    Countdown(PlaybackClock &clock, ImportJob &job)
        : m_clock(clock)
        , m_job(&job)
        , m_rawJob(&job)
    { }
    ~Countdown() { m_clock.cancel(m_pending); }
    Countdown(const Countdown &) = delete;
    Countdown &operator=(const Countdown &) = delete;

    void restart(int seconds)
    {
        m_clock.cancel(m_pending);
        m_left = seconds;
        show();
        schedule();
    }

private:
    void schedule()
    {
        m_pending = m_clock.callAfter(1.0, [this] {
            if (!m_job || !m_rawJob->isActive())
                return;
            m_left = std::max(0, m_left - 1);
            show();
            if (m_left > 0)
                schedule();
        });
    }
    void show()
    {
        if (m_left < 1) {
            m_rawJob->setRemainingSeconds(std::nullopt);
            m_rawJob->setStatus(ImportPipeline::tr("正在识别语音... (即将完成)"));
            return;
        }
        m_rawJob->setRemainingSeconds(m_left);
        m_rawJob->setStatus(ImportPipeline::tr("正在识别语音... (") + remainingText(m_left) + u')');
    }

    PlaybackClock &m_clock;
    // The job is looked at only while the guard says it is still there.
    QPointer<ImportJob> m_job;
    ImportJob *m_rawJob;
    int m_left = 0;
    PlaybackClock::CallId m_pending = 0;
};

} // namespace

ImportPipeline::ImportPipeline(PlaybackClock &clock, ImportServices services, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_services(std::move(services))
{
    if (m_services.audioConverter)
        m_extractor
            = std::make_unique<AudioExtractor>(*m_services.audioConverter, m_clock, m_services.log);
}

ImportPipeline::~ImportPipeline() = default;

void ImportPipeline::logLine(const QString &line) const
{
    if (m_services.log)
        m_services.log(line);
}

ImportJob *ImportPipeline::start(const QList<QUrl> &urls, const QString &language)
{
    const QString directory = m_services.projectsDirectory.isEmpty() ? projectsDirectory()
                                                                     : m_services.projectsDirectory;
    const QString title = titleForMedia(urls.value(0).toLocalFile(), directory);
    std::shared_ptr<KavelProject> project = KavelProject::create(title, directory);
    // Ours from the start: no other window or command may write into it while it fills.
    project->claim();
    writeNote(project->bundlePath(), u"running"_s);
    auto *job = new ImportJob(urls, std::move(project), language, this);
    m_jobs.append(job);
    connect(job, &ImportJob::changed, this, [this, job] { Q_EMIT jobChanged(job); });
    connect(job, &ImportJob::ended, this, [this] {
        Q_EMIT activeCountChanged();
        // Not from inside the ending import's own steps.
        QTimer::singleShot(0, this, &ImportPipeline::startWaiting);
    });
    Q_EMIT jobAdded(job);
    Q_EMIT activeCountChanged();
    startWaiting();
    return job;
}

QList<ImportJob *> ImportPipeline::jobs() const
{
    return m_jobs;
}

ImportJob *ImportPipeline::jobFor(const QString &bundlePath) const
{
    for (auto it = m_jobs.crbegin(); it != m_jobs.crend(); ++it) {
        if ((*it)->bundlePath() == bundlePath)
            return *it;
    }
    return nullptr;
}

int ImportPipeline::activeCount() const
{
    return static_cast<int>(
        std::count_if(m_jobs.cbegin(), m_jobs.cend(), [](ImportJob *j) { return j->isActive(); }));
}

void ImportPipeline::startWaiting()
{
    for (ImportJob *job : std::as_const(m_jobs)) {
        if (job->state() == ImportJob::State::running)
            return;
    }
    for (ImportJob *job : std::as_const(m_jobs)) {
        if (job->state() == ImportJob::State::waiting) {
            QCoro::connect(run(job), this, [] {});
            return;
        }
    }
}

void ImportPipeline::interruptAll()
{
    for (ImportJob *job : std::as_const(m_jobs)) {
        if (job->isActive())
            fail(job, interruptedText());
    }
}

int ImportPipeline::markInterrupted(const QString &directory)
{
    int marked = 0;
    const QFileInfoList bundles = QDir(directory).entryInfoList({u"*.kavel"_s}, QDir::Dirs);
    for (const QFileInfo &bundle : bundles) {
        if (readNote(bundle.filePath()).value(u"state"_s).toString() != u"running"_s)
            continue;
        // An import that another process still runs (kavel-cli import) holds its bundle;
        // only one whose process is gone has been cut short.
        try {
            BundleLock::acquire(bundle.filePath());
        } catch (const Error &) {
            continue;
        }
        writeNote(bundle.filePath(), u"failed"_s, interruptedText());
        // The sound it was making or sending, only ever a copy for the service.
        QDir cache(QDir(bundle.filePath()).filePath(u"cache"_s));
        for (const QString &copy : cache.entryList({u"audio_*.m4a"_s}, QDir::Files))
            cache.remove(copy);
        ++marked;
    }
    return marked;
}

QString ImportPipeline::failureOf(const QString &bundlePath)
{
    const QJsonObject note = readNote(bundlePath);
    if (note.value(u"state"_s).toString() != u"failed"_s)
        return {};
    return note.value(u"message"_s).toString(tr("导入失败"));
}

void ImportPipeline::fail(ImportJob *job, const QString &status)
{
    logLine(u"[Import] "_s + job->bundlePath() + u": "_s + status);
    writeNote(job->bundlePath(), u"failed"_s, status);
    job->project()->setStatus(ProjectStatus::failed);
    const bool wasRunning = job->state() == ImportJob::State::running;
    job->setStep({}, status);
    job->setState(ImportJob::State::failed);
    // Only the running import can be extracting; its failure has been said, so the end of
    // the cancelled conversion adds nothing.
    if (wasRunning && m_extractor)
        m_extractor->cancel();
}

QCoro::Task<> ImportPipeline::run(ImportJob *job)
{
    QPointer<ImportPipeline> self(this);
    QPointer<ImportJob> guard(job);
    job->setState(ImportJob::State::running);
    try {
        co_await runSteps(job);
    } catch (const std::exception &error) {
        const auto *known = dynamic_cast<const Error *>(&error);
        if (self && known && !known->detail().isEmpty())
            logLine(u"[Import] Failed: "_s + known->description() + u" ("_s + known->detail()
                    + u')');
        // The expired task and a failed result have said so in their own words already.
        if (self && guard && job->isActive())
            fail(job, failurePrefix() + describe(error));
    }
}

QCoro::Task<> ImportPipeline::runSteps(ImportJob *job)
{
    QPointer<ImportPipeline> self(this);
    QPointer<ImportJob> guard(job);
    // Quitting may end the import while it waits; what it was waiting for is then dropped.
    const auto gone = [&] { return !self || !guard || !job->isActive(); };
    const std::shared_ptr<KavelProject> project = job->project();
    if (!m_services.apiClient || !m_extractor)
        throw Error(tr("导入需要语音识别服务和媒体引擎"));

    project->setStatus(ProjectStatus::importingMedia);
    const QList<QUrl> &urls = job->urls();
    for (qsizetype i = 0; i < urls.size(); ++i) {
        job->setStep({}, tr("正在导入视频 (%1/%2)...").arg(i + 1).arg(urls.size()));
        project->addSourceFile(urls.at(i));
    }

    project->setStatus(ProjectStatus::extractingAudio);
    job->setStep(ImportJob::tr("提取音频"), tr("正在提取音频..."));
    job->setProgress(0.0);
    // Every argument of an awaited call is named: GCC 12 destroys the temporaries of a
    // co_await expression twice.
    AudioExtractor::ProgressListener showProgress = [job, guard](double done) {
        if (!guard || !job->isActive())
            return;
        job->setProgress(done);
        job->setStatus(tr("正在提取音频... %1%").arg(static_cast<int>(done * 100.0)));
    };
    const QList<ExtractedAudio> audio = co_await m_extractor->extractAudio(*project, showProgress);
    if (gone()) {
        removeConvertedCopies(audio);
        co_return;
    }
    if (audio.isEmpty())
        throw KavelProjectError(KavelProjectError::Code::noSourceVideo);

    // One recording is recognised per import: the first source's.
    const ExtractedAudio upload = audio.first();
    project->setStatus(ProjectStatus::transcribing);
    job->setStep(ImportJob::tr("上传音频"), tr("正在上传音频进行语音识别..."));
    service::TranscribeResponse task;
    const QString uploadPath = upload.audioURL.toLocalFile();
    try {
        task = co_await m_services.apiClient->transcribe(uploadPath, job->language());
    } catch (const service::APIError &error) {
        removeConvertedCopies(audio);
        // The service names the language it cannot recognise in Chinese; the user is told
        // in the interface's language, without the status code.
        if (error.statusCode() == 422 && error.detail().startsWith(u"此服务暂不支持识别"_s))
            throw Error(service::unsupportedLanguageMessage(job->language()));
        throw;
    } catch (...) {
        removeConvertedCopies(audio);
        throw;
    }
    // The service has its own copy now; ours was made only to be sent.
    removeConvertedCopies(audio);
    if (gone())
        co_return;

    job->setStep(ImportJob::tr("语音识别中"), tr("正在识别语音..."));
    const service::TranscriptionResult result = co_await awaitRecognition(job, task.taskId);
    if (gone())
        co_return;
    const std::optional<QUrl> source = project->sourceFileURL(upload.sourceFileId);
    const QString sourcePath = source ? source->toLocalFile() : QString();
    const std::vector<float> power = co_await measurePower(sourcePath);
    if (gone())
        co_return;
    deliver(job, result, upload.sourceFileId, power);
}

QCoro::Task<service::TranscriptionResult> ImportPipeline::awaitRecognition(ImportJob *job,
                                                                           QString taskId)
{
    QPointer<ImportPipeline> self(this);
    Countdown countdown(m_clock, *job);
    QString lastStatus = u"pending"_s;
    std::optional<double> lastProgress;
    // The estimate is the average pace since the service began on the task. Its progress
    // comes in bursts (stretches recognised side by side end together), so the pace between
    // two answers a moment apart says nothing. The task waits from the upload until an
    // answer says otherwise; one that comes at the change itself still has nothing done.
    double knownWaiting = m_clock.now();
    std::optional<double> startedAt;
    for (;;) {
        const double asked = m_clock.now();
        service::TranscriptionResult result;
        try {
            result = co_await m_services.apiClient->getTranscriptionResult(taskId, pollWaitSeconds);
        } catch (const service::APIError &error) {
            if (self && job->isActive() && error.code() == service::APIError::Code::httpError
                && error.statusCode() == 404) {
                fail(job, tr("语音识别任务已失效（可能服务器已重启），请重新导入视频再试。"));
                throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
            }
            throw;
        }
        if (!self || !job->isActive() || result.isCompleted())
            co_return result;
        if (result.isFailed()) {
            fail(job, failurePrefix() + result.errorMessage.value_or(tr("未知错误")));
            if (m_services.notifier)
                m_services.notifier->deliver(u"Kavel"_s, tr("语音识别失败，请重试。"));
            throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
        }

        const bool moved = result.status != lastStatus || result.progress != lastProgress;
        lastStatus = result.status;
        lastProgress = result.progress;
        const double now = m_clock.now();
        if (result.status == u"pending"_s)
            knownWaiting = now;
        else if (!startedAt)
            startedAt = result.progress.value_or(0.0) > 0.0 ? knownWaiting : now;
        if (result.progress) {
            job->setProgress(*result.progress);
            if (startedAt && *result.progress > 0.0 && now > *startedAt) {
                const double pace = *result.progress / (now - *startedAt);
                countdown.restart(static_cast<int>(std::ceil((1.0 - *result.progress) / pace)));
            }
        }
        // A service that answers at once, unchanged, is asked again only after a pause.
        if (!moved && now - asked < 1.0) {
            co_await sleepOn(m_clock, pollIntervalSeconds, this);
            if (!self)
                co_return result;
        }
    }
}

QCoro::Task<std::vector<float>> ImportPipeline::measurePower(QString path)
{
    if (!m_services.measureLoudness || path.isEmpty())
        co_return {};
    struct Measured
    {
        std::vector<float> power;
        QString failure;
    };
    const auto measure = m_services.measureLoudness;
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
        logLine(u"[Import] Word edges left as recognised: "_s + measured.failure);
    co_return std::move(measured.power);
}

void ImportPipeline::deliver(ImportJob *job, const service::TranscriptionResult &result,
                             const QUuid &sourceId, const std::vector<float> &power)
{
    QList<Paragraph> arrived = service::paragraphsFromPayload(
        result.paragraphs.value_or(QList<service::ParagraphPayload> {}), sourceId, 0);
    if (!power.empty()) {
        const qsizetype moved = refineCutEdges(arrived, sourceId, power);
        logLine(u"[Import] Moved %1 word edges into quiet"_s.arg(moved));
    }
    recordPauses(arrived);

    const std::shared_ptr<KavelProject> kept = job->project();
    KavelProject &project = *kept;
    // Throws when a save fails; the import then fails with the reason, and what arrived
    // stays in memory (and on screen when the project is open) for the user's next save.
    if (!m_receiver || !m_receiver(project, arrived)) {
        QList<Paragraph> paragraphs = project.paragraphs();
        for (Paragraph &paragraph : arrived) {
            paragraph.sortOrder = paragraphs.size();
            paragraphs.append(std::move(paragraph));
        }
        project.setParagraphs(paragraphs);
        project.saveTimeline();
    }
    project.setStatus(ProjectStatus::ready);
    QFile::remove(QDir(job->bundlePath()).filePath(noteName));
    job->setStep({}, {});
    job->setState(ImportJob::State::finished);
    if (m_services.notifier)
        m_services.notifier->deliver(u"Kavel"_s, tr("嘿，您的视频已经准备好了，让我们开始吧！"));
}

} // namespace kavel
