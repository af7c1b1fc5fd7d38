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

} // namespace kavel::test
