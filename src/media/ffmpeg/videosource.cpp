#include "videosource.h"

extern "C" {
#include <QCoreApplication>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

// A seek costs about as much as decoding this many pictures: the demuxer jumps through its
// index, and the decoder's threads drain and fill again. Decoding on to a keyframe further
// ahead than that costs more than seeking to it.
constexpr int worthSeeking = 3;
// Without an index, the distance past which a seek is still the better bet.
constexpr double blindSeek = 10.0;
constexpr int maxFailures = 64;

// The matrix a frame's colours are in. Files that do not say are taken the way players
// take them: high definition in BT.709, smaller pictures in BT.601 (left to the scaler,
// whose default it is).
AVColorSpace matrixOf(const AVFrame *frame)
{
    if (frame->colorspace != AVCOL_SPC_UNSPECIFIED)
        return frame->colorspace;
    return frame->width >= 1280 || frame->height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_UNSPECIFIED;
}

} // namespace

struct VideoSource::Decoded
{
    FramePtr frame = makeFrame();
    double t = 0.0;
};

VideoSource::VideoSource(const QString &path, QSize outputSize, AVPixelFormat format)
    : m_path(path)
    , m_outputSize(outputSize)
    , m_format(format)
    , m_input(openInput(path))
    , m_packet(makePacket())
    , m_converted(makeFrame())
{
    for (unsigned i = 0; i < m_input->nb_streams; ++i) {
        const AVStream *stream = m_input->streams[i];
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO
            && !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC)) {
            m_stream = int(i);
            break;
        }
    }
    if (m_stream < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "视频中没有可用的轨道"));
    for (unsigned i = 0; i < m_input->nb_streams; ++i)
        m_input->streams[i]->discard = int(i) == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    const AVStream *stream = m_input->streams[m_stream];
    m_decoder = openDecoder(stream, path, 0);
    m_origin = originSeconds(m_input.get());
    m_rotation = clockwiseRotation(stream);
    const AVRational rate
        = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
    m_rateKnown = rate.num > 0 && rate.den > 0;
    if (m_rateKnown)
        m_rate = {rate.num, rate.den};
    // An index holds decoding times, which run ahead of showing times by the pictures held
    // back for reordering; seeking that much earlier lands on a keyframe shown before the
    // time sought instead of just after it (which would cost a second seek, further back).
    if (m_rateKnown)
        m_reorder = stream->codecpar->video_delay * m_rate.secondsAt(1);
}

VideoSource::~VideoSource()
{
    avfilter_graph_free(&m_graph);
}

void VideoSource::want(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    m_wanted = std::move(times);
    // The nearest picture lies within one frame of the time asked for, and so do the two
    // that decide which is nearest; the half frame more allows for timestamps that wobble.
    // Without a known rate every picture is decoded.
    m_reach = 1.5 * m_rate.secondsAt(1);
    if (!m_rateKnown)
        m_wanted.clear();
}

bool VideoSource::wanted(double seconds) const
{
    if (m_wanted.empty() || !std::isfinite(seconds))
        return true;
    const auto it = std::lower_bound(m_wanted.cbegin(), m_wanted.cend(), seconds - m_reach);
    return it != m_wanted.cend() && *it <= seconds + m_reach;
}

const AVFrame *VideoSource::frameAt(double seconds)
{
    if (!wanted(seconds)) {
        // Pictures around a time it was not told of may have been left out: from here on
        // every picture is decoded, starting again from the keyframe before.
        m_wanted.clear();
        seekBefore(seconds);
    }
    const double latest = m_next ? m_next->t : m_previous ? m_previous->t : -1.0;
    const bool started = m_previous || m_next;
    if (!started && !m_eof) {
        seekBefore(seconds);
    } else if (m_previous && seconds < m_previous->t) {
        seekBefore(seconds);
    } else if (!(m_next && seconds <= m_next->t) && !m_eof
               && keyframeBetween(latest + m_rate.secondsAt(worthSeeking), seconds)) {
        seekBefore(seconds);
    }
    while (!m_eof && !(m_next && m_next->t >= seconds))
        decodeNext();
    // A seek that landed after the wanted time (an index that is off) goes further back.
    for (double back = 1.0; m_previous == nullptr && m_next && m_next->t > seconds + 1e-3
         && back <= 8.0 && seconds > 0;
         back *= 2) {
        seekBefore(seconds - back);
        while (!m_eof && !(m_next && m_next->t >= seconds))
            decodeNext();
    }

    Decoded *pick = m_previous.get();
    if (m_next && (!pick || m_next->t - seconds < seconds - pick->t))
        pick = m_next.get();
    if (!pick)
        throw MediaError(QCoreApplication::translate("kavel::media", "视频中没有可用的轨道"));
    return convert(*pick);
}

