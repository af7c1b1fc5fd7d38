#pragma once

#include "timing/compositionmap.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QString>
#include <cstdint>
#include <random>
#include <vector>

// Media that says where it is: sound whose every sample encodes its own time (a slow
// sawtooth), pictures that carry their frame number as 16 black or white columns. Cut many
// times, the output can then be read back and every cut checked against the map.
namespace kavel::test {

// The sawtooth's period: a sample's value tells its source time modulo this.
inline constexpr double rampPeriod = 2.0;

// Sound alone, 16-bit WAV at `rate` with `channels` channels.
QString makeRampSound(const QString &dir, const QString &name, double seconds, int rate,
                      int channels);
// 160x90 H.264 at `fps` counting its frames, with the ramp as 48 kHz AAC stereo. With
// `cameraLike`, pictures come as cameras and screen recorders write them: in groups of three
// B-frames, the outer two of which no other picture is predicted from, and with their
// colours tagged BT.709.
QString makeCountingVideo(const QString &dir, const QString &name, double seconds, int fps,
                          bool cameraLike = false);

struct Sound
{
    int rate = 0;
    std::vector<float> left, right;
    std::int64_t size() const { return std::int64_t(left.size()); }
};
// Any file's sound decoded at its own rate (or `rate` when given), stereo.
Sound decodeSound(const QString &path, int rate = 0);
// The number each picture of a file carries, in order.
std::vector<int> decodeFrameNumbers(const QString &path);

// Black pictures at `size` and 30 fps with silent 48 kHz sound: whatever is drawn into
// them stands out.
QString makeBlackVideo(const QString &dir, const QString &name, double seconds, QSize size);
// Per picture of a file, in order, how many pixels inside `area` have a luma above
// `level` (0–255).
std::vector<int> brightPixelsPerFrame(const QString &path, QRect area, int level = 128);
// Picture `index` of a file in grey.
QImage grayFrame(const QString &path, int index);

// A transcript-like edit of a recording `seconds` long: words of 1 frame to 0.3 s, some
// touching, some 0.01 s apart, most further; kept as `runs` runs of consecutive words taken
// from anywhere in the recording, so almost every join is a cut, many of them backwards.
QList<WordBlock> randomEdit(double seconds, int runs, std::mt19937 &random,
                            const QUuid &source = {});

// How far the sound of `sound` lies from where `edit` puts it: the worst sample in any
// segment, away from its joins' smoothing, in seconds.
struct SoundOffsets
{
    double worstSample = 0.0;
    int segmentsChecked = 0;
};
// Lossless output only: a lossy codec's noise is larger than a millisecond of the ramp.
SoundOffsets measureSoundOffsets(const Sound &sound, const EditList &edit);

// White noise, for lossy output: it is timed by correlating it with a lossless render of
// the same edit, which the ramp has shown to be exact.
QString makeNoiseSound(const QString &dir, const QString &name, double seconds, int rate,
                       int channels);
// How many samples `sound` lies behind `reference` over [from, to) (left channel), the best
// match within ±maxLag by correlation.
std::int64_t bestLag(const Sound &sound, const Sound &reference, std::int64_t from, std::int64_t to,
                     std::int64_t maxLag);
// The largest shift (seconds, up to 3 ms) between `sound` and `reference` inside any word.
double worstLag(const Sound &sound, const Sound &reference, const EditList &edit);

// The source time the ramp shows around output time `t` (median over ±2 ms).
double rampTimeAround(const Sound &sound, double t);
// `a` - `b` folded into one period of the ramp.
double rampDifference(double a, double b);

} // namespace kavel::test
