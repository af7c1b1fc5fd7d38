#pragma once

#include <QDBusConnection>
#include <QString>
#include <QUrl>
#include <functional>

namespace kavel::app {

// Shows `path` selected in the desktop's file manager, through the freedesktop
// FileManager1 interface on `bus`. Where no file manager answers there, the folder that
// holds `path` is opened with `openFolder` instead. Returns at once; the answer comes
// back on the event loop.
void revealInFileManager(const QString &path, QDBusConnection bus = QDBusConnection::sessionBus(),
                         std::function<bool(const QUrl &)> openFolder = {});
// The same for several files shown at once (those of one folder); the fallback opens the
// folder of the first.
void revealInFileManager(const QStringList &paths,
                         QDBusConnection bus = QDBusConnection::sessionBus(),
                         std::function<bool(const QUrl &)> openFolder = {});

} // namespace kavel::app
