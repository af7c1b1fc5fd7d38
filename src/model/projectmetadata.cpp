#include "projectmetadata.h"

#include "errors.h"
#include "jsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace kavel {

QJsonObject toJson(const SourceFile &file)
{
    QJsonObject o;
    o.insert("id"_L1, json::uuidString(file.id));
    o.insert("filename"_L1, file.filename);
    o.insert("originalName"_L1, file.originalName);
    return o;
}

SourceFile sourceFileFromJson(const QJsonObject &o)
{
    SourceFile file;
    file.id = json::requiredUuid(o, "id"_L1);
    file.filename = json::requiredString(o, "filename"_L1);
    file.originalName = json::requiredString(o, "originalName"_L1);
    return file;
}

QJsonObject toJson(const ProjectMetadata &m)
{
    QJsonArray sources;
    for (const SourceFile &file : m.sourceFiles)
        sources.append(toJson(file));
    QJsonObject o;
    o.insert("id"_L1, json::uuidString(m.id));
    o.insert("title"_L1, m.title);
    o.insert("createdAt"_L1, json::dateString(m.createdAt));
    o.insert("updatedAt"_L1, json::dateString(m.updatedAt));
    o.insert("sourceFiles"_L1, sources);
    return o;
}

ProjectMetadata projectMetadataFromJson(const QJsonObject &o)
{
    ProjectMetadata m;
    m.id = json::requiredUuid(o, "id"_L1);
    m.title = json::requiredString(o, "title"_L1);
    m.createdAt = json::requiredDate(o, "createdAt"_L1);
    m.updatedAt = json::requiredDate(o, "updatedAt"_L1);
    const QJsonArray sources = json::optionalArray(o, "sourceFiles"_L1).value_or(QJsonArray());
    for (qsizetype i = 0; i < sources.size(); ++i) {
        try {
            m.sourceFiles.append(sourceFileFromJson(json::asObject(sources.at(i))));
        } catch (const DecodeError &error) {
            throw error.nested(u"sourceFiles["_s + QString::number(i) + u']');
        }
    }
    return m;
}

QByteArray encodeMetadataDocument(const ProjectMetadata &metadata)
{
    return QJsonDocument(toJson(metadata)).toJson(QJsonDocument::Indented);
}

ProjectMetadata decodeMetadataDocument(const QByteArray &bytes)
{
    const QJsonDocument document = json::parseDocument(bytes);
    if (!document.isObject())
        throw DecodeError(QString(), u"应为 JSON 对象"_s);
    return projectMetadataFromJson(document.object());
}

} // namespace kavel
