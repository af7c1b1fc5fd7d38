#include "projectpaths.h"

#include <QDir>
#include <QStandardPaths>

namespace kavel {

QString projectsDirectory()
{
    const QString overridden = qEnvironmentVariable("KAVEL_PROJECTS_DIR");
    if (!overridden.isEmpty())
        return QDir::cleanPath(overridden);
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return QDir(documents).filePath(QStringLiteral("Kavel"));
}

QString invalidTitleReason(const QString &title)
{
    if (title.trimmed().isEmpty())
        return QStringLiteral("项目名称不能为空");
    if (title == u'.' || title == QLatin1String(".."))
        return QStringLiteral("项目名称不能是“%1”").arg(title);
    if (title.contains(u'/'))
        return QStringLiteral("项目名称不能包含“/”");
    if (title.contains(QChar(0)))
        return QStringLiteral("项目名称不能包含空字符");
    // One path component may hold at most 255 bytes; ".kavel" takes six of them.
    if (title.toUtf8().size() + 1 + bundleExtension.size() > 255)
        return QStringLiteral("项目名称过长");
    return {};
}

} // namespace kavel
