#include "subtitlewriter.h"

#include "model/fileio.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

QString timestamp(double seconds, char separator)
{
    if (!std::isfinite(seconds) || std::abs(seconds) >= 9.2e12)
        qFatal("subtitle timestamp: %f is not a representable time", seconds);
    // Sums of word lengths carry binary noise (0.3 + 0.6 is 0.8999…); settle that on the
    // microsecond first, then truncate, so that a cue never starts before its word and a
    // whole millisecond is never lost to the noise.
    const auto micros = static_cast<qint64>(std::llround(seconds * 1e6));
    const qint64 whole = micros / 1'000'000;
    const qint64 millis = micros % 1'000'000 / 1000;
    char text[64];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%03lld",
                  static_cast<long long>(whole / 3600), static_cast<long long>(whole % 3600 / 60),
                  static_cast<long long>(whole % 60), separator, static_cast<long long>(millis));
    return QString::fromLatin1(text);
}

// Han, kana, Hangul and the full-width punctuation set between them: characters that
// take a full cell on screen and are written without spaces between words.
bool isWide(char32_t c)
{
    return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF)
        || (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF)
        || (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60)
        || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x20000 && c <= 0x3FFFD);
}

double widthOf(const QString &text)
{
    double width = 0.0;
    for (const char32_t c : text.toUcs4())
        width += isWide(c) ? phraseWidth / 16.0 : 1.0;
    return width;
}

// Latin words are separated by a space; a wide character on either side needs none.
QString joined(const QString &left, const QString &right)
{
    if (left.isEmpty() || right.isEmpty())
        return left + right;
    const bool wide = isWide(left.toUcs4().constLast()) || isWide(right.toUcs4().constFirst());
    return wide ? QString(left + right) : QString(left + u' ' + right);
}

bool endsSentence(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return false;
    return u"。！？.!?"_s.contains(trimmed.back());
}

// A pause long enough to end a phrase, or a jump to another place in the recordings.
bool pauseBetween(const WordBlock &a, const WordBlock &b)
{
    if (a.sourceFileId != b.sourceFileId || b.mediaStart < a.mediaEnd - 1e-6)
        return true;
    return b.mediaStart - a.mediaEnd > phrasePause;
}

// Punctuation that ends a clause: a cue too long for its sentence is best cut there.
bool endsClause(const QString &text)
{
    const QString trimmed = text.trimmed();
    return !trimmed.isEmpty() && u"，,、；;：:—"_s.contains(trimmed.back());
}

// The silence between two neighbouring words in the recording.
double gapBetween(const WordBlock &a, const WordBlock &b)
{
    return a.sourceFileId == b.sourceFileId ? b.mediaStart - a.mediaEnd : 0.0;
}

// Words first..last (inclusive) of a sentence, as one cue.
class Phrases
{
public:
    Phrases(const QList<const WordBlock *> &blocks, const QList<SubtitleCue> &words)
        : m_blocks(blocks)
        , m_words(words)
    { }

    SubtitleCue cue(qsizetype first, qsizetype last) const
    {
        SubtitleCue joinedCue {m_words.at(first).start, m_words.at(last).end, {}};
        for (qsizetype i = first; i <= last; ++i)
            joinedCue.text = joined(joinedCue.text, m_words.at(i).text);
        return joinedCue;
    }

    static bool fits(const SubtitleCue &cue)
    {
        return cue.end - cue.start <= phraseSeconds && widthOf(cue.text) <= phraseWidth;
    }

    // One or two words that together read as a fragment.
    static bool isFragment(const SubtitleCue &cue, qsizetype words)
    {
        return words <= 2 && widthOf(cue.text) <= phraseWidth / 3.5;
    }

    // The sentence first..last cut into cues that fit. Where a cue must end before the
    // sentence does, it ends at the last clause punctuation within the limits, else at
    // the longest silence within them, never so as to leave a fragment on either side
    // when another place will do.
    void split(qsizetype first, qsizetype last, QList<std::pair<SubtitleCue, qsizetype>> &out)
    {
        qsizetype from = first;
        while (from <= last) {
            if (fits(cue(from, last))) {
                out.append({cue(from, last), last - from + 1});
                return;
            }
            qsizetype reach = from;
            while (reach + 1 < last && fits(cue(from, reach + 1)))
                ++reach;
            qsizetype end = -1;
            for (qsizetype j = reach; j >= from && end < 0; --j)
                if (endsClause(m_words.at(j).text))
                    end = j;
            if (end < 0) {
                double longest = -1.0;
                for (qsizetype j = from; j <= reach; ++j) {
                    if (isFragment(cue(from, j), j - from + 1)
                        || isFragment(cue(j + 1, last), last - j))
                        continue;
                    const double gap = gapBetween(*m_blocks.at(j), *m_blocks.at(j + 1));
                    if (gap >= longest - 1e-6) {
                        longest = gap;
                        end = j;
                    }
                }
            }
            if (end < 0)
                end = reach;
            out.append({cue(from, end), end - from + 1});
            from = end + 1;
        }
    }

private:
    const QList<const WordBlock *> &m_blocks;
    const QList<SubtitleCue> &m_words;
};

