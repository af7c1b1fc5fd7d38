#include "compositionmap.h"

#include "pauses.h"

#include <algorithm>

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
    const auto bySortOrder
        = [](const WordBlock &a, const WordBlock &b) { return a.sortOrder < b.sortOrder; };
    QList<WordBlock> sorted = blocks;
    if (!std::is_sorted(sorted.cbegin(), sorted.cend(), bySortOrder))
        std::stable_sort(sorted.begin(), sorted.end(), bySortOrder);
    sorted = withPauses(std::move(sorted), pauseLimit);

    plan.map.reserve(sorted.size());
    plan.editList.segments.reserve(sorted.size());
    double insertAt = 0.0;
    for (const WordBlock &block : std::as_const(sorted)) {
        const auto source
            = std::find_if(sources.cbegin(), sources.cend(),
                           [&](const SourceTrackInfo &s) { return s.id == block.sourceFileId; });
        const SourceTrackInfo &tracks = source != sources.cend() ? *source : sources.first();

        double start = std::max(block.mediaStart, 0.0);
        double end = block.mediaEnd;
        const double trackDur = tracks.trackDuration;
        if (trackDur > 0 && std::isfinite(trackDur)) {
            start = std::min(start, trackDur - shortestSegment);
            end = std::min(end, trackDur);
        }
        if (!(end > start) || end - start < shortestSegment)
            continue;

        plan.map.append({insertAt, block});
        EditSegment segment;
        segment.blockId = block.id;
        segment.sourcePath = tracks.path;
        segment.sourceStart = start;
        segment.sourceEnd = end;
        segment.compositionStart = insertAt;
        segment.withVideo = tracks.hasVideo;
        segment.audio
            = {block.volumeLevel, block.isMuted, block.fadeInDuration, block.fadeOutDuration};
        plan.editList.segments.append(segment);
        insertAt += end - start;
    }
    plan.duration = insertAt;
    return plan;
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
