#pragma once

#include <QStringList>

namespace kavel::cli {

// Writes a project's edited result as movie, sound and subtitles, as the export dialog
// does. Exits non-zero when any output failed.
int runExport(const QStringList &arguments);

} // namespace kavel::cli
