#include "compositionmap.h"

#include "pauses.h"

#include <algorithm>
#include <vector>

namespace kavel {

double SegmentAudio::gainAt(double into, double length) const
{
    if (muted)
        return 0.0;
    double ramp = 1.0;
    if (fadeIn > 0) {
        const double span = std::min(fadeIn, length);
        if (span > 0 && into < span)
            ramp = std::min(ramp, std::max(into, 0.0) / span);
    }
    if (fadeOut > 0) {
        const double span = std::min(fadeOut, length);
        const double left = length - into;
        if (span > 0 && left < span)
            ramp = std::min(ramp, std::max(left, 0.0) / span);
    }
    return volume * ramp;
}

qsizetype EditList::segmentAt(double t) const
{
    if (segments.isEmpty() || !(t >= 0) || t >= duration())
        return -1;
    const auto after = std::upper_bound(
        segments.cbegin(), segments.cend(), t,
        [](double time, const EditSegment &s) { return time < s.compositionStart; });
    return (after - segments.cbegin()) - 1;
}

bool EditList::continuesPrevious(qsizetype i) const
{
    if (i <= 0 || i >= segments.size())
        return false;
    const EditSegment &previous = segments.at(i - 1);
    const EditSegment &segment = segments.at(i);
    // Word times are read from decimal text; a microsecond is far below one sample.
    return previous.sourcePath == segment.sourcePath
        && std::abs(segment.sourceStart - previous.sourceEnd) < 1e-6;
}

namespace {

// Lays one block at `insertAt` (clamped to its source, skipped when too short to play)
// and moves `insertAt` on by what it takes.
void layBlock(QList<CompositionEntry> &map, QList<EditSegment> &segments, const WordBlock &block,
              const QList<SourceTrackInfo> &sources, double &insertAt)
{
    // Nearly every block names the first source: try it before searching.
    auto source = sources.cbegin();
    if (source->id != block.sourceFileId) {
        source = std::find_if(sources.cbegin(), sources.cend(),
                              [&](const SourceTrackInfo &s) { return s.id == block.sourceFileId; });
        if (source == sources.cend())
            source = sources.cbegin();
    }
    const SourceTrackInfo &tracks = *source;

    double start = std::max(block.mediaStart, 0.0);
    double end = block.mediaEnd;
    const double trackDur = tracks.trackDuration;
    if (trackDur > 0 && std::isfinite(trackDur)) {
        start = std::min(start, trackDur - shortestSegment);
        end = std::min(end, trackDur);
    }
    if (!(end > start) || end - start < shortestSegment)
        return;

    map.append({insertAt, block});
    EditSegment segment;
    segment.blockId = block.id;
    segment.sourcePath = tracks.path;
    segment.sourceStart = start;
    segment.sourceEnd = end;
    segment.compositionStart = insertAt;
    segment.withVideo = tracks.hasVideo;
    segment.audio = {block.volumeLevel, block.isMuted, block.fadeInDuration, block.fadeOutDuration};
    segments.append(segment);
    insertAt += end - start;
}

bool bySortOrder(const WordBlock &a, const WordBlock &b)
{
    return a.sortOrder < b.sortOrder;
}

// Whether two blocks lay alike wherever they stand: every field but the place in the
// list, which moves for all words after an insertion or a deletion.
bool laidAlike(const WordBlock &a, const WordBlock &b)
{
    return a.id == b.id && a.mediaStart == b.mediaStart && a.mediaEnd == b.mediaEnd
        && a.pauseAfter == b.pauseAfter && a.sourceFileId == b.sourceFileId
        && a.volumeLevel == b.volumeLevel && a.isMuted == b.isMuted
        && a.fadeInDuration == b.fadeInDuration && a.fadeOutDuration == b.fadeOutDuration
        && a.isDeleted == b.isDeleted && a.isFiller == b.isFiller
        && a.isAudioDetached == b.isAudioDetached && a.text == b.text
        && a.speakerLabel == b.speakerLabel;
}

// Replaces items [from, to) of `list` with `items`, overwriting in place as far as the
// two overlap so that the items after them move at most once.
template<class T> void replaceRange(QList<T> &list, qsizetype from, qsizetype to, QList<T> items)
{
    const qsizetype common = std::min(to - from, items.size());
    for (qsizetype i = 0; i < common; ++i)
        list[from + i] = std::move(items[i]);
    if (items.size() > common)
        list.insert(from + common, items.size() - common, T {});
    for (qsizetype i = common; i < items.size(); ++i)
        list[from + i] = std::move(items[i]);
    if (to - from > common)
        list.remove(from + common, to - from - common);
}

} // namespace

CompositionPlan planComposition(const QList<WordBlock> &blocks,
                                const QList<SourceTrackInfo> &sources, double pauseLimit)
{
    CompositionPlan plan;
    if (sources.isEmpty())
        return plan;
    plan.editList.hasVideo = std::any_of(sources.cbegin(), sources.cend(),
                                         [](const SourceTrackInfo &s) { return s.hasVideo; });

    // The editor hands over flattened lists, which are in order already; checking is far
    // cheaper than sorting (which would also deep-copy every word of the shared list).
    QList<WordBlock> sorted = blocks;
    if (!std::is_sorted(sorted.cbegin(), sorted.cend(), bySortOrder))
        std::stable_sort(sorted.begin(), sorted.end(), bySortOrder);
    sorted = withPauses(std::move(sorted), pauseLimit);

    plan.map.reserve(sorted.size());
    plan.editList.segments.reserve(sorted.size());
    double insertAt = 0.0;
    for (const WordBlock &block : std::as_const(sorted))
        layBlock(plan.map, plan.editList.segments, block, sources, insertAt);
    plan.duration = insertAt;
    return plan;
}

bool updateComposition(CompositionPlan &plan, const QList<WordBlock> &before,
                       const QList<WordBlock> &after, const QList<SourceTrackInfo> &sources,
                       double pauseLimit)
{
    if (sources.isEmpty() || plan.map.size() != plan.editList.segments.size()
        || !std::is_sorted(before.cbegin(), before.cend(), bySortOrder)
        || !std::is_sorted(after.cbegin(), after.cend(), bySortOrder))
        return false;

    // The words alike at both ends. A word's pause depends on the word beside it, so the
    // last alike word before the change and the first after it are laid again too.
    const qsizetype n = before.size(), m = after.size(), shorter = std::min(n, m);
    qsizetype head = 0;
    while (head < shorter && before.at(head).sortOrder == after.at(head).sortOrder
           && laidAlike(before.at(head), after.at(head)))
        ++head;
    qsizetype tail = 0;
    while (tail < shorter - head && laidAlike(before.at(n - 1 - tail), after.at(m - 1 - tail)))
        ++tail;
    head = std::max<qsizetype>(head - 1, 0);
    tail = std::max<qsizetype>(tail - 1, 0);

    // The map's entries for those words: the map holds the words in order, less those too
    // short to play.
    const QList<CompositionEntry> &map = std::as_const(plan.map);
    qsizetype keptEntries = 0;
    for (qsizetype i = 0; i < head; ++i) {
        if (keptEntries < map.size() && map.at(keptEntries).block.id == before.at(i).id)
            ++keptEntries;
    }
    qsizetype laterEntries = map.size();
    for (qsizetype i = n - 1; i >= n - tail; --i) {
        if (laterEntries > keptEntries && map.at(laterEntries - 1).block.id == before.at(i).id)
            --laterEntries;
    }

    // Where each word between them stood before, if it did: a moved paragraph is a few
    // runs of words that kept their order, so the next word is nearly always found right
    // after the last. Many runs (a shuffle) are planned afresh.
    const qsizetype oldCount = n - tail - head, newCount = m - tail - head;
    std::vector<qsizetype> origin(size_t(std::max<qsizetype>(newCount, 0)), -1);
    qsizetype j = -1;
    int searches = 0;
    for (qsizetype i = head; i < m - tail; ++i) {
        const QUuid &id = after.at(i).id;
        if (j >= head && j + 1 < n - tail && before.at(j + 1).id == id) {
            ++j;
        } else {
            constexpr int mostSearches = 32;
            if (++searches > mostSearches)
                return false;
            j = -1;
            for (qsizetype k = head; k < n - tail; ++k) {
                if (before.at(k).id == id) {
                    j = k;
                    break;
                }
            }
        }
        origin[size_t(i - head)] = j;
    }
    std::vector<qsizetype> entryOf(size_t(std::max<qsizetype>(oldCount, 0)), -1);
    for (qsizetype i = head, e = keptEntries; i < n - tail; ++i) {
        if (e < laterEntries && map.at(e).block.id == before.at(i).id)
            entryOf[size_t(i - head)] = e++;
    }
    std::vector<bool> taken(entryOf.size(), false);
    // Whether after[i] and before[k] lay alike, counting "no word there" in both as alike.
    const auto alikeAt = [&](qsizetype i, qsizetype k) {
        const bool inAfter = i >= 0 && i < m, inBefore = k >= 0 && k < n;
        if (!inAfter || !inBefore)
            return inAfter == inBefore;
        return laidAlike(after.at(i), before.at(k));
    };

    // A word with the same neighbours as before keeps its pauses, and so its entry, which
    // only moves; the others are laid again with the pauses their neighbours give them.
    double insertAt
        = keptEntries > 0 ? plan.editList.segments.at(keptEntries - 1).compositionEnd() : 0.0;
    // Whoever plays the old list keeps its own copy; the entries that move are taken from
    // ours rather than copied (every copy of a segment counts a reference to its path,
    // which the playing thread counts too).
    plan.editList.segments.detach();
    QList<CompositionEntry> entries;
    QList<EditSegment> segments;
    entries.reserve(newCount);
    segments.reserve(newCount);
    for (qsizetype i = head; i < m - tail; ++i) {
        const qsizetype k = origin[size_t(i - head)];
        if (k >= 0 && !taken[size_t(k - head)] && alikeAt(i, k) && alikeAt(i - 1, k - 1)
            && alikeAt(i + 1, k + 1)) {
            taken[size_t(k - head)] = true;
            const qsizetype e = entryOf[size_t(k - head)];
            if (e < 0)
                continue; // too short to play then, and now
            entries.append(std::move(plan.map[e]));
            entries.last().compositionStart = insertAt;
            entries.last().block.sortOrder = after.at(i).sortOrder;
            EditSegment segment = std::move(plan.editList.segments[e]);
            segment.compositionStart = insertAt;
            insertAt += segment.sourceEnd - segment.sourceStart;
            segments.append(std::move(segment));
            continue;
        }
        const qsizetype from = std::max<qsizetype>(i - 1, 0);
        const QList<WordBlock> paused
            = withPauses(after.mid(from, std::min(i + 2, m) - from), pauseLimit);
        layBlock(entries, segments, paused.at(i - from), sources, insertAt);
    }
    const qsizetype laid = entries.size();
    replaceRange(plan.map, keptEntries, laterEntries, std::move(entries));
    replaceRange(plan.editList.segments, keptEntries, laterEntries, std::move(segments));

    // The words after the change keep their stretches and follow on, summed as a full
    // plan sums them so that every start is the same to the last bit.
    qsizetype word = m - tail;
    for (qsizetype e = keptEntries + laid; e < plan.map.size(); ++e) {
        CompositionEntry &entry = plan.map[e];
        while (word < m && after.at(word).id != entry.block.id)
            ++word;
        if (word < m)
            entry.block.sortOrder = after.at(word).sortOrder;
        EditSegment &segment = plan.editList.segments[e];
        entry.compositionStart = insertAt;
        segment.compositionStart = insertAt;
        insertAt += segment.sourceEnd - segment.sourceStart;
    }
    plan.duration = insertAt;
    plan.editList.hasVideo = std::any_of(sources.cbegin(), sources.cend(),
                                         [](const SourceTrackInfo &s) { return s.hasVideo; });
    return true;
}

namespace timing {

Span outputSamples(const EditSegment &segment, int rate)
{
    return {sampleAt(segment.compositionStart, rate), sampleAt(segment.compositionEnd(), rate)};
}

std::int64_t firstFrameAtOrAfter(double seconds, Rate rate)
{
    // A boundary that lands on a frame within floating-point noise belongs to that frame.
    return static_cast<std::int64_t>(std::ceil(seconds * rate.perSecond() - 1e-6));
}

Span outputFrames(const EditSegment &segment, Rate rate)
{
    return {firstFrameAtOrAfter(segment.compositionStart, rate),
            firstFrameAtOrAfter(segment.compositionEnd(), rate)};
}

double sourceTimeAtFrame(const EditSegment &segment, std::int64_t k, Rate rate)
{
    return segment.sourceStart + (rate.secondsAt(k) - segment.compositionStart);
}

} // namespace timing
} // namespace kavel
