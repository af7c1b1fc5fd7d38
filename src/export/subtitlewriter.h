#pragma once

#include "model/wordblock.h"

#include <QList>

namespace kavel {

// "HH:MM:SS,mmm", milliseconds truncated toward zero. The time must be finite.
QString subRipTimestamp(double seconds);

// One cue per word, laid end to end on the edited timeline: the words are taken in
// sortOrder and each cue starts where the previous one ended, so every gap and every
// removed stretch is closed exactly as in the exported media. LF line ends.
QByteArray subRipDocument(const QList<WordBlock> &blocks);

// Writes subRipDocument() as UTF-8 without a byte-order mark, atomically, replacing any
// existing file. Throws FileError.
void writeSubtitles(const QList<WordBlock> &blocks, const QString &path);

} // namespace kavel
