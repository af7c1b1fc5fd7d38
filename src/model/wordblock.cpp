#include "wordblock.h"

#include "jsonfields.h"

using namespace Qt::StringLiterals;

namespace kavel {

namespace detail {

size_t hashDouble(double value, size_t seed) noexcept
{
    return ::qHash(value == 0.0 ? 0.0 : value, seed);
}

size_t hashOptionalString(const std::optional<QString> &value, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, value.has_value());
    if (value)
        seed = combine(seed, *value);
    return seed;
}

} // namespace detail

size_t qHash(const WordBlock &b, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, b.id);
    seed = combine(seed, b.text);
    seed = detail::hashOptionalString(b.speakerLabel, seed);
    seed = combine(seed, b.sourceFileId);
    seed = detail::hashDouble(b.mediaStart, seed);
    seed = detail::hashDouble(b.mediaEnd, seed);
    seed = combine(seed, b.isDeleted);
    seed = combine(seed, b.isFiller);
    seed = combine(seed, b.sortOrder);
    seed = detail::hashDouble(static_cast<double>(b.volumeLevel), seed);
    seed = combine(seed, b.isMuted);
    seed = combine(seed, b.isAudioDetached);
    seed = detail::hashDouble(b.fadeInDuration, seed);
    seed = detail::hashDouble(b.fadeOutDuration, seed);
    return seed;
}

QJsonObject toJson(const WordBlock &b)
{
    QJsonObject o;
    o.insert("id"_L1, json::uuidString(b.id));
    o.insert("text"_L1, b.text);
    if (b.speakerLabel)
        o.insert("speakerLabel"_L1, *b.speakerLabel);
    o.insert("sourceFileId"_L1, json::uuidString(b.sourceFileId));
    o.insert("mediaStart"_L1, b.mediaStart);
    o.insert("mediaEnd"_L1, b.mediaEnd);
    o.insert("isDeleted"_L1, b.isDeleted);
    o.insert("isFiller"_L1, b.isFiller);
    o.insert("sortOrder"_L1, b.sortOrder);
    o.insert("volumeLevel"_L1, json::floatForJson(b.volumeLevel));
    o.insert("isMuted"_L1, b.isMuted);
    o.insert("isAudioDetached"_L1, b.isAudioDetached);
    o.insert("fadeInDuration"_L1, b.fadeInDuration);
    o.insert("fadeOutDuration"_L1, b.fadeOutDuration);
    return o;
}

WordBlock wordBlockFromJson(const QJsonObject &o)
{
    WordBlock b;
    b.id = json::requiredUuid(o, "id"_L1);
    b.text = json::requiredString(o, "text"_L1);
    b.speakerLabel = json::optionalString(o, "speakerLabel"_L1);
    const auto sourceFileId = json::optionalUuid(o, "sourceFileId"_L1);
    b.sourceFileId = sourceFileId ? *sourceFileId : QUuid::createUuid();
    b.mediaStart = json::requiredDouble(o, "mediaStart"_L1);
    b.mediaEnd = json::requiredDouble(o, "mediaEnd"_L1);
    b.isDeleted = json::optionalBool(o, "isDeleted"_L1).value_or(false);
    b.isFiller = json::optionalBool(o, "isFiller"_L1).value_or(false);
    b.sortOrder = json::optionalInt64(o, "sortOrder"_L1).value_or(0);
    b.volumeLevel = static_cast<float>(json::optionalDouble(o, "volumeLevel"_L1).value_or(1.0));
    b.isMuted = json::optionalBool(o, "isMuted"_L1).value_or(false);
    b.isAudioDetached = json::optionalBool(o, "isAudioDetached"_L1).value_or(false);
    b.fadeInDuration = json::optionalDouble(o, "fadeInDuration"_L1).value_or(0.0);
    b.fadeOutDuration = json::optionalDouble(o, "fadeOutDuration"_L1).value_or(0.0);
    return b;
}

} // namespace kavel
