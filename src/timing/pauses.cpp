#include "pauses.h"

#include <algorithm>
#include <cmath>

namespace kavel {

void recordPauses(QList<Paragraph> &paragraphs)
{
    WordBlock *previous = nullptr;
    for (Paragraph &paragraph : paragraphs) {
        for (WordBlock &block : paragraph.wordBlocks) {
            if (previous) {
                const double gap = block.mediaStart - previous->mediaEnd;
                previous->pauseAfter
                    = previous->sourceFileId == block.sourceFileId && gap > 0 ? gap : 0.0;
            }
            previous = &block;
        }
    }
    if (previous)
        previous->pauseAfter = 0.0;
}

QList<WordBlock> withPauses(QList<WordBlock> blocks, double limit)
{
    if (!(limit > 0))
        return blocks;
    blocks.detach();
    // Word times are read back from decimal text; a microsecond is far below one sample.
    constexpr double tolerance = 1e-6;
    for (qsizetype i = 0; i + 1 < blocks.size(); ++i) {
        const WordBlock &before = blocks.at(i);
        const WordBlock &after = blocks.at(i + 1);
        const double gap = after.mediaStart - before.mediaEnd;
        if (before.pauseAfter <= 0 || before.sourceFileId != after.sourceFileId
            || std::abs(gap - before.pauseAfter) > tolerance)
            continue;
        if (gap <= limit) {
            const double middle = before.mediaEnd + gap / 2;
            blocks[i].mediaEnd = middle;
            blocks[i + 1].mediaStart = middle;
        } else {
            blocks[i].mediaEnd += limit / 2;
            blocks[i + 1].mediaStart -= limit / 2;
        }
    }
    return blocks;
}

} // namespace kavel
