#include "jsonreader.h"

#include "errors.h"
#include "jsonfields.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <cmath>

namespace kavel::jsonread {

namespace {

QString keyText(std::string_view key)
{
    return QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
}

[[noreturn]] void throwType(std::string_view key, const char *expected)
{
    throw json::wrongTypeError(keyText(key), expected);
}

} // namespace

void throwMissing(std::string_view key)
{
    throw json::missingKeyError(keyText(key));
}

void throwInvalid(std::string_view key, const QString &reason)
{
    throw DecodeError(keyText(key), reason);
}

namespace {

simdjson::dom::parser &threadParser()
{
    thread_local simdjson::dom::parser parser;
    return parser;
}

} // namespace

// The parser keeps buffers of about ten times the largest document it has read: after an
// hour-long transcript that is tens of megabytes, held for as long as the thread lives.
// Giving them back at once made every read fault the same pages in again (opening a
// project reads its metadata, its transcript and its journal; the project list reads
// every transcript), which tripled the time of an open. On the application's thread they
// are kept while reads follow each other and given back once it has been idle a moment;
// other threads have no event loop to wait with and give them back at once.
ParsedDocumentScope::~ParsedDocumentScope()
{
    constexpr size_t largeCapacity = 1024 * 1024;
    constexpr int idleMilliseconds = 2000;
    if (threadParser().capacity() <= largeCapacity)
        return;
    QCoreApplication *application = QCoreApplication::instance();
    if (!application || QThread::currentThread() != application->thread()) {
        threadParser() = simdjson::dom::parser();
        return;
    }
    static QPointer<QTimer> release;
    if (!release) {
        release = new QTimer(application);
        release->setSingleShot(true);
        release->setInterval(idleMilliseconds);
        QObject::connect(release, &QTimer::timeout, [] {
            if (threadParser().capacity() > largeCapacity)
                threadParser() = simdjson::dom::parser();
        });
    }
    release->start();
}

Element parse(QByteArrayView bytes)
{
    simdjson::dom::parser &parser = threadParser();
    Element root;
    const auto error = parser.parse(bytes.data(), static_cast<size_t>(bytes.size())).get(root);
    if (error)
        throw DecodeError(QString(), QCoreApplication::translate("kavel::model", "JSON 无法解析"),
                          QString::fromUtf8(simdjson::error_message(error)));
    return root;
}

simdjson::dom::object object(Element element, QStringView where)
{
    simdjson::dom::object result;
    if (element.get(result))
        throw DecodeError(where.toString(),
                          QCoreApplication::translate("kavel::model", "应为 JSON 对象"));
    return result;
}

simdjson::dom::array array(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    simdjson::dom::array result;
    if (element.get(result))
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "数组"));
    return result;
}

QUuid uuid(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    std::string_view text;
    if (element.get(text) || text.size() != 36)
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "UUID 字符串"));
    const QUuid id = QUuid::fromString(QLatin1StringView(text.data(), 36));
    if (id.isNull() && text != "00000000-0000-0000-0000-000000000000")
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "UUID 字符串"));
    return id;
}

QString string(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    std::string_view text;
    if (element.get(text))
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "字符串"));
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

double number(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    switch (element.type()) {
    case simdjson::dom::element_type::DOUBLE:
        return element.get_double().value_unsafe();
    case simdjson::dom::element_type::INT64:
        return static_cast<double>(element.get_int64().value_unsafe());
    case simdjson::dom::element_type::UINT64:
        return static_cast<double>(element.get_uint64().value_unsafe());
    default:
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "数字"));
    }
}

qint64 integer(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    switch (element.type()) {
    case simdjson::dom::element_type::INT64:
        return element.get_int64().value_unsafe();
    case simdjson::dom::element_type::UINT64:
        break; // beyond the signed range
    case simdjson::dom::element_type::DOUBLE: {
        // 3.0 is an integer written by a lenient writer; 1.5 is not.
        const double d = element.get_double().value_unsafe();
        if (std::trunc(d) == d && std::abs(d) < 9.2e18)
            return static_cast<qint64>(d);
        break;
    }
    default:
        break;
    }
    throwType(key, QT_TRANSLATE_NOOP("kavel::model", "整数"));
}

bool boolean(Element element, std::string_view key)
{
    if (element.is_null())
        throwMissing(key);
    bool flag = false;
    if (element.get(flag))
        throwType(key, QT_TRANSLATE_NOOP("kavel::model", "布尔值"));
    return flag;
}

} // namespace kavel::jsonread
