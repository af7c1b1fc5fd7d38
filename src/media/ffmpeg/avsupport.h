#pragma once

#include "media/mediatypes.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QString>
#include <memory>

// Ownership and error helpers shared by the FFmpeg-based readers and writers.
namespace kavel::media::ffmpeg {

struct FormatCloser
{
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
struct CodecCloser
{
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
};
struct FrameFreer
{
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
struct PacketFreer
{
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

using InputPtr = std::unique_ptr<AVFormatContext, FormatCloser>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecCloser>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;

FramePtr makeFrame();
PacketPtr makePacket();

// FFmpeg's own words for an error code, for log lines.
QString avErrorText(int code);

// Opens a media file and reads its stream information. Throws MediaError in the user's
// words ("无法打开媒体文件 …").
InputPtr openInput(const QString &path);

// Opens a decoder for `stream`. `threads` 0 lets FFmpeg choose. Throws MediaError.
CodecPtr openDecoder(const AVStream *stream, const QString &path, int threads);

// Where a file's own clock starts: every stream's times are measured from here, so sound
// and picture keep the offset the file gives them.
double originSeconds(const AVFormatContext *context);

// Whether the file's own index places media data past its end: the mark of a file cut
// short whose index sits at the front (a copy that stopped halfway, a download that
// did not finish). Throws MediaError when the file cannot be opened.
bool isCutShort(const QString &path);

// The clockwise turn, in quarter turns of 90 degrees, that shows the stream's picture
// upright (phone recordings carry it as a display matrix).
int clockwiseRotation(const AVStream *stream);

// A decoded frame's time on that clock, or NaN when it carries none.
double frameSeconds(const AVFrame *frame, const AVStream *stream, double origin);

} // namespace kavel::media::ffmpeg
