#include "speechrecognizer.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kavel::server {

namespace {

constexpr size_t samplesPerSecond = 16000;
constexpr size_t quietWindow = samplesPerSecond / 10;
constexpr size_t quietStep = samplesPerSecond / 100;

} // namespace

std::vector<size_t> stretchBoundaries(std::span<const std::int16_t> samples, double targetSeconds)
{
    const auto stretchTarget = static_cast<size_t>(std::max(1.0, targetSeconds) * samplesPerSecond);
    // A sixth of the stretch either side: 5 s for half a minute.
    const size_t cutSearchRadius = std::max(quietWindow, stretchTarget / 6);
    std::vector<size_t> boundaries {0};
    size_t position = 0;
    while (samples.size() - position > stretchTarget + cutSearchRadius) {
        const size_t from = position + stretchTarget - cutSearchRadius;
        const size_t to = position + stretchTarget + cutSearchRadius;
        size_t quietest = from;
        double lowestEnergy = -1.0;
        for (size_t start = from; start + quietWindow <= to; start += quietStep) {
            double energy = 0.0;
            for (size_t i = start; i < start + quietWindow; ++i)
                energy += static_cast<double>(samples[i]) * samples[i];
            if (lowestEnergy < 0.0 || energy < lowestEnergy) {
                lowestEnergy = energy;
                quietest = start;
            }
        }
        position = quietest + quietWindow / 2;
        boundaries.push_back(position);
    }
    boundaries.push_back(samples.size());
    return boundaries;
}

bool isHesitation(const std::string &word)
{
    static constexpr std::array<std::string_view, 9> hesitations {"ah", "er", "hm",  "hmm", "huh",
                                                                  "mm", "uh", "uhm", "um"};
    return std::find(hesitations.begin(), hesitations.end(), word) != hesitations.end();
}

} // namespace kavel::server
