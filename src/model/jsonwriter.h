#pragma once

#include <QByteArray>
#include <QString>
#include <QUuid>
#include <string_view>

namespace kavel {

// A streaming writer of indented JSON. Transcripts run to megabytes and are written on
// every save, so this appends straight into one buffer instead of building a document
// tree first; keys are written in the order the caller gives them.
class JsonWriter
{
public:
    explicit JsonWriter(qsizetype expectedSize = 0);

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();

    // Object keys are plain ASCII names chosen by the code, never user text.
    void key(std::string_view name);

    void value(const QString &text);
    void value(std::string_view utf8);
    void value(double number);
    void value(qint64 number);
    void value(int number) { value(static_cast<qint64>(number)); }
    void value(bool flag);
    // Upper-case hyphenated form, the one every Kavel file uses.
    void value(const QUuid &id);
    void nullValue();

    QByteArray take();

private:
    void beforeValue();
    void newline();

    QByteArray m_out;
    int m_depth = 0;
    bool m_afterKey = false;
    // Whether the innermost open container has had an element yet.
    bool m_first = true;
};

} // namespace kavel
