#include "peaklimiter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kavel::media::ffmpeg {

namespace {

// Half the interpolator's length in samples: 16 taps for each point between two samples
// find an inter-sample peak to within a few hundredths of a decibel.
constexpr int half = 8;
constexpr int taps = 2 * half;
constexpr int phases = 3;

// Windowed sinc for the points a quarter, a half and three quarters of the way to the
// next sample, taking the samples from half - 1 before to half after.
constexpr auto interpolator = [] {
    std::array<std::array<float, taps>, phases> table {};
    for (int k = 0; k < phases; ++k) {
        const double offset = double(k + 1) / 4.0;
        for (int i = 0; i < taps; ++i) {
            // Distance from the point to the sample i - half + 1 samples after the centre.
            const double t = offset - double(i - half + 1);
            const double x = std::numbers::pi * t;
            const double sinc = std::sin(x) / x;
            const double w = std::numbers::pi * t / half;
            const double blackman = 0.42 + 0.5 * std::cos(w) + 0.08 * std::cos(2.0 * w);
            table[size_t(k)][size_t(i)] = float(sinc * blackman);
        }
    }
    return table;
};

// How far under the ceiling the limiter aims: another meter's interpolator finds the
// same peaks a little differently.
constexpr double margin = 0.2;
constexpr double lookAheadSeconds = 0.005;
// Slow enough that the gain does not follow the speech's own waveform back up (which
// would be heard as distortion), quick enough that the words after a click keep their
// level.
constexpr double releaseSeconds = 0.06;

} // namespace

PeakLimiter::PeakLimiter(int rate, double ceiling)
    : m_half(half)
    , m_lookAhead(std::max<std::int64_t>(std::llround(lookAheadSeconds * rate), 1))
    , m_ceiling(float(std::pow(10.0, (ceiling - margin) / 20.0)))
    , m_release(float(1.0 - std::exp(-1.0 / (releaseSeconds * rate))))
    , m_historyLeft(2 * taps, 0.0f)
    , m_historyRight(2 * taps, 0.0f)
    , m_delayLeft(size_t(latency()), 0.0f)
    , m_delayRight(size_t(latency()), 0.0f)
    , m_ramp(size_t(m_lookAhead), 1.0f)
    , m_rampSum(double(m_lookAhead))
{ }

std::int64_t PeakLimiter::latency() const
{
    return m_half + m_lookAhead;
}

double PeakLimiter::deepestReduction() const
{
    return -20.0 * std::log10(double(m_lowest));
}

float PeakLimiter::intervalPeak() const
{
    static const auto table = interpolator();
    // The history is written twice, so the last `taps` samples always lie in one piece,
    // oldest first.
    const float *l = m_historyLeft.data() + m_historyAt;
    const float *r = m_historyRight.data() + m_historyAt;
    float peak = std::max(std::abs(l[half - 1]), std::abs(r[half - 1]));
    for (const auto &phase : table) {
        float a = 0.0f, b = 0.0f;
        for (int i = 0; i < taps; ++i) {
            a += phase[size_t(i)] * l[i];
            b += phase[size_t(i)] * r[i];
        }
        peak = std::max({peak, std::abs(a), std::abs(b)});
    }
    return peak;
}

float PeakLimiter::gainFor(float allowed)
{
    // The lowest gain any interval touching the samples inside the look-ahead allows...
    const std::int64_t index = m_index++;
    while (!m_window.empty() && m_window.back().second >= allowed)
        m_window.pop_back();
    m_window.emplace_back(index, allowed);
    while (m_window.front().first < index - m_lookAhead - 1)
        m_window.pop_front();
    const float lowest = m_window.front().second;
    // ...taken at once and let go slowly...
    m_held = lowest < m_held ? lowest : m_held + (lowest - m_held) * m_release;
    // ...and averaged over the look-ahead, which turns each step down into a ramp that
    // ends at the peak. Every value averaged already covers the sample leaving, so the
    // mean is no higher than what it allows.
    m_rampSum += double(m_held) - double(m_ramp[m_rampAt]);
    m_ramp[m_rampAt] = m_held;
    m_rampAt = (m_rampAt + 1) % m_ramp.size();
    return std::min(float(m_rampSum / double(m_lookAhead)), 1.0f);
}

void PeakLimiter::process(float *left, float *right, std::int64_t count)
{
    const auto length = size_t(taps);
    for (std::int64_t n = 0; n < count; ++n) {
        m_historyLeft[m_historyAt] = m_historyLeft[m_historyAt + length] = left[n];
        m_historyRight[m_historyAt] = m_historyRight[m_historyAt + length] = right[n];
        m_historyAt = (m_historyAt + 1) % length;
        const float peak = intervalPeak();
        const float gain = gainFor(peak > m_ceiling ? m_ceiling / peak : 1.0f);
        m_lowest = std::min(m_lowest, gain);

        const float outLeft = m_delayLeft[m_delayAt], outRight = m_delayRight[m_delayAt];
        m_delayLeft[m_delayAt] = left[n];
        m_delayRight[m_delayAt] = right[n];
        m_delayAt = (m_delayAt + 1) % m_delayLeft.size();
        left[n] = outLeft * gain;
        right[n] = outRight * gain;
    }
}

} // namespace kavel::media::ffmpeg
