#include "projectpaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
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
        return QCoreApplication::translate("kavel::model", "项目名称不能为空");
    if (title == u'.' || title == QLatin1String(".."))
        return QCoreApplication::translate("kavel::model", "项目名称不能是“%1”").arg(title);
    if (title.contains(u'/'))
        return QCoreApplication::translate("kavel::model", "项目名称不能包含“/”");
    if (title.contains(QChar(0)))
        return QCoreApplication::translate("kavel::model", "项目名称不能包含空字符");
    // One path component may hold at most 255 bytes; ".kavel" takes six of them.
    if (title.toUtf8().size() + 1 + bundleExtension.size() > 255)
        return QCoreApplication::translate("kavel::model", "项目名称过长");
    return {};
}

QString titleForMedia(const QString &mediaPath, const QString &directory)
{
    QString base = QFileInfo(mediaPath).completeBaseName().trimmed();
    base.remove(QChar(0));
    // A leading dot would hide the bundle in the file manager.
    while (base.startsWith(u'.'))
        base.remove(0, 1);
    // Room for the number a second project of the same name gets.
    while (base.toUtf8().size() + 1 + bundleExtension.size() > 240)
        base.chop(1);
    if (!invalidTitleReason(base).isEmpty())
        base = QCoreApplication::translate("kavel::model", "未命名项目");
    QString title = base;
    const QDir folder(directory);
    for (int n = 2; QFileInfo::exists(folder.filePath(title + u'.' + bundleExtension)); ++n)
        title = QStringLiteral("%1 %2").arg(base).arg(n);
    return title;
}

} // namespace kavel
