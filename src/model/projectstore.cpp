#include "projectstore.h"

#include "bundlelock.h"
#include "errors.h"
#include "fileio.h"
#include "jsonfields.h"
#include "kavelproject.h"
#include "projectmetadata.h"
#include "projectpaths.h"
#include "timeline.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTextStream>
#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

void log(const QString &line)
{
    QTextStream(stdout) << u"[ProjectStore] "_s << line << Qt::endl;
}

} // namespace

QJsonObject toJson(const ProjectReference &r)
{
    return QJsonObject {
        {u"id"_s, json::uuidString(r.id)},
        {u"title"_s, r.title},
        {u"bundlePath"_s, r.bundlePath},
        {u"createdAt"_s, json::dateString(r.createdAt)},
        {u"updatedAt"_s, json::dateString(r.updatedAt)},
        {u"wordBlockCount"_s, r.wordBlockCount},
        {u"status"_s, r.status},
        {u"fileSize"_s, r.fileSize},
        {u"videoDuration"_s, r.videoDuration},
    };
}

ProjectReference projectReferenceFromJson(const QJsonObject &o)
{
    ProjectReference r;
    r.id = json::requiredUuid(o, "id"_L1);
    r.title = json::requiredString(o, "title"_L1);
    r.bundlePath = json::requiredString(o, "bundlePath"_L1);
    r.createdAt = json::requiredDate(o, "createdAt"_L1);
    r.updatedAt = json::requiredDate(o, "updatedAt"_L1);
    r.wordBlockCount = json::requiredInt64(o, "wordBlockCount"_L1);
    r.status = json::requiredString(o, "status"_L1);
    r.fileSize = json::requiredInt64(o, "fileSize"_L1);
    r.videoDuration = json::requiredDouble(o, "videoDuration"_L1);
    return r;
}

QString dateText(const ProjectReference &reference)
{
    // The locale and the pattern are translated together: "3月5日" in Chinese, "Mar 5".
    //: The locale (a code such as en_US) whose month names the project cards show.
    return QLocale(ProjectStore::tr("zh_CN"))
        .toString(reference.updatedAt.toLocalTime(), ProjectStore::tr("M月d日"));
}

QString sizeText(const ProjectReference &reference)
{
    // Decimal units, as the desktop shows file sizes. The threshold is tested before
    // rounding, so 999,999,999 bytes reads "1000M".
    // C's printf rounds an exact half to even (1.25 -> "1.2"), as the desktop does;
    // QString::asprintf would round it up.
    const double mb = static_cast<double>(reference.fileSize) / 1'000'000.0;
    char text[32];
    if (mb < 1000)
        std::snprintf(text, sizeof text, "%.0fM", mb);
    else
        std::snprintf(text, sizeof text, "%.1fG", mb / 1000.0);
    return QString::fromLatin1(text);
}

QString durationText(const ProjectReference &reference)
{
    const double d = std::isfinite(reference.videoDuration) ? reference.videoDuration : 0.0;
    const long long s = static_cast<long long>(std::trunc(d));
    if (s >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
    return QString::asprintf("%02lld:%02lld", s / 60, s % 60);
}

ProjectStore::ProjectStore(RecordingSummarizer summarize, QString directory, QObject *parent)
    : QObject(parent)
    , m_summarize(std::move(summarize))
    , m_directory(std::move(directory))
{ }

std::optional<QImage> ProjectStore::thumbnail(const QUuid &projectId) const
{
    const auto it = m_thumbnailCache.constFind(projectId);
    if (it == m_thumbnailCache.cend())
        return std::nullopt;
    return *it;
}

void ProjectStore::refresh()
{
    const QDir directory(m_directory);
    if (!directory.exists() || !QFileInfo(m_directory).isReadable())
        return;
    const QFileInfoList entries = directory.entryInfoList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);

    QList<ProjectReference> projects;
    for (const QFileInfo &entry : entries) {
        if (entry.suffix() != bundleExtension)
            continue;
        if (std::optional<ProjectReference> reference = summarise(entry.absoluteFilePath()))
            projects.append(std::move(*reference));
    }
    std::stable_sort(projects.begin(), projects.end(),
                     [](const ProjectReference &a, const ProjectReference &b) {
                         return a.updatedAt > b.updatedAt;
                     });
    m_projects = std::move(projects);
    // Pictures of projects that are gone (deleted, or moved away) are not kept.
    for (auto it = m_thumbnailCache.begin(); it != m_thumbnailCache.end();) {
        const QUuid id = it.key();
        const bool listed = std::any_of(m_projects.cbegin(), m_projects.cend(),
                                        [&](const ProjectReference &p) { return p.id == id; });
        it = listed ? std::next(it) : m_thumbnailCache.erase(it);
    }
    Q_EMIT projectsChanged();
}

