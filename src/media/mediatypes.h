#pragma once

#include "model/errors.h"
#include "timing/compositionmap.h"

#include <QCoreApplication>
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

// A recording that has nothing to recognise: no sound at all, or no length. No fallback
// helps with it, so it is refused rather than uploaded or converted.
class NoSoundError : public MediaError
{
public:
    using MediaError::MediaError;
};

// Throws NoSoundError when `info` describes no sound or sound of no length; `name`, when
// given, says which file.
inline void requireSound(const MediaInfo &info, const QString &name = {})
{
    const QString which = name.isEmpty() ? QString() : QStringLiteral("：") + name;
    if (!info.hasAudio)
        throw NoSoundError(QCoreApplication::translate("kavel::media", "媒体文件中没有声音")
                           + which);
    const double seconds = info.audioDuration > 0
        ? info.audioDuration
        : (std::isfinite(info.duration) ? info.duration : 0.0);
    if (!(seconds > 0))
        throw NoSoundError(
            QCoreApplication::translate("kavel::media", "媒体文件的长度为 %1 秒，没有可识别的声音")
                .arg(seconds, 0, 'f', 1)
            + which);
}

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
