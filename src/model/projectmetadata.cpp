#include "projectmetadata.h"

#include "errors.h"
#include "jsonfields.h"
#include "jsonwriter.h"
#include "recordreaders.h"

#include <QCoreApplication>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel {

double normalizedPauseLimit(double seconds)
{
    if (!(seconds > 0))
        return 0.0;
    if (seconds > maxPauseLimit)
        return wholePauses;
    return std::max(seconds, minPauseLimit);
}

void writeJson(JsonWriter &w, const SourceFile &file)
{
    w.beginObject();
    w.key("filename");
    w.value(file.filename);
    w.key("id");
    w.value(file.id);
    w.key("originalName");
    w.value(file.originalName);
    w.endObject();
}

void writeJson(JsonWriter &w, const ProjectMetadata &m)
{
    w.beginObject();
    w.key("createdAt");
    w.value(json::dateString(m.createdAt));
    w.key("id");
    w.value(m.id);
    // Absent means whole: projects from before the setting existed keep their pauses too.
    if (m.pauseLimit != wholePauses) {
        w.key("pauseLimit");
        w.value(m.pauseLimit);
    }
    if (m.previewLoudness) {
        w.key("previewLoudness");
        w.value(true);
    }
    w.key("sourceFiles");
    w.beginArray();
    for (const SourceFile &file : m.sourceFiles)
        writeJson(w, file);
    w.endArray();
    w.key("title");
    w.value(m.title);
    w.key("updatedAt");
    w.value(json::dateString(m.updatedAt));
    w.endObject();
}

QByteArray encodeMetadataDocument(const ProjectMetadata &metadata)
{
    JsonWriter writer;
    writeJson(writer, metadata);
    return writer.take();
}

namespace {

SourceFile readSourceFile(jsonread::Element element)
{
    using namespace jsonread;
    SourceFile file;
    bool hasId = false, hasFilename = false, hasOriginal = false;
    for (const auto field : object(element)) {
        const std::string_view key = field.key;
        if (key == "id") {
            file.id = uuid(field.value, key);
            hasId = true;
        } else if (key == "filename") {
            file.filename = string(field.value, key);
            hasFilename = true;
        } else if (key == "originalName") {
            file.originalName = string(field.value, key);
            hasOriginal = true;
        }
    }
    if (!hasId)
        throwMissing("id");
    if (!hasFilename)
        throwMissing("filename");
    // The media file is opened as media/<filename>: anything but a plain name would reach
    // outside the bundle.
    if (file.filename.isEmpty() || file.filename == u"." || file.filename == u".."
        || file.filename.contains(u'/') || file.filename.contains(u'\\')
        || file.filename.contains(QChar(0)))
        jsonread::throwInvalid(
            "filename", QCoreApplication::translate("kavel::model", "不是媒体文件夹中的文件名"));
    if (!hasOriginal)
        throwMissing("originalName");
    return file;
}

QDateTime readDate(jsonread::Element element, std::string_view key)
{
    const QString text = jsonread::string(element, key);
    auto date = json::parseDate(text);
    if (!date)
        throw DecodeError(
            QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size())),
            QCoreApplication::translate("kavel::model", "日期“%1”不是 ISO 8601 格式").arg(text));
    return *date;
}

} // namespace

ProjectMetadata decodeMetadataDocument(QByteArrayView bytes)
{
    using namespace jsonread;
    const Element root = parse(bytes);
    ProjectMetadata m;
    bool hasId = false, hasTitle = false, hasCreated = false, hasUpdated = false;
    for (const auto field : object(root)) {
        const std::string_view key = field.key;
        const Element v = field.value;
        if (key == "id") {
            m.id = uuid(v, key);
            hasId = true;
        } else if (key == "title") {
            m.title = string(v, key);
            hasTitle = true;
        } else if (key == "createdAt") {
            m.createdAt = readDate(v, key);
            hasCreated = true;
        } else if (key == "updatedAt") {
            m.updatedAt = readDate(v, key);
            hasUpdated = true;
        } else if (key == "pauseLimit" && !v.is_null()) {
            const double limit = number(v, key);
            if (!std::isfinite(limit) || limit < 0 || limit > maxPauseLimit)
                throw DecodeError(u"pauseLimit"_s,
                                  QCoreApplication::translate("kavel::model", "停顿长度超出范围"));
            m.pauseLimit = limit;
        } else if (key == "previewLoudness" && !v.is_null()) {
            m.previewLoudness = boolean(v, key);
        } else if (key == "sourceFiles" && !v.is_null()) {
            qsizetype index = 0;
            for (const Element file : array(v, key)) {
                m.sourceFiles.append(
                    detail::locate([&] { return readSourceFile(file); },
                                   [&] { return u"sourceFiles[%1]"_s.arg(index); }));
                ++index;
            }
        }
    }
    if (!hasId)
        throwMissing("id");
    if (!hasTitle)
        throwMissing("title");
    if (!hasCreated)
        throwMissing("createdAt");
    if (!hasUpdated)
        throwMissing("updatedAt");
    return m;
}

} // namespace kavel
