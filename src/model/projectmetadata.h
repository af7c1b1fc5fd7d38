#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

namespace kavel {

// A media file imported into a bundle. The copy in "media" is named after the id.
struct SourceFile
{
    QUuid id;
    QString filename;
    QString originalName;

    friend bool operator==(const SourceFile &, const SourceFile &) = default;
};

struct ProjectMetadata
{
    QUuid id;
    QString title;
    QDateTime createdAt;
    QDateTime updatedAt;
    QList<SourceFile> sourceFiles;

    friend bool operator==(const ProjectMetadata &, const ProjectMetadata &) = default;
};

class JsonWriter;

void writeJson(JsonWriter &writer, const SourceFile &file);
void writeJson(JsonWriter &writer, const ProjectMetadata &metadata);

// The "project.json" form: indented, dates as whole-second UTC ISO 8601.
QByteArray encodeMetadataDocument(const ProjectMetadata &metadata);
// Throws DecodeError; "sourceFiles" may be absent (no sources), the rest is required.
ProjectMetadata decodeMetadataDocument(QByteArrayView bytes);

} // namespace kavel
