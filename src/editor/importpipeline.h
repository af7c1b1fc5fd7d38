#pragma once

#include "importjob.h"
#include "importservices.h"
#include "model/paragraph.h"

#include <QCoroTask>
#include <QObject>
#include <functional>
#include <memory>
#include <vector>

namespace kavel {

class AudioExtractor;
class KavelProject;
class PlaybackClock;
struct ExtractedAudio;
namespace service {
struct TranscriptionResult;
}

// Runs imports, one after the other: each makes its project at once, then copies the
// media in, extracts the sound, has the service recognise it and stores the transcript in
// its own project (handing it to the editor when that project is open there). Progress
// is told per import, through its ImportJob, so every other project stays editable.
//
// Each import also leaves a note in its bundle while it runs, so that one cut short by a
// quit or a crash shows as failed at the next start rather than as an empty project.
class ImportPipeline : public QObject
{
    Q_OBJECT

public:
    // How long a poll may wait on the service for the task to move on.
    static constexpr int pollWaitSeconds = 25;
    // Between polls of a service that answers at once instead of waiting.
    static constexpr double pollIntervalSeconds = 5.0;
    // How often the extraction's percentage and the countdown are brought up to date.
    static constexpr double tickSeconds = 0.5;

    // Gives the editor a transcript for `project`; true when the editor had it open and
    // took it (then it has saved it). Throws Error when that save failed.
    using Receiver = std::function<bool(const KavelProject &project, QList<Paragraph> arrived)>;

    ImportPipeline(PlaybackClock &clock, ImportServices services, QObject *parent = nullptr);
    ~ImportPipeline() override;

    void setReceiver(Receiver receiver) { m_receiver = std::move(receiver); }

    // Makes the project for `urls` now and queues its import; it starts when the imports
    // before it have ended. `language` is the recording's (empty: the service's default).
    // Throws FileError when the bundle cannot be made.
    ImportJob *start(const QList<QUrl> &urls, const QString &language = {});

    // Every import of this run, oldest first.
    QList<ImportJob *> jobs() const;
    // The latest import into that bundle, or null.
    ImportJob *jobFor(const QString &bundlePath) const;
    int activeCount() const;

    // The application is quitting: imports still running or waiting end as failed, in
    // their bundles too.
    void interruptAll();

    // Imports found unfinished in the bundles under `directory` (the last run ended
    // without saying how they went) are marked failed, unless another process still holds
    // the bundle and runs its import. Returns how many.
    static int markInterrupted(const QString &directory);
    // Why the last import into the bundle failed, or empty when it did not.
    static QString failureOf(const QString &bundlePath);

Q_SIGNALS:
    void jobAdded(kavel::ImportJob *job);
    void jobChanged(kavel::ImportJob *job);
    void activeCountChanged();

private:
    void startWaiting();
    QCoro::Task<> run(ImportJob *job);
    QCoro::Task<> runSteps(ImportJob *job);
    // Polls until the task completes or fails, and returns that result.
    QCoro::Task<service::TranscriptionResult> awaitRecognition(ImportJob *job, QString taskId);
    QCoro::Task<std::vector<float>> measurePower(QString path);
    void deliver(ImportJob *job, const service::TranscriptionResult &result, const QUuid &sourceId,
                 const std::vector<float> &power);
    void fail(ImportJob *job, const QString &status);
    void logLine(const QString &line) const;

    PlaybackClock &m_clock;
    ImportServices m_services;
    std::unique_ptr<AudioExtractor> m_extractor;
    Receiver m_receiver;
    QList<ImportJob *> m_jobs;
};

} // namespace kavel
