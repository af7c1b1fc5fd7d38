#include "editor/transcriptsearch.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

// Each hit reads "paragraph:word+word", so that a hit with a word too many or too few, or
// in the wrong paragraph, shows in the failure.
TEST(TranscriptSearch, MatchesJoinedWordsOfOneParagraphIgnoringCase)
{
    const QList<Paragraph> doc = transcript({{u"x"_s, u"a"_s, u"B"_s, u"y"_s},
                                             {u"Ab"_s},
                                             {u"aa"_s, u"aa"_s},
                                             {u"我们"_s, u"今天"_s, u"讨论"_s},
                                             {u"ab"_s, u""_s, u"cd"_s}});
    const auto found = [&](const QString &query) {
        QStringList hits;
        for (const SearchHit &hit : searchTranscript(doc, query)) {
            QStringList words;
            qsizetype paragraph = -1;
            for (qsizetype p = 0; p < doc.size(); ++p) {
                for (const WordBlock &w : doc[p].wordBlocks) {
                    if (hit.blockIds.contains(w.id))
                        words.append(w.text);
                }
                if (doc[p].id == hit.paragraphId)
                    paragraph = p;
            }
            hits.append(QString::number(paragraph) + u':' + words.join(u'+'));
        }
        return hits;
    };
    EXPECT_EQ(found(u"  ab \n"_s), (QStringList {u"0:a+B"_s, u"1:Ab"_s, u"4:ab"_s}));
    EXPECT_EQ(found(u"XAB"_s), QStringList {u"0:x+a+B"_s}) << "from the very first letter";
    EXPECT_EQ(found(u"yab"_s), QStringList {}) << "never from one paragraph into the next";
    EXPECT_EQ(found(u"   "_s), QStringList {});
    EXPECT_EQ(found(QString()), QStringList {});
    EXPECT_EQ(found(u"aa"_s), (QStringList {u"2:aa"_s, u"2:aa"_s}));
    EXPECT_EQ(found(u"aaa"_s), QStringList {u"2:aa+aa"_s}) << "occurrences do not overlap";
    EXPECT_EQ(found(u"们今天讨"_s), QStringList {u"3:我们+今天+讨论"_s});
    EXPECT_EQ(found(u"bc"_s), QStringList {u"4:ab+cd"_s}) << "an empty word is never in a hit";
}
