#pragma once

#include "model/wordblock.h"

#include <QList>
#include <QString>
#include <QUuid>
#include <cmath>
#include <cstdint>
#include <utility>

// Where every kept word plays in the edited result, and every conversion from that map to
// the grids outputs are made on (samples, frames). Preview, movie, sound and subtitles all
// derive their times from here, so they agree with one another however many cuts there are.
//
// The rule in one sentence: times stay exact seconds on the map; an output grid index is
// taken from the running composition time (never from a cut's own length), so rounding
// errors are bounded by half a grid step at every point and never add up.
namespace kavel {

// Gain of one word's stretch. Fades are linear ramps inside the stretch.
struct SegmentAudio
{
    float volume = 1.0f;
    bool muted = false;
    double fadeIn = 0.0;
    double fadeOut = 0.0;

    friend bool operator==(const SegmentAudio &, const SegmentAudio &) = default;

    // Gain at `into` seconds after the start of a stretch `length` seconds long. A fade
    // ramps over min(fade, length), so a fade longer than its word still reaches the
    // word's volume; where a fade-in and a fade-out overlap the lower ramp wins.
    double gainAt(double into, double length) const;
};

// One word's stretch of a source, already clamped to it, laid at `compositionStart`.
struct EditSegment
{
    QUuid blockId;
    QString sourcePath;
    double sourceStart = 0.0;
    double sourceEnd = 0.0;
    double compositionStart = 0.0;
    // False for a source without a picture: only its sound is laid in.
    bool withVideo = true;
    SegmentAudio audio;

    double length() const { return sourceEnd - sourceStart; }
    double compositionEnd() const { return compositionStart + length(); }
    friend bool operator==(const EditSegment &, const EditSegment &) = default;
};

// The edited result: segments in timeline order, each starting where the previous ended.
struct EditList
{
    bool hasVideo = false;
    QList<EditSegment> segments;

    double duration() const { return segments.isEmpty() ? 0.0 : segments.last().compositionEnd(); }
    // The segment playing at composition time `t`, or -1 outside the result.
    qsizetype segmentAt(double t) const;
    // Whether segment `i` continues segment i-1 without a jump in the same source, so the
    // join needs no smoothing and both read one stretch of the source.
    bool continuesPrevious(qsizetype i) const;
};

// What the map needs to know about one loaded source.
struct SourceTrackInfo
{
    QUuid id;
    QString path;
    bool hasVideo = false;
    // Length of the source's reference track (video if any, else audio), seconds.
    double trackDuration = 0.0;
};

// The block's own media plays from `compositionStart` for block.duration() seconds; the
// preview's link between source time and edited-timeline time.
struct CompositionEntry
{
    double compositionStart = 0.0;
    WordBlock block;

    double compositionEnd() const { return compositionStart + block.duration(); }
};

struct CompositionPlan
{
    EditList editList;
    // Entry i belongs to editList.segments[i].
    QList<CompositionEntry> map;
    double duration = 0.0;
};

// Blocks shorter than this after clamping take no time in the result.
inline constexpr double shortestSegment = 0.01;

// `blocks` in any order (sorted by sortOrder, stable); `sources` in load order. A block
// whose source is not among `sources` uses the first source. A block is clamped to
// [0, trackDuration] and skipped when less than shortestSegment remains. Times are exact
// sums of the clamped lengths; nothing is rounded. With a pause limit the recorded pauses
// between neighbouring words are given back first (withPauses), so the map, and every
// output made from it, hold them.
CompositionPlan planComposition(const QList<WordBlock> &blocks,
                                const QList<SourceTrackInfo> &sources, double pauseLimit = 0.0);

// Brings `plan`, laid by planComposition(before, sources, pauseLimit), to exactly what
// planComposition(after, sources, pauseLimit) gives, laying again only the words between
// the first and the last that changed; the entries before them are kept as they are and
// those after them only move. An edit to one word of an hour then costs a walk over the
// list, not a new map; words that only moved, beside the same neighbours, keep their
// entries. Both lists must be in sortOrder; otherwise, or when the words were shuffled
// rather than moved in runs, returns false and leaves `plan` alone.
bool updateComposition(CompositionPlan &plan, const QList<WordBlock> &before,
                       const QList<WordBlock> &after, const QList<SourceTrackInfo> &sources,
                       double pauseLimit);

namespace timing {

// A rate as the container states it, exactly (30000/1001 for NTSC video).
struct Rate
{
    int num = 30;
    int den = 1;
    double perSecond() const { return double(num) / den; }
    double secondsAt(std::int64_t index) const { return double(index) * den / num; }
    friend bool operator==(const Rate &, const Rate &) = default;
};

// A half-open run of grid indices.
struct Span
{
    std::int64_t begin = 0;
    std::int64_t end = 0;
    std::int64_t count() const { return end - begin; }
};

// Samples: sample n of the output plays at n / rate. A segment owns the samples whose
// rounded running times fall in it; consecutive segments share their boundary index, so
// the output has exactly round(duration * rate) samples.
inline std::int64_t sampleAt(double seconds, int rate)
{
    return std::llround(seconds * rate);
}
Span outputSamples(const EditSegment &segment, int rate);

// Frames: output frame k is shown from k / fps and shows what the map plays at that
// instant, so a segment owns the frames whose start time falls inside it.
std::int64_t firstFrameAtOrAfter(double seconds, Rate rate);
Span outputFrames(const EditSegment &segment, Rate rate);
inline std::int64_t frameCount(double duration, Rate rate)
{
    return firstFrameAtOrAfter(duration, rate);
}
// The source time shown at output frame `k`, which must lie in `segment`'s frames.
double sourceTimeAtFrame(const EditSegment &segment, std::int64_t k, Rate rate);
// The nearest grid index to a time (a source frame in the same rate's units).
inline std::int64_t nearestIndex(double seconds, Rate rate)
{
    return std::llround(seconds * rate.perSecond());
}

} // namespace timing
} // namespace kavel
