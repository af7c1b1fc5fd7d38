#pragma once

#include "paragraph.h"
#include "projectmetadata.h"

#include <QObject>
#include <QUrl>
#include <memory>
#include <optional>

namespace kavel {

class BundleLock;

enum class ProjectStatus {
    created,
    importingMedia,
    extractingAudio,
    transcribing,
    ready,
    failed,
};

QString toRawValue(ProjectStatus status);
std::optional<ProjectStatus> projectStatusFromRaw(const QString &raw);

// Reserved identity for a default or placeholder source file, e.g. words that were
// made before any media was attached.
inline const QUuid placeholderSourceFileId {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// One open bundle: its metadata, its transcript and its processing state. Changes are
// in memory until saveMetadata() or saveTimeline() writes them; nothing is written when
// the object goes away.
class KavelProject : public QObject
{
    Q_OBJECT
    Q_PROPERTY(
        kavel::ProjectMetadata metadata READ metadata WRITE setMetadata NOTIFY metadataChanged)
    Q_PROPERTY(QList<kavel::Paragraph> paragraphs READ paragraphs WRITE setParagraphs NOTIFY
                   paragraphsChanged)
    Q_PROPERTY(kavel::ProjectStatus status READ status WRITE setStatus NOTIFY statusChanged)
    Q_PROPERTY(QUrl bundleURL READ bundleURL NOTIFY metadataChanged)

public:
    KavelProject(ProjectMetadata metadata, QUrl bundleURL, QObject *parent = nullptr);

    // Makes "<directory>/<title>.kavel" with its media, cache and exports folders and
    // both files. Throws FileError; a title that cannot be a file name is refused before
    // anything is created, a failure after that leaves the half-made bundle behind.
    static std::unique_ptr<KavelProject> create(const QString &title, const QString &directory);

    // Throws KavelProjectError(bundleNotFound) for a missing bundle, FileError or
    // DecodeError (naming the file) for an unreadable or malformed "project.json". A
    // missing or unreadable timeline is not an error: the project has no paragraphs.
    static std::unique_ptr<KavelProject> load(const QUrl &bundleURL);
    // load() for editing: the bundle is claimed for this process first, so no other
    // window or kavel-cli run writes to it while this object lives. Throws Error naming
    // the bundle when another process has it open.
    static std::unique_ptr<KavelProject> open(const QUrl &bundleURL);
    // Claims the bundle for this process as open() does, for a project made by create().
    // Throws Error naming the bundle when another process has it open.
    void claim();

    // Renames the project and its bundle folder ("<title>.kavel") together. Throws Error
    // in the user's words, leaving both as they were, for a title that cannot be a file
    // name or is already another project's, and for a bundle another process has open.
    void rename(const QString &title);

    const ProjectMetadata &metadata() const { return m_metadata; }
    void setMetadata(const ProjectMetadata &metadata);

    const QList<Paragraph> &paragraphs() const { return m_paragraphs; }
    void setParagraphs(const QList<Paragraph> &paragraphs);

    ProjectStatus status() const { return m_status; }
    void setStatus(ProjectStatus status);

    // Why the transcript could not be read when the project was loaded (the project then
    // opened with no paragraphs); empty when it was read or there was none.
    const QString &timelineLoadError() const { return m_timelineLoadError; }
    // Copies the transcript that could not be read into cache/ (once per damaged content,
    // keeping the last few copies) and says where; nothing when it was read. Loading
    // writes nothing, so that looking at a project never changes it; whoever is about to
    // write over the transcript calls this first, and saveTimeline() does so itself.
    std::optional<QString> backUpDamagedTimeline();
    // Where backUpDamagedTimeline() put the copy, once it has.
    const std::optional<QString> &damagedTimelineBackup() const { return m_damagedTimelineBackup; }

    const QUrl &bundleURL() const { return m_bundleURL; }
    QString bundlePath() const { return m_bundleURL.toLocalFile(); }
    QString mediaDirectory() const;
    QString cacheDirectory() const;
    QString exportsDirectory() const;

    // Moves updatedAt to now, then writes "project.json". Throws FileError.
    void saveMetadata();
    // Writes "timeline.json" from the paragraphs; updatedAt is left alone. Throws FileError.
    void saveTimeline();

    // Copies the file into "media" as "<UPPER-UUID>.<ext>" and records it. Throws
    // FileError; on failure nothing is recorded.
    SourceFile addSourceFile(const QUrl &url);

    // The copy of the source with that id, if it is recorded and still on disk.
    std::optional<QUrl> sourceFileURL(const QUuid &id) const;

    // The primary media: the first recorded source whose copy exists, otherwise the first
    // media file (by name) found in "media". Empty when the project has no media.
    std::optional<QUrl> sourceMediaURL() const;

Q_SIGNALS:
    void metadataChanged();
    void paragraphsChanged();
    void statusChanged();

private:
    ProjectMetadata m_metadata;
    QList<Paragraph> m_paragraphs;
    ProjectStatus m_status = ProjectStatus::created;
    QUrl m_bundleURL;
    std::shared_ptr<BundleLock> m_lock;
    QString m_timelineLoadError;
    std::optional<QString> m_damagedTimelineBackup;
};

// Extensions of the media files a bundle's "media" folder may hold, in lower case.
const QStringList &mediaFileExtensions();

} // namespace kavel
