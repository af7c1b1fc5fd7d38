#include "ffmpegrenderer.h"

#include "captionburner.h"
#include "masteredaudio.h"
#include "outputfile.h"
#include "picturefeed.h"

#include <QCoreApplication>
#include <QFile>

extern "C" {
#include <libavutil/log.h>
}
#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

bool isMovie(RenderFormat format)
{
    return format == RenderFormat::mp4 || format == RenderFormat::mov;
}

// Sound is rendered in blocks of this many samples.
constexpr std::int64_t audioBlock = 4096;

struct Cancelled
{
};

class FfmpegRenderJob final : public RenderJob
{
public:
    explicit FfmpegRenderJob(RenderRequest request)
        : m_request(std::move(request))
    {
        // The encoders' statistics and the muxers' notes are not Kavel's diagnostics; MLT's
        // module also raises the level when it loads, so it is set for every job.
        av_log_set_level(AV_LOG_ERROR);
        m_thread = std::thread([this] { run(); });
    }

    ~FfmpegRenderJob() override
    {
        m_cancelled = true;
        m_thread.join();
    }

    RenderState poll() override { return m_state.load(); }
    double progress() const override { return m_progress.load(); }
    QString errorText() const override
    {
        std::lock_guard lock(m_errorMutex);
        return m_error;
    }
    void cancel() override { m_cancelled = true; }
    std::optional<LoudnessReport> loudness() const override
    {
        std::lock_guard lock(m_errorMutex);
        return m_loudness;
    }

private:
    void run()
    {
        try {
            if (isMovie(m_request.format))
                renderMovie();
            else
                renderSound();
            m_progress = 1.0;
            m_state = RenderState::completed;
        } catch (const Cancelled &) {
            QFile::remove(m_request.outputPath);
            m_state = RenderState::cancelled;
        } catch (const Error &error) {
            fail(error.description());
        } catch (const std::exception &error) {
            fail(QString::fromLocal8Bit(error.what()));
        }
    }

    void fail(const QString &why)
    {
        QFile::remove(m_request.outputPath);
        {
            std::lock_guard lock(m_errorMutex);
            m_error = why;
        }
        m_state = RenderState::failed;
    }

    void checkCancelled() const
    {
        if (m_cancelled.load())
            throw Cancelled {};
    }

    // The share of the progress bar the sound's measuring takes, when it is measured.
    static constexpr double preparingShare = 0.2;

    // Measures what the sound's finish needs before anything is written.
    double prepare(MasteredAudio &audio)
    {
        if (!audio.needsPreparing())
            return 0.0;
        audio.prepare([this](double done) {
            checkCancelled();
            m_progress = done * preparingShare;
        });
        return preparingShare;
    }

    void keepReport(const MasteredAudio &audio)
    {
        std::lock_guard lock(m_errorMutex);
        m_loudness = audio.report();
    }

    // Lossy encoders overshoot the peaks they are given by a few tenths of a decibel;
    // what they write must still stay under -1 dBTP.
    static double peakCeiling(RenderFormat format)
    {
        return format == RenderFormat::wav ? -1.0 : -1.5;
    }

    void renderSound()
    {
        MasteredAudio audio(m_request.editList, FfmpegRenderer::audioSampleRate, m_request.sound,
                            peakCeiling(m_request.format));
        const double start = prepare(audio);
        OutputFile file(m_request.outputPath, m_request.format, audio.rate());
        std::vector<float> left(audioBlock), right(audioBlock);
        const double total = std::max<double>(double(audio.totalSamples()), 1.0);
        while (audio.position() < audio.totalSamples()) {
            checkCancelled();
            const std::int64_t n = audio.render(left.data(), right.data(), audioBlock);
            file.writeAudio(left.data(), right.data(), n);
            m_progress = std::min(start + (1.0 - start) * double(audio.position()) / total, 0.99);
        }
        file.finish();
        keepReport(audio);
    }

    void renderMovie()
    {
        const EditList &edit = m_request.editList;
        const QSize size(m_request.frameSize.width() & ~1, m_request.frameSize.height() & ~1);
        PictureFeed pictures(edit, size, AV_PIX_FMT_YUV420P);
        const timing::Rate rate = pictures.rate();
        MasteredAudio audio(edit, FfmpegRenderer::movieSampleRate, m_request.sound,
                            peakCeiling(m_request.format));
        const double start = prepare(audio);
        OutputFile file(m_request.outputPath, m_request.format, audio.rate(),
                        {m_request.videoEncoding, size, rate});
        CaptionBurner captions(m_request.captions, m_request.captionHeight, size, rate);
        std::vector<float> left, right;
        const std::int64_t frames = pictures.frameCount();
        pictures.start();
        for (std::int64_t k = 0; k < frames; ++k) {
            checkCancelled();
            FramePtr picture = pictures.next();
            captions.burn(picture, file.blackFrame(), k);
            file.writeVideo(picture ? picture.get() : file.blackFrame(), k);

            // The sound that plays while this frame shows, so the two stay interleaved.
            const std::int64_t until = k + 1 == frames
                ? audio.totalSamples()
                : timing::sampleAt(rate.secondsAt(k + 1), audio.rate());
            const std::int64_t n = std::max<std::int64_t>(until - audio.position(), 0);
            left.resize(size_t(n));
            right.resize(size_t(n));
            audio.render(left.data(), right.data(), n);
            file.writeAudio(left.data(), right.data(), n);
            m_progress = std::min(start + (1.0 - start) * double(k + 1) / double(frames), 0.99);
        }
        file.finish();
        keepReport(audio);
    }

    RenderRequest m_request;
    std::atomic<RenderState> m_state {RenderState::running};
    std::atomic<double> m_progress {0.0};
    std::atomic<bool> m_cancelled {false};
    mutable std::mutex m_errorMutex;
    QString m_error;
    std::optional<LoudnessReport> m_loudness;
    // Last: it starts running once everything above exists.
    std::thread m_thread;
};

} // namespace

std::unique_ptr<RenderJob> FfmpegRenderer::start(const RenderRequest &request)
{
    if (!canEncode(request.format))
        throw MediaError(QCoreApplication::translate("kavel::media", "缺少所需的编码器"));
    if (isMovie(request.format) && !OutputFile::canEncode(request.format, request.videoEncoding))
        throw MediaError(QCoreApplication::translate("kavel::media", "缺少所需的视频编码器"));
    if (request.editList.segments.isEmpty())
        throw MediaError(QCoreApplication::translate("kavel::media", "没有可渲染的内容"));
    return std::make_unique<FfmpegRenderJob>(request);
}

bool FfmpegRenderer::canEncode(RenderFormat format) const
{
    return OutputFile::canEncode(format, VideoEncoding::h264)
        || (isMovie(format) && OutputFile::canEncode(format, VideoEncoding::hevc));
}

} // namespace kavel::media::ffmpeg