// Sentences end at their punctuation and at pauses; each is cut to fit, and a fragment
// left over then joins the neighbour that has room for it.
QList<SubtitleCue> phraseCues(const QList<const WordBlock *> &blocks,
                              const QList<SubtitleCue> &words)
{
    Phrases phrases(blocks, words);
    QList<std::pair<SubtitleCue, qsizetype>> cues; // with their word counts
    qsizetype first = 0;
    for (qsizetype i = 0; i < words.size(); ++i) {
        const bool last = i + 1 == words.size() || endsSentence(blocks.at(i)->text)
            || pauseBetween(*blocks.at(i), *blocks.at(i + 1));
        if (last) {
            phrases.split(first, i, cues);
            first = i + 1;
        }
    }

    const auto merged = [](const auto &a, const auto &b) {
        return std::pair {
            SubtitleCue {a.first.start, b.first.end, joined(a.first.text, b.first.text)},
            a.second + b.second};
    };
    for (qsizetype i = 0; i < cues.size();) {
        if (!Phrases::isFragment(cues[i].first, cues[i].second)) {
            ++i;
            continue;
        }
        const bool intoPrevious = i > 0 && Phrases::fits(merged(cues[i - 1], cues[i]).first);
        const bool intoNext
            = i + 1 < cues.size() && Phrases::fits(merged(cues[i], cues[i + 1]).first);
        if (!intoPrevious && !intoNext) {
            ++i;
            continue;
        }
        // Where both have room, the shorter neighbour takes it, so the two stay balanced.
        const bool previous = intoPrevious
            && (!intoNext || widthOf(cues[i - 1].first.text) <= widthOf(cues[i + 1].first.text));
        if (previous) {
            cues[i - 1] = merged(cues[i - 1], cues[i]);
            cues.remove(i);
            --i; // the joined cue may be a fragment still
        } else {
            cues[i] = merged(cues[i], cues[i + 1]);
            cues.remove(i + 1);
        }
    }
    QList<SubtitleCue> out;
    out.reserve(cues.size());
    for (const auto &[cue, count] : std::as_const(cues))
        out.append(cue);
    return out;
}

} // namespace

QString subRipTimestamp(double seconds)
{
    return timestamp(seconds, ',');
}

QString webVttTimestamp(double seconds)
{
    return timestamp(seconds, '.');
}

QList<SubtitleCue> subtitleCues(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                                SubtitleCues mode)
{
    QList<const WordBlock *> ordered;
    ordered.reserve(blocks.size());
    for (const WordBlock &block : blocks)
        ordered.append(&block);
    std::stable_sort(ordered.begin(), ordered.end(), [](const WordBlock *a, const WordBlock *b) {
        return a->sortOrder < b->sortOrder;
    });

    QList<SubtitleCue> words;
    words.reserve(ordered.size());
    // The map holds the played words in the same order, so one pass pairs them up.
    const QList<EditSegment> &segments = plan.editList.segments;
    qsizetype next = 0;
    double cursor = 0.0;
    for (const WordBlock *block : std::as_const(ordered)) {
        SubtitleCue word {cursor, cursor, block->text};
        if (next < segments.size() && segments.at(next).blockId == block->id) {
            word.start = segments.at(next).compositionStart;
            word.end = segments.at(next).compositionEnd();
            ++next;
        }
        cursor = word.end;
        words.append(word);
    }
    if (mode == SubtitleCues::words)
        return words;
    return phraseCues(ordered, words);
}

QByteArray subRipDocument(const QList<SubtitleCue> &cues)
{
    QByteArray out;
    out.reserve(cues.size() * 48);
    for (qsizetype i = 0; i < cues.size(); ++i) {
        const SubtitleCue &cue = cues.at(i);
        if (i > 0)
            out += '\n';
        out += QByteArray::number(i + 1) + '\n';
        out += subRipTimestamp(cue.start).toLatin1() + " --> " + subRipTimestamp(cue.end).toLatin1()
            + '\n';
        out += cue.text.toUtf8() + '\n';
    }
    return out;
}

QByteArray webVttDocument(const QList<SubtitleCue> &cues)
{
    QByteArray out = "WEBVTT\n";
    out.reserve(cues.size() * 48);
    for (const SubtitleCue &cue : cues) {
        // Cue text is markup in WebVTT; an empty line would end the cue early.
        QString text = cue.text;
        text.replace(u'&', u"&amp;"_s).replace(u'<', u"&lt;"_s).replace(u'>', u"&gt;"_s);
        text.replace(u'\n', u' ');
        out += '\n' + webVttTimestamp(cue.start).toLatin1() + " --> "
            + webVttTimestamp(cue.end).toLatin1() + '\n' + text.toUtf8() + '\n';
    }
    return out;
}

void writeSubtitles(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                    const QString &path, SubtitleCues mode, bool webVtt)
{
    const QList<SubtitleCue> cues = subtitleCues(blocks, plan, mode);
    fileio::writeFileAtomically(path, webVtt ? webVttDocument(cues) : subRipDocument(cues));
}

} // namespace kavel
