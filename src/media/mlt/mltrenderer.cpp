#include "mltrenderer.h"

#include "compositionplaylist.h"
#include "mediaprobe.h"
#include "mltengine.h"

#include <Mlt.h>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <atomic>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// Sound-only renders step the playlist at this rate; it only sets how finely cuts land.
constexpr FrameRate audioOnlyRate {30, 1};
// A render that has not moved on for this long is stuck in the engine, not slow.
constexpr qint64 watchdogMs = 60'000;
// The consumer can give up at once, before its first frame (see poll()); it is rare enough
// that three tries in a row have never all lost.
constexpr int maxAttempts = 3;

bool hasEncoder(const char *name)
{
    return avcodec_find_encoder_by_name(name) != nullptr;
}

bool isMovie(RenderFormat format)
{
    return format == RenderFormat::mp4 || format == RenderFormat::mov;
}

FrameRate rateOfFirstVideo(const EditList &editList)
{
    for (const EditSegment &segment : editList.segments) {
        if (!segment.withVideo)
            continue;
        try {
            const ProbedMedia probed = probeMedia(segment.sourcePath);
            if (probed.info.hasVideo)
                return probed.frameRate;
        } catch (const MediaError &) {
            // Unreadable: its segments fail in the playlist; the next source may decide.
        }
    }
    return audioOnlyRate;
}

void configureConsumer(Mlt::Consumer &consumer, const RenderRequest &request)
{
    consumer.set("real_time", -1);
    consumer.set("terminate_on_pause", 1);
    switch (request.format) {
    case RenderFormat::mp4:
    case RenderFormat::mov: {
        consumer.set("f", request.format == RenderFormat::mov ? "mov" : "mp4");
        const bool hevc = request.videoEncoding == VideoEncoding::hevc;
        consumer.set("vcodec", hevc ? "libx265" : "libx264");
        // Each encoder's default quality level, at a speed preset that keeps a long edit
        // from taking longer than its running time on a laptop.
        consumer.set("preset", "veryfast");
        consumer.set("crf", hevc ? 28 : 23);
        // Players that want HEVC in MPEG-4 (QuickTime, browsers) look for this tag.
        if (hevc) {
            consumer.set("vtag", "hvc1");
            // x265 reports its settings on stderr by itself, past FFmpeg's log level.
            consumer.set("x265-params", "log-level=error");
        }
        consumer.set("pix_fmt", "yuv420p");
        consumer.set("width", request.frameSize.width());
        consumer.set("height", request.frameSize.height());
        consumer.set("movflags", "+faststart");
        consumer.set("acodec", "aac");
        consumer.set("ab", "160k");
        consumer.set("frequency", 48000);
        consumer.set("channels", 2);
        break;
    }
    case RenderFormat::wav:
    case RenderFormat::m4a:
    case RenderFormat::mp3:
        // Both are needed: without vn the consumer still renders every picture.
        consumer.set("video_off", 1);
        consumer.set("vn", 1);
        consumer.set("frequency", 44100);
        consumer.set("channels", 2);
        if (request.format == RenderFormat::wav) {
            consumer.set("f", "wav");
            consumer.set("acodec", "pcm_s16le");
        } else if (request.format == RenderFormat::m4a) {
            consumer.set("f", "ipod");
            consumer.set("acodec", "aac");
        } else {
            consumer.set("f", "mp3");
            consumer.set("acodec", "libmp3lame");
            consumer.set("ab", "128k");
        }
        break;
    }
}

class MltRenderJob final : public RenderJob
{
public:
    explicit MltRenderJob(const RenderRequest &request)
        : m_request(request)
    {
        const FrameRate rate
            = isMovie(request.format) ? rateOfFirstVideo(request.editList) : audioOnlyRate;
        const QSize size = isMovie(request.format) ? request.frameSize : QSize(640, 360);
        m_profile.set_explicit(1);
        m_profile.set_frame_rate(rate.num, rate.den);
        m_profile.set_width(size.width() & ~1);
        m_profile.set_height(size.height() & ~1);
        m_profile.set_sample_aspect(1, 1);
        m_profile.set_display_aspect(size.width(), size.height());
        m_profile.set_progressive(1);
        m_profile.set_colorspace(709);

        m_composition = std::make_unique<CompositionPlaylist>(m_profile);
        m_composition->apply(request.editList);
        m_frames = m_composition->frameCount();
        if (m_frames <= 0)
            throw MediaError(u"没有可渲染的内容"_s);
        m_composition->playlist().set("eof", "pause");
        launch();
    }

    ~MltRenderJob() override
    {
        m_stopped.reset();
        if (m_consumer)
            m_consumer->stop();
    }

