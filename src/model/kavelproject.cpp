#include "kavelproject.h"

#include "bundlelock.h"
#include "errors.h"
#include "fileio.h"
#include "jsonfields.h"
#include "projectpaths.h"
#include "timeline.h"

#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

constexpr auto metadataFileName = "project.json"_L1;
constexpr auto timelineFileName = "timeline.json"_L1;

QString bundleFile(const QUrl &bundleURL, QLatin1StringView name)
{
    return QDir(bundleURL.toLocalFile()).filePath(name);
}

// The same failure placed in its file, said once: the place inside the document and the
// parser's words go with the detail.
DecodeError inFile(const QString &path, const DecodeError &error)
{
    QString detail = error.where();
    if (!error.detail().isEmpty())
        detail += (detail.isEmpty() ? u""_s : u": "_s) + error.detail();
    return DecodeError(path, error.reason(), detail);
}

} // namespace

QString toRawValue(ProjectStatus status)
{
    switch (status) {
    case ProjectStatus::created:
        return u"created"_s;
    case ProjectStatus::importingMedia:
        return u"importingMedia"_s;
    case ProjectStatus::extractingAudio:
        return u"extractingAudio"_s;
    case ProjectStatus::transcribing:
        return u"transcribing"_s;
    case ProjectStatus::ready:
        return u"ready"_s;
    case ProjectStatus::failed:
        return u"failed"_s;
    }
    return {};
}

std::optional<ProjectStatus> projectStatusFromRaw(const QString &raw)
{
    for (auto status :
         {ProjectStatus::created, ProjectStatus::importingMedia, ProjectStatus::extractingAudio,
          ProjectStatus::transcribing, ProjectStatus::ready, ProjectStatus::failed}) {
        if (toRawValue(status) == raw)
            return status;
    }
    return std::nullopt;
}

const QStringList &mediaFileExtensions()
{
    static const QStringList extensions {u"mp4"_s,  u"mov"_s, u"m4v"_s, u"avi"_s,
                                         u"mkv"_s,  u"mp3"_s, u"wav"_s, u"m4a"_s,
                                         u"aiff"_s, u"aac"_s, u"flac"_s};
    return extensions;
}

KavelProject::KavelProject(ProjectMetadata metadata, QUrl bundleURL, QObject *parent)
    : QObject(parent)
    , m_metadata(std::move(metadata))
    , m_bundleURL(std::move(bundleURL))
{ }

std::unique_ptr<KavelProject> KavelProject::create(const QString &title, const QString &directory)
{
    if (const QString reason = invalidTitleReason(title); !reason.isEmpty())
        throw FileError(FileError::Kind::invalidName, title, reason);

    const QString bundle = QDir(directory).filePath(title + u'.' + bundleExtension);
    const bool existed = QFileInfo(bundle).isDir();
    // A bundle that could not be completed is not left behind half made.
    const auto undo = [&] {
        if (!existed)
            QDir(bundle).removeRecursively();
    };
    try {
        fileio::makeDirectory(bundle);
        for (auto sub : {"media"_L1, "cache"_L1, "exports"_L1})
            fileio::makeDirectory(QDir(bundle).filePath(sub));
    } catch (...) {
        undo();
        throw;
    }

    ProjectMetadata metadata;
    metadata.id = QUuid::createUuid();
    metadata.title = title;
    metadata.createdAt = QDateTime::currentDateTimeUtc();
    metadata.updatedAt = metadata.createdAt;

    auto project = std::make_unique<KavelProject>(std::move(metadata), QUrl::fromLocalFile(bundle));
    try {
        project->saveMetadata();
        project->saveTimeline();
    } catch (...) {
        undo();
        throw;
    }
    return project;
}

std::unique_ptr<KavelProject> KavelProject::load(const QUrl &bundleURL)
{
    if (!QFileInfo(bundleURL.toLocalFile()).isDir())
        throw KavelProjectError(KavelProjectError::Code::bundleNotFound);

    const QString metadataPath = bundleFile(bundleURL, metadataFileName);
    const QString timelinePath = bundleFile(bundleURL, timelineFileName);
    for (const QString &path : {metadataPath, timelinePath})
        fileio::removeStaleTemporaries(path);
    ProjectMetadata metadata;
    try {
        metadata = decodeMetadataDocument(fileio::readFile(metadataPath));
    } catch (const DecodeError &error) {
        // Name the file: "the data is malformed" alone does not tell the user which one.
        throw inFile(metadataPath, error);
    }

    auto project = std::make_unique<KavelProject>(std::move(metadata), bundleURL);

    if (QFileInfo::exists(timelinePath)) {
        try {
            const QByteArray bytes = fileio::readFile(timelinePath);
            try {
                project->m_paragraphs = decodeTimelineDocument(bytes).paragraphs;
            } catch (const DecodeError &current) {
                try {
                    project->m_paragraphs = groupWordBlocks(decodeFlatWordBlocks(bytes));
                } catch (const DecodeError &) {
                    throw inFile(timelinePath, current);
                }
            }
        } catch (const Error &error) {
            // An unreadable transcript must not lock the user out of the project (its
            // media and metadata are still good); it opens empty.
            project->m_paragraphs.clear();
            project->m_timelineLoadError = error.description();
        }
    }
    return project;
}

