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

    // Sources, opened on first use and kept for whoever renders next from the same files.
    // Only one thread may use a cache (and the EditAudio objects sharing it) at a time.
    using SourceCache = QHash<QString, std::shared_ptr<AudioSource>>;

    // An export fails on a source it cannot read; a preview plays it as silence.
    enum class Unreadable { fail, silence };

    EditAudio(EditList editList, int rate, Unreadable unreadable = Unreadable::fail,
              std::shared_ptr<SourceCache> sources = {});
    ~EditAudio();

    int rate() const { return m_rate; }
    std::int64_t totalSamples() const { return m_total; }
    std::int64_t position() const { return m_position; }
    // Renders the next `count` samples (fewer at the end); returns how many.
    std::int64_t render(float *left, float *right, std::int64_t count);
    // Continues from output sample `sample` (clamped to the result).
    void seek(std::int64_t sample);

private:
    // Null for a source that cannot be read when silence is acceptable.
    AudioSource *source(const QString &path);
    double gainAt(qsizetype segment, double t) const;

    EditList m_editList;
    int m_rate;
    Unreadable m_unreadable;
    std::int64_t m_total = 0;
    std::int64_t m_position = 0;
    qsizetype m_segment = 0;
    // Where the stretch being read started: output sample and the source sample it reads.
    std::int64_t m_runOutput = 0;
    std::int64_t m_runSource = 0;
    std::shared_ptr<SourceCache> m_sources;
};

} // namespace kavel::media::ffmpeg