    RenderState poll() override
    {
        if (m_state != RenderState::running)
            return m_state;
        const int position = m_composition->playlist().position();
        if (position != m_lastPosition) {
            m_lastPosition = position;
            m_sinceMove.restart();
        }
        if (!m_threadEnded.load()) {
            if (m_sinceMove.elapsed() > watchdogMs) {
                m_consumer->stop();
                fail(u"媒体引擎没有响应"_s);
            }
            return m_state;
        }
        // The consumer's thread has written and closed the file; joining it is immediate.
        m_consumer->stop();
        // It ends on its own at the end of the playlist. Before the end, it gave up: MLT
        // starts the thread before marking the consumer running, and a thread that looks
        // first sees a stopped consumer and leaves at once.
        const bool reachedEnd = position >= m_frames - 1;
        if (reachedEnd && QFileInfo(m_request.outputPath).size() > 0) {
            m_progress = 1.0;
            m_state = RenderState::completed;
        } else if (m_attempt < maxAttempts) {
            try {
                launch();
            } catch (const MediaError &error) {
                fail(error.description());
            }
        } else {
            fail(u"媒体引擎提前结束了导出"_s);
        }
        return m_state;
    }

    double progress() const override
    {
        if (m_state == RenderState::running)
            return std::clamp(double(m_composition->playlist().position()) / m_frames, 0.0, 0.99);
        return m_progress;
    }

    QString errorText() const override { return m_error; }

    void cancel() override
    {
        if (m_state != RenderState::running)
            return;
        m_consumer->stop();
        QFile::remove(m_request.outputPath);
        m_state = RenderState::cancelled;
    }

private:
    void launch()
    {
        ++m_attempt;
        m_stopped.reset();
        if (m_consumer) {
            m_consumer->stop();
            m_consumer.reset();
        }
        m_threadEnded = false;
        QFile::remove(m_request.outputPath);
        m_composition->playlist().seek(0);
        m_consumer = std::make_unique<Mlt::Consumer>(
            m_profile, "avformat", QFile::encodeName(m_request.outputPath).constData());
        if (!m_consumer->is_valid())
            throw MediaError(u"无法创建导出会话"_s);
        configureConsumer(*m_consumer, m_request);
        m_stopped.reset(m_consumer->listen("consumer-stopped", this, onThreadEnded));
        // MLT's avformat module turns FFmpeg's log back up when it loads; the muxers'
        // complaints about timestamps MLT leaves unset are not Kavel's diagnostics.
        av_log_set_level(AV_LOG_FATAL);
        m_consumer->connect(m_composition->playlist());
        m_lastPosition = -1;
        m_sinceMove.start();
        if (m_consumer->start() != 0)
            throw MediaError(u"无法开始导出"_s);
    }

    // Fired by the consumer's thread as its very last act, after the file is closed.
    static void onThreadEnded(mlt_properties, void *job, mlt_event_data)
    {
        static_cast<MltRenderJob *>(job)->m_threadEnded = true;
    }

    void fail(const QString &why)
    {
        QFile::remove(m_request.outputPath);
        m_error = why;
        m_state = RenderState::failed;
    }

    RenderRequest m_request;
    Mlt::Profile m_profile;
    std::unique_ptr<CompositionPlaylist> m_composition;
    // Before the consumer: its thread may still report its end while it is torn down.
    std::atomic<bool> m_threadEnded {false};
    std::unique_ptr<Mlt::Consumer> m_consumer;
    std::unique_ptr<Mlt::Event> m_stopped;
    int m_frames = 0;
    int m_attempt = 0;
    int m_lastPosition = -1;
    QElapsedTimer m_sinceMove;
    RenderState m_state = RenderState::running;
    double m_progress = 0.0;
    QString m_error;
};

} // namespace

MltRenderer::MltRenderer(MltMediaEngine &) { }

std::unique_ptr<RenderJob> MltRenderer::start(const RenderRequest &request)
{
    if (!canEncode(request.format))
        throw MediaError(u"缺少所需的编码器"_s);
    if (isMovie(request.format)
        && !hasEncoder(request.videoEncoding == VideoEncoding::hevc ? "libx265" : "libx264"))
        throw MediaError(u"缺少所需的视频编码器"_s);
    if (request.editList.segments.isEmpty())
        throw MediaError(u"没有可渲染的内容"_s);
    return std::make_unique<MltRenderJob>(request);
}

bool MltRenderer::canEncode(RenderFormat format) const
{
    switch (format) {
    case RenderFormat::mp4:
    case RenderFormat::mov:
        return hasEncoder("aac") && (hasEncoder("libx264") || hasEncoder("libx265"));
    case RenderFormat::wav:
        return hasEncoder("pcm_s16le");
    case RenderFormat::m4a:
        return hasEncoder("aac");
    case RenderFormat::mp3:
        return hasEncoder("libmp3lame");
    }
    return false;
}

} // namespace kavel::media::mlt
