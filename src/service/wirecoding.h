#pragma once

#include "model/jsonfields.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <concepts>

// The network's JSON dialect. Records are written and read with camelCase keys, the same
// names as their fields; the conversion to and from the wire's snake_case happens once,
// on the whole document, so no record has to know about it.
namespace kavel::service::wire {

// "mediaStart" -> "media_start", "avatarURL" -> "avatar_url". Leading and trailing
// underscores are kept.
QString toSnakeCase(const QString &key);
// "media_start" -> "mediaStart", "task_ID" -> "taskId". A key without an underscore is
// left as it is, which is why only "avatarURL" spelled exactly so fills that field.
QString fromSnakeCase(const QString &key);

// Applied to every object key at every depth.
QJsonValue keysToSnakeCase(const QJsonValue &value);
QJsonValue keysFromSnakeCase(const QJsonValue &value);

// Dates on the wire are ISO 8601 internet date-times, with or without fractional
// seconds; anything else throws DecodeError at `where` with the reason
// "Cannot decode date: " followed by the text.
QDateTime decodeDate(const QJsonValue &value, const QString &where);
QDateTime requiredDate(const QJsonObject &object, QLatin1StringView key);
QString encodeDate(const QDateTime &date);

template<typename T>
concept Decodable = requires(const QJsonObject &object)
{
    {
        T::fromJson(object)
        } -> std::same_as<T>;
};

template<typename T>
concept Encodable = requires(const T &record)
{
    {
        record.toJson()
        } -> std::same_as<QJsonObject>;
};

// The reply of a request whose body does not matter. Any JSON object decodes.
struct EmptyResponse
{
    static EmptyResponse fromJson(const QJsonObject &) { return {}; }
    QJsonObject toJson() const { return {}; }
};

// A reply body as a camelCase-keyed object; throws DecodeError when it is not JSON or
// not an object.
QJsonObject decodeObject(const QByteArray &body);

template<Decodable T> T decode(const QByteArray &body)
{
    return T::fromJson(decodeObject(body));
}

QByteArray encode(const QJsonObject &camelCaseObject);

template<Encodable T> QByteArray encode(const T &record)
{
    return encode(record.toJson());
}

} // namespace kavel::service::wire
