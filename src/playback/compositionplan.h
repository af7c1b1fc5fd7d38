#pragma once

#include "media/mediaengine.h"
#include "model/paragraph.h"
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

// The cuts the edit makes in the speech, for the progress bar: the stretches of source
// time between the first and the last stretch the map plays that it does not play. They
// are read from the map rather than the words, so the pauses it gives back are not cuts;
// nor is the silence before the first word and after the last, which is never played.
// Gaps under 0.05 s between stretches are breath, not cuts.
QList<DeletedTimeRange> deletedTimeRanges(const QList<CompositionEntry> &map);

// Where each paragraph lies on the edited timeline, from the map: entry i is the start of
// paragraphs[i] and the end of the one before it in playing order, the last entry the end
// of the result. A paragraph with no word in the map takes no time.
struct ParagraphSpan
{
    double start = 0.0;
    double end = 0.0;
};
QList<ParagraphSpan> paragraphSpans(const QList<Paragraph> &paragraphs,
                                    const QList<CompositionEntry> &map);

} // namespace kavel

Q_DECLARE_METATYPE(kavel::DeletedTimeRange)
