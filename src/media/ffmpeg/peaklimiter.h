#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace kavel::media::ffmpeg {

// Keeps the true peak (the peak of the sound between its samples, found at four times the
// rate) under a ceiling by turning the gain down around the few places that would pass it.
// It looks a few milliseconds ahead, so the gain falls smoothly before a peak instead of
// clipping it, and rises again slowly afterwards, so the speech around a click is not
// pumped. Everything under the ceiling passes untouched.
//
// The look-ahead makes the output late by latency() samples: the caller feeds that many
// samples more (silence after the end) and drops as many from the start.
class PeakLimiter
{
public:
    // `ceiling` in dBTP.
    PeakLimiter(int rate, double ceiling);

    std::int64_t latency() const;
    // Takes `count` stereo samples and gives back in their place the ones from latency()
    // samples before.
    void process(float *left, float *right, std::int64_t count);
    // The deepest gain reduction so far, in dB (0 when nothing was touched).
    double deepestReduction() const;

private:
    // The largest magnitude on the interval from the sample `half` samples back to the
    // next one, at four times the rate.
    float intervalPeak() const;
    // The gain the output sample leaving now gets, given the gain the newest interval
    // allows.
    float gainFor(float allowed);

    int m_half;
    std::int64_t m_lookAhead;
    float m_ceiling;
    float m_release;
    // The last 2 × m_half input samples, newest last, for the interpolation.
    std::vector<float> m_historyLeft, m_historyRight;
    std::size_t m_historyAt = 0;
    // Input waiting to go out, as long as the latency.
    std::vector<float> m_delayLeft, m_delayRight;
    std::size_t m_delayAt = 0;
    // The allowed gains over the look-ahead window, as (index, gain) with rising gains, so
    // that the front is the window's minimum.
    std::deque<std::pair<std::int64_t, float>> m_window;
    std::int64_t m_index = 0;
    float m_held = 1.0f;
    // The last look-ahead's worth of held gains and their sum: the gain that leaves is
    // their mean, a straight ramp down to each peak.
    std::vector<float> m_ramp;
    std::size_t m_rampAt = 0;
    double m_rampSum;
    float m_lowest = 1.0f;
};

} // namespace kavel::media::ffmpeg
