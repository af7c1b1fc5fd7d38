#include "paragraph.h"

#include "errors.h"
#include "jsonwriter.h"
#include "recordreaders.h"

namespace kavel {

double Paragraph::totalDuration() const
{
    double total = 0.0;
    for (const WordBlock &block : wordBlocks)
        total += block.mediaEnd - block.mediaStart;
    return total;
}

size_t qHash(const Paragraph &p, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, p.id);
    seed = combine(seed, p.wordBlocks.size());
    for (const WordBlock &block : p.wordBlocks)
        seed = combine(seed, qHash(block));
    seed = combine(seed, p.sortOrder);
    return detail::hashOptionalString(p.speakerLabel, seed);
}

void writeJson(JsonWriter &w, const Paragraph &p)
{
    w.beginObject();
    w.key("id");
    w.value(p.id);
    w.key("sortOrder");
    w.value(p.sortOrder);
    if (p.speakerLabel) {
        w.key("speakerLabel");
        w.value(*p.speakerLabel);
    }
    w.key("wordBlocks");
    w.beginArray();
    for (const WordBlock &block : p.wordBlocks)
        writeJson(w, block);
    w.endArray();
    w.endObject();
}

QByteArray encodeParagraph(const Paragraph &paragraph)
{
    JsonWriter writer;
    writeJson(writer, paragraph);
    return writer.take();
}

namespace detail {

Paragraph readParagraph(jsonread::Element element)
{
    using namespace jsonread;
    Paragraph p;
    bool hasId = false, hasWords = false, hasSortOrder = false;
    for (const auto field : object(element)) {
        const std::string_view key = field.key;
        const Element v = field.value;
        if (key == "id") {
            p.id = uuid(v, key);
            hasId = true;
        } else if (key == "wordBlocks") {
            const simdjson::dom::array words = array(v, key);
            p.wordBlocks.reserve(static_cast<qsizetype>(words.size()));
            qsizetype index = 0;
            for (const Element word : words) {
                p.wordBlocks.append(
                    locate([&] { return readWordBlock(word); },
                           [&] { return QStringLiteral("wordBlocks[%1]").arg(index); }));
                ++index;
            }
            hasWords = true;
        } else if (key == "sortOrder") {
            p.sortOrder = integer(v, key);
            hasSortOrder = true;
        } else if (key == "speakerLabel" && !v.is_null()) {
            p.speakerLabel = string(v, key);
        }
    }
    if (!hasId)
        throwMissing("id");
    if (!hasWords)
        throwMissing("wordBlocks");
    if (!hasSortOrder)
        throwMissing("sortOrder");
    return p;
}

} // namespace detail

Paragraph decodeParagraph(QByteArrayView json)
{
    return detail::readParagraph(jsonread::parse(json));
}

} // namespace kavel
