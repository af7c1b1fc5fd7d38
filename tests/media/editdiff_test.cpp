#include "media/mlt/editdiff.h"

#include <gtest/gtest.h>
#include <random>

using namespace kavel::media::mlt;

namespace {

using Keys = std::vector<std::uint64_t>;

// Applies the script the way the playlist does and returns the result.
Keys replay(const Keys &from, const Keys &to, const std::vector<DiffStep> &steps, int *edits)
{
    Keys result = from;
    size_t cursor = 0;
    *edits = 0;
    for (const DiffStep &step : steps) {
        switch (step.kind) {
        case DiffStep::keep:
            ++cursor;
            break;
        case DiffStep::remove:
            result.erase(result.begin() + std::ptrdiff_t(cursor));
            ++*edits;
            break;
        case DiffStep::insert:
            result.insert(result.begin() + std::ptrdiff_t(cursor), to[size_t(step.newIndex)]);
            ++cursor;
            ++*edits;
            break;
        }
    }
    return result;
}

TEST(EditDiff, ScriptsTurnTheOldSequenceIntoTheNewWithFewEdits)
{
    Keys base(2000);
    for (size_t i = 0; i < base.size(); ++i)
        base[i] = i * 7 + 1;

    struct Case
    {
        const char *name;
        Keys to;
        int maxEdits;
    };
    Keys deletion = base;
    deletion.erase(deletion.begin() + 1000);
    Keys split = base; // one entry becomes two when a word in its middle goes
    split[500] = 99999;
    split.insert(split.begin() + 501, 99998);
    Keys moved = base; // a run of 5 entries moved 1,500 places back
    std::rotate(moved.begin() + 100, moved.begin() + 1600, moved.begin() + 1605);
    Keys emptied;
    std::vector<Case> cases {{"deletion", deletion, 1},
                             {"split", split, 3},
                             {"move", moved, 10},
                             {"same", base, 0},
                             {"emptied", emptied, 2000}};
    for (const Case &c : cases) {
        const auto steps = diffKeys(base, c.to, 4000);
        ASSERT_TRUE(steps) << c.name;
        int edits = 0;
        EXPECT_EQ(replay(base, c.to, *steps, &edits), c.to) << c.name;
        EXPECT_EQ(edits, c.maxEdits) << c.name;
    }
}

TEST(EditDiff, RandomEditsReplayExactly)
{
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        Keys from(random() % 40), to;
        for (auto &k : from)
            k = random() % 12;
        to = from;
        for (int e = int(random() % 6); e > 0; --e) {
            if (!to.empty() && random() % 2)
                to.erase(to.begin() + std::ptrdiff_t(random() % to.size()));
            else
                to.insert(to.begin() + std::ptrdiff_t(random() % (to.size() + 1)), random() % 12);
        }
        const auto steps = diffKeys(from, to, 200);
        ASSERT_TRUE(steps);
        int edits = 0;
        ASSERT_EQ(replay(from, to, *steps, &edits), to) << "round " << round;
    }
}

TEST(EditDiff, GivesUpPastTheEditLimit)
{
    Keys from(100), to(100);
    for (size_t i = 0; i < 100; ++i) {
        from[i] = i;
        to[i] = 1000 + i;
    }
    EXPECT_FALSE(diffKeys(from, to, 50));
    EXPECT_TRUE(diffKeys(from, to, 200));
    EXPECT_TRUE(diffKeys({}, {}, 0));
}

} // namespace
