#pragma once

#include "model/wordblock.h"
#include "timing/compositionmap.h"

#include <QList>

namespace kavel {

// "HH:MM:SS,mmm", milliseconds truncated toward zero. The time must be finite.
QString subRipTimestamp(double seconds);

// One cue per word, in sortOrder, timed by the composition map the media is cut by: a
// cue runs while its word plays, so every gap and removed stretch is closed exactly as in
// the exported sound and picture. A word the map leaves out (too short to play) gets an
// empty cue where it would have been. LF line ends.
QByteArray subRipDocument(const QList<WordBlock> &blocks, const CompositionPlan &plan);

// Writes subRipDocument() as UTF-8 without a byte-order mark, atomically, replacing any
// existing file. Throws FileError.
void writeSubtitles(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                    const QString &path);

} // namespace kavel
