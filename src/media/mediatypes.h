#pragma once

#include "model/errors.h"

#include <QList>
#include <QSize>
#include <QString>
#include <QUuid>
#include <cmath>

// Value types that cross the seam between the engine-free playback and export logic and
// a media engine. Times are seconds on the source's own clock unless said otherwise.
namespace kavel::media {

// A media file that could not be opened, has no usable stream, or failed while decoding.
class MediaError : public Error
{
public:
    using Error::Error;
};

struct MediaInfo
{
    // Seconds; NaN when the container does not say.
    double duration = std::nan("");
    bool hasVideo = false;
    bool hasAudio = false;
    // Length of the first video (or audio) stream; the reference for clamping cuts.
    double videoDuration = 0.0;
    double audioDuration = 0.0;
    double frameRate = 0.0;
    QSize videoSize;
    // Clockwise rotation the picture needs to be shown upright (phone recordings).
    int rotationDegrees = 0;
};

// Gain of one word's stretch. Fades are linear, in seconds, inside the stretch.
struct SegmentAudio
{
    float volume = 1.0f;
    bool muted = false;
    double fadeIn = 0.0;
    double fadeOut = 0.0;

    friend bool operator==(const SegmentAudio &, const SegmentAudio &) = default;
};

// One word's stretch of a source, laid at `compositionStart` on the edited timeline.
// The range is already clamped to the source; its length on the timeline is
// sourceEnd - sourceStart.
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
    friend bool operator==(const EditSegment &, const EditSegment &) = default;
};

// The edited result: segments in timeline order, each starting where the previous ended.
struct EditList
{
    bool hasVideo = false;
    QList<EditSegment> segments;

    double duration() const
    {
        return segments.isEmpty() ? 0.0
                                  : segments.last().compositionStart + segments.last().length();
    }
};

// A segment the engine could not lay in; the rest of the list is still used.
struct SegmentFailure
{
    qsizetype index = 0;
    QString reason;
};

struct ThumbnailOptions
{
    // The frame is scaled to fit inside, aspect kept.
    QSize maximumSize {160, 90};
    // How far from the requested time the engine may pick a frame (e.g. a keyframe).
    double toleranceBefore = 0.0;
    double toleranceAfter = 0.0;
    bool applyRotation = true;
};

} // namespace kavel::media
