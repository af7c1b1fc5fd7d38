#include "filemanager.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace kavel::app {

void revealInFileManager(const QString &path, QDBusConnection bus,
                         std::function<bool(const QUrl &)> openFolder)
{
    revealInFileManager(QStringList {path}, std::move(bus), std::move(openFolder));
}

void revealInFileManager(const QStringList &paths, QDBusConnection bus,
                         std::function<bool(const QUrl &)> openFolder)
{
    if (paths.isEmpty())
        return;
    if (!openFolder)
        openFolder = [](const QUrl &url) { return QDesktopServices::openUrl(url); };
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(paths.first()).absolutePath());
    if (!bus.isConnected()) {
        openFolder(folder);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
        u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    QStringList uris;
    for (const QString &path : paths)
        uris.append(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString());
    call << uris << QString();
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, folder, openFolder = std::move(openFolder)] {
                         if (watcher->isError())
                             openFolder(folder);
                         watcher->deleteLater();
                     });
}

} // namespace kavel::app
