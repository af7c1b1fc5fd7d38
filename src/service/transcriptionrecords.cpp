#include "transcriptionrecords.h"

#include "model/errors.h"
#include "model/jsonfields.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <algorithm>

namespace kavel::service {

using namespace Qt::StringLiterals;

namespace {

void insertOptional(QJsonObject &object, QLatin1StringView key, const std::optional<QString> &value)
{
    if (value)
        object.insert(key, *value);
}

template<typename T> QList<T> decodeList(const QJsonArray &array, const QString &key)
{
    QList<T> list;
    list.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        const QString where = key + u'[' + QString::number(i) + u']';
        try {
            list.append(T::fromJson(json::asObject(array.at(i), where)));
        } catch (const DecodeError &error) {
            throw error.nested(where);
        }
    }
    return list;
}

template<typename T> QJsonArray encodeList(const QList<T> &list)
{
    QJsonArray array;
    for (const T &element : list)
        array.append(element.toJson());
    return array;
}

bool requiredBool(const QJsonObject &object, QLatin1StringView key)
{
    const auto value = json::optionalBool(object, key);
    if (!value)
        throw DecodeError(
            QString(key),
            QCoreApplication::translate("kavel::service", "缺少键“%1”").arg(QString(key)));
    return *value;
}

} // namespace

TranscribeResponse TranscribeResponse::fromJson(const QJsonObject &object)
{
    return {json::requiredString(object, "taskId"_L1), json::requiredString(object, "status"_L1)};
}

QJsonObject TranscribeResponse::toJson() const
{
    return {{"taskId"_L1, taskId}, {"status"_L1, status}};
}

RecognitionLanguages RecognitionLanguages::fromJson(const QJsonObject &object)
{
    RecognitionLanguages heard;
    const QJsonArray languages = json::requiredArray(object, "languages"_L1);
    for (qsizetype i = 0; i < languages.size(); ++i) {
        if (!languages.at(i).isString())
            throw json::wrongTypeError(u"languages[%1]"_s.arg(i), "string");
        heard.languages << languages.at(i).toString();
    }
    heard.defaultLanguage
        = json::optionalString(object, "default"_L1).value_or(heard.languages.value(0));
    return heard;
}

QJsonObject RecognitionLanguages::toJson() const
{
    return {{"languages"_L1, QJsonArray::fromStringList(languages)},
            {"default"_L1, defaultLanguage}};
}

WordBlockPayload WordBlockPayload::fromJson(const QJsonObject &object)
{
    WordBlockPayload word;
    word.text = json::requiredString(object, "text"_L1);
    word.speakerLabel = json::optionalString(object, "speakerLabel"_L1);
    word.mediaStart = json::requiredDouble(object, "mediaStart"_L1);
    word.mediaEnd = json::requiredDouble(object, "mediaEnd"_L1);
    word.isFiller = requiredBool(object, "isFiller"_L1);
    word.sortOrder = json::requiredInt64(object, "sortOrder"_L1);
    // A recogniser's doubt is advice, not data to refuse a transcript over: a value past
    // either end means as sure or as unsure as can be.
    word.confidence
        = std::clamp(json::optionalDouble(object, "confidence"_L1).value_or(1.0), 0.0, 1.0);
    return word;
}

QJsonObject WordBlockPayload::toJson() const
{
    QJsonObject object {{"text"_L1, text}};
    insertOptional(object, "speakerLabel"_L1, speakerLabel);
    object.insert("mediaStart"_L1, mediaStart);
    object.insert("mediaEnd"_L1, mediaEnd);
    object.insert("isFiller"_L1, isFiller);
    object.insert("sortOrder"_L1, sortOrder);
    if (confidence < 1.0)
        object.insert("confidence"_L1, confidence);
    return object;
}

ParagraphPayload ParagraphPayload::fromJson(const QJsonObject &object)
{
    ParagraphPayload paragraph;
    paragraph.paragraphId = json::optionalString(object, "paragraphId"_L1);
    paragraph.speakerLabel = json::optionalString(object, "speakerLabel"_L1);
    paragraph.wordBlocks = decodeList<WordBlockPayload>(
        json::requiredArray(object, "wordBlocks"_L1), u"wordBlocks"_s);
    return paragraph;
}