bool VideoSource::keyframeBetween(double after, double upTo) const
{
    AVStream *stream = m_input->streams[m_stream];
    if (upTo <= after)
        return false;
    const double base = av_q2d(stream->time_base);
    const auto ts = static_cast<int64_t>((upTo - m_reorder + m_origin) / base);
    const int index = av_index_search_timestamp(stream, ts, AVSEEK_FLAG_BACKWARD);
    const AVIndexEntry *entry = index >= 0 ? avformat_index_get_entry(stream, index) : nullptr;
    if (!entry)
        return upTo - after > blindSeek;
    return double(entry->timestamp) * base - m_origin > after;
}

void VideoSource::seekBefore(double seconds)
{
    AVStream *stream = m_input->streams[m_stream];
    const auto ts = static_cast<int64_t>(
        std::floor((std::max(seconds - m_reorder, 0.0) + m_origin) / av_q2d(stream->time_base)));
    if (av_seek_frame(m_input.get(), m_stream, ts, AVSEEK_FLAG_BACKWARD) < 0)
        av_seek_frame(m_input.get(), -1, 0, AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_BYTE);
    avcodec_flush_buffers(m_decoder.get());
    m_previous.reset();
    m_next.reset();
    m_eof = false;
    m_draining = false;
}

bool VideoSource::decodeNext()
{
    auto decoded = std::make_unique<Decoded>();
    for (;;) {
        const int error = avcodec_receive_frame(m_decoder.get(), decoded->frame.get());
        if (error == 0) {
            m_failures = 0;
            const double t
                = frameSeconds(decoded->frame.get(), m_input->streams[m_stream], m_origin);
            // A frame without a time follows the one before it.
            decoded->t = std::isfinite(t) ? t : m_next ? m_next->t + m_rate.secondsAt(1) : 0.0;
            if (m_next)
                m_previous = std::move(m_next);
            m_next = std::move(decoded);
            return true;
        }
        if (error == AVERROR_EOF) {
            m_eof = true;
            if (m_next)
                m_previous = std::move(m_next);
            return false;
        }
        if (error != AVERROR(EAGAIN) && ++m_failures > maxFailures)
            throw MediaError(QCoreApplication::translate("kavel::media", "视频无法解码 ") + m_path);
        if (m_draining)
            continue;
        const int readError = av_read_frame(m_input.get(), m_packet.get());
        if (readError < 0) {
            m_draining = true;
            avcodec_send_packet(m_decoder.get(), nullptr);
            continue;
        }
        if (m_packet->stream_index == m_stream && !m_wanted.empty()) {
            // A picture nothing shows is still decoded when later ones are predicted from
            // it; only the ones no other refers to are left out.
            const double at = m_packet->pts == AV_NOPTS_VALUE
                ? std::nan("")
                : double(m_packet->pts) * av_q2d(m_input->streams[m_stream]->time_base) - m_origin;
            m_decoder->skip_frame = wanted(at) ? AVDISCARD_DEFAULT : AVDISCARD_NONREF;
        }
        if (m_packet->stream_index == m_stream
            && avcodec_send_packet(m_decoder.get(), m_packet.get()) < 0
            && ++m_failures > maxFailures) {
            av_packet_unref(m_packet.get());
            throw MediaError(QCoreApplication::translate("kavel::media", "视频无法解码 ") + m_path);
        }
        av_packet_unref(m_packet.get());
    }
}

