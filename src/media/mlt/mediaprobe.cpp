#include "mediaprobe.h"

#include "media/ffmpeg/avsupport.h"

extern "C" {
#include <QCoreApplication>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

double streamSeconds(const AVFormatContext *context, const AVStream *stream)
{
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        return static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    if (context->duration != AV_NOPTS_VALUE && context->duration > 0)
        return static_cast<double>(context->duration) / AV_TIME_BASE;
    return 0.0;
}

} // namespace

ProbedMedia probeMedia(const QString &path)
{
    AVFormatContext *raw = nullptr;
    const QByteArray file = path.toUtf8();
    if (const int error = avformat_open_input(&raw, file.constData(), nullptr, nullptr); error < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法打开媒体文件 ") + path
                         + u"："_s + avError(error));
    std::unique_ptr<AVFormatContext, void (*)(AVFormatContext *)> context(
        raw, [](AVFormatContext *c) { avformat_close_input(&c); });
    if (const int error = avformat_find_stream_info(context.get(), nullptr); error < 0)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法读取媒体信息 ") + path
                         + u"："_s + avError(error));

    ProbedMedia probed;
    MediaInfo &info = probed.info;
    if (context->duration != AV_NOPTS_VALUE && context->duration > 0)
        info.duration = static_cast<double>(context->duration) / AV_TIME_BASE;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream *stream = context->streams[i];
        const AVCodecParameters *codec = stream->codecpar;
        if (codec->codec_type == AVMEDIA_TYPE_VIDEO && !info.hasVideo
            && !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC)) {
            info.hasVideo = true;
            info.videoDuration = streamSeconds(context.get(), stream);
            info.videoSize = {codec->width, codec->height};
            AVRational rate
                = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
            if (rate.num > 0 && rate.den > 0) {
                probed.frameRate = {rate.num, rate.den};
                info.frameRate = av_q2d(rate);
            }
            info.rotationDegrees = ffmpeg::clockwiseRotation(stream);
        } else if (codec->codec_type == AVMEDIA_TYPE_AUDIO && !info.hasAudio) {
            info.hasAudio = true;
            info.audioDuration = streamSeconds(context.get(), stream);
        }
    }
    if (!info.hasVideo && !info.hasAudio)
        throw MediaError(QCoreApplication::translate("kavel::media", "文件中没有音视频轨道：")
                         + path);
    return probed;
}

} // namespace kavel::media::mlt
