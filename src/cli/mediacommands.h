#pragma once

#include <QStringList>

// Commands that need the media engine: the project list with its thumbnails and
// durations, a project's thumbnail, and the preview's composition of a project.
namespace kavel::cli {

int runList(const QStringList &arguments);
int runThumbnail(const QStringList &arguments);
int runComposition(const QStringList &arguments);

} // namespace kavel::cli
