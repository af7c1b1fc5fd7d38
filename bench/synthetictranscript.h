#pragma once

#include "model/paragraph.h"

#include <QList>

namespace kavel::bench {

// A transcript shaped like a real hour-long interview: `paragraphs` paragraphs of about
// `wordsPerParagraph` words, alternating speakers, short gaps between words and longer
// ones between paragraphs, a sprinkling of fillers. Deterministic for a given seed.
QList<Paragraph> syntheticTranscript(int paragraphs, int wordsPerParagraph, quint32 seed = 42);

} // namespace kavel::bench
