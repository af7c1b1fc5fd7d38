#include "localrenderservice.h"

#include "media/mediaengine.h"
#include "model/fileio.h"
#include "rendererror.h"
#include "subtitlewriter.h"

#include <QCoreApplication>
#include <QCoroProcess>
#include <QCoroTimer>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QStorageInfo>
#include <QUuid>
#include <chrono>
#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace kavel {

namespace {

constexpr auto pollInterval = 100ms;
// Below this much room an encoder that fails has most likely run out of it.
constexpr qint64 minimumFreeForEncoding = 1024 * 1024;

// Ends every coroutine of a service that went away mid-export. It is not an Error, so no
// handler on the way out, all of which touch the service, catches it.
struct ServiceDestroyed
{
};

QString besideTarget(const QString &target, const QString &name)
{
    return QFileInfo(target).dir().filePath(name);
}

// The hidden name a file is written under until it is complete.
QString partialOf(const QString &target)
{
    const QFileInfo info(target);
    return besideTarget(target, u"."_s + info.completeBaseName() + u".part."_s + info.suffix());
}

// Removes the files it holds when it goes, however the export ends: done, failed, stopped
// or the service destroyed under it.
class Leftovers
{
public:
    Leftovers() = default;
    Leftovers(const Leftovers &) = delete;
    Leftovers &operator=(const Leftovers &) = delete;
    ~Leftovers()
    {
        for (const QString &path : std::as_const(m_paths))
            QFile::remove(path);
    }
    QString add(const QString &path)
    {
        QFile::remove(path);
        m_paths.append(path);
        return path;
    }

private:
    QStringList m_paths;
};

// POSIX rename replaces the destination in one step, so a reader never sees the old
// file gone and the new one missing.
void moveIntoPlace(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(from).toStdString(),
                            QFile::encodeName(to).toStdString(), error);
    if (error)
        throw FileError(FileError::Kind::writeFailed, to, QString::fromStdString(error.message()));
}

// The scratch folder may be on another disk than the target, where no rename reaches: the
// file is then copied in beside the target under its hidden name first.
void placeFile(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(from).toStdString(),
                            QFile::encodeName(to).toStdString(), error);
    if (!error)
        return;
    const QString partial = partialOf(to);
    QFile::remove(partial);
    if (!QFile::copy(from, partial)) {
        QFile::remove(partial);
        throw FileError(FileError::Kind::writeFailed, to, QString::fromStdString(error.message()));
    }
    try {
        moveIntoPlace(partial, to);
    } catch (const FileError &) {
        QFile::remove(partial);
        throw;
    }
}

} // namespace

