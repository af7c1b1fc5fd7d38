#include "mltaudioconverter.h"

#include "mediaprobe.h"
#include "mltengine.h"

#include <Mlt.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// Audio frames are cut at the profile's rate; any rate works for sound alone.
constexpr int audioFrameRate = 25;
constexpr int pollIntervalMs = 40;
constexpr int recognitionSampleRate = 16000;
// A render that stopped early or stalled is tried once more before it counts as failed:
// now and then the consumer ends with a truncated file, or never gets going, for no
// reason it reports.
constexpr int attempts = 2;

class MltAudioConversion final : public AudioConversion
{
public:
    MltAudioConversion(QString source, QString output, double expectedSeconds)
        : m_source(std::move(source))
        , m_output(std::move(output))
        , m_expectedSeconds(expectedSeconds)
    {
        m_profile.set_explicit(1);
        m_profile.set_frame_rate(audioFrameRate, 1);
        m_profile.set_width(16);
        m_profile.set_height(16);
        m_profile.set_sample_aspect(1, 1);
        m_profile.set_display_aspect(1, 1);
        m_profile.set_progressive(1);

        m_poll.setInterval(pollIntervalMs);
        connect(&m_poll, &QTimer::timeout, this, &MltAudioConversion::check);
    }

    ~MltAudioConversion() override { stopRender(); }

    // False when MLT cannot open the source.
    bool begin()
    {
        m_producer = std::make_unique<Mlt::Producer>(m_profile, m_source.toUtf8().constData());
        if (!m_producer->is_valid())
            return false;
        m_length = std::max(m_producer->get_length(), 1);
        startRender();
        return true;
    }

    ConversionStatus status() const override { return m_status; }
    double progress() const override { return m_progress; }
    std::exception_ptr error() const override { return m_error; }

    void cancel() override
    {
        if (m_status != ConversionStatus::running)
            return;
        stopRender();
        QFile::remove(m_output);
        end(ConversionStatus::cancelled);
    }

private:
    void startRender()
    {
        QFile::remove(m_output);
        m_consumer
            = std::make_unique<Mlt::Consumer>(m_profile, "avformat", m_output.toUtf8().constData());
        m_consumer->set("f", "ipod");
        m_consumer->set("acodec", "aac");
        // The sound goes only to recognition, which hears 16 kHz mono: anything more is
        // upload time for nothing.
        m_consumer->set("frequency", recognitionSampleRate);
        m_consumer->set("channels", 1);
        m_consumer->set("ab", "32k");
        m_consumer->set("vn", 1);
        m_consumer->set("video_off", 1);
        m_consumer->set("real_time", -1);
        m_consumer->set("terminate_on_pause", 1);
        m_producer->seek(0);
        m_consumer->connect(*m_producer);
        m_lastPosition = -1;
        m_sinceMove.start();
        if (m_consumer->start() != 0) {
            m_consumer.reset();
            // Reported from the event loop, as every other outcome is.
            QTimer::singleShot(0, this, [this] {
                fail(std::make_exception_ptr(MediaError(
                    QCoreApplication::translate("kavel::media", "媒体引擎无法开始转换音频：")
                    + m_source)));
            });
            return;
        }
        m_poll.start();
    }

    void stopRender()
    {
        m_poll.stop();
        if (m_consumer) {
            if (!m_consumer->is_stopped())
                m_consumer->stop();
            m_consumer.reset();
        }
    }

    void check()
    {
        if (!m_consumer->is_stopped()) {
            const int position = m_consumer->position();
            if (position != m_lastPosition) {
                m_lastPosition = position;
                m_sinceMove.restart();
                m_progress = std::clamp(double(position) / m_length, 0.0, 0.99);
            } else if (m_sinceMove.elapsed() > MltAudioConverter::stallTimeoutMs) {
                stopRender();
                if (++m_attempt < attempts) {
                    startRender();
                    return;
                }
                QFile::remove(m_output);
                fail(std::make_exception_ptr(MediaError(
                    QCoreApplication::translate("kavel::media", "音频转换没有进展，已停止：")
                    + m_source)));
            }
            return;
        }
        stopRender();
        if (outputIsComplete()) {
            m_progress = 1.0;
            end(ConversionStatus::completed);
            return;
        }
        if (++m_attempt < attempts) {
            startRender();
            return;
        }
        QFile::remove(m_output);
        fail(std::make_exception_ptr(MediaError(
            QCoreApplication::translate("kavel::media", "音频转换没有完成：") + m_source)));
    }

    // The consumer says nothing about how it ended, so the file is the judge: it must
    // hold sound about as long as the source's.
    bool outputIsComplete() const
    {
        if (QFileInfo(m_output).size() <= 0)
            return false;
        try {
            const MediaInfo written = probeMedia(m_output).info;
            return written.hasAudio && written.audioDuration >= m_expectedSeconds * 0.95 - 0.1;
        } catch (const MediaError &) {
            return false;
        }
    }

    void fail(std::exception_ptr error)
    {
        m_error = std::move(error);
        end(ConversionStatus::failed);
    }

    void end(ConversionStatus status)
    {
        m_status = status;
        Q_EMIT finished();
    }

    const QString m_source;
    const QString m_output;
    const double m_expectedSeconds;
    Mlt::Profile m_profile;
    std::unique_ptr<Mlt::Producer> m_producer;
    std::unique_ptr<Mlt::Consumer> m_consumer;
    QTimer m_poll;
    QElapsedTimer m_sinceMove;
    int m_length = 1;
    int m_lastPosition = -1;
    int m_attempt = 0;
    ConversionStatus m_status = ConversionStatus::running;
    double m_progress = 0.0;
    std::exception_ptr m_error;
};

// A conversion that has failed before any work began, reported like any other ending.
class FailedConversion final : public AudioConversion
{
public:
    explicit FailedConversion(std::exception_ptr error)
        : m_error(std::move(error))
    {
        QTimer::singleShot(0, this, [this] { Q_EMIT finished(); });
    }

    ConversionStatus status() const override { return ConversionStatus::failed; }
    double progress() const override { return 0.0; }
    std::exception_ptr error() const override { return m_error; }
    void cancel() override { }

private:
    std::exception_ptr m_error;
};

} // namespace

MltAudioConverter::MltAudioConverter(MltMediaEngine &) { }

std::unique_ptr<AudioConversion> MltAudioConverter::startM4AConversion(const QString &sourcePath,
                                                                       const QString &outputPath)
{
    MediaInfo info;
    try {
        info = probeMedia(sourcePath).info;
    } catch (const MediaError &) {
        return nullptr;
    }
    // MLT would happily render silence for a picture without sound, and never finishes a
    // sound without length; recognising either is a waste of the user's time, so say
    // what is wrong instead.
    if (!info.hasAudio && info.hasVideo)
        return std::make_unique<FailedConversion>(
            std::make_exception_ptr(KavelProjectError(KavelProjectError::Code::noAudioTrack)));
    try {
        requireSound(info);
    } catch (const NoSoundError &) {
        return std::make_unique<FailedConversion>(std::current_exception());
    }

    const double seconds = info.audioDuration > 0
        ? info.audioDuration
        : (std::isfinite(info.duration) ? info.duration : 0.0);
    auto conversion = std::make_unique<MltAudioConversion>(sourcePath, outputPath, seconds);
    if (!conversion->begin())
        return nullptr;
    return conversion;
}

} // namespace kavel::media::mlt
