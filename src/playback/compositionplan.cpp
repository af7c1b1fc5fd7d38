#include "compositionplan.h"

#include "model/jsonfields.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

using namespace Qt::StringLiterals;

namespace kavel {

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

QList<DeletedTimeRange> deletedTimeRanges(const QList<CompositionEntry> &map)
{
    // Only the times matter here; sorting them alone is far cheaper than sorting words.
    std::vector<std::pair<double, double>> sorted;
    sorted.reserve(size_t(map.size()));
    for (const CompositionEntry &entry : map)
        sorted.emplace_back(entry.block.mediaStart, entry.block.mediaEnd);
    // Transcripts are mostly in source order already; checking costs far less than sorting.
    const auto byStart = [](const auto &a, const auto &b) { return a.first < b.first; };
    if (!std::is_sorted(sorted.cbegin(), sorted.cend(), byStart))
        std::stable_sort(sorted.begin(), sorted.end(), byStart);

    QList<DeletedTimeRange> ranges;
    for (size_t i = 1; i < sorted.size(); ++i) {
        if (sorted[i].first - sorted[i - 1].second > 0.05)
            ranges.append({sorted[i - 1].second, sorted[i].first});
    }
    return ranges;
}

QList<ParagraphSpan> paragraphSpans(const QList<Paragraph> &paragraphs,
                                    const QList<CompositionEntry> &map)
{
    QList<qsizetype> order(paragraphs.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return paragraphs[a].sortOrder < paragraphs[b].sortOrder;
    });
    const double end = map.isEmpty() ? 0.0 : map.last().compositionEnd();
    QList<ParagraphSpan> spans(paragraphs.size());
    // The map holds the words in playing order, less those too short to play, so one walk
    // over both finds where each paragraph's first played word lies.
    qsizetype next = 0;
    ParagraphSpan *previous = nullptr;
    for (qsizetype index : std::as_const(order)) {
        ParagraphSpan &span = spans[index];
        span.start = next < map.size() ? map.at(next).compositionStart : end;
        if (previous)
            previous->end = span.start;
        for (const WordBlock &block : paragraphs.at(index).wordBlocks) {
            if (next < map.size() && map.at(next).block.id == block.id)
                ++next;
        }
        previous = &span;
    }
    if (previous)
        previous->end = end;
    return spans;
}

} // namespace kavel
