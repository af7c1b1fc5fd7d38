#pragma once

#include "avsupport.h"
#include "media/renderer.h"
#include "timing/compositionmap.h"

#include <QSize>
#include <vector>

namespace kavel::media::ffmpeg {

// One file being written: a container with at most one picture and one sound stream, each
// with its encoder. Pictures are given one per output frame; sound as planar stereo float
// in any amounts, cut here into the encoder's frame size. Nothing is left at the path when
// the file is not finished.
struct VideoSettings
{
    VideoEncoding encoding = VideoEncoding::h264;
    QSize size {1920, 1080};
    timing::Rate rate;
};

class OutputFile
{
public:
    // `format` picks the container and codecs; video settings only for movies. Throws
    // MediaError.
    OutputFile(const QString &path, RenderFormat format, int sampleRate,
               const VideoSettings &video = {});
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    static bool canEncode(RenderFormat format, VideoEncoding encoding = VideoEncoding::h264);

    AVPixelFormat pixelFormat() const { return AV_PIX_FMT_YUV420P; }
    // A black picture in the output's size and format, for stretches without one.
    const AVFrame *blackFrame();
    // The picture of output frame `index`.
    void writeVideo(const AVFrame *picture, std::int64_t index);
    void writeAudio(const float *left, const float *right, std::int64_t count);
    // Flushes the encoders and closes the file. Throws MediaError.
    void finish();

private:
    void openVideo(const VideoSettings &video);
    void openAudio(RenderFormat format, int sampleRate);
    void encode(AVCodecContext *codec, AVStream *stream, const AVFrame *frame);
    void sendAudioFrame(size_t offset, int samples);
    // "磁盘空间不足" when the volume is full, otherwise what could not be written.
    QString writeFailure(int code) const;
    [[noreturn]] void fail(const QString &why, int code = 0);

    QString m_path;
    AVFormatContext *m_output = nullptr;
    CodecPtr m_video;
    CodecPtr m_audio;
    AVStream *m_videoStream = nullptr;
    AVStream *m_audioStream = nullptr;
    PacketPtr m_packet;
    FramePtr m_audioFrame;
    FramePtr m_black;
    std::vector<float> m_pendingLeft, m_pendingRight;
    std::int64_t m_audioWritten = 0;
    bool m_headerWritten = false;
    bool m_finished = false;
};

} // namespace kavel::media::ffmpeg
