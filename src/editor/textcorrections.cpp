#include "textcorrections.h"

#include <QHash>
#include <algorithm>

namespace kavel::edits {

namespace {

// How words are compared: case folded, without any white space.
QString matchKey(const QString &text)
{
    QString key;
    key.reserve(text.size());
    for (const QChar c : text) {
        if (!c.isSpace())
            key += c;
    }
    return key.toCaseFolded();
}

// A run longer than this many words is no correction anyone types; the bound also keeps
// words that read as nothing from stretching a run without end.
constexpr qsizetype longestRun = 64;

bool canMerge(const QList<WordBlock> &words, qsizetype first, qsizetype last)
{
    for (qsizetype w = first + 1; w <= last; ++w) {
        if (words.at(w).sourceFileId != words.at(first).sourceFileId
            || words.at(w).mediaStart < words.at(w - 1).mediaEnd - 1e-6)
            return false;
    }
    return true;
}

} // namespace

CorrectionOutcome correctWholeWords(QList<Paragraph> &paragraphs,
                                    const QList<TextCorrection> &corrections)
{
    CorrectionOutcome outcome;
    outcome.perCorrection.fill(0, corrections.size());
    QHash<QString, qsizetype> byKey;
    qsizetype longestKey = 0;
    for (qsizetype i = 0; i < corrections.size(); ++i) {
        const QString key = matchKey(corrections.at(i).from);
        const QString to = corrections.at(i).to.simplified();
        if (key.isEmpty() || to.isEmpty() || byKey.contains(key))
            continue;
        byKey.insert(key, i);
        longestKey = std::max(longestKey, key.size());
    }
    if (byKey.isEmpty())
        return outcome;

    for (Paragraph &paragraph : paragraphs) {
        const QList<WordBlock> &words = paragraph.wordBlocks;
        QStringList keys;
        keys.reserve(words.size());
        for (const WordBlock &word : words)
            keys.append(matchKey(word.text));

        QList<WordBlock> result;
        bool changed = false;
        qsizetype i = 0;
        while (i < words.size()) {
            qsizetype bestEnd = -1;
            qsizetype bestCorrection = -1;
            QString run;
            for (qsizetype j = i; j < words.size() && j - i < longestRun; ++j) {
                run += keys.at(j);
                if (run.size() > longestKey)
                    break;
                const auto found = byKey.constFind(run);
                if (found != byKey.cend() && !keys.at(j).isEmpty()) {
                    bestEnd = j;
                    bestCorrection = *found;
                }
            }
            if (bestEnd < 0 || keys.at(i).isEmpty()) {
                if (changed)
                    result.append(words.at(i));
                ++i;
                continue;
            }
            if (!canMerge(words, i, bestEnd)) {
                QStringList texts;
                for (qsizetype w = i; w <= bestEnd; ++w)
                    texts << words.at(w).text;
                outcome.skipped << texts.join(u' ');
                if (changed)
                    result.append(words.at(i));
                ++i;
                continue;
            }
            if (!changed) {
                result.reserve(words.size());
                result.append(words.mid(0, i));
                changed = true;
            }
            WordBlock merged = words.at(i);
            const WordBlock &end = words.at(bestEnd);
            merged.text = corrections.at(bestCorrection).to.simplified();
            merged.mediaEnd = end.mediaEnd;
            merged.fadeOutDuration = end.fadeOutDuration;
            merged.pauseAfter = end.pauseAfter;
            // The user has said what was spoken; a filler mark and the recogniser's doubt no
            // longer hold.
            merged.isFiller = false;
            merged.confidence = 1.0;
            result.append(merged);
            ++outcome.replaced;
            ++outcome.perCorrection[bestCorrection];
            i = bestEnd + 1;
        }
        if (changed)
            paragraph.wordBlocks = std::move(result);
    }
    return outcome;
}

} // namespace kavel::edits
