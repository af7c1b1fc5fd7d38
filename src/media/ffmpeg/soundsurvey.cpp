#include "soundsurvey.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kavel::media::ffmpeg {

namespace {

constexpr std::array<double, 2> mainsFrequencies {50.0, 60.0};
constexpr int harmonics = 4;
// Either side of each tone, clear of the half-second block's main lobe (±4 Hz) and of the
// other mains' tones.
constexpr std::array<double, 4> neighbours {-12.0, -8.0, 8.0, 12.0};
// A hum stands this far (dB) over its neighbours in the quiet blocks; a harmonic of it
// this far is taken out with it. Noise alone scatters a few decibels around zero.
constexpr double humProminence = 10.0;
constexpr double harmonicProminence = 6.0;

double toDecibels(double power)
{
    return power > 0.0 ? 10.0 * std::log10(power) : -288.0;
}

// The power of one frequency in a block (Goertzel's recurrence).
double powerAt(const std::vector<float> &block, double frequency, double rate)
{
    const double coefficient = 2.0 * std::cos(2.0 * std::numbers::pi * frequency / rate);
    double s1 = 0.0, s2 = 0.0;
    for (const float x : block) {
        const double s = double(x) + coefficient * s1 - s2;
        s2 = s1;
        s1 = s;
    }
    return s1 * s1 + s2 * s2 - coefficient * s1 * s2;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

SoundSurvey::SoundSurvey(int rate)
    : m_window(std::max(rate / 10, 1))
    , m_decimation(std::max(rate / 2000, 1))
    , m_lowRate(double(rate) / double(m_decimation))
{
    m_low.reserve(size_t(m_lowRate / 2.0) + 1);
}

void SoundSurvey::add(const float *left, const float *right, std::int64_t count)
{
    const auto blockLength = size_t(std::lround(m_lowRate / 2.0));
    for (std::int64_t n = 0; n < count; ++n) {
        const double mid = 0.5 * (double(left[n]) + double(right[n]));
        m_windowSum += mid * mid;
        if (++m_inWindow == m_window)
            closeWindow();
        m_blockEnergy += mid * mid;
        ++m_blockSamples;
        m_sum += mid;
        if (++m_inSum == m_decimation) {
            m_low.push_back(float(m_sum / m_decimation));
            m_sum = 0.0;
            m_inSum = 0;
            if (m_low.size() == blockLength)
                closeBlock();
        }
    }
}

void SoundSurvey::closeWindow()
{
    const double level = toDecibels(m_windowSum / double(m_window));
    // Muted words and cut-out silence say nothing about the hiss under the speech.
    if (level > -100.0)
        m_levels.push_back(level);
    m_windowSum = 0.0;
    m_inWindow = 0;
}

void SoundSurvey::closeBlock()
{
    Block block {toDecibels(m_blockEnergy / double(m_blockSamples)), {}, {}};
    m_blockEnergy = 0.0;
    m_blockSamples = 0;
    if (block.level > -100.0) {
        // A Hann window keeps a loud tone from spilling into its neighbours' bins.
        const double length = double(m_low.size());
        for (size_t i = 0; i < m_low.size(); ++i)
            m_low[i] *= float(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(i) / length));
        for (const double mains : mainsFrequencies)
            for (int k = 1; k <= harmonics; ++k) {
                const double tone = mains * k;
                double around = 0.0;
                for (const double offset : neighbours)
                    around += powerAt(m_low, tone + offset, m_lowRate);
                const double power = toDecibels(powerAt(m_low, tone, m_lowRate) + 1e-20);
                block.power.push_back(power);
                block.prominence.push_back(
                    power - toDecibels(around / double(neighbours.size()) + 1e-20));
            }
        m_blocks.push_back(std::move(block));
    }
    m_low.clear();
}

double SoundSurvey::noiseFloor() const
{
    if (m_levels.empty())
        return -144.0;
    std::vector<double> levels = m_levels;
    const auto tenth = levels.begin() + std::ptrdiff_t(levels.size() / 10);
    std::nth_element(levels.begin(), tenth, levels.end());
    return *tenth;
}

std::optional<SoundSurvey::Hum> SoundSurvey::hum() const
{
    if (m_blocks.empty())
        return std::nullopt;
    // Between the words a hum has the field to itself; under speech, a voice held on one
    // pitch could pass for one.
    std::vector<const Block *> quiet;
    for (const Block &block : m_blocks)
        quiet.push_back(&block);
    std::sort(quiet.begin(), quiet.end(),
              [](const Block *a, const Block *b) { return a->level < b->level; });
    quiet.resize(std::max<size_t>(quiet.size() / 4, 1));

    std::optional<Hum> found;
    double strongest = humProminence;
    for (size_t m = 0; m < mainsFrequencies.size(); ++m) {
        std::vector<double> standing(harmonics), power(harmonics);
        for (int k = 0; k < harmonics; ++k) {
            std::vector<double> prominences, powers;
            for (const Block *block : quiet) {
                prominences.push_back(block->prominence[m * harmonics + size_t(k)]);
                powers.push_back(block->power[m * harmonics + size_t(k)]);
            }
            standing[size_t(k)] = median(prominences);
            power[size_t(k)] = median(powers);
        }
        const auto best = std::max_element(standing.begin(), standing.end());
        if (*best < strongest)
            continue;
        strongest = *best;
        found = Hum {mainsFrequencies[m], {}};
        // In a clean recording a harmonic that is not there can still stand over neighbours
        // that are not there either; one far under the hum itself is left alone.
        const double loudest = power[size_t(best - standing.begin())];
        for (int k = 0; k < harmonics; ++k)
            if (standing[size_t(k)] >= harmonicProminence && power[size_t(k)] > loudest - 40.0)
                found->frequencies.push_back(mainsFrequencies[m] * (k + 1));
    }
    return found;
}

} // namespace kavel::media::ffmpeg
