#pragma once

#include <QString>
#include <QTemporaryDir>

namespace kavel::test {

// The private HOME the test main set up; projects and settings land below it.
QString homeDirectory();

// Path of a built program (kavel-cli, kavel-server) next to the tests' binaries.
QString programPath(const QString &name);

// Writes bytes to a file, creating parent folders; fails the current test on error.
void writeFile(const QString &path, const QByteArray &bytes);

// Makes the bundle look open in another process, as that process's own claim would: Qt's
// lock file, with its id and program name.
void claimBundleFor(const QString &bundle, qint64 pid, const QString &program);

} // namespace kavel::test
