#include "avsupport.h"

extern "C" {
#include <QCoreApplication>
#include <libavutil/display.h>
}

#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

FramePtr makeFrame()
{
    FramePtr frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    return frame;
}

PacketPtr makePacket()
{
    PacketPtr packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    return packet;
}

QString avErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

InputPtr openInput(const QString &path)
{
    AVFormatContext *raw = nullptr;
    const QByteArray file = path.toUtf8();
    if (avformat_open_input(&raw, file.constData(), nullptr, nullptr) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法打开媒体文件 ") + path);
    InputPtr context(raw);
    if (avformat_find_stream_info(context.get(), nullptr) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法读取媒体信息 ") + path);
    return context;
}

CodecPtr openDecoder(const AVStream *stream, const QString &path, int threads)
{
    const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法解码媒体文件 ") + path);
    CodecPtr context(avcodec_alloc_context3(codec));
    if (!context || avcodec_parameters_to_context(context.get(), stream->codecpar) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法解码媒体文件 ") + path);
    context->pkt_timebase = stream->time_base;
    context->thread_count = threads;
    if (avcodec_open2(context.get(), codec, nullptr) < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法解码媒体文件 ") + path);
    return context;
}

double originSeconds(const AVFormatContext *context)
{
    return context->start_time == AV_NOPTS_VALUE ? 0.0 : double(context->start_time) / AV_TIME_BASE;
}

double frameSeconds(const AVFrame *frame, const AVStream *stream, double origin)
{
    const int64_t pts = frame->best_effort_timestamp != AV_NOPTS_VALUE
        ? frame->best_effort_timestamp
        : frame->pts;
    if (pts == AV_NOPTS_VALUE)
        return std::nan("");
    return double(pts) * av_q2d(stream->time_base) - origin;
}

int clockwiseRotation(const AVStream *stream)
{
    size_t size = 0;
    const uint8_t *matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (!matrix || size < 9 * sizeof(int32_t))
        return 0;
    // The matrix rotates counter-clockwise; the picture needs the opposite turn.
    const double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t *>(matrix));
    if (!std::isfinite(degrees))
        return 0;
    const int quarter = static_cast<int>(std::lround(degrees / 90.0));
    return ((quarter % 4) + 4) % 4 * 90;
}

bool isCutShort(const QString &path)
{
    const InputPtr input = openInput(path);
    const std::int64_t size = avio_size(input->pb);
    if (size <= 0)
        return false;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream *stream = input->streams[i];
        const int entries = avformat_index_get_entries_count(stream);
        if (entries <= 0)
            continue;
        const AVIndexEntry *last = avformat_index_get_entry(stream, entries - 1);
        if (last && last->pos + last->size > size)
            return true;
    }
    return false;
}

} // namespace kavel::media::ffmpeg
