#include "audiosource.h"

extern "C" {
#include <QCoreApplication>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

// Decoding sound costs far less than seeking and settling the decoder again; a gap this
// long is still read through rather than jumped.
constexpr double forwardReadSeconds = 8.0;
// A seek lands this far before the wanted sound, so that the decoder's and resampler's
// start-up transients are over before the first sample used.
constexpr double seekPreroll = 0.3;
// Corrupt packets are skipped; this many in a row means the file cannot be read.
constexpr int maxFailures = 64;

} // namespace

AudioSource::AudioSource(const QString &path, int rate)
    : m_path(path)
    , m_rate(rate)
    , m_input(openInput(path))
    , m_packet(makePacket())
    , m_frame(makeFrame())
{
    m_stream = av_find_best_stream(m_input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (m_stream < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "媒体文件中没有声音 ") + path);
    m_decoder = openDecoder(m_input->streams[m_stream], path, 1);
    m_origin = originSeconds(m_input.get());
    for (unsigned i = 0; i < m_input->nb_streams; ++i)
        m_input->streams[i]->discard = int(i) == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    resetResampler();
}

AudioSource::~AudioSource()
{
    swr_free(&m_resampler);
}

void AudioSource::resetResampler()
{
    swr_free(&m_resampler);
    AVChannelLayout in = {};
    if (m_decoder->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC
        || av_channel_layout_check(&m_decoder->ch_layout) == 0)
        av_channel_layout_default(&in, std::max(m_decoder->ch_layout.nb_channels, 1));
    else
        av_channel_layout_copy(&in, &m_decoder->ch_layout);
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    const int error
        = swr_alloc_set_opts2(&m_resampler, &stereo, AV_SAMPLE_FMT_FLTP, m_rate, &in,
                              m_decoder->sample_fmt, m_decoder->sample_rate, 0, nullptr);
    if (error >= 0 && in.nb_channels == 1) {
        // The default upmix spreads mono power over two channels (-3 dB each); a mono
        // recording should sound as loud from both speakers as it was recorded.
        const double matrix[2] = {1.0, 1.0};
        swr_set_matrix(m_resampler, matrix, 1);
    }
    av_channel_layout_uninit(&in);
    if (error < 0 || swr_init(m_resampler) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法转换媒体文件的声音 ")
                         + m_path);
}

void AudioSource::read(std::int64_t first, std::int64_t count, float *left, float *right)
{
    if (count <= 0)
        return;
    const auto bufferEnd = [this] { return m_bufferStart + std::int64_t(m_left.size()); };
    const bool behind = first < m_bufferStart && !(m_fromStart && m_synced);
    const bool farAhead = first > bufferEnd() + std::int64_t(forwardReadSeconds * m_rate);
    if (!m_synced || behind || farAhead || (first < m_bufferStart && m_eof))
        seekTo(first);
    while (!m_eof && (!m_synced || bufferEnd() < first + count)) {
        decodeMore();
        // A gap read through is not kept.
        if (m_synced && m_bufferStart < first)
            dropBefore(first);
    }

    for (std::int64_t i = 0; i < count; ++i) {
        const std::int64_t at = first + i - m_bufferStart;
        const bool inside = m_synced && at >= 0 && at < std::int64_t(m_left.size());
        left[i] = inside ? m_left[size_t(at)] : 0.0f;
        right[i] = inside ? m_right[size_t(at)] : 0.0f;
    }
    dropBefore(first + count);
}

void AudioSource::dropBefore(std::int64_t index)
{
    const std::int64_t n
        = std::clamp<std::int64_t>(index - m_bufferStart, 0, std::int64_t(m_left.size()));
    if (n == 0)
        return;
    m_left.erase(m_left.begin(), m_left.begin() + n);
    m_right.erase(m_right.begin(), m_right.begin() + n);
    m_bufferStart += n;
    m_fromStart = false;
}

