#pragma once

#include <QString>
#include <vector>

namespace kavel::media::ffmpeg {

// The sound of a file as its mean power per millisecond (the two channels averaged,
// sampled at 16 kHz, the rate speech is recognised at): element i covers
// [i, i + 1) ms on the file's own clock. Throws MediaError when it cannot be read.
std::vector<float> loudnessPerMillisecond(const QString &path);

} // namespace kavel::media::ffmpeg