std::unique_ptr<KavelProject> KavelProject::open(const QUrl &bundleURL)
{
    if (!QFileInfo(bundleURL.toLocalFile()).isDir())
        throw KavelProjectError(KavelProjectError::Code::bundleNotFound);
    std::shared_ptr<BundleLock> lock = BundleLock::acquire(bundleURL.toLocalFile());
    std::unique_ptr<KavelProject> project = load(bundleURL);
    project->m_lock = std::move(lock);
    return project;
}

void KavelProject::claim()
{
    if (!m_lock)
        m_lock = BundleLock::acquire(bundlePath());
}

void KavelProject::rename(const QString &title)
{
    if (title == m_metadata.title)
        return;
    if (const QString reason = invalidTitleReason(title); !reason.isEmpty())
        throw Error(tr("无法重命名：%1。").arg(reason));
    const QString from = bundlePath();
    const QString to = QFileInfo(from).dir().filePath(title + u'.' + bundleExtension);
    const auto taken = [&] { return Error(tr("无法重命名：已有名为“%1”的项目。").arg(title)); };
    if (QFileInfo::exists(to) && QFileInfo(to) != QFileInfo(from))
        throw taken();
    // Held while the folder moves, so no other process opens it half renamed.
    std::shared_ptr<BundleLock> lock = m_lock ? m_lock : BundleLock::acquire(from);
    int error = 0;
    const bool moved = lock->follow(to, [&] {
        // Never over a bundle that appeared since the check above.
        const QByteArray source = QFile::encodeName(from), target = QFile::encodeName(to);
        if (::renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) == 0)
            return true;
        if (errno == EINVAL && !QFileInfo::exists(to) && ::rename(source, target) == 0)
            return true;
        error = errno;
        return false;
    });
    if (!moved) {
        if (error == EEXIST || error == ENOTEMPTY)
            throw taken();
        throw Error(tr("无法重命名项目“%1”。").arg(m_metadata.title),
                    QString::fromLocal8Bit(std::strerror(error)));
    }
    m_bundleURL = QUrl::fromLocalFile(to);
    const QString before = m_metadata.title;
    m_metadata.title = title;
    try {
        saveMetadata();
    } catch (const Error &) {
        // The name inside must match the folder's, or the list would show the old one.
        m_metadata.title = before;
        lock->follow(from,
                     [&] { return ::rename(QFile::encodeName(to), QFile::encodeName(from)) == 0; });
        m_bundleURL = QUrl::fromLocalFile(from);
        throw;
    }
}

namespace {

// Damaged copies of one transcript are bounded: a file that keeps getting damaged must not
// fill the disk with its own past.
constexpr qsizetype keptDamagedTimelines = 3;

} // namespace

// The project opens empty, and the next save would write that emptiness over whatever is
// left of the user's transcript: keep a copy first, in cache/, once per damaged content.
std::optional<QString> KavelProject::backUpDamagedTimeline()
{
    if (m_timelineLoadError.isEmpty() || m_damagedTimelineBackup)
        return m_damagedTimelineBackup;
    QByteArray damaged;
    try {
        damaged = fileio::readFile(bundleFile(m_bundleURL, timelineFileName));
    } catch (const Error &) {
        return std::nullopt;
    }
    const QDir cache(cacheDirectory());
    const QStringList pattern {QStringLiteral("timeline-damaged-*.json")};
    for (const QString &name : cache.entryList(pattern, QDir::Files, QDir::Name)) {
        QFile existing(cache.filePath(name));
        if (existing.open(QIODevice::ReadOnly) && existing.readAll() == damaged) {
            m_damagedTimelineBackup = cache.filePath(name);
            return m_damagedTimelineBackup;
        }
    }
    // Names sort in the order the copies were made.
    const QString stamp
        = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    QString backup;
    for (int n = 1; backup.isEmpty() || QFileInfo::exists(backup); ++n)
        backup = cache.filePath(
            QStringLiteral("timeline-damaged-%1-%2.json").arg(stamp).arg(n, 3, 10, QChar(u'0')));
    try {
        fileio::makeDirectory(cache.path());
        fileio::writeFileAtomically(backup, damaged);
        m_damagedTimelineBackup = backup;
    } catch (const Error &) {
        // Without a copy the user is still told the transcript could not be read.
        return std::nullopt;
    }
    // Newest first; the copy just written is among the kept ones whatever the clock says.
    const QStringList copies = cache.entryList(pattern, QDir::Files, QDir::Name | QDir::Reversed);
    qsizetype kept = 1;
    for (const QString &name : copies) {
        if (cache.filePath(name) == backup)
            continue;
        if (kept < keptDamagedTimelines)
            ++kept;
        else
            QFile::remove(cache.filePath(name));
    }
    return m_damagedTimelineBackup;
}

