#include "export/subtitlewriter.h"
#include "model/errors.h"
#include "model/fileio.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

WordBlock cue(const QString &text, double start, double end, qint64 sortOrder)
{
    return test::timedWord(start, end, sortOrder, {}, text);
}

QByteArray document(const QList<WordBlock> &blocks, double trackDuration = 0.0)
{
    return subRipDocument(blocks, planComposition(blocks, {{{}, {}, false, trackDuration}}));
}

} // namespace

TEST(SubRip, TimestampsTruncateMilliseconds)
{
    EXPECT_EQ(subRipTimestamp(0.0), u"00:00:00,000"_s);
    EXPECT_EQ(subRipTimestamp(3725.5), u"01:02:05,500"_s);
    EXPECT_EQ(subRipTimestamp(0.9999), u"00:00:00,999"_s);
    EXPECT_EQ(subRipTimestamp(360000.25), u"100:00:00,250"_s);
}

TEST(SubRip, CuesCloseEveryGapInSortOrder)
{
    // Given out of order: sortOrder decides, and the 2.5 s gap disappears.
    const QList<WordBlock> blocks {cue(u"世界"_s, 4.00, 4.25, 1), cue(u"你好"_s, 1.20, 1.50, 0)};
    EXPECT_EQ(document(blocks),
              QByteArray("1\n00:00:00,000 --> 00:00:00,300\n你好\n\n"
                         "2\n00:00:00,300 --> 00:00:00,550\n世界\n"));
    EXPECT_TRUE(document({}).isEmpty());
}

TEST(SubRip, CuesFollowTheMapWhereTheMediaIsClampedOrTooShort)
{
    // The middle word is too short to play; the last runs past the 5 s recording.
    const QList<WordBlock> blocks {cue(u"a"_s, 1.0, 1.5, 0), cue(u"b"_s, 2.0, 2.005, 1),
                                   cue(u"c"_s, 4.8, 5.6, 2)};
    EXPECT_EQ(document(blocks, 5.0),
              QByteArray("1\n00:00:00,000 --> 00:00:00,500\na\n\n"
                         "2\n00:00:00,500 --> 00:00:00,500\nb\n\n"
                         "3\n00:00:00,500 --> 00:00:00,700\nc\n"));
}

TEST(SubRip, WritesUtf8WithoutBomReplacingAnExistingFile)
{
    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath(u"标题.srt"_s);
    test::writeFile(path, QByteArray(10'000, 'x'));
    const QList<WordBlock> blocks {cue(u"é"_s, 0, 1, 0)};
    writeSubtitles(blocks, planComposition(blocks, {{}}), path);
    const QByteArray written = fileio::readFile(path);
    EXPECT_EQ(written, QByteArray("1\n00:00:00,000 --> 00:00:01,000\n\xC3\xA9\n"));
    EXPECT_FALSE(written.startsWith("\xEF\xBB\xBF"));

    EXPECT_THROW(writeSubtitles({}, {}, QDir(dir.path()).filePath(u"missing/dir/x.srt"_s)),
                 FileError);
}
