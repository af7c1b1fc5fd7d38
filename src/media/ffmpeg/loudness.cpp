#include "loudness.h"

#include "audiosource.h"

#include <algorithm>

namespace kavel::media::ffmpeg {

std::vector<float> loudnessPerMillisecond(const QString &path)
{
    constexpr int rate = 16000;
    constexpr int perMillisecond = rate / 1000;
    double seconds = 0.0;
    {
        const InputPtr input = openInput(path);
        if (input->duration > 0)
            seconds = double(input->duration) / AV_TIME_BASE;
    }
    AudioSource source(path, rate);
    const auto total = static_cast<std::int64_t>(seconds * 1000.0) + 1;
    std::vector<float> power(static_cast<size_t>(total), 0.0f);
    // Read in pieces of a few seconds: an hour at 16 kHz is too much to hold twice.
    constexpr std::int64_t chunkMs = 4000;
    std::vector<float> left(chunkMs * perMillisecond), right(chunkMs * perMillisecond);
    for (std::int64_t first = 0; first < total; first += chunkMs) {
        const std::int64_t count = std::min(chunkMs, total - first);
        source.read(first * perMillisecond, count * perMillisecond, left.data(), right.data());
        for (std::int64_t ms = 0; ms < count; ++ms) {
            double sum = 0.0;
            for (int k = 0; k < perMillisecond; ++k) {
                const size_t at = size_t(ms * perMillisecond + k);
                const double mid = 0.5 * (double(left[at]) + double(right[at]));
                sum += mid * mid;
            }
            power[size_t(first + ms)] = float(sum / perMillisecond);
        }
    }
    return power;
}

} // namespace kavel::media::ffmpeg
