#pragma once

#include "media/mediatypes.h"
#include "model/wordblock.h"

#include <QList>

// The edit list that preview and export both cut by: word blocks laid end to end in
// playback order, each clamped to its source.
namespace kavel {

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

} // namespace kavel
