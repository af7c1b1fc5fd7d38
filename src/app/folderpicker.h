#pragma once

#include <QString>
#include <functional>

namespace kavel::app {

// Shows a folder dialog titled `title` that opens at `startFolder` (the user's home when
// empty or gone); returns the chosen folder, or an empty string when cancelled.
using FolderPicker = std::function<QString(const QString &title, const QString &startFolder)>;

} // namespace kavel::app
