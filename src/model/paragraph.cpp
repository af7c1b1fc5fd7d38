#include "paragraph.h"

#include "errors.h"
#include "jsonfields.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

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

QJsonObject toJson(const Paragraph &p)
{
    QJsonArray words;
    for (const WordBlock &block : p.wordBlocks)
        words.append(toJson(block));
    QJsonObject o;
    o.insert("id"_L1, json::uuidString(p.id));
    o.insert("wordBlocks"_L1, words);
    o.insert("sortOrder"_L1, p.sortOrder);
    if (p.speakerLabel)
        o.insert("speakerLabel"_L1, *p.speakerLabel);
    return o;
}

Paragraph paragraphFromJson(const QJsonObject &o)
{
    Paragraph p;
    p.id = json::requiredUuid(o, "id"_L1);
    const QJsonArray words = json::requiredArray(o, "wordBlocks"_L1);
    p.wordBlocks.reserve(words.size());
    for (qsizetype i = 0; i < words.size(); ++i) {
        try {
            p.wordBlocks.append(wordBlockFromJson(json::asObject(words.at(i))));
        } catch (const DecodeError &error) {
            throw error.nested(u"wordBlocks["_s + QString::number(i) + u']');
        }
    }
    p.sortOrder = json::requiredInt64(o, "sortOrder"_L1);
    p.speakerLabel = json::optionalString(o, "speakerLabel"_L1);
    return p;
}

} // namespace kavel
