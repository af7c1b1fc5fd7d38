#pragma once

#include "avsupport.h"
#include "timing/compositionmap.h"

#include <QSize>
#include <vector>

struct AVFilterGraph;
struct AVFilterContext;

namespace kavel::media::ffmpeg {

// The pictures of one file, turned upright, fitted into the output size on black and
// converted to the encoder's pixel format. Asked for a time, it gives the frame whose
// timestamp is nearest; asked in increasing order it decodes the file once, jumping ahead
// only past a keyframe it would otherwise decode up to. Told beforehand which times it will
// be asked for, it leaves undecoded the pictures none of them shows that no other picture
// is predicted from.
class VideoSource
{
public:
    // Throws MediaError when the file cannot be read or has no picture.
    VideoSource(const QString &path, QSize outputSize, AVPixelFormat format);
    ~VideoSource();
    VideoSource(const VideoSource &) = delete;
    VideoSource &operator=(const VideoSource &) = delete;

    timing::Rate frameRate() const { return m_rate; }
    // Every time frameAt will be asked for, in any order. Asked for a time not among them,
    // it still gives the right picture, and decodes every picture from then on.
    void want(std::vector<double> times);
    // The converted frame nearest `seconds` on the file's clock. Valid until the next
    // call. Throws MediaError when the file yields no picture at all.
    const AVFrame *frameAt(double seconds);

private:
    struct Decoded;
    bool decodeNext();
    void seekBefore(double seconds);
    bool keyframeBetween(double after, double upTo) const;
    bool wanted(double seconds) const;
    bool fitsAsIs(const AVFrame *frame) const;
    void buildFilter(const AVFrame *frame);
    const AVFrame *convert(Decoded &decoded);

    QString m_path;
    QSize m_outputSize;
    AVPixelFormat m_format;
    InputPtr m_input;
    CodecPtr m_decoder;
    int m_stream = -1;
    double m_origin = 0.0;
    int m_rotation = 0;
    timing::Rate m_rate;
    bool m_rateKnown = false;
    double m_reorder = 0.0;
    PacketPtr m_packet;
    std::unique_ptr<Decoded> m_previous;
    std::unique_ptr<Decoded> m_next;
    bool m_eof = false;
    bool m_draining = false;
    AVFilterGraph *m_graph = nullptr;
    AVFilterContext *m_filterIn = nullptr;
    AVFilterContext *m_filterOut = nullptr;
    int m_filterWidth = 0, m_filterHeight = 0, m_filterFormat = -1;
    FramePtr m_converted;
    // Which decoded frame m_converted holds, by timestamp.
    double m_convertedAt = -1.0;
    int m_failures = 0;
    // Sorted; empty when every picture is decoded.
    std::vector<double> m_wanted;
    // How far from a wanted time a picture may lie and still be the nearest one.
    double m_reach = 0.0;
};

} // namespace kavel::media::ffmpeg
