#include "jsonfields.h"

#include "errors.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QRegularExpression>
#include <charconv>
#include <cmath>

namespace kavel::json {
namespace {

QString keyName(QLatin1StringView key)
{
    return QString(key);
}

[[noreturn]] void throwMissing(QLatin1StringView key)
{
    throw missingKeyError(keyName(key));
}

[[noreturn]] void throwType(QLatin1StringView key, const char *expected)
{
    throw wrongTypeError(keyName(key), expected);
}

// Present and not null, or nullopt. Swift-style decoders treat an explicit null like
// an absent key for optional fields, and as a missing value for required ones.
std::optional<QJsonValue> present(const QJsonObject &object, QLatin1StringView key)
{
    const auto it = object.constFind(key);
    if (it == object.constEnd() || it->isNull())
        return std::nullopt;
    return *it;
}

QJsonValue required(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        throwMissing(key);
    return *value;
}

QUuid toUuid(const QJsonValue &value, QLatin1StringView key)
{
    if (!value.isString())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "UUID 字符串"));
    const QString text = value.toString();
    // QUuid accepts braces; a stored identifier is always the bare 36-character form.
    const QUuid id = text.size() == 36 ? QUuid::fromString(text) : QUuid();
    if (id.isNull() && text != QLatin1String("00000000-0000-0000-0000-000000000000"))
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "UUID 字符串"));
    return id;
}

double toDouble(const QJsonValue &value, QLatin1StringView key)
{
    if (!value.isDouble())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "数字"));
    return value.toDouble();
}

qint64 toInt64(const QJsonValue &value, QLatin1StringView key)
{
    if (!value.isDouble())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "整数"));
    // toInteger() falls back to its argument when the number is not integral or out of
    // range, so two different fallbacks agreeing means the value really is an integer.
    const qint64 a = value.toInteger(0);
    const qint64 b = value.toInteger(1);
    if (a != b)
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "整数"));
    return a;
}

} // namespace

DecodeError missingKeyError(QStringView key)
{
    return DecodeError(key.toString(),
                       QCoreApplication::translate("kavel::model", "缺少必需的键“%1”").arg(key));
}

DecodeError wrongTypeError(QStringView key, const char *expected)
{
    return DecodeError(key.toString(),
                       QCoreApplication::translate("kavel::model", "键“%1”的值应为%2")
                           .arg(key, QCoreApplication::translate("kavel::model", expected)));
}

QJsonObject asObject(const QJsonValue &value, const QString &where)
{
    if (!value.isObject())
        throw DecodeError(where, QCoreApplication::translate("kavel::model", "应为 JSON 对象"));
    return value.toObject();
}

QJsonArray asArray(const QJsonValue &value, const QString &where)
{
    if (!value.isArray())
        throw DecodeError(where, QCoreApplication::translate("kavel::model", "应为 JSON 数组"));
    return value.toArray();
}

QUuid requiredUuid(const QJsonObject &object, QLatin1StringView key)
{
    return toUuid(required(object, key), key);
}

QString requiredString(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = required(object, key);
    if (!value.isString())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "字符串"));
    return value.toString();
}

double requiredDouble(const QJsonObject &object, QLatin1StringView key)
{
    return toDouble(required(object, key), key);
}

qint64 requiredInt64(const QJsonObject &object, QLatin1StringView key)
{
    return toInt64(required(object, key), key);
}

bool requiredBool(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = required(object, key);
    if (!value.isBool())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "布尔值"));
    return value.toBool();
}

QJsonArray requiredArray(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = required(object, key);
    if (!value.isArray())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "数组"));
    return value.toArray();
}

QDateTime requiredDate(const QJsonObject &object, QLatin1StringView key)
{
    const QString text = requiredString(object, key);
    auto date = parseDate(text);
    if (!date)
        throw DecodeError(
            keyName(key),
            QCoreApplication::translate("kavel::model", "键“%1”的日期“%2”不是 ISO 8601 格式")
                .arg(keyName(key), text));
    return *date;
}

std::optional<QUuid> optionalUuid(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    return toUuid(*value, key);
}

std::optional<QString> optionalString(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    if (!value->isString())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "字符串"));
    return value->toString();
}

std::optional<double> optionalDouble(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    return toDouble(*value, key);
}

std::optional<qint64> optionalInt64(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    return toInt64(*value, key);
}

std::optional<bool> optionalBool(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    if (!value->isBool())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "布尔值"));
    return value->toBool();
}

std::optional<QJsonArray> optionalArray(const QJsonObject &object, QLatin1StringView key)
{
    auto value = present(object, key);
    if (!value)
        return std::nullopt;
    if (!value->isArray())
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "数组"));
    return value->toArray();
}

void formatUuid(const QUuid &id, char out[36])
{
    // Hand-rolled because ids are formatted for every word on every save and every preview
    // signature, and QUuid's lower-case form plus toUpper() costs several allocations.
    static constexpr char hex[] = "0123456789ABCDEF";
    int n = 0;
    auto put = [&](quint64 bits, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
            out[n++] = hex[(bits >> shift) & 0xF];
    };
    put(id.data1, 8);
    out[n++] = '-';
    put(id.data2, 4);
    out[n++] = '-';
    put(id.data3, 4);
    out[n++] = '-';
    put(quint64(id.data4[0]) << 8 | id.data4[1], 4);
    out[n++] = '-';
    for (int i = 2; i < 8; ++i)
        put(id.data4[i], 2);
}

QString uuidString(const QUuid &id)
{
    char text[36];
    formatUuid(id, text);
    return QString::fromLatin1(text, 36);
}

QString dateString(const QDateTime &date)
{
    QDateTime utc = date.toUTC();
    utc.setTime(QTime(utc.time().hour(), utc.time().minute(), utc.time().second()));
    return utc.toString(Qt::ISODate);
}

std::optional<QDateTime> parseDate(const QString &text)
{
    // ISO 8601 internet form: a date, a time and a zone. Without a zone the instant
    // would depend on the reader's time zone, so it is refused.
    static const QRegularExpression form(QStringLiteral(
        "^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(\\.\\d+)?(Z|[+-]\\d{2}:?\\d{2})$"));
    if (!form.match(text).hasMatch())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date.toUTC();
}

double floatForJson(float value)
{
    if (!std::isfinite(value))
        return static_cast<double>(value);
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    double widened = 0.0;
    std::from_chars(buffer, result.ptr, widened);
    return widened;
}

QJsonDocument parseDocument(const QByteArray &bytes)
{
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodeError(
            QString(), QCoreApplication::translate("kavel::model", "JSON 无法解析"),
            QStringLiteral("%1 at byte %2").arg(error.errorString()).arg(error.offset));
    return document;
}

} // namespace kavel::json
