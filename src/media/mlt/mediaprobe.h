#pragma once

#include "media/mediatypes.h"

namespace kavel::media::mlt {

struct FrameRate
{
    int num = 30;
    int den = 1;
    double value() const { return double(num) / den; }
};

struct ProbedMedia
{
    MediaInfo info;
    // The first video stream's rate as the container states it, exactly.
    FrameRate frameRate;
};

// Reads the container with FFmpeg directly: stream durations and the display matrix are
// more precise there than what MLT's producer summarises. Throws MediaError.
ProbedMedia probeMedia(const QString &path);

} // namespace kavel::media::mlt
