#pragma once

#include <QDateTime>
#include <QJsonObject>
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

QJsonObject toJson(const SourceFile &file);
SourceFile sourceFileFromJson(const QJsonObject &object);

QJsonObject toJson(const ProjectMetadata &metadata);
// Throws DecodeError; "sourceFiles" may be absent (no sources), the rest is required.
ProjectMetadata projectMetadataFromJson(const QJsonObject &object);

QByteArray encodeMetadataDocument(const ProjectMetadata &metadata);
ProjectMetadata decodeMetadataDocument(const QByteArray &bytes);

} // namespace kavel
