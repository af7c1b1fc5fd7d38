#pragma once

#include "media/mediatypes.h"

#include <memory>
#include <mutex>
#include <vector>

namespace Mlt {
class Filter;
}

namespace kavel::media::mlt {

// Where each word's gain applies, in the terms the audio callback sees: playlist frames
// and source seconds.
struct GainMap
{
    struct Entry
    {
        int playlistFrame = 0;
        int frames = 0;
        int inFrame = 0;
        qsizetype firstSegment = 0;
        qsizetype segmentCount = 0;
    };
    struct Segment
    {
        double sourceStart = 0.0;
        double sourceEnd = 0.0;
        SegmentAudio audio;
    };

    double fps = 30.0;
    std::vector<Entry> entries;
    std::vector<Segment> segments;
    // True when no segment changes the sound, so only the joins need work.
    bool unityGain = true;
};

// The one audio filter on a composition: per-word volume, mute and linear fades, and a
// short raised-cosine dip at every join of two stretches that are not contiguous in their
// source, so cuts do not click. MLT's own volume filter changes gain once per frame, which
// is both too coarse for word fades and too slow to attach per word.
class GainFilter
{
public:
    // 5 ms: long enough that a full-scale step at a cut becomes a smooth curve well below
    // audibility as a click (a 440 Hz sine already moves faster than the ramp does), short
    // enough to be shorter than any consonant, so no word loses an audible onset.
    static constexpr double joinRamp = 0.005;

    GainFilter();
    ~GainFilter();
    GainFilter(const GainFilter &) = delete;
    GainFilter &operator=(const GainFilter &) = delete;

    Mlt::Filter &filter() { return *m_filter; }
    // Takes effect from the next audio block the consumer asks for.
    void setMap(std::shared_ptr<const GainMap> map);

    // Scales `samples` frames of `channels`-channel audio at `frequency` Hz that belong to
    // playlist frame `frame`, in place. `planar` selects the layout of `audio`.
    static void apply(const GainMap &map, int frame, float *audio, int channels, int samples,
                      int frequency, bool planar);
    static void apply(const GainMap &map, int frame, std::int16_t *audio, int channels, int samples,
                      int frequency);

    std::shared_ptr<const GainMap> map() const;

private:
    std::unique_ptr<Mlt::Filter> m_filter;
    mutable std::mutex m_mutex;
    std::shared_ptr<const GainMap> m_map;
};

} // namespace kavel::media::mlt
