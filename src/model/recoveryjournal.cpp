#include "recoveryjournal.h"

#include "errors.h"
#include "fileio.h"
#include "kavelproject.h"
#include "timeline.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace kavel::journal {

QString path(const KavelProject &project)
{
    return QDir(project.cacheDirectory()).filePath(QStringLiteral("unsaved-edits.json"));
}

void write(const KavelProject &project, const QList<Paragraph> &paragraphs)
{
    fileio::makeDirectory(project.cacheDirectory());
    TimelineV2 timeline;
    timeline.paragraphs = paragraphs;
    fileio::writeFileAtomically(path(project), encodeTimelineDocument(timeline));
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
    const QFileInfo saved(QDir(project.bundlePath()).filePath(QStringLiteral("timeline.json")));
    if (saved.exists() && saved.lastModified() > journal.lastModified())
        return std::nullopt;
    try {
        QList<Paragraph> paragraphs
            = decodeTimelineDocument(fileio::readFile(journal.filePath())).paragraphs;
        if (paragraphs == project.paragraphs())
            return std::nullopt;
        return paragraphs;
    } catch (const Error &) {
        // A journal cut short by the crash it was meant for is no help.
        return std::nullopt;
    }
}

} // namespace kavel::journal
