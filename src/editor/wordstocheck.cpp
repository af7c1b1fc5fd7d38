#include "wordstocheck.h"

namespace kavel::edits {

QList<WordLocation> wordsToCheck(const QList<Paragraph> &paragraphs)
{
    QList<WordLocation> found;
    for (qsizetype p = 0; p < paragraphs.size(); ++p) {
        const QList<WordBlock> &words = paragraphs.at(p).wordBlocks;
        for (qsizetype w = 0; w < words.size(); ++w) {
            // A word cut from the edit is heard by nobody; checking it would be wasted time.
            if (words.at(w).needsCheck() && !words.at(w).isDeleted)
                found.append({p, w});
        }
    }
    return found;
}

std::optional<WordLocation> nextWordToCheck(const QList<Paragraph> &paragraphs, qsizetype paragraph,
                                            qsizetype gap, bool forward)
{
    const QList<WordLocation> doubted = wordsToCheck(paragraphs);
    if (doubted.isEmpty())
        return std::nullopt;
    if (paragraph < 0)
        return forward ? doubted.first() : doubted.last();
    const auto beforeGap = [&](const WordLocation &at) {
        return at.paragraph < paragraph || (at.paragraph == paragraph && at.word < gap);
    };
    if (forward) {
        for (const WordLocation &at : doubted)
            if (!beforeGap(at))
                return at;
        return doubted.first();
    }
    for (auto at = doubted.crbegin(); at != doubted.crend(); ++at)
        if (beforeGap(*at))
            return *at;
    return doubted.last();
}

} // namespace kavel::edits
