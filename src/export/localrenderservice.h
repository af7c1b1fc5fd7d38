#pragma once

#include "exportsettings.h"
#include "media/renderer.h"
#include "model/wordblock.h"
#include "playback/compositionplan.h"
#include "service/servicelog.h"

#include <QCoroTask>
#include <QObject>
#include <chrono>
#include <optional>

class QProcess;

namespace kavel {

namespace media {
class MediaEngine;
}

// Where an external MP3 encoder is looked for, and how long it may take.
struct EncoderSearch
{
    // Encoders shipped with the application, as "<name>.bin"; the application's own
    // directory unless set otherwise.
    QString bundledDirectory;
    // Searched in this order; PATH is deliberately not consulted, so the encoder that
    // runs does not depend on how the application was launched.
    QStringList directories {QStringLiteral("/usr/local/bin/"), QStringLiteral("/usr/bin/")};
    // An encoder still running after this long is stopped and the conversion fails:
    // a fixed allowance plus a share of the sound's length.
    std::chrono::milliseconds baseTimeLimit {60'000};
    double timeLimitPerSecondOfSound = 0.5;
};

// The export engine: the edited result as a movie, as sound alone, and as subtitles.
// Video and sound are cut by the same plan as the preview. One export at a time; the
// progress of the running one is published about every tenth of a second. Destroying the
// service cancels a running export; its coroutine then ends with an exception that is not
// an Error.
class LocalRenderService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(bool isRendering READ isRendering NOTIFY isRenderingChanged)
    Q_PROPERTY(std::optional<QString> error READ error NOTIFY errorChanged)

public:
    LocalRenderService(media::MediaEngine &engine, media::Renderer &renderer,
                       QObject *parent = nullptr);
    ~LocalRenderService() override;

    double progress() const { return m_progress; }
    bool isRendering() const { return m_isRendering; }
    // The description of the last export's failure.
    const std::optional<QString> &error() const { return m_error; }

    void setEncoderSearch(EncoderSearch search) { m_encoderSearch = std::move(search); }
    void setLogSink(service::LogSink sink) { m_log = std::move(sink); }

    // Replaces any file at `outputPath` only once the new one is complete. Throws
    // RenderError, or a file error when the finished file cannot be put in place.
    QCoro::Task<> renderVideo(QList<PlaybackSource> sources, QList<WordBlock> blocks,
                              ExportSettings settings, QString outputPath,
                              bool isAudioTrackMuted = false);
    // WAV, M4A, or MP3 (kept as M4A when no encoder can be found). Throws RenderError or
    // MediaError with the writer's reason.
    QCoro::Task<> renderAudioOnly(QList<PlaybackSource> sources, QList<WordBlock> blocks,
                                  bool isAudioTrackMuted, AudioFormat audioFormat,
                                  QString outputPath);
    // Cue times come from the same map the media is cut by. Throws FileError.
    void writeSubtitles(const QList<PlaybackSource> &sources, const QList<WordBlock> &blocks,
                        const QString &outputPath, SubtitleStyle style = SubtitleStyle::words,
                        SubtitleFormat format = SubtitleFormat::srt);
    // The edit as a project file for another editor, cut on the same map. Throws
    // RenderError when no source can be read, FileError when the file cannot be written.
    void writeInterchange(const QList<PlaybackSource> &sources, const QList<WordBlock> &blocks,
                          const QString &outputPath, interchange::Format format,
                          const QString &title);
    // Where intermediate files go while an export runs (the project's cache folder); the
    // system's temporary folder when unset. They are removed however the export ends.
    void setScratchDirectory(const QString &folder) { m_scratchDirectory = folder; }

    // The project's "保留停顿" limit, applied to every map this service makes.
    void setPauseLimit(double seconds) { m_pauseLimit = seconds; }
    // Loudness and noise reduction for every movie and sound file this service writes.
    void setSoundFinish(media::SoundFinish finish) { m_soundFinish = finish; }
    // The loudness of the last movie or sound file written with a loudness target.
    const std::optional<media::LoudnessReport> &lastLoudness() const { return m_lastLoudness; }

    // Stops the running export, which then fails with exportFailed.
    void cancel();

    std::optional<QString> findEncoder(const QString &name) const;

Q_SIGNALS:
    void progressChanged();
    void isRenderingChanged();
    void errorChanged();

private:
    CompositionPlan plan(const QList<PlaybackSource> &sources, const QList<WordBlock> &blocks,
                         bool isAudioTrackMuted, const QString &logPrefix);
    // Renders to a hidden name beside `finalPath` and renames on success.
    QCoro::Task<> render(media::RenderRequest request, QString finalPath);
    QCoro::Task<> writeAudio(media::EditList editList, media::RenderFormat format, QString path);
    QCoro::Task<> convertToMp3(media::EditList editList, QString outputPath);
    // The exit status, or -1 when the program could not run or ran out of time.
    QCoro::Task<int> runProcess(QString program, QStringList arguments,
                                std::chrono::milliseconds timeLimit);
    void audioLog(const QString &line) const;
    QString scratchDirectory() const;

    void setProgress(double progress);
    void setRendering(bool rendering);
    void setError(std::optional<QString> error);

    media::MediaEngine &m_engine;
    media::Renderer &m_renderer;
    EncoderSearch m_encoderSearch;
    service::LogSink m_log;
    media::RenderJob *m_job = nullptr;
    // The external MP3 encoder while it runs, so that a cancel reaches it too.
    QProcess *m_encoder = nullptr;
    QString m_scratchDirectory;
    double m_pauseLimit = 0.0;
    media::SoundFinish m_soundFinish;
    std::optional<media::LoudnessReport> m_lastLoudness;
    double m_progress = 0.0;
    bool m_isRendering = false;
    std::optional<QString> m_error;
};

} // namespace kavel
