#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>
#include <limits>

namespace kavel {

// A media file imported into a bundle. The copy in "media" is named after the id.
struct SourceFile
{
    QUuid id;
    QString filename;
    QString originalName;

    friend bool operator==(const SourceFile &, const SourceFile &) = default;
};

// The range the pause setting offers when it is on, and the setting that keeps every pause
// whole: an untouched recording then plays as it was spoken.
inline constexpr double minPauseLimit = 0.1;
inline constexpr double maxPauseLimit = 2.0;
inline constexpr double wholePauses = std::numeric_limits<double>::infinity();

// A requested pause setting as one the project can hold: 0 (off), a limit within
// [minPauseLimit, maxPauseLimit], or wholePauses for anything above the range.
double normalizedPauseLimit(double seconds);

struct ProjectMetadata
{
    QUuid id;
    QString title;
    QDateTime createdAt;
    QDateTime updatedAt;
    QList<SourceFile> sourceFiles;
    // "保留停顿": the longest stretch of a recorded pause kept between two words that
    // followed each other in the recording; 0 lays kept words end to end. Written to
    // "project.json" only when it is not whole, so a project that never chose keeps them.
    double pauseLimit = wholePauses;
    // "预览响度标准化": the preview plays at the loudness the export is set to. Written only
    // when on.
    bool previewLoudness = false;

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
