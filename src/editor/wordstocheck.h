#pragma once

#include "paragraphedits.h"

#include <optional>

// The words the recogniser doubted (WordBlock::needsCheck) that are still in the transcript,
// and the way from one to the next, so that the user can listen to each of them in turn.
namespace kavel::edits {

// Every doubted word that is not deleted, in document order.
QList<WordLocation> wordsToCheck(const QList<Paragraph> &paragraphs);

// The first doubted word after gap `gap` of paragraph `paragraph` (forward), or the last one
// before it (backward), going round the end of the transcript to its start and back. A
// paragraph of -1 means no position: forward begins at the start, backward at the end.
// Nothing when no word is in doubt.
std::optional<WordLocation> nextWordToCheck(const QList<Paragraph> &paragraphs, qsizetype paragraph,
                                            qsizetype gap, bool forward);

} // namespace kavel::edits
