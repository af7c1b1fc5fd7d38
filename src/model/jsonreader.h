#pragma once

// Fast reading of the large model documents (the timeline) with simdjson, applying the
// same rules and error texts as the Qt-based readers in jsonfields.h. Internal to the
// model: no public header exposes simdjson.
#include <QByteArrayView>
#include <QString>
#include <QUuid>
#include <simdjson.h>
#include <string_view>

namespace kavel::jsonread {

using Element = simdjson::dom::element;

// Parses with a parser owned by the calling thread; the element stays valid until the
// same thread parses again. Throws DecodeError for malformed JSON.
Element parse(QByteArrayView bytes);

// Declared before the element it guards: when it goes, the parser's buffers go too if a
// large document made them large, so a big transcript's parse does not stay resident.
struct ParsedDocumentScope
{
    ParsedDocumentScope() = default;
    ParsedDocumentScope(const ParsedDocumentScope &) = delete;
    ParsedDocumentScope &operator=(const ParsedDocumentScope &) = delete;
    ~ParsedDocumentScope();
};

simdjson::dom::object object(Element element, QStringView where = {});
simdjson::dom::array array(Element element, std::string_view key);

QUuid uuid(Element element, std::string_view key);
QString string(Element element, std::string_view key);
double number(Element element, std::string_view key);
qint64 integer(Element element, std::string_view key);
bool boolean(Element element, std::string_view key);

[[noreturn]] void throwMissing(std::string_view key);
// A value of the right type that no real project can hold.
[[noreturn]] void throwInvalid(std::string_view key, const QString &reason);

} // namespace kavel::jsonread
