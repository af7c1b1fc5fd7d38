#include "wirecoding.h"

#include "model/errors.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QRegularExpression>

namespace kavel::service::wire {

namespace {

// Splits a key into its leading underscores, its body and its trailing underscores.
struct KeyParts
{
    QStringView leading, body, trailing;
};

KeyParts splitUnderscores(QStringView key)
{
    qsizetype first = 0;
    while (first < key.size() && key[first] == u'_')
        ++first;
    if (first == key.size())
        return {key, {}, {}};
    qsizetype last = key.size() - 1;
    while (last > first && key[last] == u'_')
        --last;
    return {key.first(first), key.sliced(first, last - first + 1), key.sliced(last + 1)};
}

template<typename Convert> QJsonValue convertKeys(const QJsonValue &value, Convert convert)
{
    if (value.isObject()) {
        QJsonObject converted;
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            converted.insert(convert(it.key()), convertKeys(it.value(), convert));
        return converted;
    }
    if (value.isArray()) {
        QJsonArray converted;
        for (const QJsonValue &element : value.toArray())
            converted.append(convertKeys(element, convert));
        return converted;
    }
    return value;
}

std::optional<QDateTime> parseInternetDate(const QString &text, bool withFraction)
{
    static const QRegularExpression withMs(QStringLiteral(
        "^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})\\.(\\d+)(Z|[+-]\\d{2}:\\d{2})$"));
    static const QRegularExpression withoutMs(QStringLiteral(
        "^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})(Z|[+-]\\d{2}:\\d{2})$"));
    const QRegularExpressionMatch match = (withFraction ? withMs : withoutMs).match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const QDate date(match.captured(1).toInt(), match.captured(2).toInt(),
                     match.captured(3).toInt());
    int ms = 0;
    if (withFraction)
        ms = QStringView(match.captured(7)).left(3).toString().leftJustified(3, u'0').toInt();
    const QTime time(match.captured(4).toInt(), match.captured(5).toInt(),
                     match.captured(6).toInt(), ms);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    const QString zone = match.captured(withFraction ? 8 : 7);
    int offsetSeconds = 0;
    if (zone != u"Z") {
        const int sign = zone.startsWith(u'-') ? -1 : 1;
        offsetSeconds = sign * (zone.mid(1, 2).toInt() * 3600 + zone.mid(4, 2).toInt() * 60);
    }
    return QDateTime(date, time, Qt::OffsetFromUTC, offsetSeconds).toUTC();
}

} // namespace

QString toSnakeCase(const QString &key)
{
    const KeyParts parts = splitUnderscores(key);
    if (parts.body.isEmpty())
        return key;
    // A word starts at an upper-case letter after a lower-case one or a digit, and at the
    // last capital of a run that a lower-case letter follows ("URLField" -> "url", "field").
    QStringList words;
    const QStringView body = parts.body;
    qsizetype start = 0;
    for (qsizetype i = 1; i < body.size(); ++i) {
        const bool upper = body[i].isUpper();
        const bool previousUpper = body[i - 1].isUpper();
        const bool nextLower = i + 1 < body.size() && body[i + 1].isLower();
        if (upper && (!previousUpper || nextLower)) {
            words.append(body.sliced(start, i - start).toString().toLower());
            start = i;
        }
    }
    words.append(body.sliced(start).toString().toLower());
    return parts.leading.toString() + words.join(u'_') + parts.trailing.toString();
}

QString fromSnakeCase(const QString &key)
{
    if (!key.contains(u'_'))
        return key;
    const KeyParts parts = splitUnderscores(key);
    if (parts.body.isEmpty())
        return key;
    const QList<QStringView> words = parts.body.split(u'_', Qt::SkipEmptyParts);
    QString joined = words.front().toString().toLower();
    for (qsizetype i = 1; i < words.size(); ++i) {
        const QString word = words[i].toString().toLower();
        joined += word.left(1).toUpper() + word.mid(1);
    }
    return parts.leading.toString() + joined + parts.trailing.toString();
}

QJsonValue keysToSnakeCase(const QJsonValue &value)
{
    return convertKeys(value, toSnakeCase);
}

QJsonValue keysFromSnakeCase(const QJsonValue &value)
{
    return convertKeys(value, fromSnakeCase);
}

QDateTime decodeDate(const QJsonValue &value, const QString &where)
{
    if (!value.isString())
        throw DecodeError(where, QCoreApplication::translate("kavel::service", "应为日期字符串"));
    const QString text = value.toString();
    if (auto date = parseInternetDate(text, true))
        return *date;
    if (auto date = parseInternetDate(text, false))
        return *date;
    throw DecodeError(where, QCoreApplication::translate("kavel::service", "日期无法解析"), text);
}

QDateTime requiredDate(const QJsonObject &object, QLatin1StringView key)
{
    return decodeDate(object.value(key), QString(key));
}

QString encodeDate(const QDateTime &date)
{
    return json::dateString(date);
}

QJsonObject decodeObject(const QByteArray &body)
{
    const QJsonDocument document = json::parseDocument(body);
    if (!document.isObject())
        throw DecodeError({}, QCoreApplication::translate("kavel::service", "应为 JSON 对象"));
    return keysFromSnakeCase(document.object()).toObject();
}

QByteArray encode(const QJsonObject &camelCaseObject)
{
    return QJsonDocument(keysToSnakeCase(camelCaseObject).toObject())
        .toJson(QJsonDocument::Compact);
}

} // namespace kavel::service::wire
