#include "cutedges.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kavel {

namespace {

// Running sums, so that any window's power costs two lookups.
class PowerWindow
{
public:
    explicit PowerWindow(const std::vector<float> &power)
        : m_sums(power.size() + 1, 0.0)
    {
        for (size_t i = 0; i < power.size(); ++i)
            m_sums[i + 1] = m_sums[i] + double(power[i]);
    }

    // Mean power of the window of `width` ms centred on millisecond boundary `centre`;
    // outside the recording counts as loud, so that no edge is moved off its end.
    double around(std::int64_t centre, std::int64_t width) const
    {
        const std::int64_t from = centre - width / 2, to = from + width;
        if (from < 0 || to >= std::int64_t(m_sums.size()))
            return std::numeric_limits<double>::infinity();
        return (m_sums[size_t(to)] - m_sums[size_t(from)]) / double(width);
    }

private:
    std::vector<double> m_sums;
};

// The quietest centre in [low, high] ms; ties (within a hair) go to the one nearest
// `from`.
double quietest(const PowerWindow &window, double from, double low, double high)
{
    const auto width = std::int64_t(std::lround(edgeWindow * 1000.0));
    const auto first = std::int64_t(std::ceil(low * 1000.0 - 1e-9));
    const auto last = std::int64_t(std::floor(high * 1000.0 + 1e-9));
    double best = from, bestPower = std::numeric_limits<double>::infinity();
    double bestDistance = 0.0;
    for (std::int64_t centre = first; centre <= last; ++centre) {
        const double power = window.around(centre, width);
        const double at = double(centre) / 1000.0, distance = std::abs(at - from);
        const bool quieter = power < bestPower * (1.0 - 1e-3) - 1e-12;
        const bool asQuietAndNearer
            = power <= bestPower * (1.0 + 1e-3) + 1e-12 && distance < bestDistance;
        if (quieter || asQuietAndNearer) {
            best = at;
            bestPower = power;
            bestDistance = distance;
        }
    }
    // Where nothing in reach is quieter than the edge itself, it stays.
    const double own = window.around(std::llround(from * 1000.0), width);
    return bestPower < own * (1.0 - 1e-3) ? best : from;
}

} // namespace

qsizetype refineCutEdges(QList<Paragraph> &paragraphs, const QUuid &sourceId,
                         const std::vector<float> &power)
{
    QList<WordBlock *> words;
    for (Paragraph &paragraph : paragraphs)
        for (WordBlock &block : paragraph.wordBlocks)
            if (block.sourceFileId == sourceId)
                words.append(&block);
    if (words.isEmpty() || power.empty())
        return 0;

    const PowerWindow window(power);
    qsizetype moved = 0;
    double previousEnd = 0.0;
    for (qsizetype i = 0; i < words.size(); ++i) {
        WordBlock &word = *words[i];
        const double nextStart = i + 1 < words.size() ? words[i + 1]->mediaStart
                                                      : std::numeric_limits<double>::infinity();
        if (!(word.mediaEnd - word.mediaStart >= shortestRefinedWord)) {
            previousEnd = std::max(previousEnd, word.mediaEnd);
            continue;
        }
        const double start
            = quietest(window, word.mediaStart, std::max(word.mediaStart - edgeReach, previousEnd),
                       std::min(word.mediaStart + edgeReach, word.mediaEnd - shortestRefinedWord));
        const double end = quietest(
            window, word.mediaEnd, std::max(word.mediaEnd - edgeReach, start + shortestRefinedWord),
            std::min(word.mediaEnd + edgeReach, nextStart));
        moved += (start != word.mediaStart) + (end != word.mediaEnd);
        word.mediaStart = start;
        word.mediaEnd = end;
        previousEnd = end;
    }
    return moved;
}

} // namespace kavel
