#pragma once

#include <QString>
#include <QTextStream>
#include <memory>

class QCommandLineParser;

namespace kavel {
class KavelProject;
}

namespace kavel::cli {

// Raised by a command for a failure the user must see; main() prints it as one line
// on standard error and exits with `exitCode`.
struct CommandFailure
{
    QString message;
    int exitCode = 1;
};

QTextStream &out();
QTextStream &err();

// "00:01:02.345"
QString formatSeconds(double seconds);

// Parses a command's arguments (without the command name) for exactly the positional
// names given — the last may repeat when `repeatLast` — and throws a usage failure
// otherwise. Options must be added to `parser` beforehand.
QStringList parsePositionals(QCommandLineParser &parser, const QString &command,
                             const QStringList &arguments, const QStringList &names,
                             bool repeatLast = false);

// Loads the bundle at a path given on the command line (relative paths allowed).
std::unique_ptr<KavelProject> openBundle(const QString &path);

} // namespace kavel::cli
