#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QUuid>
#include <vector>

namespace kavel {

// How far a recognised word edge may move, and the stretch whose quiet is sought.
inline constexpr double edgeReach = 0.060;
inline constexpr double edgeWindow = 0.010;
// A word is never made shorter than this by moving its edges.
inline constexpr double shortestRefinedWord = 0.020;

// Recognised word edges are tens of milliseconds off, so a cut there can clip the next
// syllable. Moves each edge of the words of `sourceId` to the centre of the quietest
// 10 ms within reach (`power` holds the recording's mean power per millisecond, see
// loudnessPerMillisecond). Words are taken in transcript order; an edge never crosses
// into the neighbouring word, and among equally quiet places the nearest wins, so in
// silence nothing moves. Returns how many edges moved.
qsizetype refineCutEdges(QList<Paragraph> &paragraphs, const QUuid &sourceId,
                         const std::vector<float> &power);

} // namespace kavel