void KavelProject::setMetadata(const ProjectMetadata &metadata)
{
    if (metadata == m_metadata)
        return;
    m_metadata = metadata;
    Q_EMIT metadataChanged();
}

void KavelProject::setParagraphs(const QList<Paragraph> &paragraphs)
{
    m_paragraphs = paragraphs;
    Q_EMIT paragraphsChanged();
}

void KavelProject::setStatus(ProjectStatus status)
{
    if (status == m_status)
        return;
    m_status = status;
    Q_EMIT statusChanged();
}

QString KavelProject::mediaDirectory() const
{
    return QDir(bundlePath()).filePath(u"media"_s);
}

QString KavelProject::cacheDirectory() const
{
    return QDir(bundlePath()).filePath(u"cache"_s);
}

QString KavelProject::exportsDirectory() const
{
    return QDir(bundlePath()).filePath(u"exports"_s);
}

void KavelProject::saveMetadata()
{
    ProjectMetadata updated = m_metadata;
    updated.updatedAt = QDateTime::currentDateTimeUtc();
    fileio::writeFileAtomically(bundleFile(m_bundleURL, metadataFileName),
                                encodeMetadataDocument(updated));
    setMetadata(updated);
}

void KavelProject::saveTimeline()
{
    backUpDamagedTimeline();
    TimelineV2 timeline;
    timeline.paragraphs = m_paragraphs;
    fileio::writeFileAtomically(bundleFile(m_bundleURL, timelineFileName),
                                encodeTimelineDocument(timeline));
}

SourceFile KavelProject::addSourceFile(const QUrl &url)
{
    const QFileInfo info(url.toLocalFile());
    SourceFile file;
    file.id = QUuid::createUuid();
    // completeSuffix would take "final.mov" from "Interview.final.mov"; only the last
    // extension names the format, and the rest belongs to the name.
    file.filename = json::uuidString(file.id) + u'.' + info.suffix();
    const QString name = info.fileName();
    file.originalName = info.suffix().isEmpty() && !name.endsWith(u'.')
        ? name
        : name.left(name.size() - info.suffix().size() - 1);

    const QString target = QDir(mediaDirectory()).filePath(file.filename);
    fileio::copyFile(info.filePath(), target);

    ProjectMetadata updated = m_metadata;
    updated.sourceFiles.append(file);
    updated.updatedAt = QDateTime::currentDateTimeUtc();
    try {
        fileio::writeFileAtomically(bundleFile(m_bundleURL, metadataFileName),
                                    encodeMetadataDocument(updated));
    } catch (const Error &) {
        // The copy is not recorded anywhere; leaving it would only waste space.
        QFile::remove(target);
        throw;
    }
    setMetadata(updated);
    return file;
}

std::optional<QUrl> KavelProject::sourceFileURL(const QUuid &id) const
{
    for (const SourceFile &file : m_metadata.sourceFiles) {
        if (file.id != id)
            continue;
        const QString path = QDir(mediaDirectory()).filePath(file.filename);
        if (QFileInfo(path).isFile())
            return QUrl::fromLocalFile(path);
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<QUrl> KavelProject::sourceMediaURL() const
{
    for (const SourceFile &file : m_metadata.sourceFiles) {
        const QString path = QDir(mediaDirectory()).filePath(file.filename);
        if (QFileInfo(path).isFile())
            return QUrl::fromLocalFile(path);
    }
    const QFileInfoList entries
        = QDir(mediaDirectory()).entryInfoList(QDir::Files, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo &entry : entries) {
        if (mediaFileExtensions().contains(entry.suffix().toLower()))
            return QUrl::fromLocalFile(entry.filePath());
    }
    return std::nullopt;
}

} // namespace kavel
