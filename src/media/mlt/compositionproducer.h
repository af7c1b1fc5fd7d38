#pragma once

#include "media/mediatypes.h"
#include "soundfilter.h"

#include <QHash>
#include <memory>
#include <mutex>
#include <vector>

struct mlt_producer_s;
struct mlt_frame_s;

namespace Mlt {
class Producer;
class Profile;
} // namespace Mlt

namespace kavel::media::mlt {

// One stretch of one source in the composition: a run of words where each starts on the
// frame where the previous ended, so they play as one cut.
struct CompositionCut
{
    // -1 when the source could not be opened: the entry is then blank for its time.
    int source = 0;
    bool playable = true;
    // Source frames, out exclusive.
    int inFrame = 0;
    int outFrame = 0;
    // Where the entry starts in the composition, in frames.
    int compositionFrame = 0;
    // The segments of the edit list it plays, first and last.
    int firstSegment = 0;
    int lastSegment = 0;

    int frames() const { return outFrame - inFrame; }
};

// An edit list as one MLT producer that maps each of its frames to a source frame through
// a table of entries. An hour-long transcript has thousands of stretches; MLT's own
// playlist would hold a cut producer of several kilobytes for each and recount itself on
// every change, where a table entry is a few bytes and an edit replaces the table whole.
// Entries are laid on the profile's frame grid from the map's running times, so frame k
// plays at exactly k / fps of the edited result and no rounding accumulates however many
// cuts there are.
class CompositionProducer
{
public:
    explicit CompositionProducer(Mlt::Profile &profile);
    ~CompositionProducer();
    CompositionProducer(const CompositionProducer &) = delete;
    CompositionProducer &operator=(const CompositionProducer &) = delete;

    // Makes the producer play `editList` from the next frame asked for. Returns the
    // segments whose source could not be opened; they take their time as blank frames.
    // Entries before the first segment that differs from the last list applied are kept;
    // the table is laid again from there, as a table laid afresh would be.
    QList<SegmentFailure> apply(const EditList &editList);

    // Opens a source ahead of its first use: opening a long recording reads its whole
    // index, which should happen while sources load, not on the first edit.
    void prepare(const QString &path);

    Mlt::Producer &producer() { return *m_producer; }
    SoundFilter &sound() { return *m_sound; }
    int frameCount() const;
    double duration() const { return m_duration; }
    const std::vector<CompositionCut> &entries() const { return m_entries; }

    timing::Rate rate() const;
    double secondsAtFrame(int frame) const;
    int frameAtSeconds(double seconds) const;

private:
    struct Source;
    static int getFrame(mlt_producer_s *producer, mlt_frame_s **frame, int index);
    int sourceIndex(const QString &path);

    Mlt::Profile &m_profile;
    std::unique_ptr<Mlt::Producer> m_producer;
    std::unique_ptr<SoundFilter> m_sound;
    // The consumer's thread reads the entries and sources while the editor replaces them.
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<Source>> m_sources;
    QHash<QString, int> m_sourceByPath;
    std::vector<CompositionCut> m_entries;
    double m_duration = 0.0;
    // The list the table was laid from (sharing its segments), and what failed in it.
    EditList m_applied;
    QList<SegmentFailure> m_failures;
};

} // namespace kavel::media::mlt
