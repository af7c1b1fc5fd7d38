#pragma once

#include "trash.h"

#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QJsonObject>
#include <QObject>
#include <QUuid>
#include <functional>
#include <optional>

namespace kavel {

// One project of the list, summarised from its bundle.
struct ProjectReference
{
    QUuid id;
    QString title;
    QString bundlePath;
    QDateTime createdAt;
    QDateTime updatedAt;
    qint64 wordBlockCount = 0;
    // "ready" when the transcript has words, else "created".
    QString status;
    qint64 fileSize = 0;
    double videoDuration = 0.0;

    friend bool operator==(const ProjectReference &, const ProjectReference &) = default;
};

QJsonObject toJson(const ProjectReference &reference);
// Throws DecodeError; every key is required.
ProjectReference projectReferenceFromJson(const QJsonObject &object);

// The card texts: "3月5日", "12M" / "1.2G", "01:05" / "1:02:05".
QString dateText(const ProjectReference &reference);
QString sizeText(const ProjectReference &reference);
QString durationText(const ProjectReference &reference);

// What the list shows of a project's first recording. The media engine knows it; the
// composition root hands in a function that asks it, so the model stays engine-free.
struct RecordingSummary
{
    double duration = 0.0;
    std::optional<QImage> thumbnail;
};
using RecordingSummarizer = std::function<RecordingSummary(const QString &path)>;

// The projects on disk, newest first, rebuilt by scanning the projects folder; there is
// no list file to get out of step with the bundles. Broken bundles are simply not listed.
class ProjectStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QList<kavel::ProjectReference> projects READ projects NOTIFY projectsChanged)

public:
    static constexpr QSize thumbnailSize {320, 180};
    static constexpr double thumbnailTime = 1.0;
    static constexpr double thumbnailTolerance = 2.0;

    ProjectStore(RecordingSummarizer summarize, QString directory, QObject *parent = nullptr);

    const QList<ProjectReference> &projects() const { return m_projects; }
    std::optional<QImage> thumbnail(const QUuid &projectId) const;
    const QString &directory() const { return m_directory; }

    // Reads every bundle and makes its thumbnail, synchronously. When the folder cannot
    // be listed the list stays as it was.
    void refresh();
    // Moves the bundle to the desktop's trash and refreshes. Throws Error, deleting
    // nothing, when no trash can take it or another process has the project open.
    trash::TrashedItem deleteProject(const ProjectReference &reference);
    // Brings a deleted project back from the trash and refreshes. Throws Error.
    void restoreProject(const trash::TrashedItem &item);
    // Renames a project that is not open in this process (KavelProject::rename() renames
    // an open one), then refreshes. Throws Error with the reason in the user's words.
    void renameProject(const ProjectReference &reference, const QString &title);

Q_SIGNALS:
    void projectsChanged();

private:
    std::optional<ProjectReference> summarise(const QString &bundlePath);

    RecordingSummarizer m_summarize;
    QString m_directory;
    QList<ProjectReference> m_projects;
    QHash<QUuid, QImage> m_thumbnailCache;
};

} // namespace kavel

Q_DECLARE_METATYPE(kavel::ProjectReference)
