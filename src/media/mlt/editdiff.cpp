#include "editdiff.h"

#include <algorithm>

namespace kavel::media::mlt {

std::optional<std::vector<DiffStep>> diffKeys(const std::vector<std::uint64_t> &from,
                                              const std::vector<std::uint64_t> &to, int maxEdits)
{
    const std::int64_t n = static_cast<std::int64_t>(from.size());
    const std::int64_t m = static_cast<std::int64_t>(to.size());

    // Common ends first: an edit usually touches one place, and this keeps the search
    // below to the part that changed.
    std::int64_t prefix = 0;
    while (prefix < n && prefix < m && from[prefix] == to[prefix])
        ++prefix;
    std::int64_t suffix = 0;
    while (suffix < n - prefix && suffix < m - prefix && from[n - 1 - suffix] == to[m - 1 - suffix])
        ++suffix;
    const std::int64_t a0 = prefix, b0 = prefix;
    const std::int64_t an = n - prefix - suffix, bn = m - prefix - suffix;

    std::vector<DiffStep> middle;
    if (an > 0 || bn > 0) {
        const std::int64_t limit = std::min<std::int64_t>(an + bn, maxEdits);
        const std::int64_t offset = limit + 1;
        std::vector<std::int64_t> v(2 * offset + 1, 0);
        std::vector<std::vector<std::int64_t>> trace;
        bool found = false;
        for (std::int64_t d = 0; d <= limit && !found; ++d) {
            trace.push_back(v);
            for (std::int64_t k = -d; k <= d; k += 2) {
                std::int64_t x = (k == -d || (k != d && v[offset + k - 1] < v[offset + k + 1]))
                    ? v[offset + k + 1]
                    : v[offset + k - 1] + 1;
                std::int64_t y = x - k;
                while (x < an && y < bn && from[a0 + x] == to[b0 + y]) {
                    ++x;
                    ++y;
                }
                v[offset + k] = x;
                if (x >= an && y >= bn) {
                    found = true;
                    break;
                }
            }
        }
        if (!found)
            return std::nullopt;

        // Walk back through the saved frontiers to recover the path, then reverse it.
        std::int64_t x = an, y = bn;
        for (std::int64_t d = static_cast<std::int64_t>(trace.size()) - 1; d >= 0; --d) {
            const std::vector<std::int64_t> &pv = trace[d];
            const std::int64_t k = x - y;
            std::int64_t prevK;
            if (d == 0)
                prevK = 0;
            else
                prevK = (k == -d || (k != d && pv[offset + k - 1] < pv[offset + k + 1])) ? k + 1
                                                                                         : k - 1;
            const std::int64_t prevX = d == 0 ? 0 : pv[offset + prevK];
            const std::int64_t prevY = prevX - prevK;
            while (x > prevX && y > prevY) {
                middle.push_back({DiffStep::keep, -1});
                --x;
                --y;
            }
            if (d > 0) {
                if (x == prevX)
                    middle.push_back({DiffStep::insert, b0 + prevY});
                else
                    middle.push_back({DiffStep::remove, -1});
            }
            x = prevX;
            y = prevY;
        }
        std::reverse(middle.begin(), middle.end());
    }

    std::vector<DiffStep> steps;
    steps.reserve(static_cast<size_t>(prefix + suffix) + middle.size());
    steps.insert(steps.end(), static_cast<size_t>(prefix), DiffStep {DiffStep::keep, -1});
    steps.insert(steps.end(), middle.begin(), middle.end());
    steps.insert(steps.end(), static_cast<size_t>(suffix), DiffStep {DiffStep::keep, -1});
    return steps;
}

} // namespace kavel::media::mlt
