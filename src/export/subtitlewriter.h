#pragma once

#include "model/wordblock.h"
#include "timing/compositionmap.h"

#include <QList>

namespace kavel {

// How words are gathered into cues: one per word, or whole phrases a viewer can read.
enum class SubtitleCues { words, phrases };

struct SubtitleCue
{
    double start = 0.0;
    double end = 0.0;
    QString text;

    friend bool operator==(const SubtitleCue &, const SubtitleCue &) = default;
};

// Phrase limits: a cue ends at sentence punctuation, at a pause in the recording longer
// than phrasePause, or before it would grow past phraseSeconds or past phraseWidth, where
// a Latin character counts 1 and a Chinese one 42/16 (16 Chinese or 42 Latin characters).
// A sentence too long for one cue is cut at its last clause punctuation within the limits,
// or, where the recogniser gave none, at the longest silence within them. One or two short
// words are not left as a cue of their own where a neighbouring cue has room for them.
inline constexpr double phrasePause = 0.5;
inline constexpr double phraseSeconds = 7.0;
inline constexpr double phraseWidth = 42.0;

// Cues in sortOrder, timed by the composition map the media is cut by: a word's cue runs
// while it plays, so every gap and removed stretch is closed exactly as in the exported
// sound and picture. A word the map leaves out (too short to play) takes no time; in word
// mode it gets an empty cue where it would have been.
QList<SubtitleCue> subtitleCues(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                                SubtitleCues mode = SubtitleCues::words);

// "HH:MM:SS,mmm" (SubRip) or "HH:MM:SS.mmm" (WebVTT), milliseconds truncated toward zero,
// so a cue never starts before its word. The time must be finite.
QString subRipTimestamp(double seconds);
QString webVttTimestamp(double seconds);

// LF line ends, UTF-8 without a byte-order mark.
QByteArray subRipDocument(const QList<SubtitleCue> &cues);
QByteArray webVttDocument(const QList<SubtitleCue> &cues);
inline QByteArray subRipDocument(const QList<WordBlock> &blocks, const CompositionPlan &plan)
{
    return subRipDocument(subtitleCues(blocks, plan));
}

// Writes the document atomically, replacing any existing file. Throws FileError.
void writeSubtitles(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                    const QString &path, SubtitleCues mode = SubtitleCues::words,
                    bool webVtt = false);

} // namespace kavel