QJsonObject ParagraphPayload::toJson() const
{
    QJsonObject object;
    insertOptional(object, "paragraphId"_L1, paragraphId);
    insertOptional(object, "speakerLabel"_L1, speakerLabel);
    object.insert("wordBlocks"_L1, encodeList(wordBlocks));
    return object;
}

size_t qHash(const WordBlockPayload &word, size_t seed) noexcept
{
    seed = ::qHash(word.text, seed);
    seed = detail::hashOptionalString(word.speakerLabel, seed);
    seed = detail::hashDouble(word.mediaStart, seed);
    seed = detail::hashDouble(word.mediaEnd, seed);
    seed = ::qHash(word.isFiller, seed);
    seed = detail::hashDouble(word.confidence, seed);
    return ::qHash(word.sortOrder, seed);
}

size_t qHash(const ParagraphPayload &paragraph, size_t seed) noexcept
{
    seed = detail::hashOptionalString(paragraph.paragraphId, seed);
    seed = detail::hashOptionalString(paragraph.speakerLabel, seed);
    for (const WordBlockPayload &word : paragraph.wordBlocks)
        seed = qHash(word, seed);
    return seed;
}

TranscriptionResult TranscriptionResult::fromJson(const QJsonObject &object)
{
    TranscriptionResult result;
    result.taskId = json::requiredString(object, "taskId"_L1);
    result.status = json::requiredString(object, "status"_L1);
    if (auto array = json::optionalArray(object, "paragraphs"_L1))
        result.paragraphs = decodeList<ParagraphPayload>(*array, u"paragraphs"_s);
    result.errorMessage = json::optionalString(object, "errorMessage"_L1);
    result.progress = json::optionalDouble(object, "progress"_L1);
    return result;
}

QJsonObject TranscriptionResult::toJson() const
{
    QJsonObject object {{"taskId"_L1, taskId}, {"status"_L1, status}};
    if (paragraphs)
        object.insert("paragraphs"_L1, encodeList(*paragraphs));
    insertOptional(object, "errorMessage"_L1, errorMessage);
    if (progress)
        object.insert("progress"_L1, *progress);
    return object;
}

TimelineSegment TimelineSegment::fromJson(const QJsonObject &object)
{
    return {json::requiredDouble(object, "mediaStart"_L1),
            json::requiredDouble(object, "mediaEnd"_L1)};
}

QJsonObject TimelineSegment::toJson() const
{
    return {{"mediaStart"_L1, mediaStart}, {"mediaEnd"_L1, mediaEnd}};
}

QList<Paragraph> paragraphsFromPayload(const QList<ParagraphPayload> &payload,
                                       const QUuid &sourceFileId, qint64 existingParagraphs)
{
    QList<Paragraph> paragraphs;
    paragraphs.reserve(payload.size());
    for (qsizetype i = 0; i < payload.size(); ++i) {
        const ParagraphPayload &incoming = payload[i];
        Paragraph paragraph;
        // The service's paragraph id is not ours to keep: ids in the editor must be
        // unique across imports, and the same result may be imported twice.
        paragraph.id = QUuid::createUuid();
        paragraph.sortOrder = existingParagraphs + i;
        paragraph.speakerLabel = incoming.speakerLabel;
        paragraph.wordBlocks.reserve(incoming.wordBlocks.size());
        for (qsizetype j = 0; j < incoming.wordBlocks.size(); ++j) {
            const WordBlockPayload &word = incoming.wordBlocks[j];
            WordBlock block;
            block.id = QUuid::createUuid();
            block.text = word.text;
            block.speakerLabel = word.speakerLabel;
            block.sourceFileId = sourceFileId;
            block.mediaStart = word.mediaStart;
            block.mediaEnd = word.mediaEnd;
            block.isFiller = word.isFiller;
            block.confidence = word.confidence;
            // The service's own numbering may have gaps; ours is the word's position.
            block.sortOrder = j;
            paragraph.wordBlocks.append(std::move(block));
        }
        paragraphs.append(std::move(paragraph));
    }
    return paragraphs;
}

} // namespace kavel::service
