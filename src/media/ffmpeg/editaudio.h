#pragma once

#include "audiosource.h"
#include "timing/compositionmap.h"

#include <QHash>
#include <memory>

namespace kavel::media::ffmpeg {

// The edited result's sound, sample-exact: output sample n plays what the composition map
// puts at n / rate, with each word's volume, mute and fades, and a short smoothing at
// joins that jump in the source so cuts do not click. Rendered in order, block by block.
class EditAudio
{
public:
    // A few milliseconds of raised-cosine dip at every jump: too short to hear as a gap or
    // to lose a consonant, long enough to turn the step of a cut into a smooth curve.
    static constexpr double joinRamp = 0.005;

    // Sources are opened on first use. `muteAll` keeps the length and silences everything.
    EditAudio(EditList editList, int rate, bool muteAll = false);
    ~EditAudio();

    int rate() const { return m_rate; }
    std::int64_t totalSamples() const { return m_total; }
    std::int64_t position() const { return m_position; }
    // Renders the next `count` samples (fewer at the end); returns how many.
    std::int64_t render(float *left, float *right, std::int64_t count);

private:
    AudioSource &source(const QString &path);
    double gainAt(qsizetype segment, double t) const;

    EditList m_editList;
    int m_rate;
    bool m_muteAll;
    std::int64_t m_total = 0;
    std::int64_t m_position = 0;
    qsizetype m_segment = 0;
    // Where the stretch being read started: output sample and the source sample it reads.
    std::int64_t m_runOutput = 0;
    std::int64_t m_runSource = 0;
    QHash<QString, std::shared_ptr<AudioSource>> m_sources;
};

} // namespace kavel::media::ffmpeg