void AudioSource::seekTo(std::int64_t index)
{
    const AVStream *stream = m_input->streams[m_stream];
    const double wanted = double(index) / m_rate - seekPreroll;
    m_left.clear();
    m_right.clear();
    m_synced = false;
    m_eof = false;
    avcodec_flush_buffers(m_decoder.get());
    resetResampler();
    if (wanted <= 0) {
        // From the very start: also the only way to read what precedes the first packet.
        m_fromStart = true;
        av_seek_frame(m_input.get(), -1,
                      m_input->start_time == AV_NOPTS_VALUE ? 0 : m_input->start_time,
                      AVSEEK_FLAG_BACKWARD);
        return;
    }
    m_fromStart = false;
    const auto target
        = static_cast<int64_t>(std::floor((wanted + m_origin) / av_q2d(stream->time_base)));
    if (av_seek_frame(m_input.get(), m_stream, target, AVSEEK_FLAG_BACKWARD) < 0) {
        // Not seekable: read from the start instead.
        m_fromStart = true;
        av_seek_frame(m_input.get(), -1, 0, AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_BYTE);
    }
}

bool AudioSource::decodeMore()
{
    if (m_eof)
        return false;
    const int readError = av_read_frame(m_input.get(), m_packet.get());
    if (readError < 0) {
        avcodec_send_packet(m_decoder.get(), nullptr);
    } else {
        if (m_packet->stream_index != m_stream) {
            av_packet_unref(m_packet.get());
            return true;
        }
        const int sendError = avcodec_send_packet(m_decoder.get(), m_packet.get());
        av_packet_unref(m_packet.get());
        if (sendError < 0 && sendError != AVERROR(EAGAIN)) {
            if (++m_failures > maxFailures)
                throw MediaError(
                    QCoreApplication::translate("kavel::media", "媒体文件的声音无法解码 ")
                    + m_path);
            return true;
        }
    }
    for (;;) {
        const int error = avcodec_receive_frame(m_decoder.get(), m_frame.get());
        if (error == AVERROR(EAGAIN))
            break;
        if (error == AVERROR_EOF) {
            // Whatever the resampler still holds belongs at the end.
            if (m_synced)
                appendConverted(nullptr, 0);
            m_eof = true;
            if (!m_synced && m_fromStart)
                throw MediaError(
                    QCoreApplication::translate("kavel::media", "媒体文件的声音无法解码 ")
                    + m_path);
            return false;
        }
        if (error < 0) {
            if (++m_failures > maxFailures)
                throw MediaError(
                    QCoreApplication::translate("kavel::media", "媒体文件的声音无法解码 ")
                    + m_path);
            break;
        }
        m_failures = 0;
        append(m_frame.get());
        av_frame_unref(m_frame.get());
    }
    if (readError < 0 && !m_eof) {
        // The decoder was drained above and said nothing more: the stream is over.
        return decodeMore();
    }
    return true;
}

void AudioSource::append(const AVFrame *frame)
{
    if (!m_synced) {
        // The first sound after opening or seeking says where the buffer starts; from
        // then on samples follow one another.
        const double t = frameSeconds(frame, m_input->streams[m_stream], m_origin);
        m_bufferStart = std::isfinite(t) ? std::llround(t * m_rate) : 0;
        m_synced = true;
    }
    appendConverted(const_cast<const uint8_t **>(frame->extended_data), frame->nb_samples);
}

void AudioSource::appendConverted(const uint8_t **input, int inputSamples)
{
    const int capacity = swr_get_out_samples(m_resampler, inputSamples);
    if (capacity <= 0)
        return;
    const size_t at = m_left.size();
    m_left.resize(at + size_t(capacity));
    m_right.resize(at + size_t(capacity));
    uint8_t *out[2] = {reinterpret_cast<uint8_t *>(m_left.data() + at),
                       reinterpret_cast<uint8_t *>(m_right.data() + at)};
    const int produced = swr_convert(m_resampler, out, capacity, input, inputSamples);
    if (produced < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法转换媒体文件的声音 ")
                         + m_path);
    m_left.resize(at + size_t(produced));
    m_right.resize(at + size_t(produced));
}

} // namespace kavel::media::ffmpeg
