#include "timeline.h"

#include "errors.h"
#include "jsonfields.h"
#include "jsonwriter.h"
#include "recordreaders.h"

#include <QCoreApplication>
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

QByteArray encodeTimelineDocument(const TimelineV2 &timeline)
{
    qsizetype words = 0;
    for (const Paragraph &p : timeline.paragraphs)
        words += p.wordBlocks.size();
    // About 560 bytes per indented word; reserving up front avoids regrowing megabytes.
    JsonWriter w(words * 600 + timeline.paragraphs.size() * 200 + 64);
    w.beginObject();
    w.key("paragraphs");
    w.beginArray();
    for (const Paragraph &p : timeline.paragraphs)
        writeJson(w, p);
    w.endArray();
    w.key("version");
    w.value(timeline.version);
    w.endObject();
    return w.take();
}

TimelineV2 decodeTimelineDocument(QByteArrayView bytes)
{
    using namespace jsonread;
    const ParsedDocumentScope scope;
    const Element root = parse(bytes);
    TimelineV2 timeline;
    bool hasVersion = false, hasParagraphs = false;
    for (const auto field : object(root)) {
        const std::string_view key = field.key;
        if (key == "version") {
            const qint64 version = integer(field.value, key);
            if (version < std::numeric_limits<int>::min()
                || version > std::numeric_limits<int>::max())
                throw json::wrongTypeError(u"version",
                                           QT_TRANSLATE_NOOP("kavel::model", "32 位整数"));
            timeline.version = static_cast<int>(version);
            hasVersion = true;
        } else if (key == "paragraphs") {
            const simdjson::dom::array paragraphs = array(field.value, key);
            timeline.paragraphs.reserve(static_cast<qsizetype>(paragraphs.size()));
            qsizetype index = 0;
            for (const Element p : paragraphs) {
                timeline.paragraphs.append(
                    detail::locate([&] { return detail::readParagraph(p); },
                                   [&] { return QStringLiteral("paragraphs[%1]").arg(index); }));
                ++index;
            }
            hasParagraphs = true;
        }
    }
    if (!hasVersion)
        throwMissing("version");
    if (!hasParagraphs)
        throwMissing("paragraphs");
    return timeline;
}

QList<WordBlock> decodeFlatWordBlocks(QByteArrayView bytes)
{
    using namespace jsonread;
    const ParsedDocumentScope scope;
    const Element root = parse(bytes);
    simdjson::dom::array words;
    if (root.get(words))
        throw DecodeError(QString(), QCoreApplication::translate("kavel::model", "应为 JSON 数组"));
    QList<WordBlock> blocks;
    blocks.reserve(static_cast<qsizetype>(words.size()));
    qsizetype index = 0;
    for (const Element word : words) {
        blocks.append(detail::locate([&] { return detail::readWordBlock(word); },
                                     [&] { return QStringLiteral("[%1]").arg(index); }));
        ++index;
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
