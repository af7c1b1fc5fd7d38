#include "timeline.h"

#include "errors.h"
#include "jsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <limits>
#include <numeric>

using namespace Qt::StringLiterals;

namespace kavel {

QString toRawValue(TrackType type)
{
    return type == TrackType::video ? u"video"_s : u"audio"_s;
}

std::optional<TrackType> trackTypeFromRaw(const QString &raw)
{
    if (raw == "video"_L1)
        return TrackType::video;
    if (raw == "audio"_L1)
        return TrackType::audio;
    return std::nullopt;
}

QJsonObject toJson(const TimelineV2 &timeline)
{
    QJsonArray paragraphs;
    for (const Paragraph &p : timeline.paragraphs)
        paragraphs.append(toJson(p));
    QJsonObject o;
    o.insert("version"_L1, timeline.version);
    o.insert("paragraphs"_L1, paragraphs);
    return o;
}

TimelineV2 timelineFromJson(const QJsonObject &o)
{
    TimelineV2 timeline;
    const qint64 version = json::requiredInt64(o, "version"_L1);
    if (version < std::numeric_limits<int>::min() || version > std::numeric_limits<int>::max())
        throw DecodeError(u"version"_s, u"版本号超出范围"_s);
    timeline.version = static_cast<int>(version);
    const QJsonArray paragraphs = json::requiredArray(o, "paragraphs"_L1);
    timeline.paragraphs.reserve(paragraphs.size());
    for (qsizetype i = 0; i < paragraphs.size(); ++i) {
        try {
            timeline.paragraphs.append(paragraphFromJson(json::asObject(paragraphs.at(i))));
        } catch (const DecodeError &error) {
            throw error.nested(u"paragraphs["_s + QString::number(i) + u']');
        }
    }
    return timeline;
}

QByteArray encodeTimelineDocument(const TimelineV2 &timeline)
{
    // QJsonObject keeps its keys sorted, which is exactly the on-disk key order.
    return QJsonDocument(toJson(timeline)).toJson(QJsonDocument::Indented);
}

TimelineV2 decodeTimelineDocument(const QByteArray &bytes)
{
    const QJsonDocument document = json::parseDocument(bytes);
    if (!document.isObject())
        throw DecodeError(QString(), u"应为 JSON 对象"_s);
    return timelineFromJson(document.object());
}

QList<WordBlock> decodeFlatWordBlocks(const QByteArray &bytes)
{
    const QJsonDocument document = json::parseDocument(bytes);
    if (!document.isArray())
        throw DecodeError(QString(), u"应为 JSON 数组"_s);
    const QJsonArray array = document.array();
    QList<WordBlock> blocks;
    blocks.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        try {
            blocks.append(wordBlockFromJson(json::asObject(array.at(i))));
        } catch (const DecodeError &error) {
            throw error.nested(u'[' + QString::number(i) + u']');
        }
    }
    return blocks;
}

QList<WordBlock> flattenParagraphs(const QList<Paragraph> &paragraphs)
{
    // Sorting indices keeps the paragraphs themselves untouched (and shared).
    QList<qsizetype> order(paragraphs.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return paragraphs[a].sortOrder < paragraphs[b].sortOrder;
    });

    qsizetype total = 0;
    for (const Paragraph &p : paragraphs)
        total += p.wordBlocks.size();

    QList<WordBlock> flat;
    flat.reserve(total);
    qint64 position = 0;
    for (qsizetype index : order) {
        for (const WordBlock &block : paragraphs[index].wordBlocks) {
            flat.append(block);
            flat.back().sortOrder = position++;
        }
    }
    return flat;
}

QList<Paragraph> groupWordBlocks(const QList<WordBlock> &blocks)
{
    QList<Paragraph> paragraphs;
    if (blocks.isEmpty())
        return paragraphs;

    QList<WordBlock> sorted = blocks;
    std::stable_sort(sorted.begin(), sorted.end(), [](const WordBlock &a, const WordBlock &b) {
        return a.sortOrder < b.sortOrder;
    });

    Paragraph open;
    auto close = [&] {
        open.id = QUuid::createUuid();
        open.sortOrder = paragraphs.size();
        paragraphs.append(std::move(open));
        open = Paragraph();
    };

    open.speakerLabel = sorted.front().speakerLabel;
    open.wordBlocks.append(sorted.front());
    for (qsizetype i = 1; i < sorted.size(); ++i) {
        const WordBlock &block = sorted[i];
        const double gap = block.mediaStart - sorted[i - 1].mediaEnd;
        if (block.speakerLabel == open.speakerLabel && gap <= maxParagraphGap) {
            open.wordBlocks.append(block);
            continue;
        }
        close();
        open.speakerLabel = block.speakerLabel;
        open.wordBlocks.append(block);
    }
    close();
    return paragraphs;
}

} // namespace kavel
