#include "outputfile.h"

extern "C" {
#include <QCoreApplication>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

// Less room than this left on the volume of a file that could not be written: the disk
// is full, whatever FFmpeg's error says.
constexpr qint64 nearlyFullBytes = 64 * 1024;

const char *containerOf(RenderFormat format)
{
    switch (format) {
    case RenderFormat::mp4:
        return "mp4";
    case RenderFormat::mov:
        return "mov";
    case RenderFormat::wav:
        return "wav";
    case RenderFormat::m4a:
        return "ipod";
    }
    return nullptr;
}

bool isMovie(RenderFormat format)
{
    return format == RenderFormat::mp4 || format == RenderFormat::mov;
}

const char *videoEncoderName(VideoEncoding encoding)
{
    return encoding == VideoEncoding::hevc ? "libx265" : "libx264";
}

// AAC frames are this long; PCM is written in blocks of the same size.
constexpr int pcmBlock = 1024;

} // namespace

bool OutputFile::canEncode(RenderFormat format, VideoEncoding encoding)
{
    if (!containerOf(format))
        return false;
    const bool sound
        = avcodec_find_encoder_by_name(format == RenderFormat::wav ? "pcm_s16le" : "aac");
    return sound && (!isMovie(format) || avcodec_find_encoder_by_name(videoEncoderName(encoding)));
}

OutputFile::OutputFile(const QString &path, RenderFormat format, int sampleRate,
                       const VideoSettings &video)
    : m_path(path)
    , m_packet(makePacket())
    , m_audioFrame(makeFrame())
{
    const QByteArray file = QFile::encodeName(path);
    if (!canEncode(format, video.encoding))
        throw MediaError(QCoreApplication::translate("kavel::media", "缺少所需的编码器"));
    if (avformat_alloc_output_context2(&m_output, nullptr, containerOf(format), file.constData())
        < 0)
        fail(QCoreApplication::translate("kavel::media", "无法创建导出会话"));
    if (isMovie(format))
        openVideo(video);
    openAudio(format, sampleRate);
    if (const int opened = avio_open(&m_output->pb, file.constData(), AVIO_FLAG_WRITE); opened < 0)
        fail(writeFailure(opened), opened);
    AVDictionary *options = nullptr;
    // The index goes to the front, so players can start before the whole file is read.
    if (format != RenderFormat::wav)
        av_dict_set(&options, "movflags", "+faststart", 0);
    const int error = avformat_write_header(m_output, &options);
    av_dict_free(&options);
    if (error < 0)
        fail(writeFailure(error), error);
    m_headerWritten = true;
}

OutputFile::~OutputFile()
{
    if (m_output) {
        if (m_output->pb)
            avio_closep(&m_output->pb);
        avformat_free_context(m_output);
    }
    if (!m_finished)
        QFile::remove(m_path);
}

QString OutputFile::writeFailure(int code) const
{
    // FFmpeg does not always pass the system's ENOSPC on (a failed flush may come back as
    // a plain I/O error), so a volume with no room left is recognised by looking at it.
    const QStorageInfo volume(QFileInfo(m_path).absolutePath());
    if (code == AVERROR(ENOSPC) || (volume.isValid() && volume.bytesAvailable() < nearlyFullBytes))
        return QCoreApplication::translate("kavel::media", "磁盘空间不足");
    return QCoreApplication::translate("kavel::media", "无法写入 ") + m_path;
}

void OutputFile::fail(const QString &why, int code)
{
    if (code < 0)
        std::fprintf(stdout, "[Export] %s: %s\n", qPrintable(m_path),
                     qPrintable(avErrorText(code)));
    throw MediaError(why);
}

void OutputFile::openVideo(const VideoSettings &video)
{
    const AVCodec *codec = avcodec_find_encoder_by_name(videoEncoderName(video.encoding));
    m_video.reset(avcodec_alloc_context3(codec));
    const bool hevc = video.encoding == VideoEncoding::hevc;
    m_video->width = video.size.width() & ~1;
    m_video->height = video.size.height() & ~1;
    m_video->pix_fmt = pixelFormat();
    m_video->time_base = {video.rate.den, video.rate.num};
    m_video->framerate = {video.rate.num, video.rate.den};
    m_video->sample_aspect_ratio = {1, 1};
    m_video->color_primaries = AVCOL_PRI_BT709;
    m_video->color_trc = AVCOL_TRC_BT709;
    m_video->colorspace = AVCOL_SPC_BT709;
    m_video->color_range = AVCOL_RANGE_MPEG;
    m_video->thread_count = 0;
    if (m_output->oformat->flags & AVFMT_GLOBALHEADER)
        m_video->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary *options = nullptr;
    // Each encoder's default quality level, at a speed preset that keeps a long edit from
    // taking longer than its running time on a laptop.
    av_dict_set(&options, "preset", "veryfast", 0);
    av_dict_set(&options, "crf", hevc ? "28" : "23", 0);
    if (hevc)
        av_dict_set(&options, "x265-params", "log-level=error", 0);
    const int error = avcodec_open2(m_video.get(), codec, &options);
    av_dict_free(&options);
    if (error < 0)
        fail(QCoreApplication::translate("kavel::media", "无法创建导出会话"), error);
    m_videoStream = avformat_new_stream(m_output, nullptr);
    avcodec_parameters_from_context(m_videoStream->codecpar, m_video.get());
    m_videoStream->time_base = m_video->time_base;
    m_videoStream->avg_frame_rate = m_video->framerate;
    // Players that want HEVC in MPEG-4 (QuickTime, browsers) look for this tag.
    if (hevc)
        m_videoStream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
}

