#pragma once

#include <QIcon>
#include <QString>

namespace kavel::app {

// An icon for one of the symbol names the screens are designed with ("trash",
// "chevron.left", …): the desktop theme's icon when it has one, then Breeze's, otherwise a
// standard style pixmap, so that every button has a picture even without an icon theme.
QIcon symbolIcon(const QString &symbolName);

// The freedesktop theme name standing for a symbol; empty for unknown symbols.
QString themeIconName(const QString &symbolName);

} // namespace kavel::app
