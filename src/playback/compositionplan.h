#pragma once

#include "media/mediaengine.h"
#include "model/wordblock.h"

#include <QList>
#include <QUrl>
#include <functional>

// The edit list that preview and export both cut by: word blocks laid end to end in
// playback order, each clamped to its source.
namespace kavel {

// A source file the preview may play: the project's source id and its copy's location.
struct PlaybackSource
{
    QUuid id;
    QUrl url;
};

// A stretch of SOURCE time that the edited result does not play, in seconds.
struct DeletedTimeRange
{
    double start = 0.0;
    double end = 0.0;

    friend bool operator==(const DeletedTimeRange &, const DeletedTimeRange &) = default;
};

// What the plan needs to know about one loaded source.
struct SourceTrackInfo
{
    QUuid id;
    QString path;
    bool hasVideo = false;
    // Length of the source's reference track (video if any, else audio), seconds.
    double trackDuration = 0.0;
};

// The block's own media plays from `compositionStart` for block.duration() seconds; this
// is the one link between source time and edited-timeline time.
struct CompositionEntry
{
    double compositionStart = 0.0;
    WordBlock block;

    double compositionEnd() const { return compositionStart + block.duration(); }
};

struct CompositionPlan
{
    media::EditList editList;
    // Entry i belongs to editList.segments[i].
    QList<CompositionEntry> map;
    // The clamped range of entry i in seconds, before rounding to media ticks; what
    // diagnostics about the entry print.
    QList<std::pair<double, double>> clampedRanges;
    double duration = 0.0;
};

// Times are kept in ticks of 1/600 s, the unit media code works in, so that laying
// thousands of ranges end to end accumulates no rounding.
inline constexpr double mediaTimescale = 600.0;

// `blocks` in any order (they are sorted by sortOrder, stable); `sources` in load order
// and not empty. A block whose source is not among `sources` uses the first source. A
// block is clamped to [0, trackDuration] and skipped when less than 0.01 s remains.
CompositionPlan planComposition(const QList<WordBlock> &blocks,
                                const QList<SourceTrackInfo> &sources);

struct LoadedSources
{
    // In load order, only sources with sound.
    QList<SourceTrackInfo> tracks;
    // Sum of the usable sources' durations.
    double totalDuration = 0.0;
};

// Probes each source. One that cannot be read, or has no sound, is left out and
// reported through `log` (one line each, without a component prefix).
LoadedSources loadSourceTracks(media::MediaEngine &engine, const QList<PlaybackSource> &sources,
                               const std::function<void(const QString &)> &log);

// The stretches of source time no block covers, for the progress bar. Gaps under 0.05 s
// between words (0.1 s at the end) are breath, not cuts. A non-positive sourceDuration
// makes the end one second past the last word.
QList<DeletedTimeRange> deletedTimeRanges(const QList<WordBlock> &blocks, double sourceDuration);

} // namespace kavel

Q_DECLARE_METATYPE(kavel::DeletedTimeRange)
