#pragma once

#include "media/mediaengine.h"
#include "model/wordblock.h"
#include "timing/compositionmap.h"

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
