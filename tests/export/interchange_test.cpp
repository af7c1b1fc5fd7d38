// The hand-off files read back: every frame of the edited timeline must come from the
// source frame the composition map shows there, in each format and at NTSC and PAL rates.
#include "export/interchange.h"
#include "positionmedia.h"

#include <QRegularExpression>
#include <gtest/gtest.h>
#include <random>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

// The timeline frames [recordIn, recordOut) that a file says play from sourceIn on.
struct Event
{
    std::int64_t recordIn = 0, recordOut = 0, sourceIn = 0;
};

std::int64_t framesOf(const QString &rational, timing::Rate rate)
{
    const QStringList parts = QString(rational).remove(u's').split(u'/');
    const double seconds = parts[0].toDouble() / (parts.size() > 1 ? parts[1].toDouble() : 1.0);
    return timing::nearestIndex(seconds, rate);
}

std::int64_t framesOfTimecode(const QString &tc, timing::Rate rate)
{
    const QStringList p = tc.split(u':');
    const std::int64_t perSecond = std::llround(rate.perSecond());
    return ((p[0].toLongLong() * 60 + p[1].toLongLong()) * 60 + p[2].toLongLong()) * perSecond
        + p[3].toLongLong();
}

QList<Event> readBack(interchange::Format format, const QString &text, timing::Rate rate)
{
    QList<Event> events;
    if (format == interchange::Format::mlt) {
        static const QRegularExpression entry(
            uR"re(<entry producer="source0" in="(\d+)" out="(\d+)")re"_s);
        std::int64_t at = 0;
        for (const auto &m : entry.globalMatch(text)) {
            const std::int64_t in = m.captured(1).toLongLong(), out = m.captured(2).toLongLong();
            events.append({at, at + out - in + 1, in});
            at += out - in + 1;
        }
    } else if (format == interchange::Format::edl) {
        static const QRegularExpression line(uR"re(^\d{3}  AX +B +C +(\S+) (\S+) (\S+) (\S+)$)re"_s,
                                             QRegularExpression::MultilineOption);
        const std::int64_t hour = 3600 * std::llround(rate.perSecond());
        for (const auto &m : line.globalMatch(text))
            events.append({framesOfTimecode(m.captured(3), rate) - hour,
                           framesOfTimecode(m.captured(4), rate) - hour,
                           framesOfTimecode(m.captured(1), rate)});
    } else {
        static const QRegularExpression clip(
            uR"re(<asset-clip [^>]*offset="([^"]+)" start="([^"]+)" duration="([^"]+)")re"_s);
        for (const auto &m : clip.globalMatch(text)) {
            const std::int64_t offset = framesOf(m.captured(1), rate);
            events.append(
                {offset, offset + framesOf(m.captured(3), rate), framesOf(m.captured(2), rate)});
        }
    }
    return events;
}

} // namespace

TEST(Interchange, EveryFrameOfEveryFormatComesFromWhereTheMapShowsIt)
{
    std::mt19937 random(3);
    const EditList edit = planComposition(test::randomEdit(600.0, 150, random),
                                          {{{}, u"/media/talk.mov"_s, true, 600.0}})
                              .editList;
    for (const timing::Rate rate : {timing::Rate {30000, 1001}, timing::Rate {25, 1}}) {
        const QList<interchange::Source> sources {
            {u"/media/talk.mov"_s, true, true, rate, {1920, 1080}, 600.0}};
        for (const auto format :
             {interchange::Format::mlt, interchange::Format::edl, interchange::Format::fcpxml}) {
            SCOPED_TRACE(interchange::toRawValue(format).toStdString() + " at "
                         + std::to_string(rate.perSecond()));
            const QList<Event> events = readBack(
                format, QString::fromUtf8(interchange::document(format, edit, sources, u"访谈"_s)),
                rate);
            ASSERT_FALSE(events.isEmpty());
            EXPECT_EQ(events.last().recordOut, timing::frameCount(edit.duration(), rate));
            int wrong = 0;
            std::int64_t expectedIn = 0;
            for (const Event &event : events) {
                EXPECT_EQ(event.recordIn, expectedIn) << "the timeline has a hole or overlap";
                expectedIn = event.recordOut;
                for (std::int64_t k = event.recordIn; k < event.recordOut; ++k) {
                    const EditSegment &segment = edit.segments[edit.segmentAt(rate.secondsAt(k))];
                    wrong += event.sourceIn + (k - event.recordIn)
                        != timing::nearestIndex(timing::sourceTimeAtFrame(segment, k, rate), rate);
                }
            }
            EXPECT_EQ(wrong, 0);
        }
    }
    EXPECT_EQ(interchange::rateFromFramesPerSecond(29.97), (timing::Rate {30000, 1001}));
    EXPECT_EQ(interchange::rateFromFramesPerSecond(25.0), (timing::Rate {25, 1}));
}
