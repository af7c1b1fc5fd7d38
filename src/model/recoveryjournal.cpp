#include "recoveryjournal.h"

#include "errors.h"
#include "fileio.h"
#include "jsonfields.h"
#include "kavelproject.h"
#include "timeline.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace kavel::journal {

namespace {

const QLatin1StringView projectKey("journalProjectId");
const QLatin1StringView baseKey("journalStartedFrom");

QString timelinePath(const KavelProject &project)
{
    return QDir(project.bundlePath()).filePath(QStringLiteral("timeline.json"));
}

// The saved transcript the edits were made on, told apart by its size and time: a save
// removes the journal, so the file does not change under a journal that belongs to it.
QString startedFrom(const KavelProject &project)
{
    const QFileInfo saved(timelinePath(project));
    if (!saved.exists())
        return QStringLiteral("none");
    return QStringLiteral("%1:%2").arg(saved.size()).arg(saved.lastModified().toMSecsSinceEpoch());
}

// A journal that is not this project's, or not of its transcript as it stands, is kept
// in cache/ for whoever wants to look at it, but never offered.
void setAside(const KavelProject &project)
{
    const QDir cache(project.cacheDirectory());
    const QString stamp
        = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    // Two journals can be set aside within one millisecond; neither may overwrite the other.
    QString target = cache.filePath(QStringLiteral("unsaved-edits-set-aside-%1.json").arg(stamp));
    for (int n = 2; QFileInfo::exists(target); ++n)
        target = cache.filePath(
            QStringLiteral("unsaved-edits-set-aside-%1-%2.json").arg(stamp).arg(n));
    QFile::rename(path(project), target);
}

bool belongs(const KavelProject &project, const QByteArray &bytes)
{
    const QJsonObject header = QJsonDocument::fromJson(bytes).object();
    return header.value(projectKey).toString() == json::uuidString(project.metadata().id)
        && header.value(baseKey).toString() == startedFrom(project);
}

// Every restored word must cut from a recording the project has: a listed source, or
// one the saved transcript already uses.
bool sourcesKnown(const KavelProject &project, const QList<Paragraph> &paragraphs)
{
    QSet<QUuid> known;
    for (const SourceFile &file : project.metadata().sourceFiles)
        known.insert(file.id);
    for (const Paragraph &paragraph : project.paragraphs())
        for (const WordBlock &word : paragraph.wordBlocks)
            known.insert(word.sourceFileId);
    for (const Paragraph &paragraph : paragraphs)
        for (const WordBlock &word : paragraph.wordBlocks)
            if (!known.contains(word.sourceFileId))
                return false;
    return true;
}

} // namespace

QString path(const KavelProject &project)
{
    return QDir(project.cacheDirectory()).filePath(QStringLiteral("unsaved-edits.json"));
}

void write(const KavelProject &project, const QList<Paragraph> &paragraphs)
{
    fileio::makeDirectory(project.cacheDirectory());
    TimelineV2 timeline;
    timeline.paragraphs = paragraphs;
    // The transcript reader passes over keys it does not know, so the journal is a
    // timeline document with two more: whose it is and what it started from.
    const QByteArray document = encodeTimelineDocument(timeline);
    const QByteArray header = "{\"" + QByteArray(projectKey.data(), projectKey.size()) + "\": \""
        + json::uuidString(project.metadata().id).toUtf8() + "\", \""
        + QByteArray(baseKey.data(), baseKey.size()) + "\": \"" + startedFrom(project).toUtf8()
        + "\",";
    fileio::writeFileAtomically(path(project), header + document.mid(document.indexOf('{') + 1));
}

void remove(const KavelProject &project)
{
    QFile::remove(path(project));
}

std::optional<QList<Paragraph>> recoverable(const KavelProject &project)
{
    const QFileInfo journal(path(project));
    if (!journal.isFile())
        return std::nullopt;
    const QFileInfo saved(timelinePath(project));
    if (saved.exists() && saved.lastModified() > journal.lastModified())
        return std::nullopt;
    try {
        const QByteArray bytes = fileio::readFile(journal.filePath());
        QList<Paragraph> paragraphs = decodeTimelineDocument(bytes).paragraphs;
        if (!belongs(project, bytes) || !sourcesKnown(project, paragraphs)) {
            setAside(project);
            return std::nullopt;
        }
        if (paragraphs == project.paragraphs())
            return std::nullopt;
        return paragraphs;
    } catch (const Error &) {
        // A journal cut short by the crash it was meant for is no help.
        return std::nullopt;
    }
}

} // namespace kavel::journal
