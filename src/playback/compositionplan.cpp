#include "compositionplan.h"

#include <algorithm>
#include <cmath>

namespace kavel {

namespace {

qint64 toTicks(double seconds)
{
    return std::llround(seconds * mediaTimescale);
}

double fromTicks(qint64 ticks)
{
    return static_cast<double>(ticks) / mediaTimescale;
}

} // namespace

CompositionPlan planComposition(const QList<WordBlock> &blocks,
                                const QList<SourceTrackInfo> &sources)
{
    CompositionPlan plan;
    if (sources.isEmpty())
        return plan;
    plan.editList.hasVideo = std::any_of(sources.cbegin(), sources.cend(),
                                         [](const SourceTrackInfo &s) { return s.hasVideo; });

    QList<WordBlock> sorted = blocks;
    std::stable_sort(sorted.begin(), sorted.end(), [](const WordBlock &a, const WordBlock &b) {
        return a.sortOrder < b.sortOrder;
    });

    plan.map.reserve(sorted.size());
    plan.editList.segments.reserve(sorted.size());
    qint64 insertAt = 0;
    for (const WordBlock &block : std::as_const(sorted)) {
        const auto source
            = std::find_if(sources.cbegin(), sources.cend(),
                           [&](const SourceTrackInfo &s) { return s.id == block.sourceFileId; });
        const SourceTrackInfo &tracks = source != sources.cend() ? *source : sources.first();

        double start = std::max(block.mediaStart, 0.0);
        double end = block.mediaEnd;
        const double trackDur = tracks.trackDuration;
        if (trackDur > 0 && std::isfinite(trackDur)) {
            start = std::min(start, trackDur - 0.01);
            end = std::min(end, trackDur);
        }
        if (!(end > start) || end - start < 0.01)
            continue;

        const qint64 startTicks = toTicks(start);
        const qint64 endTicks = toTicks(end);
        plan.map.append({fromTicks(insertAt), block});
        media::EditSegment segment;
        segment.blockId = block.id;
        segment.sourcePath = tracks.path;
        segment.sourceStart = fromTicks(startTicks);
        segment.sourceEnd = fromTicks(endTicks);
        segment.compositionStart = fromTicks(insertAt);
        segment.withVideo = tracks.hasVideo;
        segment.audio
            = {block.volumeLevel, block.isMuted, block.fadeInDuration, block.fadeOutDuration};
        plan.editList.segments.append(segment);
        insertAt += endTicks - startTicks;
    }
    plan.duration = fromTicks(insertAt);
    return plan;
}

} // namespace kavel
