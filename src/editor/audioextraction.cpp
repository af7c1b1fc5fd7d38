#include "audioextraction.h"

#include "media/audioconverter.h"
#include "media/mediatypes.h"
#include "model/errors.h"
#include "model/jsonfields.h"
#include "model/kavelproject.h"
#include "playback/playbackclock.h"

#include <QCoroSignal>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

// Logs the conversion's progress every half second until it goes out of scope, which
// cancels the next report. The clock is the extractor owner's: once `alive` has expired,
// it may be gone too.
class ProgressReporter
{
public:
    ProgressReporter(PlaybackClock &clock, const media::AudioConversion &conversion,
                     const service::LogSink &log, AudioExtractor::ProgressListener listener,
                     std::weak_ptr<const bool> alive)
        : m_clock(clock)
        , m_conversion(&conversion)
        , m_log(log)
        , m_listener(std::move(listener))
        , m_alive(std::move(alive))
    {
        schedule();
    }
    ~ProgressReporter()
    {
        if (!m_alive.expired())
            m_clock.cancel(m_pending);
    }
    ProgressReporter(const ProgressReporter &) = delete;
    ProgressReporter &operator=(const ProgressReporter &) = delete;

private:
    void schedule()
    {
        m_pending = m_clock.callAfter(AudioExtractor::progressInterval, [this] {
            const double done = m_conversion->progress();
            const int percent = static_cast<int>(std::trunc(done * 100.0));
            m_log(u"[AudioExtract] Progress: "_s + QString::number(percent) + u'%');
            if (m_listener)
                m_listener(done);
            schedule();
        });
    }

    PlaybackClock &m_clock;
    QPointer<const media::AudioConversion> m_conversion;
    const service::LogSink &m_log;
    AudioExtractor::ProgressListener m_listener;
    std::weak_ptr<const bool> m_alive;
    PlaybackClock::CallId m_pending = 0;
};

QString describe(const std::exception_ptr &error)
{
    if (!error)
        return u"unknown"_s;
    try {
        std::rethrow_exception(error);
    } catch (const Error &e) {
        return e.description();
    } catch (const std::exception &e) {
        return QString::fromUtf8(e.what());
    } catch (...) { }
    return u"unknown"_s;
}

// A source with nothing to recognise is refused even when it is audio: uploading it as it
// is would only get the same answer later.
bool isNoSound(const std::exception_ptr &error)
{
    if (!error)
        return false;
    try {
        std::rethrow_exception(error);
    } catch (const media::NoSoundError &) {
        return true;
    } catch (const KavelProjectError &e) {
        return e.code() == KavelProjectError::Code::noAudioTrack;
    } catch (...) {
        return false;
    }
}

// Files in "media" need an id even when project.json does not list them. A copy made by
// the import is named after its source's id, so that id is used when the name is one;
// anything else gets an id derived from its name, stable from one run to the next.
QUuid idForListedFile(const QFileInfo &file)
{
    const QUuid fromName = QUuid::fromString(file.completeBaseName());
    if (!fromName.isNull())
        return fromName;
    static const QUuid space = QUuid::fromString(u"6f1c2a8e-57b4-4c1e-9d0a-2b7c4f0e9a31"_s);
    return QUuid::createUuidV5(space, file.fileName());
}

} // namespace

AudioExtractor::AudioExtractor(media::AudioConverter &converter, PlaybackClock &clock,
                               service::LogSink log)
    : m_converter(converter)
    , m_clock(clock)
    , m_log(log ? std::move(log) : [](const QString &) {})
{ }

const QSet<QString> &AudioExtractor::audioExtensions()
{
    static const QSet<QString> extensions {u"mp3"_s,  u"wav"_s,  u"m4a"_s, u"aac"_s,
                                           u"aiff"_s, u"flac"_s, u"ogg"_s, u"wma"_s};
    return extensions;
}

