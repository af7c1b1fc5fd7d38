#pragma once

#include <QStringList>

namespace kavel::cli {

// kavel-cli import FILE... [--server URL] [--email E --password P] [--language CODE]
//
// Runs the editor's import without a window: a new project from the files, their sound
// recognised by the service, the transcript saved. Prints the bundle's path and exits 0
// when the transcript arrived; prints the status line and exits 1 otherwise. A language
// the service cannot recognise is refused before anything is made.
//
// Sign-in: with --email and --password the command signs in for this run only and
// stores nothing; without them it uses the session the editor stored (the same
// preferences), and fails when there is none or the service refuses it.
int runImport(const QStringList &arguments);

} // namespace kavel::cli
