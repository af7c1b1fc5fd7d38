#include "export/subtitlewriter.h"
#include "model/fileio.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

WordBlock cue(const QString &text, double start, double end, qint64 order)
{
    return test::timedWord(start, end, order, {}, text);
}

// Written over a longer file: whatever is left of it shows as trailing bytes.
QByteArray written(const QList<WordBlock> &blocks, double trackDuration = 0.0, bool webVtt = false)
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath(u"标题.srt"_s);
    test::writeFile(path, QByteArray(10'000, 'x'));
    writeSubtitles(blocks, planComposition(blocks, {{{}, {}, false, trackDuration}}), path,
                   SubtitleCues::words, webVtt);
    return fileio::readFile(path);
}

} // namespace

TEST(Subtitles, FilesFollowTheMapInSortOrderAsUtf8WithoutBom)
{
    // Milliseconds are truncated, never rounded up into the next word.
    for (const auto &[seconds, stamp] : {std::pair {3725.5, u"01:02:05,500"_s},
                                         {0.9999, u"00:00:00,999"_s},
                                         {0.3 + 0.6, u"00:00:00,900"_s},
                                         {360000.25, u"100:00:00,250"_s}})
        EXPECT_EQ(subRipTimestamp(seconds), stamp);
    // Given out of order: sortOrder decides, and the 2.5 s gap disappears.
    EXPECT_EQ(written({cue(u"世界"_s, 4.00, 4.25, 1), cue(u"你好"_s, 1.20, 1.50, 0)}),
              "1\n00:00:00,000 --> 00:00:00,300\n你好\n\n2\n00:00:00,300 --> 00:00:00,550\n世界\n");
    EXPECT_EQ(written({}), "");
    // The middle word is too short to play; the last runs past the 5 s recording.
    EXPECT_EQ(
        written({cue(u"a"_s, 1.0, 1.5, 0), cue(u"b"_s, 2.0, 2.005, 1), cue(u"c"_s, 4.8, 5.6, 2)},
                5.0),
        "1\n00:00:00,000 --> 00:00:00,500\na\n\n2\n00:00:00,500 --> 00:00:00,500\nb\n\n"
        "3\n00:00:00,500 --> 00:00:00,700\nc\n");
    EXPECT_EQ(written({cue(u"<b>"_s, 0.0, 1.25, 0), cue(u"R&D"_s, 2.0, 2.5, 1)}, 0.0, true),
              "WEBVTT\n\n00:00:00.000 --> 00:00:01.250\n&lt;b&gt;\n\n"
              "00:00:01.250 --> 00:00:01.750\nR&amp;D\n");
}

TEST(Subtitles, PhrasesEndAtSentencesPausesAndReadableLengths)
{
    // Words of `length` seconds; "|" stands for a pause that ends a phrase (0.6 s), "·"
    // for a shorter one (0.3 s) the recogniser left without punctuation.
    const auto words = [](const QStringList &texts, double length) {
        QList<WordBlock> blocks;
        double t = 1.0;
        for (const QString &text : texts) {
            if (text == u"|"_s || text == u"·"_s) {
                t += text == u"|"_s ? 0.6 : 0.3;
                continue;
            }
            blocks.append(cue(text, t, t + length, blocks.size()));
            t += length;
        }
        return blocks;
    };
    const auto spoken = [&](const QString &line) { return words(line.split(u' '), 0.2); };
    const QString ten = u"abcdefghij"_s;
    const struct
    {
        const char *what;
        QList<WordBlock> blocks;
        QStringList cues;
    } cases[] = {
        {"mixed Chinese and English, sentence ends; the last word joins the short sentence",
         words({u"我们"_s, u"今天"_s, u"讲"_s, u"Qt"_s, u"和"_s, u"MLT。"_s, u"Next"_s, u"one."_s,
                u"好"_s},
               0.2),
         {u"我们今天讲Qt和MLT。"_s, u"Next one.好"_s}},
        {"pauses over half a second",
         spoken(u"we met there | in the old town | by the river"_s),
         {u"we met there"_s, u"in the old town"_s, u"by the river"_s}},
        {"a word alone after a pause joins the next phrase",
         spoken(u"so | we begin the work today"_s),
         {u"so we begin the work today"_s}},
        {"but not when the neighbour has no room",
         spoken(u"the committee deliberated for a long while | ok"_s),
         {u"the committee deliberated for a long while"_s, u"ok"_s}},
        {"16 Chinese characters, leaving no fragment behind",
         words(QString(u"一二三四五六七八九十甲乙丙丁戊己庚"_s).split(u""_s, Qt::SkipEmptyParts),
               0.1),
         {u"一二三四五六七八九十甲乙丙丁"_s, u"戊己庚"_s}},
        {"42 Latin characters",
         words({ten, ten, ten, ten, ten}, 0.2),
         {QStringList(3, ten).join(u' '), ten + u' ' + ten}},
        {"7 seconds",
         words(QStringList(8, u"x"_s), 1.0),
         {QStringList(5, u"x"_s).join(u' '), u"x x x"_s}},
        {"no punctuation: the longest silence within the limits",
         spoken(u"he did all that lay · prudently in his power to do for them"_s),
         {u"he did all that lay"_s, u"prudently in his power to do for them"_s}},
        {"clause punctuation within the limits comes first",
         spoken(u"when the estate was settled, the family · moved to the north"_s),
         {u"when the estate was settled,"_s, u"the family moved to the north"_s}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const CompositionPlan plan = planComposition(c.blocks, {{}});
        const QList<SubtitleCue> cues = subtitleCues(c.blocks, plan, SubtitleCues::phrases);
        QStringList texts;
        for (const SubtitleCue &phrase : cues)
            texts.append(phrase.text);
        EXPECT_EQ(texts, c.cues);
        // Each phrase runs from its first word's start on the map to its last word's end.
        EXPECT_EQ(cues.first().start, 0.0);
        EXPECT_DOUBLE_EQ(cues.last().end, plan.duration);
        for (qsizetype i = 1; i < cues.size(); ++i)
            EXPECT_DOUBLE_EQ(cues[i].start, cues[i - 1].end);
    }
}
