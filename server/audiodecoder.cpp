#include "audiodecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <mutex>

namespace kavel::server {

namespace {

std::string ffmpegError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

void check(int code, const char *what)
{
    if (code < 0)
        throw AudioDecodeError(std::string(what) + ": " + ffmpegError(code));
}

struct FormatCloser
{
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
struct CodecFreer
{
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
};
struct ResamplerFreer
{
    void operator()(SwrContext *context) const { swr_free(&context); }
};
struct FrameFreer
{
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
struct PacketFreer
{
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

class Decoder
{
public:
    explicit Decoder(const std::string &path)
    {
        AVFormatContext *format = nullptr;
        check(avformat_open_input(&format, path.c_str(), nullptr, nullptr), "cannot open audio");
        m_format.reset(format);
        check(avformat_find_stream_info(format, nullptr), "cannot read stream info");

        const AVCodec *codec = nullptr;
        m_stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
        check(m_stream, "no audio stream");
        m_codec.reset(avcodec_alloc_context3(codec));
        if (!m_codec)
            throw AudioDecodeError("out of memory");
        check(avcodec_parameters_to_context(m_codec.get(), format->streams[m_stream]->codecpar),
              "bad codec parameters");
        check(avcodec_open2(m_codec.get(), codec, nullptr), "cannot open decoder");

        // Some containers (raw WAV among them) leave the layout unspecified; assume the
        // usual one for the channel count so that the down-mix is defined.
        // Zeroed: copying into a layout first releases what it held, and stack garbage
        // taken for a custom channel map would be freed.
        AVChannelLayout inputLayout {};
        if (m_codec->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&inputLayout, m_codec->ch_layout.nb_channels);
        else
            check(av_channel_layout_copy(&inputLayout, &m_codec->ch_layout), "bad layout");
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext *resampler = nullptr;
        const int result = swr_alloc_set_opts2(
            &resampler, &mono, AV_SAMPLE_FMT_S16, recognitionSampleRate, &inputLayout,
            m_codec->sample_fmt, m_codec->sample_rate, 0, nullptr);
        av_channel_layout_uninit(&inputLayout);
        check(result, "cannot set up resampling");
        m_resampler.reset(resampler);
        check(swr_init(resampler), "cannot start resampling");
    }

    std::vector<std::int16_t> run()
    {
        std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
        std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
        if (!packet || !frame)
            throw AudioDecodeError("out of memory");
        while (true) {
            const int read = av_read_frame(m_format.get(), packet.get());
            if (read == AVERROR_EOF)
                break;
            check(read, "cannot read audio");
            if (packet->stream_index == m_stream)
                decode(packet.get(), frame.get());
            av_packet_unref(packet.get());
        }
        decode(nullptr, frame.get());
        convert(nullptr, 0);
        return std::move(m_samples);
    }

private:
    void decode(const AVPacket *packet, AVFrame *frame)
    {
        const int sent = avcodec_send_packet(m_codec.get(), packet);
        // A damaged packet in the middle of a long recording should not lose the rest.
        if (sent < 0 && sent != AVERROR_EOF && packet)
            return;
        while (true) {
            const int received = avcodec_receive_frame(m_codec.get(), frame);
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
                return;
            check(received, "cannot decode audio");
            convert(const_cast<const uint8_t **>(frame->extended_data), frame->nb_samples);
            av_frame_unref(frame);
        }
    }

    void convert(const uint8_t **input, int inputSamples)
    {
        const int room = swr_get_out_samples(m_resampler.get(), inputSamples);
        if (room <= 0)
            return;
        const size_t start = m_samples.size();
        m_samples.resize(start + static_cast<size_t>(room));
        auto *output = reinterpret_cast<uint8_t *>(m_samples.data() + start);
        const int written = swr_convert(m_resampler.get(), &output, room, input, inputSamples);
        check(written, "cannot resample audio");
        m_samples.resize(start + static_cast<size_t>(written));
    }

    std::unique_ptr<AVFormatContext, FormatCloser> m_format;
    std::unique_ptr<AVCodecContext, CodecFreer> m_codec;
    std::unique_ptr<SwrContext, ResamplerFreer> m_resampler;
    int m_stream = -1;
    std::vector<std::int16_t> m_samples;
};

} // namespace

std::vector<std::int16_t> decodeAudioForRecognition(const std::string &path)
{
    // FFmpeg's own chatter would interleave with the server log; every failure that
    // matters comes back as an exception with FFmpeg's reason.
    static std::once_flag quietened;
    std::call_once(quietened, [] { av_log_set_level(AV_LOG_FATAL); });
    Decoder decoder(path);
    return decoder.run();
}

} // namespace kavel::server