void OutputFile::openAudio(RenderFormat format, int sampleRate)
{
    const bool pcm = format == RenderFormat::wav;
    const AVCodec *codec = avcodec_find_encoder_by_name(pcm ? "pcm_s16le" : "aac");
    m_audio.reset(avcodec_alloc_context3(codec));
    m_audio->sample_rate = sampleRate;
    m_audio->sample_fmt = pcm ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
    m_audio->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    m_audio->time_base = {1, sampleRate};
    if (!pcm)
        m_audio->bit_rate = 160000;
    if (m_output->oformat->flags & AVFMT_GLOBALHEADER)
        m_audio->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (const int error = avcodec_open2(m_audio.get(), codec, nullptr); error < 0)
        fail(QCoreApplication::translate("kavel::media", "无法创建导出会话"), error);
    m_audioStream = avformat_new_stream(m_output, nullptr);
    avcodec_parameters_from_context(m_audioStream->codecpar, m_audio.get());
    m_audioStream->time_base = m_audio->time_base;
}

const AVFrame *OutputFile::blackFrame()
{
    if (!m_black) {
        m_black = makeFrame();
        m_black->format = m_video->pix_fmt;
        m_black->width = m_video->width;
        m_black->height = m_video->height;
        if (av_frame_get_buffer(m_black.get(), 0) < 0)
            throw std::bad_alloc();
        // Limited-range black: Y 16, chroma at its middle.
        for (int plane = 0; plane < 3; ++plane) {
            const int rows = plane == 0 ? m_black->height : m_black->height / 2;
            std::fill_n(m_black->data[plane], std::ptrdiff_t(m_black->linesize[plane]) * rows,
                        plane == 0 ? 16 : 128);
        }
    }
    return m_black.get();
}

void OutputFile::encode(AVCodecContext *codec, AVStream *stream, const AVFrame *frame)
{
    if (const int error = avcodec_send_frame(codec, frame); error < 0)
        fail(QCoreApplication::translate("kavel::media", "编码失败"), error);
    for (;;) {
        const int error = avcodec_receive_packet(codec, m_packet.get());
        if (error == AVERROR(EAGAIN) || error == AVERROR_EOF)
            return;
        if (error < 0)
            fail(QCoreApplication::translate("kavel::media", "编码失败"), error);
        av_packet_rescale_ts(m_packet.get(), codec->time_base, stream->time_base);
        m_packet->stream_index = stream->index;
        if (const int written = av_interleaved_write_frame(m_output, m_packet.get()); written < 0)
            fail(writeFailure(written), written);
    }
}

void OutputFile::writeVideo(const AVFrame *picture, std::int64_t index)
{
    FramePtr frame(av_frame_clone(picture));
    if (!frame)
        throw std::bad_alloc();
    frame->pts = index;
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    encode(m_video.get(), m_videoStream, frame.get());
}

void OutputFile::writeAudio(const float *left, const float *right, std::int64_t count)
{
    m_pendingLeft.insert(m_pendingLeft.end(), left, left + count);
    m_pendingRight.insert(m_pendingRight.end(), right, right + count);
    const size_t block = size_t(m_audio->frame_size > 0 ? m_audio->frame_size : pcmBlock);
    size_t used = 0;
    for (; m_pendingLeft.size() - used >= block; used += block)
        sendAudioFrame(used, int(block));
    m_pendingLeft.erase(m_pendingLeft.begin(), m_pendingLeft.begin() + std::ptrdiff_t(used));
    m_pendingRight.erase(m_pendingRight.begin(), m_pendingRight.begin() + std::ptrdiff_t(used));
}

void OutputFile::sendAudioFrame(size_t offset, int samples)
{
    AVFrame *frame = m_audioFrame.get();
    av_frame_unref(frame);
    frame->nb_samples = samples;
    frame->format = m_audio->sample_fmt;
    frame->sample_rate = m_audio->sample_rate;
    av_channel_layout_copy(&frame->ch_layout, &m_audio->ch_layout);
    if (av_frame_get_buffer(frame, 0) < 0)
        throw std::bad_alloc();
    const float *left = m_pendingLeft.data() + offset;
    const float *right = m_pendingRight.data() + offset;
    if (m_audio->sample_fmt == AV_SAMPLE_FMT_FLTP) {
        std::copy_n(left, samples, reinterpret_cast<float *>(frame->data[0]));
        std::copy_n(right, samples, reinterpret_cast<float *>(frame->data[1]));
    } else {
        auto *out = reinterpret_cast<int16_t *>(frame->data[0]);
        // The scale 16-bit sound was read with, so unchanged samples come out unchanged.
        const auto toPcm = [](float v) {
            return static_cast<int16_t>(std::clamp(std::lround(v * 32768.0f), -32768L, 32767L));
        };
        for (int i = 0; i < samples; ++i) {
            out[2 * i] = toPcm(left[i]);
            out[2 * i + 1] = toPcm(right[i]);
        }
    }
    frame->pts = m_audioWritten;
    m_audioWritten += samples;
    encode(m_audio.get(), m_audioStream, frame);
}

void OutputFile::finish()
{
    if (!m_pendingLeft.empty()) {
        sendAudioFrame(0, int(m_pendingLeft.size()));
        m_pendingLeft.clear();
        m_pendingRight.clear();
    }
    if (m_video)
        encode(m_video.get(), m_videoStream, nullptr);
    encode(m_audio.get(), m_audioStream, nullptr);
    if (const int error = av_write_trailer(m_output); error < 0)
        fail(writeFailure(error), error);
    if (const int closed = avio_closep(&m_output->pb); closed < 0)
        fail(writeFailure(closed), closed);
    m_finished = true;
}

} // namespace kavel::media::ffmpeg
