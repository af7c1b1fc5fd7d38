#pragma once

#include <QStringList>
#include <algorithm>

// Checking recognised speech against the sentence that was synthesised: offline
// recognition mishears a word here and there, so tests count the words that came back
// in order rather than demanding the exact text.
namespace kavel::test {

inline const QString spokenSentence = QStringLiteral("The quick brown fox jumps over the lazy dog. "
                                                     "We will meet again tomorrow morning.");

// Words of `expected` found in `heard` in the same order (longest common subsequence),
// so a misheard word costs one and nothing more.
inline qsizetype wordsInOrder(const QStringList &expected, const QStringList &heard)
{
    QList<qsizetype> row(heard.size() + 1, 0);
    for (const QString &word : expected) {
        qsizetype diagonal = 0;
        for (qsizetype j = 1; j <= heard.size(); ++j) {
            const qsizetype above = row[j];
            row[j] = word == heard[j - 1] ? diagonal + 1 : std::max(row[j], row[j - 1]);
            diagonal = above;
        }
    }
    return row.back();
}

// The spoken sentence as lower-case words without punctuation.
inline QStringList spokenWords()
{
    QString text = spokenSentence.toLower();
    text.remove(QLatin1Char('.'));
    return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

} // namespace kavel::test
