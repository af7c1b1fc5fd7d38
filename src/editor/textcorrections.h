#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QString>

// Batch corrections of what was said, as the command line applies them: each OLD is a run
// of whole words, never a piece of one.
namespace kavel::edits {

struct TextCorrection
{
    QString from;
    QString to;
};

struct CorrectionOutcome
{
    // Places given their new text.
    qsizetype replaced = 0;
    // How many places each correction changed, in the order given.
    QList<qsizetype> perCorrection;
    // Runs that matched but could not become one word (not contiguous in one recording),
    // as their words read.
    QStringList skipped;
};

// Gives every run of whole words that reads as a correction's `from` the text `to`; the run
// becomes one word over its time, as replaceText() does. Matching ignores case and the
// spaces between words ("big world" matches "big" "world"; transcripts in Chinese have
// none), and stays inside one paragraph. All corrections are looked for in one pass over
// the words as they were: at each word the longest run that matches wins, the first
// correction given for the same text wins over later ones, and a replaced run is not
// looked at again. The time is proportional to the words plus the corrections.
CorrectionOutcome correctWholeWords(QList<Paragraph> &paragraphs,
                                    const QList<TextCorrection> &corrections);

} // namespace kavel::edits