QCoro::Task<QUrl> AudioExtractor::convertToM4A(QUrl source, QString outputDirectory,
                                               ProgressListener onProgress)
{
    const QString sourcePath = source.toLocalFile();
    const QString extension = QFileInfo(sourcePath).suffix().toLower();
    const bool isAudio = audioExtensions().contains(extension);

    const QString output
        = QDir(outputDirectory)
              .filePath(u"audio_"_s + json::uuidString(QUuid::createUuid()) + u".m4a"_s);
    QFile::remove(output);

    // The conversion resumes this coroutine from inside its own signal, so it must not be
    // destroyed there and then.
    const auto deleteLater = [](QObject *object) { object->deleteLater(); };
    std::unique_ptr<media::AudioConversion, decltype(deleteLater)> conversion(
        m_converter.startM4AConversion(sourcePath, output).release(), deleteLater);
    if (!conversion) {
        if (isAudio) {
            m_log(u"[AudioExtract] No compatible preset for ."_s + extension
                  + u", using source directly"_s);
            co_return source;
        }
        throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
    }

    {
        const std::weak_ptr<const bool> alive = m_alive;
        const ProgressReporter reporter(m_clock, *conversion, m_log, std::move(onProgress), alive);
        m_running = conversion.get();
        if (conversion->status() == media::ConversionStatus::running)
            co_await qCoro(conversion.get(), &media::AudioConversion::finished);
        // The end of a cancelled conversion arrives with a later turn of the event loop,
        // which may come after this extractor is gone; then nothing of it is touched.
        if (alive.expired())
            throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
        m_running = nullptr;
    }

    switch (conversion->status()) {
    case media::ConversionStatus::completed:
        m_log(u"[AudioExtract] Completed: "_s + QFileInfo(output).fileName());
        co_return QUrl::fromLocalFile(output);
    case media::ConversionStatus::failed:
        QFile::remove(output);
        if (isAudio && !isNoSound(conversion->error())) {
            m_log(u"[AudioExtract] M4A conversion failed for ."_s + extension
                  + u", using source directly"_s);
            co_return source;
        }
        m_log(u"[AudioExtract] Failed: "_s + describe(conversion->error()));
        if (conversion->error())
            std::rethrow_exception(conversion->error());
        throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
    case media::ConversionStatus::running:
    case media::ConversionStatus::cancelled:
        break;
    }
    QFile::remove(output);
    throw KavelProjectError(KavelProjectError::Code::audioExtractionFailed);
}

void AudioExtractor::cancel()
{
    if (media::AudioConversion *running = m_running.data())
        running->cancel();
}

QCoro::Task<QList<ExtractedAudio>> AudioExtractor::extractAudio(const KavelProject &project,
                                                                ProgressListener onProgress)
{
    // Everything needed from the project is read before the first wait: the project may
    // change while the conversions run.
    QList<ExtractedAudio> located;
    const QDir media(project.mediaDirectory());
    for (const SourceFile &file : project.metadata().sourceFiles) {
        const QString path = media.filePath(file.filename);
        if (QFileInfo(path).isFile())
            located.append({file.id, QUrl::fromLocalFile(path), {}});
    }
    if (located.isEmpty()) {
        const QFileInfoList entries
            = media.entryInfoList(QDir::Files, QDir::Name | QDir::IgnoreCase);
        for (const QFileInfo &entry : entries) {
            if (mediaFileExtensions().contains(entry.suffix().toLower()))
                located.append({idForListedFile(entry), QUrl::fromLocalFile(entry.filePath()), {}});
        }
    }
    const QString cache = project.cacheDirectory();
    QDir().mkpath(cache);

    for (qsizetype i = 0; i < located.size(); ++i) {
        try {
            ProgressListener share;
            if (onProgress) {
                share = [onProgress, i, files = double(located.size())](double done) {
                    onProgress((double(i) + done) / files);
                };
            }
            located[i].audioURL = co_await convertToM4A(located[i].sourceURL, cache, share);
        } catch (...) {
            // What was converted so far would otherwise stay in the bundle for good.
            for (qsizetype done = 0; done < i; ++done) {
                if (located[done].isConvertedCopy())
                    QFile::remove(located[done].audioURL.toLocalFile());
            }
            throw;
        }
    }
    co_return located;
}

} // namespace kavel
