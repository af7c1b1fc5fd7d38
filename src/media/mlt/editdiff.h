#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kavel::media::mlt {

// One step of turning an old sequence into a new one, applied left to right with a
// cursor into the sequence being edited: keep moves past an element, remove deletes the
// element at the cursor, insert puts new[newIndex] at the cursor and moves past it.
struct DiffStep
{
    enum Kind : std::uint8_t { keep, remove, insert };
    Kind kind;
    std::int64_t newIndex = -1;
};

// The shortest edit script (Myers' algorithm) between two sequences of keys, or nothing
// when more than `maxEdits` removals and insertions would be needed, in which case
// rebuilding is cheaper than editing. Keys compare with ==. Runs of keeps are written as
// they come, so a paragraph moved across thousands of entries costs only its own entries.
std::optional<std::vector<DiffStep>> diffKeys(const std::vector<std::uint64_t> &from,
                                              const std::vector<std::uint64_t> &to, int maxEdits);

} // namespace kavel::media::mlt
