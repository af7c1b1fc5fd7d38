#pragma once

#include "avsupport.h"
#include "captionpicture.h"
#include "media/renderer.h"
#include "timing/compositionmap.h"

#include <map>
#include <vector>

namespace kavel::media::ffmpeg {

// Burns captions into a movie's pictures as they go to the encoder. Each caption shows on
// the output frames its time covers, counted on the same grid as the pictures; it is drawn
// once, when its first frame comes, converted to the pictures' format, and blended into
// every frame it covers.
class CaptionBurner
{
public:
    // Throws MediaError when captions are asked for where no text can be drawn (no
    // QGuiApplication).
    CaptionBurner(const QList<Caption> &captions, double textHeight, QSize frame,
                  timing::Rate rate);
    ~CaptionBurner();
    CaptionBurner(const CaptionBurner &) = delete;
    CaptionBurner &operator=(const CaptionBurner &) = delete;

    // Draws what output frame `index` shows into `picture`: first made from `blank` when
    // null, copied when it shares its pixels. Frames must come in increasing order. Only
    // 4:2:0 planar pictures are supported; others throw MediaError.
    void burn(FramePtr &picture, const AVFrame *blank, std::int64_t index);

private:
    struct Cue
    {
        timing::Span frames;
        QString text;
    };
    struct Overlay;
    void blend(AVFrame *picture, const Overlay &overlay) const;

    std::vector<Cue> m_cues;
    std::unique_ptr<CaptionPainter> m_painter;
    size_t m_next = 0;
    std::map<size_t, Overlay> m_showing;
};

} // namespace kavel::media::ffmpeg
