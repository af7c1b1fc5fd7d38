#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QSet>
#include <QUuid>
#include <optional>

// The structural edits of a transcript as pure functions on paragraph lists, so the
// editor, its undo commands and the command-line tool apply them identically.
namespace kavel::edits {

// Sets each paragraph's sortOrder to its index.
void renumber(QList<Paragraph> &paragraphs);

// Removes the listed words from every paragraph (the rest keep their order), drops the
// paragraphs left without words and renumbers. Only paragraphs that lose a word are
// copied; the others stay shared with the input.
QList<Paragraph> removeWords(const QList<Paragraph> &paragraphs, const QSet<QUuid> &ids);

// Removes every paragraph with that id and renumbers.
QList<Paragraph> removeParagraph(const QList<Paragraph> &paragraphs, const QUuid &paragraphId);

// The usual list move: the elements at `fromOffsets` (indices before the move) end up,
// in their old relative order, just before the element that was at `toOffset`
// (`toOffset` may equal the count). Renumbers. Offsets out of range are ignored.
QList<Paragraph> moveParagraphs(const QList<Paragraph> &paragraphs,
                                const QList<qsizetype> &fromOffsets, qsizetype toOffset);

// Splits paragraph `paragraphId` before word `gap`: the words from there on become a new
// paragraph (fresh id, same speaker) right after it. Words keep their ids and times.
// Returns the new paragraph's id, or nothing when the gap is not strictly inside the
// paragraph; then `paragraphs` is unchanged.
std::optional<QUuid> splitParagraph(QList<Paragraph> &paragraphs, const QUuid &paragraphId,
                                    qsizetype gap);

// Appends the words of paragraph `index` to the paragraph before it and removes it;
// renumbers. Returns the gap in the joined paragraph where the two meet, or -1 when
// `index` has no paragraph before it.
qsizetype joinWithPrevious(QList<Paragraph> &paragraphs, qsizetype index);

// The ids of the words between gap `start` of paragraph `first` and gap `end` of
// paragraph `last` (first <= last), gaps clamped to their paragraphs.
QSet<QUuid> wordIdsBetween(const QList<Paragraph> &paragraphs, qsizetype first, qsizetype start,
                           qsizetype last, qsizetype end);

// Inserts words into paragraph `paragraphId` before position `gap` (clamped to the
// paragraph), giving each inserted word a fresh id. Returns the ids given.
QList<QUuid> insertWords(QList<Paragraph> &paragraphs, const QUuid &paragraphId, qsizetype gap,
                         const QList<WordBlock> &words);

// Gives the words `ids` the text `text` without touching the timing: one word keeps its
// times; several words, which must follow each other in one paragraph and one
// recording, become one word that spans their time (the first word's id, the last
// one's end). Returns the id of the corrected word, or nothing when the words do not
// qualify or the text is blank; then `paragraphs` is unchanged.
std::optional<QUuid> replaceText(QList<Paragraph> &paragraphs, const QSet<QUuid> &ids,
                                 const QString &text);

// Index of the paragraph with that id, or -1.
qsizetype indexOfParagraph(const QList<Paragraph> &paragraphs, const QUuid &paragraphId);

// Paragraph index and word index of a block, or {-1, -1}.
struct WordLocation
{
    qsizetype paragraph = -1;
    qsizetype word = -1;
    bool isValid() const { return paragraph >= 0; }
};
WordLocation locateWord(const QList<Paragraph> &paragraphs, const QUuid &blockId);

// The words' text as one would write it: Latin words apart, Chinese ones joined.
QString wordsAsText(const QList<WordBlock> &words);

// The ids of all filler words.
QSet<QUuid> fillerWordIds(const QList<Paragraph> &paragraphs);

} // namespace kavel::edits
