#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QStringList>
#include <ostream>

namespace kavel::test {

// Builds transcripts from word lists: paragraph i holds the given words, 0.5 s apart,
// and gets sortOrder i. Word ids are fresh; look words up by text with wordId().
QList<Paragraph> transcript(const QList<QStringList> &paragraphs);

// One word with a fresh id over the given stretch of `source`.
WordBlock timedWord(double start, double end, qint64 sortOrder = 0, const QUuid &source = {},
                    const QString &text = QStringLiteral("w"));

QUuid wordId(const QList<Paragraph> &paragraphs, const QString &text);
QStringList wordTexts(const Paragraph &paragraph);
// All words of the document in order, paragraphs separated by "|".
QString documentText(const QList<Paragraph> &paragraphs);

} // namespace kavel::test

namespace kavel {
// Readable failure messages: a paragraph prints as its words, a word as its text and times.
void PrintTo(const Paragraph &paragraph, std::ostream *out);
void PrintTo(const WordBlock &block, std::ostream *out);
} // namespace kavel