std::optional<ProjectReference> ProjectStore::summarise(const QString &bundlePath)
{
    const QDir bundle(bundlePath);
    const QString metadataPath = bundle.filePath(u"project.json"_s);
    if (!QFileInfo::exists(metadataPath))
        return std::nullopt;
    ProjectMetadata metadata;
    try {
        metadata = decodeMetadataDocument(fileio::readFile(metadataPath));
    } catch (const Error &) {
        return std::nullopt;
    }

    ProjectReference reference;
    reference.id = metadata.id;
    reference.title = metadata.title;
    reference.bundlePath = bundlePath;
    reference.createdAt = metadata.createdAt;
    reference.updatedAt = metadata.updatedAt;
    reference.status = u"created"_s;
    // Only the current layout counts here; a bundle with the older flat word list
    // shows as empty until the editor opens and saves it.
    try {
        const TimelineV2 timeline
            = decodeTimelineDocument(fileio::readFile(bundle.filePath(u"timeline.json"_s)));
        for (const Paragraph &paragraph : timeline.paragraphs)
            reference.wordBlockCount += paragraph.wordBlocks.size();
        if (reference.wordBlockCount > 0)
            reference.status = u"ready"_s;
    } catch (const Error &) {
        reference.wordBlockCount = 0;
    }

    const QDir media(bundle.filePath(u"media"_s));
    const QFileInfoList mediaEntries
        = media.entryInfoList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &file : mediaEntries)
        reference.fileSize += std::max<qint64>(file.size(), 0);

    if (!metadata.sourceFiles.isEmpty()) {
        const QString firstSource = media.filePath(metadata.sourceFiles.first().filename);
        if (QFileInfo::exists(firstSource)) {
            RecordingSummary summary = m_summarize(firstSource);
            reference.videoDuration = std::isfinite(summary.duration) ? summary.duration : 0.0;
            if (summary.thumbnail)
                m_thumbnailCache.insert(reference.id, std::move(*summary.thumbnail));
        }
    }
    return reference;
}

trash::TrashedItem ProjectStore::deleteProject(const ProjectReference &reference)
{
    // Claimed for a moment only to learn whether another process has it open: its edits
    // would otherwise go on into the trash.
    if (!BundleLock::isHeldHere(reference.bundlePath))
        BundleLock::acquire(reference.bundlePath);
    trash::TrashedItem item = trash::moveToTrash(reference.bundlePath);
    log(u"Moved "_s + reference.bundlePath + u" to "_s + item.trashedPath);
    refresh();
    return item;
}

void ProjectStore::restoreProject(const trash::TrashedItem &item)
{
    trash::restore(item);
    refresh();
}

void ProjectStore::renameProject(const ProjectReference &reference, const QString &title)
{
    if (BundleLock::isHeldHere(reference.bundlePath))
        throw Error(tr("无法重命名：项目“%1”正在使用中。").arg(reference.title));
    KavelProject::load(QUrl::fromLocalFile(reference.bundlePath))->rename(title);
    refresh();
}

} // namespace kavel
