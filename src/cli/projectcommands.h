#pragma once

#include <QStringList>

// Commands that work on project bundles. Each takes its own arguments (without the
// command name) and returns the process exit code; failures throw CommandFailure or a
// kavel::Error.
namespace kavel::cli {

int runNew(const QStringList &arguments);
int runAddMedia(const QStringList &arguments);
int runInfo(const QStringList &arguments);

} // namespace kavel::cli
