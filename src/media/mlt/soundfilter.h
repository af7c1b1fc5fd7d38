#pragma once

#include "media/mediatypes.h"

#include <memory>
#include <mutex>
#include <optional>

namespace Mlt {
class Filter;
}

namespace kavel::media::ffmpeg {
class EditAudio;
class AudioSource;
} // namespace kavel::media::ffmpeg

namespace kavel::media::mlt {

// The preview's sound. MLT cuts sound frame by frame and its per-cut seeking drifts by
// tens of milliseconds, so this filter on the composition replaces whatever the sources
// would play with the export's own sample-exact rendering of the same map: the preview is
// heard exactly as the file will be, with every word's volume, mute and fades and the
// smoothing at cuts. MLT still decides which frame plays when.
class SoundFilter
{
public:
    SoundFilter();
    ~SoundFilter();
    SoundFilter(const SoundFilter &) = delete;
    SoundFilter &operator=(const SoundFilter &) = delete;

    Mlt::Filter &filter() { return *m_filter; }
    // The map the composition was laid from, on a grid of `fps` frames per second. Takes
    // effect from the next frame the consumer asks for.
    void setEdit(const EditList &edit, double fps);
    // Nothing at or after `seconds` of the composition is heard; none for no limit.
    void setStopAt(std::optional<double> seconds);
    // One gain (dB) for everything heard, as the export's loudness setting gives it; the
    // rare peak it lifts past full scale is clipped, where the export has its limiter.
    void setGain(double decibels);

    // Fills `samples` frames of planar float sound for composition frame `position`.
    void render(int position, float *planes, int channels, int samples, int frequency);

private:
    std::unique_ptr<Mlt::Filter> m_filter;
    std::mutex m_mutex;
    std::shared_ptr<const EditList> m_edit;
    double m_fps = 30.0;
    std::optional<double> m_stopAt;
    float m_gain = 1.0f;
    // Touched only while rendering, under a lock of its own.
    std::mutex m_renderMutex;
    std::shared_ptr<ffmpeg::EditAudio> m_audio;
    std::shared_ptr<const EditList> m_audioEdit;
    std::shared_ptr<QHash<QString, std::shared_ptr<ffmpeg::AudioSource>>> m_sources;
    std::vector<float> m_left, m_right;
};

} // namespace kavel::media::mlt
