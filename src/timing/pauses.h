#pragma once

#include "model/paragraph.h"
#include "model/wordblock.h"

#include <QList>

namespace kavel {

// Notes on every word the silence before the next word of the same recording, in the
// order the recogniser gave them. Done once, when a transcript arrives; edits keep it.
void recordPauses(QList<Paragraph> &paragraphs);

// Gives back up to `limit` seconds of the recorded pause between two kept words that
// were neighbours in the recording and still play one after the other: the earlier word
// ends later and the later one starts earlier by half of what is kept each, so where the
// whole pause fits the two meet and play as one stretch of the recording. Words that
// did not follow each other (a word between them was deleted, or a move put them side
// by side) stay as they are. `blocks` must be in playing order; limit <= 0 changes
// nothing.
QList<WordBlock> withPauses(QList<WordBlock> blocks, double limit);

} // namespace kavel