LocalRenderService::LocalRenderService(media::MediaEngine &engine, media::Renderer &renderer,
                                       QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_renderer(renderer)
    , m_log(service::standardOutputSink())
{
    if (QCoreApplication::instance())
        m_encoderSearch.bundledDirectory = QCoreApplication::applicationDirPath();
}

LocalRenderService::~LocalRenderService() = default;

CompositionPlan LocalRenderService::plan(const QList<PlaybackSource> &sources,
                                         const QList<WordBlock> &blocks, bool isAudioTrackMuted,
                                         const QString &logPrefix)
{
    const LoadedSources loaded = loadSourceTracks(m_engine, sources, [&](const QString &line) {
        if (!logPrefix.isEmpty())
            m_log(logPrefix + line);
    });
    if (loaded.tracks.isEmpty())
        throw RenderError(RenderError::Code::noTracks);
    CompositionPlan composition = planComposition(blocks, loaded.tracks, m_pauseLimit);
    // A muted track keeps its length: every stretch is still laid in, silent.
    if (isAudioTrackMuted)
        for (media::EditSegment &segment : composition.editList.segments)
            segment.audio.muted = true;
    return composition;
}

QCoro::Task<> LocalRenderService::renderVideo(QList<PlaybackSource> sources,
                                              QList<WordBlock> blocks, ExportSettings settings,
                                              QString outputPath, bool isAudioTrackMuted)
{
    setError(std::nullopt);
    try {
        CompositionPlan composition = plan(sources, blocks, isAudioTrackMuted, {});
        media::RenderRequest request;
        if (settings.burnSubtitles) {
            // The very cues the subtitle file gets, timed by the map the movie is cut by.
            const SubtitleCues mode = settings.subtitleStyle == SubtitleStyle::phrases
                ? SubtitleCues::phrases
                : SubtitleCues::words;
            for (const SubtitleCue &cue : subtitleCues(blocks, composition, mode))
                request.captions.append({cue.start, cue.end, cue.text});
            request.captionHeight = captionHeight(settings.captionSize);
        }
        request.editList = std::move(composition.editList);
        request.format = settings.outputFileType() == OutputFileType::quickTimeMovie
            ? media::RenderFormat::mov
            : media::RenderFormat::mp4;
        const ExportPreset preset = settings.preset();
        request.videoEncoding = preset.codec == VideoCodec::hevc ? media::VideoEncoding::hevc
                                                                 : media::VideoEncoding::h264;
        request.frameSize = preset.frameSize;
        try {
            co_await render(std::move(request), outputPath);
        } catch (const media::MediaError &) {
            throw RenderError(RenderError::Code::exportSessionFailed);
        } catch (const RenderError &error) {
            // The render's own reason ("磁盘空间不足") is the one the user can act on.
            if (error.code() == RenderError::Code::exportFailed && m_error)
                throw media::MediaError(*m_error);
            throw;
        }
    } catch (const Error &error) {
        setError(error.description());
        throw;
    }
}

QCoro::Task<> LocalRenderService::render(media::RenderRequest request, QString finalPath)
{
    if (m_isRendering)
        throw RenderError(RenderError::Code::exportSessionFailed);
    const QString partial = partialOf(finalPath);
    request.outputPath = partial;
    request.sound = m_soundFinish;
    m_lastLoudness.reset();
    std::unique_ptr<media::RenderJob> job = m_renderer.start(request);

    setError(std::nullopt);
    setProgress(0.0);
    setRendering(true);
    m_job = job.get();
    QPointer<LocalRenderService> self(this);
    media::RenderState state = job->poll();
    while (state == media::RenderState::running) {
        setProgress(job->progress());
        co_await QCoro::sleepFor(pollInterval);
        if (!self) {
            job->cancel();
            throw ServiceDestroyed {};
        }
        state = job->poll();
    }
    m_job = nullptr;
    setRendering(false);

    if (state != media::RenderState::completed) {
        QFile::remove(partial);
        const QString reason = job->errorText();
        setError(reason.isEmpty() ? RenderError::descriptionOf(RenderError::Code::exportFailed)
                                  : reason);
        throw RenderError(RenderError::Code::exportFailed);
    }
    setProgress(1.0);
    m_lastLoudness = job->loudness();
    try {
        moveIntoPlace(partial, finalPath);
    } catch (const FileError &error) {
        QFile::remove(partial);
        setError(error.description());
        throw;
    }
}

QCoro::Task<> LocalRenderService::renderAudioOnly(QList<PlaybackSource> sources,
                                                  QList<WordBlock> blocks, bool isAudioTrackMuted,
                                                  AudioFormat audioFormat, QString outputPath)
{
    setError(std::nullopt);
    try {
        CompositionPlan composition = plan(sources, blocks, isAudioTrackMuted, u"[AudioExport] "_s);
        audioLog(u"Inserted "_s + QString::number(composition.editList.segments.size())
                 + u" segments, duration="_s
                 + QString::number(composition.duration, 'g', QLocale::FloatingPointShortest)
                 + u"s, format="_s + toRawValue(audioFormat));

        switch (audioFormat) {
        case AudioFormat::wav:
            co_await writeAudio(std::move(composition.editList), media::RenderFormat::wav,
                                outputPath);
            break;
        case AudioFormat::aac:
            co_await writeAudio(std::move(composition.editList), media::RenderFormat::m4a,
                                outputPath);
            break;
        case AudioFormat::mp3:
            co_await convertToMp3(std::move(composition.editList), outputPath);
            break;
        }
    } catch (const Error &error) {
        setError(error.description());
        throw;
    }
    audioLog(u"Success: "_s + outputPath);
}

QCoro::Task<> LocalRenderService::writeAudio(media::EditList editList, media::RenderFormat format,
                                             QString path)
{
    media::RenderRequest request;
    request.editList = std::move(editList);
    request.format = format;
    QString reason;
    try {
        co_await render(std::move(request), path);
        co_return;
    } catch (const Error &error) {
        reason = m_error.value_or(error.description());
    }
    if (reason.isEmpty())
        reason = u"unknown"_s;
    audioLog(u"Writer failed: "_s + reason);
    throw media::MediaError(reason);
}

QCoro::Task<> LocalRenderService::convertToMp3(media::EditList editList, QString outputPath)
{
    const double seconds = editList.duration();
    const auto timeLimit = m_encoderSearch.baseTimeLimit
        + std::chrono::milliseconds(qint64(seconds * m_encoderSearch.timeLimitPerSecondOfSound
                                           * 1000.0));
    // The intermediate sound stays out of the user's folder; the encoder writes under a
    // hidden name beside the target, put in place only once it succeeded.
    Leftovers leftovers;
    const QString stem
        = scratchDirectory() + u"/export-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString m4a = leftovers.add(stem + u".m4a"_s);
    // The intermediate file is ours, not the user's: a failure is told about the file
    // the user asked for.
    std::optional<media::MediaError> writeFailure;
    try {
        co_await writeAudio(editList, media::RenderFormat::m4a, m4a);
    } catch (const Error &error) {
        writeFailure = media::MediaError(QString(error.description()).replace(m4a, outputPath));
    }
    if (writeFailure)
        throw *writeFailure;

    audioLog(u"Converting M4A to MP3..."_s);
    const std::optional<QString> ffmpeg = findEncoder(u"ffmpeg"_s);
    const std::optional<QString> lame = ffmpeg ? std::nullopt : findEncoder(u"lame"_s);
    if (!ffmpeg && !lame) {
        placeFile(m4a, outputPath);
        audioLog(u"No MP3 encoder found. Exported as M4A instead."_s);
        co_return;
    }

    const QString encoded = leftovers.add(partialOf(outputPath));
    bool converted = false;
    if (ffmpeg) {
        QStringList arguments {u"-i"_s,   m4a,     u"-codec:a"_s, u"libmp3lame"_s, u"-b:a"_s,
                               u"128k"_s, u"-f"_s, u"mp3"_s,      u"-y"_s,         encoded};
        const int status = co_await runProcess(*ffmpeg, std::move(arguments), timeLimit);
        converted = status == 0;
        if (!converted)
            audioLog(u"ffmpeg MP3 conversion failed"_s);
    } else {
        // lame reads WAV; without afconvert on this platform the engine writes it from
        // the same edit.
        const QString wav = leftovers.add(stem + u".wav"_s);
        co_await writeAudio(std::move(editList), media::RenderFormat::wav, wav);
        QStringList arguments {u"-b"_s, u"128"_s, u"--quiet"_s, wav, encoded};
        const int status = co_await runProcess(*lame, std::move(arguments), timeLimit);
        converted = status == 0;
        if (!converted)
            audioLog(u"lame MP3 encoding failed"_s);
    }
    if (!converted || QFileInfo(encoded).size() <= 0) {
        // The encoder says nothing we can read; a disk that has filled up is the one cause
        // the user can do something about, so it is named.
        const QStorageInfo volume(QFileInfo(outputPath).absolutePath());
        if (volume.isValid() && volume.bytesAvailable() < minimumFreeForEncoding)
            throw media::MediaError(RenderError::descriptionOf(RenderError::Code::exportFailed)
                                    + tr("：磁盘空间不足"));
        throw media::MediaError(RenderError::descriptionOf(RenderError::Code::exportFailed)
                                + tr("：MP3 编码器没有完成转换"));
    }
    moveIntoPlace(encoded, outputPath);
    audioLog(u"MP3 export complete: "_s + outputPath);
}

QString LocalRenderService::scratchDirectory() const
{
    const QString folder = m_scratchDirectory.isEmpty() ? QDir::tempPath() : m_scratchDirectory;
    QDir().mkpath(folder);
    return folder;
}

QCoro::Task<int> LocalRenderService::runProcess(QString program, QStringList arguments,
                                                std::chrono::milliseconds timeLimit)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setStandardInputFile(QProcess::nullDevice());
    const bool started = co_await qCoro(process).start(program, arguments);
    if (!started)
        co_return -1;
    m_encoder = &process;
    const bool finished = co_await qCoro(process).waitForFinished(timeLimit);
    m_encoder = nullptr;
    if (!finished) {
        // A stalled encoder must not hold the export forever.
        process.kill();
        co_await qCoro(process).waitForFinished(std::chrono::seconds(5));
        co_return -1;
    }
    co_return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

void LocalRenderService::writeSubtitles(const QList<PlaybackSource> &sources,
                                        const QList<WordBlock> &blocks, const QString &outputPath,
                                        SubtitleStyle style, SubtitleFormat format)
{
    CompositionPlan timing;
    try {
        timing = plan(sources, blocks, false, {});
    } catch (const RenderError &) {
        // Without readable media nothing is clamped: the words' own lengths are the map.
        timing = planComposition(blocks, {SourceTrackInfo {}}, m_pauseLimit);
    }
    kavel::writeSubtitles(blocks, timing, outputPath,
                          style == SubtitleStyle::phrases ? SubtitleCues::phrases
                                                          : SubtitleCues::words,
                          format == SubtitleFormat::vtt);
}

void LocalRenderService::writeInterchange(const QList<PlaybackSource> &sources,
                                          const QList<WordBlock> &blocks, const QString &outputPath,
                                          interchange::Format format, const QString &title)
{
    const CompositionPlan composition = plan(sources, blocks, false, {});
    QList<interchange::Source> described;
    for (const PlaybackSource &source : sources) {
        const QString path = source.url.toLocalFile();
        try {
            const media::MediaInfo info = m_engine.probe(path);
            described.append({path, info.hasVideo, info.hasAudio,
                              interchange::rateFromFramesPerSecond(info.frameRate), info.videoSize,
                              info.hasVideo ? info.videoDuration : info.audioDuration});
        } catch (const Error &) {
            // plan() has logged it; the file's cuts are left out as from the movie.
        }
    }
    fileio::writeFileAtomically(
        outputPath, interchange::document(format, composition.editList, described, title));
}

void LocalRenderService::cancel()
{
    if (m_job)
        m_job->cancel();
    // The encoder's exit status then reads as a failed conversion, which ends the run.
    if (m_encoder)
        m_encoder->kill();
}

std::optional<QString> LocalRenderService::findEncoder(const QString &name) const
{
    if (!m_encoderSearch.bundledDirectory.isEmpty()) {
        const QFileInfo bundled(QDir(m_encoderSearch.bundledDirectory).filePath(name + u".bin"_s));
        if (bundled.isFile() && bundled.isExecutable())
            return bundled.absoluteFilePath();
    }
    for (const QString &directory : m_encoderSearch.directories) {
        const QFileInfo candidate(directory + name);
        if (candidate.isFile() && candidate.isExecutable())
            return candidate.filePath();
    }
    return std::nullopt;
}

void LocalRenderService::audioLog(const QString &line) const
{
    m_log(u"[AudioExport] "_s + line);
}

void LocalRenderService::setProgress(double progress)
{
    if (progress == m_progress)
        return;
    m_progress = progress;
    Q_EMIT progressChanged();
}

void LocalRenderService::setRendering(bool rendering)
{
    if (rendering == m_isRendering)
        return;
    m_isRendering = rendering;
    Q_EMIT isRenderingChanged();
}

void LocalRenderService::setError(std::optional<QString> error)
{
    if (error == m_error)
        return;
    m_error = std::move(error);
    Q_EMIT errorChanged();
}

} // namespace kavel
