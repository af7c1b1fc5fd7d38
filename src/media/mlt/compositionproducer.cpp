#include "compositionproducer.h"

#include <Mlt.h>
#include <QCoreApplication>
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

namespace {

// Whether a segment takes the same place in the table as one laid before: the table
// reads only its source, its times and where it lies.
bool sameCut(const EditSegment &a, const EditSegment &b)
{
    return a.sourceStart == b.sourceStart && a.sourceEnd == b.sourceEnd
        && a.compositionStart == b.compositionStart
        && (a.sourcePath.constData() == b.sourcePath.constData() || a.sourcePath == b.sourcePath);
}

} // namespace

QList<SegmentFailure> CompositionProducer::apply(const EditList &editList)
{
    const timing::Rate grid = rate();
    const QList<EditSegment> &segments = editList.segments;

    // The first segment laid differently from last time, and the entry holding the one
    // before it: that entry may now run on into the change, so it is laid again too.
    const QList<EditSegment> &laid = m_applied.segments;
    qsizetype same = 0;
    if (segments.constData() == laid.constData())
        same = std::min(segments.size(), laid.size());
    const qsizetype shorter = std::min(segments.size(), laid.size());
    while (same < shorter && sameCut(segments.at(same), laid.at(same)))
        ++same;
    size_t keptEntries = 0;
    if (same > 0) {
        const auto holding = std::upper_bound(
            m_entries.cbegin(), m_entries.cend(), int(same - 1),
            [](int segment, const CompositionCut &e) { return segment < e.firstSegment; });
        keptEntries = holding == m_entries.cbegin() ? 0 : size_t(holding - m_entries.cbegin()) - 1;
    }
    const qsizetype from = keptEntries > 0 ? m_entries[keptEntries - 1].lastSegment + 1 : 0;
    double openSourceEnd = from > 0 ? segments.at(from - 1).sourceEnd : 0.0;

    QList<SegmentFailure> failures;
    for (const SegmentFailure &failure : std::as_const(m_failures)) {
        if (failure.index < from)
            failures.append(failure);
    }
    std::vector<CompositionCut> entries;
    entries.reserve(static_cast<size_t>(segments.size() - from) / 2 + 1);
    // Nearly every segment comes from the source of the one before it.
    const QChar *lastPath = nullptr;
    int lastSource = -1;

    for (qsizetype i = from; i < segments.size(); ++i) {
        const EditSegment &segment = segments.at(i);
        if (segment.sourcePath.constData() != lastPath || lastSource < 0) {
            lastSource = sourceIndex(segment.sourcePath);
            lastPath = segment.sourcePath.constData();
        }
        const int source = lastSource;
        const bool playable = m_sources[size_t(source)]->producer != nullptr;
        if (!playable)
            failures.append({i,
                             QCoreApplication::translate("kavel::media", "无法打开媒体文件 ")
                                 + segment.sourcePath});
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
        // The first segment laid here began an entry last time, from the same unchanged
        // segments before it, so it does not join the kept entry before it now either.
        if (!entries.empty()) {
            CompositionCut &last = entries.back();
            if (playable && last.playable && last.source == source
                && std::abs(segment.sourceStart - openSourceEnd) < 1e-9) {
                last.outFrame += static_cast<int>(frames.count());
                last.lastSegment = int(i);
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
        entry.firstSegment = entry.lastSegment = int(i);
        entries.push_back(entry);
        openSourceEnd = segment.sourceEnd;
    }

    {
        std::lock_guard lock(m_mutex);
        m_entries.resize(keptEntries);
        m_entries.insert(m_entries.end(), entries.cbegin(), entries.cend());
    }
    const int count = frameCount();
    m_producer->set("length", std::max(count, 1));
    m_producer->set_in_and_out(0, count - 1);
    m_duration = editList.duration();
    m_sound->setEdit(editList, grid.perSecond());
    m_applied = editList;
    m_failures = failures;
    return failures;
}

// Runs on the consumer's thread. The frame comes from the source producer itself, with
// the filters the loader attached to it, exactly as a cut of it would have played it.
int CompositionProducer::getFrame(mlt_producer producer, mlt_frame_ptr frame, int index)
{
    const mlt_position position = mlt_producer_position(producer);
    *frame = nullptr;
    // The table is read under the lock; the frame is decoded outside it, holding its own
    // reference to the source, so that an edit never waits for a decode.
    mlt_producer source = nullptr;
    mlt_position sourceFrame = 0;
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
                source = self->m_sources[size_t(entry.source)]->producer->get_producer();
                sourceFrame = entry.inFrame + offset;
                mlt_properties_inc_ref(MLT_PRODUCER_PROPERTIES(source));
            }
        }
    }
    if (source) {
        mlt_producer_seek(source, sourceFrame);
        if (mlt_service_get_frame(MLT_PRODUCER_SERVICE(source), frame, index) != 0)
            *frame = nullptr;
        mlt_producer_close(source);
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