void VideoSource::buildFilter(const AVFrame *frame)
{
    avfilter_graph_free(&m_graph);
    m_graph = avfilter_graph_alloc();
    if (!m_graph)
        throw std::bad_alloc();
    const AVStream *stream = m_input->streams[m_stream];
    const AVRational sar
        = frame->sample_aspect_ratio.num > 0 ? frame->sample_aspect_ratio : AVRational {1, 1};
    const QByteArray source = QStringLiteral("video_size=%1x%2:pix_fmt=%3:time_base=%4/%5:"
                                             "pixel_aspect=%6/%7")
                                  .arg(frame->width)
                                  .arg(frame->height)
                                  .arg(frame->format)
                                  .arg(stream->time_base.num)
                                  .arg(stream->time_base.den)
                                  .arg(sar.num)
                                  .arg(sar.den)
                                  .toLatin1();
    QString chain;
    if (m_rotation == 90)
        chain = u"transpose=clock,"_s;
    else if (m_rotation == 270)
        chain = u"transpose=cclock,"_s;
    else if (m_rotation == 180)
        chain = u"hflip,vflip,"_s;
    const int w = m_outputSize.width();
    const int h = m_outputSize.height();
    const bool guessed
        = frame->colorspace == AVCOL_SPC_UNSPECIFIED && matrixOf(frame) == AVCOL_SPC_BT709;
    chain += QStringLiteral("scale=%1:%2:force_original_aspect_ratio=decrease:force_divisible_by=2"
                            ":out_color_matrix=bt709:out_range=tv%4,"
                            "pad=%1:%2:(ow-iw)/2:(oh-ih)/2:black,setsar=1,format=%3")
                 .arg(w)
                 .arg(h)
                 .arg(QString::fromLatin1(av_get_pix_fmt_name(m_format)),
                      guessed ? u":in_color_matrix=bt709"_s : QString());

    const auto fail = [this] {
        throw MediaError(QCoreApplication::translate("kavel::media", "无法转换视频画面 ") + m_path);
    };
    if (avfilter_graph_create_filter(&m_filterIn, avfilter_get_by_name("buffer"), "in",
                                     source.constData(), nullptr, m_graph)
            < 0
        || avfilter_graph_create_filter(&m_filterOut, avfilter_get_by_name("buffersink"), "out",
                                        nullptr, nullptr, m_graph)
            < 0)
        fail();
    AVFilterInOut *outputs = avfilter_inout_alloc();
    AVFilterInOut *inputs = avfilter_inout_alloc();
    outputs->name = av_strdup("in");
    outputs->filter_ctx = m_filterIn;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = m_filterOut;
    const QByteArray description = chain.toLatin1();
    const int parsed
        = avfilter_graph_parse_ptr(m_graph, description.constData(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (parsed < 0 || avfilter_graph_config(m_graph, nullptr) < 0)
        fail();
    m_filterWidth = frame->width;
    m_filterHeight = frame->height;
    m_filterFormat = frame->format;
}

bool VideoSource::fitsAsIs(const AVFrame *frame) const
{
    const AVRational sar = frame->sample_aspect_ratio;
    return m_rotation == 0 && frame->width == m_outputSize.width()
        && frame->height == m_outputSize.height() && frame->format == m_format
        && frame->color_range != AVCOL_RANGE_JPEG && matrixOf(frame) == AVCOL_SPC_BT709
        && (sar.num == 0 || sar.num == sar.den);
}

const AVFrame *VideoSource::convert(Decoded &decoded)
{
    if (m_convertedAt == decoded.t && m_converted->data[0])
        return m_converted.get();
    const AVFrame *frame = decoded.frame.get();
    if (fitsAsIs(frame)) {
        // Already what the filter would make: the decoder's picture is used as it is, which
        // saves a pass over every pixel.
        av_frame_unref(m_converted.get());
        if (av_frame_ref(m_converted.get(), frame) < 0)
            throw std::bad_alloc();
        while (m_converted->nb_side_data > 0)
            av_frame_remove_side_data(m_converted.get(), m_converted->side_data[0]->type);
        m_converted->sample_aspect_ratio = {1, 1};
        m_converted->colorspace = AVCOL_SPC_BT709;
        m_converted->color_range = AVCOL_RANGE_MPEG;
        m_convertedAt = decoded.t;
        return m_converted.get();
    }
    if (!m_graph || frame->width != m_filterWidth || frame->height != m_filterHeight
        || frame->format != m_filterFormat)
        buildFilter(frame);
    av_frame_unref(m_converted.get());
    if (av_buffersrc_add_frame_flags(m_filterIn, decoded.frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF)
            < 0
        || av_buffersink_get_frame(m_filterOut, m_converted.get()) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法转换视频画面 ") + m_path);
    m_convertedAt = decoded.t;
    return m_converted.get();
}

} // namespace kavel::media::ffmpeg
