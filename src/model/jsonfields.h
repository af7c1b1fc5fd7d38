#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QUuid>
#include <optional>

// Reading typed fields out of JSON objects with the decoding rules every Kavel record
// shares: a required key that is absent, null or of the wrong type throws DecodeError;
// an optional key that is absent or null takes its default; a present key of the wrong
// type is an error even where absence would be tolerated.
namespace kavel {
class DecodeError;
}

namespace kavel::json {

QJsonObject asObject(const QJsonValue &value, const QString &where = {});
QJsonArray asArray(const QJsonValue &value, const QString &where = {});

QUuid requiredUuid(const QJsonObject &object, QLatin1StringView key);
QString requiredString(const QJsonObject &object, QLatin1StringView key);
double requiredDouble(const QJsonObject &object, QLatin1StringView key);
qint64 requiredInt64(const QJsonObject &object, QLatin1StringView key);
bool requiredBool(const QJsonObject &object, QLatin1StringView key);
QJsonArray requiredArray(const QJsonObject &object, QLatin1StringView key);
QDateTime requiredDate(const QJsonObject &object, QLatin1StringView key);

std::optional<QUuid> optionalUuid(const QJsonObject &object, QLatin1StringView key);
std::optional<QString> optionalString(const QJsonObject &object, QLatin1StringView key);
std::optional<double> optionalDouble(const QJsonObject &object, QLatin1StringView key);
std::optional<qint64> optionalInt64(const QJsonObject &object, QLatin1StringView key);
std::optional<bool> optionalBool(const QJsonObject &object, QLatin1StringView key);
std::optional<QJsonArray> optionalArray(const QJsonObject &object, QLatin1StringView key);

// Canonical text forms written by Kavel: upper-case hyphenated UUIDs and ISO 8601
// dates in UTC with whole seconds ("2025-03-01T08:15:30Z").
QString uuidString(const QUuid &id);
// The same 36 characters written into `out`, for writers that build bytes directly.
void formatUuid(const QUuid &id, char out[36]);
QString dateString(const QDateTime &date);
std::optional<QDateTime> parseDate(const QString &text);

// A 32-bit float written as the shortest decimal that reads back to the same float,
// so 0.8f is stored as 0.8 and not 0.800000011920929.
double floatForJson(float value);

// The errors every reader raises, whatever parser it sits on.
DecodeError missingKeyError(QStringView key);
DecodeError wrongTypeError(QStringView key, const char *expected);

// Parses a whole document, turning Qt's parse error into a DecodeError.
QJsonDocument parseDocument(const QByteArray &bytes);

} // namespace kavel::json
