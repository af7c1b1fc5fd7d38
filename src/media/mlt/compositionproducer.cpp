#include "compositionproducer.h"

#include <Mlt.h>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

struct CompositionProducer::Source
{
    QString path;
    std::unique_ptr<Mlt::Producer> producer;
};

CompositionProducer::CompositionProducer(Mlt::Profile &profile)
    : m_profile(profile)
    , m_sound(std::make_unique<SoundFilter>())
{
    mlt_producer producer = mlt_producer_new(profile.get_profile());
    producer->get_frame = getFrame;
    producer->child = this;
    m_producer = std::make_unique<Mlt::Producer>(producer);
    mlt_producer_close(producer);
    m_producer->set("mlt_service", "kavel_composition");
    m_producer->attach(m_sound->filter());
}

CompositionProducer::~CompositionProducer()
{
    m_producer->detach(m_sound->filter());
    // Whoever still holds the producer, a player's playlist for one, gets blank frames.
    std::lock_guard lock(m_mutex);
    m_producer->get_producer()->child = nullptr;
}

void CompositionProducer::prepare(const QString &path)
{
    sourceIndex(path);
}

int CompositionProducer::sourceIndex(const QString &path)
{
    if (const auto it = m_sourceByPath.constFind(path); it != m_sourceByPath.cend())
        return *it;
    auto source = std::make_unique<Source>();
    source->path = path;
    // Through the loader, not "avformat" directly: the loader adds the normalising
    // filters (resampling, channel layout, rotation) that a bare producer lacks.
    auto producer = std::make_unique<Mlt::Producer>(m_profile, path.toUtf8().constData());
    if (producer->is_valid())
        source->producer = std::move(producer);
    std::lock_guard lock(m_mutex);
    const int index = static_cast<int>(m_sources.size());
    m_sources.push_back(std::move(source));
    m_sourceByPath.insert(path, index);
    return index;
}

timing::Rate CompositionProducer::rate() const
{
    return {m_profile.frame_rate_num(), m_profile.frame_rate_den()};
}

QList<SegmentFailure> CompositionProducer::apply(const EditList &editList)
{
    const timing::Rate grid = rate();
    QList<SegmentFailure> failures;
    std::vector<CompositionCut> entries;
    entries.reserve(static_cast<size_t>(editList.segments.size()));
    double openSourceEnd = 0.0;

    for (qsizetype i = 0; i < editList.segments.size(); ++i) {
        const EditSegment &segment = editList.segments.at(i);
        const int source = sourceIndex(segment.sourcePath);
        const bool playable = m_sources[size_t(source)]->producer != nullptr;
        if (!playable)
            failures.append({i, u"无法打开媒体文件 "_s + segment.sourcePath});
        // The segment owns the composition frames whose times fall inside it (taken from
        // the running composition time, so no rounding adds up) and plays the source
        // frames nearest to what the map puts there, one after another.
        const timing::Span frames = timing::outputFrames(segment, grid);
        if (frames.count() <= 0)
            continue;
        const auto inFrame = static_cast<int>(
            timing::nearestIndex(timing::sourceTimeAtFrame(segment, frames.begin, grid), grid));

        // A stretch that goes on in the source where the previous one of the same source
        // ended joins its entry: the two are one cut, and sharing the entry keeps their
        // boundary frame from being played twice. Continuity is judged on source times,
        // not frames, which the grid's phase may round either way.
        if (!entries.empty()) {
            CompositionCut &open = entries.back();
            if (playable && open.playable && open.source == source
                && std::abs(segment.sourceStart - openSourceEnd) < 1e-9) {
                open.outFrame += static_cast<int>(frames.count());
                openSourceEnd = segment.sourceEnd;
                continue;
            }
        }
        CompositionCut entry;
        entry.source = playable ? source : -1;
        entry.playable = playable;
        entry.inFrame = playable ? inFrame : 0;
        entry.outFrame = entry.inFrame + static_cast<int>(frames.count());
        entry.compositionFrame = static_cast<int>(frames.begin);
        entries.push_back(entry);
        openSourceEnd = segment.sourceEnd;
    }

    const int count
        = entries.empty() ? 0 : entries.back().compositionFrame + entries.back().frames();
    {
        std::lock_guard lock(m_mutex);
        m_entries = std::move(entries);
    }
    m_producer->set("length", std::max(count, 1));
    m_producer->set_in_and_out(0, count - 1);
    m_duration = editList.duration();
    m_sound->setEdit(editList, grid.perSecond());
    return failures;
}

// Runs on the consumer's thread. The frame comes from the source producer itself, with
// the filters the loader attached to it, exactly as a cut of it would have played it.
int CompositionProducer::getFrame(mlt_producer producer, mlt_frame_ptr frame, int index)
{
    const mlt_position position = mlt_producer_position(producer);
    *frame = nullptr;
    if (auto *self = static_cast<CompositionProducer *>(producer->child)) {
        std::lock_guard lock(self->m_mutex);
        const auto &entries = self->m_entries;
        const auto after = std::upper_bound(
            entries.begin(), entries.end(), position,
            [](mlt_position p, const CompositionCut &e) { return p < e.compositionFrame; });
        if (after != entries.begin()) {
            const CompositionCut &entry = *std::prev(after);
            const mlt_position offset = position - entry.compositionFrame;
            if (entry.playable && offset < entry.frames()) {
                mlt_producer source
                    = self->m_sources[size_t(entry.source)]->producer->get_producer();
                mlt_producer_seek(source, entry.inFrame + offset);
                if (mlt_service_get_frame(MLT_PRODUCER_SERVICE(source), frame, index) != 0)
                    *frame = nullptr;
            }
        }
    }
    // A blank entry, or a source that failed: MLT makes up a plain picture for a frame
    // marked as having none, as it does for a playlist's blank.
    if (!*frame) {
        *frame = mlt_frame_init(MLT_PRODUCER_SERVICE(producer));
        mlt_properties properties = MLT_FRAME_PROPERTIES(*frame);
        mlt_properties_set_int(properties, "test_image", 1);
        mlt_properties_set_int(properties, "test_audio", 1);
    }
    mlt_frame_set_position(*frame, position);
    mlt_producer_prepare_next(producer);
    return 0;
}

int CompositionProducer::frameCount() const
{
    return m_entries.empty() ? 0 : m_entries.back().compositionFrame + m_entries.back().frames();
}

// Frame k plays from k / fps on the edited timeline: the entries were laid on that grid
// from the map's own running times.
double CompositionProducer::secondsAtFrame(int frame) const
{
    return std::clamp(rate().secondsAt(frame), 0.0, m_duration);
}

int CompositionProducer::frameAtSeconds(double seconds) const
{
    const int last = std::max(frameCount() - 1, 0);
    // The nearest frame: a seek to a word starts it at most half a frame early or late.
    return static_cast<int>(
        std::clamp<std::int64_t>(timing::nearestIndex(seconds, rate()), 0, last));
}

} // namespace kavel::media::mlt
