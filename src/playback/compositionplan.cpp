#include "compositionplan.h"

#include "model/jsonfields.h"

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Qt::StringLiterals;

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

    // The editor hands over flattened lists, which are in order already; checking is far
    // cheaper than sorting (which would also deep-copy every word of the shared list).
    const auto bySortOrder
        = [](const WordBlock &a, const WordBlock &b) { return a.sortOrder < b.sortOrder; };
    QList<WordBlock> sorted = blocks;
    if (!std::is_sorted(sorted.cbegin(), sorted.cend(), bySortOrder))
        std::stable_sort(sorted.begin(), sorted.end(), bySortOrder);

    plan.map.reserve(sorted.size());
    plan.clampedRanges.reserve(sorted.size());
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
        plan.clampedRanges.append({start, end});
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

LoadedSources loadSourceTracks(media::MediaEngine &engine, const QList<PlaybackSource> &sources,
                               const std::function<void(const QString &)> &log)
{
    LoadedSources loaded;
    for (const PlaybackSource &source : sources) {
        media::MediaInfo info;
        try {
            info = engine.probe(source.url.toLocalFile());
        } catch (const Error &error) {
            log(u"Failed to load tracks for "_s + json::uuidString(source.id) + u": "_s
                + error.description());
            continue;
        }
        if (!info.hasAudio) {
            log(u"No audio track for "_s + json::uuidString(source.id) + u", skipping"_s);
            continue;
        }
        loaded.tracks.append({source.id, source.url.toLocalFile(), info.hasVideo,
                              info.hasVideo ? info.videoDuration : info.audioDuration});
        if (std::isfinite(info.duration))
            loaded.totalDuration += info.duration;
    }
    return loaded;
}

QList<DeletedTimeRange> deletedTimeRanges(const QList<WordBlock> &blocks, double sourceDuration)
{
    // Only the times matter here; sorting them alone is far cheaper than sorting words.
    std::vector<std::pair<double, double>> sorted;
    sorted.reserve(size_t(blocks.size()));
    for (const WordBlock &block : blocks)
        sorted.emplace_back(block.mediaStart, block.mediaEnd);
    // Transcripts are mostly in source order already; checking costs far less than sorting.
    const auto byStart = [](const auto &a, const auto &b) { return a.first < b.first; };
    if (!std::is_sorted(sorted.cbegin(), sorted.cend(), byStart))
        std::stable_sort(sorted.begin(), sorted.end(), byStart);
    double total = sourceDuration;
    if (!(total > 0))
        total = sorted.empty() ? 1.0 : sorted.back().second + 1.0;

    QList<DeletedTimeRange> ranges;
    if (sorted.empty()) {
        ranges.append({0.0, total});
        return ranges;
    }
    if (sorted.front().first > 0.05)
        ranges.append({0.0, sorted.front().first});
    for (size_t i = 1; i < sorted.size(); ++i) {
        if (sorted[i].first - sorted[i - 1].second > 0.05)
            ranges.append({sorted[i - 1].second, sorted[i].first});
    }
    // A remainder under 0.1 s is usually the container padding the last word.
    if (total - sorted.back().second > 0.1)
        ranges.append({sorted.back().second, total});
    return ranges;
}

} // namespace kavel
