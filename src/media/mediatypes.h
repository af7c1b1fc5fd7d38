#pragma once

#include "model/errors.h"
#include "timing/compositionmap.h"

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

// The edit list engines cut by is the composition map, shared with everything that
// derives times from it.
using kavel::EditList;
using kavel::EditSegment;
using kavel::SegmentAudio;

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
