#pragma once

#include "service/servicelog.h"

#include <QCoroTask>
#include <QList>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <functional>
#include <memory>

namespace kavel {

class KavelProject;
class PlaybackClock;
namespace media {
class AudioConversion;
class AudioConverter;
} // namespace media

// The sound of one source file, ready for upload.
struct ExtractedAudio
{
    QUuid sourceFileId;
    QUrl sourceURL;
    // The converted ".m4a", or the source itself when it is audio that could not be
    // converted.
    QUrl audioURL;

    // True when audioURL is a file made for the upload, which the caller removes.
    bool isConvertedCopy() const { return audioURL != sourceURL; }
};

// Turns a project's media into AAC ".m4a" files for recognition. Audio sources that
// cannot be converted are handed on as they are; a video that cannot be converted is an
// error.
class AudioExtractor
{
public:
    static constexpr double progressInterval = 0.5;
    // Told how much is done, 0 to 1, at every report of the log.
    using ProgressListener = std::function<void(double)>;

    AudioExtractor(media::AudioConverter &converter, PlaybackClock &clock,
                   service::LogSink log = service::standardOutputSink());

    // Extensions whose files may be uploaded unconverted, in lower case.
    static const QSet<QString> &audioExtensions();

    // Converts one file into `outputDirectory` as "audio_<UPPER-UUID>.m4a" and returns the
    // URL to upload: that file, or `source` itself for audio the engine cannot convert.
    // Throws the engine's error (or KavelProjectError::audioExtractionFailed) for other
    // sources, and audioExtractionFailed when the conversion was cancelled.
    QCoro::Task<QUrl> convertToM4A(QUrl source, QString outputDirectory,
                                   ProgressListener onProgress = {});

    // The project's media, one entry per file in source-file order: the recorded sources
    // whose copies are in "media", or, when none are, the media files found there (keyed
    // by the id their name carries, else by an id derived from the name). Converted files
    // go to the bundle's "cache" folder; the caller removes them once uploaded. The
    // progress told covers all the files.
    QCoro::Task<QList<ExtractedAudio>> extractAudio(const KavelProject &project,
                                                    ProgressListener onProgress = {});

    // Stops the conversion under way, if any, and waits for the engine to let go of its
    // files; the extraction waiting on it fails once the event loop turns again. Nothing
    // the engine uses may be torn down while it still runs.
    void cancel();

private:
    media::AudioConverter &m_converter;
    PlaybackClock &m_clock;
    service::LogSink m_log;
    QPointer<media::AudioConversion> m_running;
    // Expires with the extractor: a conversion that ends later must not reach into it.
    std::shared_ptr<const bool> m_alive = std::make_shared<const bool>(true);
};

} // namespace kavel
