#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kavel::media::ffmpeg {

// What the denoiser needs to know about a cut sound, gathered in one reading of it: how
// loud its quietest stretches are (the hiss to take out), and whether a steady mains hum
// (50 or 60 Hz and their first harmonics) runs under it.
class SoundSurvey
{
public:
    // The hum's fundamental and the frequencies (Hz) that stand out of it.
    struct Hum
    {
        double mains = 0.0;
        std::vector<double> frequencies;
    };

    explicit SoundSurvey(int rate);

    void add(const float *left, const float *right, std::int64_t count);

    // The quietest stretches' level (dBFS of 100 ms windows, the tenth percentile of those
    // that are not digital silence).
    double noiseFloor() const;
    // None when no hum stands clearly out of its surroundings.
    std::optional<Hum> hum() const;

private:
    struct Block
    {
        double level;
        // Per mains and harmonic: how far the tone stands over its neighbours, and its
        // own power (dB).
        std::vector<double> prominence;
        std::vector<double> power;
    };
    void closeWindow();
    void closeBlock();

    // The 100 ms windows' levels.
    std::int64_t m_window;
    std::int64_t m_inWindow = 0;
    double m_windowSum = 0.0;
    std::vector<double> m_levels;
    // The hum is looked for in a copy of the sound averaged down to about 2 kHz, in half
    // second blocks: long enough to tell a steady tone a few hertz from its neighbours.
    int m_decimation;
    double m_lowRate;
    int m_inSum = 0;
    double m_sum = 0.0;
    std::vector<float> m_low;
    double m_blockEnergy = 0.0;
    std::int64_t m_blockSamples = 0;
    std::vector<Block> m_blocks;
};

} // namespace kavel::media::ffmpeg
