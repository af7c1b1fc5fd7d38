#pragma once

#include "paragraph.h"

#include <QByteArray>
#include <QList>

namespace kavel {

// The two rows of the timeline view. Not stored anywhere.
enum class TrackType { video, audio };

QString toRawValue(TrackType type);
std::optional<TrackType> trackTypeFromRaw(const QString &raw);

// The document kept in a bundle's "timeline.json".
struct TimelineV2
{
    static constexpr int currentVersion = 2;

    int version = currentVersion;
    QList<Paragraph> paragraphs;

    friend bool operator==(const TimelineV2 &, const TimelineV2 &) = default;
};

// The on-disk form: indented, keys sorted at every level.
QByteArray encodeTimelineDocument(const TimelineV2 &timeline);
// Throws DecodeError for malformed JSON or a document that is not a TimelineV2 (both
// "version" and "paragraphs" are required; the version number is not checked).
TimelineV2 decodeTimelineDocument(QByteArrayView bytes);
// Throws DecodeError unless the bytes are a bare JSON array of word blocks, the layout
// bundles had before paragraphs were stored.
QList<WordBlock> decodeFlatWordBlocks(QByteArrayView bytes);

// The playback order: paragraphs by sortOrder (stable), their words in array order,
// each word's sortOrder overwritten with its position 0, 1, 2, … in the result.
QList<WordBlock> flattenParagraphs(const QList<Paragraph> &paragraphs);

// Rebuilds paragraphs from a flat list: words sorted by sortOrder (stable) join the
// open paragraph while the speaker matches and the gap to the previous word is at most
// maxParagraphGap seconds. Paragraphs get fresh ids and sortOrder 0, 1, 2, …
inline constexpr double maxParagraphGap = 2.0;
QList<Paragraph> groupWordBlocks(const QList<WordBlock> &blocks);

} // namespace kavel
