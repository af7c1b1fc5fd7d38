#include "wordblock.h"

#include "errors.h"
#include "jsonfields.h"
#include "jsonwriter.h"
#include "recordreaders.h"

#include <QCoreApplication>
#include <cmath>

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
    seed = detail::hashDouble(b.pauseAfter, seed);
    seed = detail::hashDouble(b.confidence, seed);
    return seed;
}

void writeJson(JsonWriter &w, const WordBlock &b)
{
    w.beginObject();
    if (b.confidence < 1.0) {
        w.key("confidence");
        w.value(b.confidence);
    }
    w.key("fadeInDuration");
    w.value(b.fadeInDuration);
    w.key("fadeOutDuration");
    w.value(b.fadeOutDuration);
    w.key("id");
    w.value(b.id);
    w.key("isAudioDetached");
    w.value(b.isAudioDetached);
    w.key("isDeleted");
    w.value(b.isDeleted);
    w.key("isFiller");
    w.value(b.isFiller);
    w.key("isMuted");
    w.value(b.isMuted);
    w.key("mediaEnd");
    w.value(b.mediaEnd);
    w.key("mediaStart");
    w.value(b.mediaStart);
    if (b.pauseAfter > 0) {
        w.key("pauseAfter");
        w.value(b.pauseAfter);
    }
    w.key("sortOrder");
    w.value(b.sortOrder);
    w.key("sourceFileId");
    w.value(b.sourceFileId);
    if (b.speakerLabel) {
        w.key("speakerLabel");
        w.value(*b.speakerLabel);
    }
    w.key("text");
    w.value(b.text);
    w.key("volumeLevel");
    w.value(json::floatForJson(b.volumeLevel));
    w.endObject();
}

QByteArray encodeWordBlock(const WordBlock &block)
{
    JsonWriter writer;
    writeJson(writer, block);
    return writer.take();
}

namespace detail {

WordBlock readWordBlock(jsonread::Element element)
{
    using namespace jsonread;
    WordBlock b;
    bool hasId = false, hasText = false, hasStart = false, hasEnd = false, hasSource = false;
    // One pass over the fields rather than a lookup per key: this runs for every word of
    // every project that is opened.
    for (const auto field : object(element)) {
        const std::string_view key = field.key;
        const Element v = field.value;
        const bool absent = v.is_null();
        if (key == "id") {
            b.id = uuid(v, key);
            hasId = true;
        } else if (key == "text") {
            b.text = string(v, key);
            hasText = true;
        } else if (key == "mediaStart") {
            b.mediaStart = number(v, key);
            hasStart = true;
        } else if (key == "mediaEnd") {
            b.mediaEnd = number(v, key);
            hasEnd = true;
        } else if (absent) {
            continue; // an explicit null in an optional field means "not given"
        } else if (key == "speakerLabel") {
            b.speakerLabel = string(v, key);
        } else if (key == "sourceFileId") {
            b.sourceFileId = uuid(v, key);
            hasSource = true;
        } else if (key == "isDeleted") {
            b.isDeleted = boolean(v, key);
        } else if (key == "isFiller") {
            b.isFiller = boolean(v, key);
        } else if (key == "sortOrder") {
            b.sortOrder = integer(v, key);
        } else if (key == "volumeLevel") {
            b.volumeLevel = static_cast<float>(number(v, key));
        } else if (key == "isMuted") {
            b.isMuted = boolean(v, key);
        } else if (key == "isAudioDetached") {
            b.isAudioDetached = boolean(v, key);
        } else if (key == "fadeInDuration") {
            b.fadeInDuration = number(v, key);
        } else if (key == "fadeOutDuration") {
            b.fadeOutDuration = number(v, key);
        } else if (key == "pauseAfter") {
            b.pauseAfter = number(v, key);
        } else if (key == "confidence") {
            b.confidence = number(v, key);
        }
    }
    if (!hasId)
        throwMissing("id");
    if (!hasText)
        throwMissing("text");
    if (!hasStart)
        throwMissing("mediaStart");
    if (!hasEnd)
        throwMissing("mediaEnd");
    // No recording runs for a hundred hours; a time past that (or not a number at all)
    // could only come from a damaged or hostile file, and nothing downstream can place it.
    constexpr double latest = 100.0 * 3600.0;
    for (const auto &[time, key] : {std::pair {b.mediaStart, "mediaStart"},
                                    {b.mediaEnd, "mediaEnd"},
                                    {b.pauseAfter, "pauseAfter"}})
        // A subnormal time (1e-320) is no moment anyone recorded, only bits gone astray.
        if (!std::isfinite(time) || std::abs(time) > latest
            || std::fpclassify(time) == FP_SUBNORMAL)
            throwInvalid(
                key,
                QCoreApplication::translate("kavel::model", "词“%1”的时间超出范围").arg(b.text));
    // Every consumer measures a word from its start to its end; one that ends before it
    // starts has no place on the timeline, in the preview or in a subtitle.
    if (!(b.confidence >= 0.0 && b.confidence <= 1.0))
        throwInvalid(
            "confidence",
            QCoreApplication::translate("WordBlock", "词“%1”的可信度不在 0 到 1 之间").arg(b.text));
    if (b.mediaStart > b.mediaEnd)
        throwInvalid("mediaEnd",
                     QCoreApplication::translate("kavel::model", "词“%1”的结束时间早于开始时间")
                         .arg(b.text));
    if (!hasSource)
        b.sourceFileId = QUuid::createUuid();
    return b;
}

} // namespace detail

WordBlock decodeWordBlock(QByteArrayView json)
{
    return detail::readWordBlock(jsonread::parse(json));
}

} // namespace kavel
