#include "jsonwriter.h"

#include "jsonfields.h"

#include <charconv>
#include <cmath>

namespace kavel {

JsonWriter::JsonWriter(qsizetype expectedSize)
{
    m_out.reserve(expectedSize > 0 ? expectedSize : 256);
}

void JsonWriter::newline()
{
    m_out.append('\n');
    m_out.append(m_depth * 2, ' ');
}

void JsonWriter::beforeValue()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (m_depth == 0)
        return;
    if (!m_first)
        m_out.append(',');
    m_first = false;
    newline();
}

void JsonWriter::beginObject()
{
    beforeValue();
    m_out.append('{');
    ++m_depth;
    m_first = true;
}

void JsonWriter::endObject()
{
    --m_depth;
    if (!m_first)
        newline();
    m_out.append('}');
    m_first = false;
}

void JsonWriter::beginArray()
{
    beforeValue();
    m_out.append('[');
    ++m_depth;
    m_first = true;
}

void JsonWriter::endArray()
{
    --m_depth;
    if (!m_first)
        newline();
    m_out.append(']');
    m_first = false;
}

void JsonWriter::key(std::string_view name)
{
    if (!m_first)
        m_out.append(',');
    m_first = false;
    newline();
    m_out.append('"');
    m_out.append(name.data(), static_cast<qsizetype>(name.size()));
    m_out.append("\": ", 3);
    m_afterKey = true;
}

void JsonWriter::value(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    value(std::string_view(utf8.constData(), static_cast<size_t>(utf8.size())));
}

void JsonWriter::value(std::string_view utf8)
{
    beforeValue();
    static constexpr char hex[] = "0123456789abcdef";
    m_out.append('"');
    // Copy runs of characters that need no escaping in one go; words rarely need any.
    const char *run = utf8.data();
    const char *end = utf8.data() + utf8.size();
    for (const char *p = run; p != end; ++p) {
        const auto byte = static_cast<unsigned char>(*p);
        if (byte >= 0x20 && byte != '"' && byte != '\\')
            continue;
        m_out.append(run, p - run);
        run = p + 1;
        switch (byte) {
        case '"':
            m_out.append("\\\"", 2);
            break;
        case '\\':
            m_out.append("\\\\", 2);
            break;
        case '\n':
            m_out.append("\\n", 2);
            break;
        case '\r':
            m_out.append("\\r", 2);
            break;
        case '\t':
            m_out.append("\\t", 2);
            break;
        default: {
            const char escaped[6] = {'\\', 'u', '0', '0', hex[byte >> 4], hex[byte & 0xF]};
            m_out.append(escaped, 6);
        }
        }
    }
    m_out.append(run, end - run);
    m_out.append('"');
}

void JsonWriter::value(double number)
{
    beforeValue();
    // JSON has no NaN or infinity. Such a value can only come from a bug upstream, and
    // writing it would make the whole file unreadable, so it is stored as 0.
    if (!std::isfinite(number))
        number = 0.0;
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    m_out.append(buffer, result.ptr - buffer);
}

void JsonWriter::value(qint64 number)
{
    beforeValue();
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    m_out.append(buffer, result.ptr - buffer);
}

void JsonWriter::value(bool flag)
{
    beforeValue();
    if (flag)
        m_out.append("true", 4);
    else
        m_out.append("false", 5);
}

void JsonWriter::value(const QUuid &id)
{
    beforeValue();
    char text[38];
    text[0] = '"';
    json::formatUuid(id, text + 1);
    text[37] = '"';
    m_out.append(text, 38);
}

void JsonWriter::nullValue()
{
    beforeValue();
    m_out.append("null", 4);
}

QByteArray JsonWriter::take()
{
    m_out.append('\n');
    return std::move(m_out);
}

} // namespace kavel
