#pragma once

#include <QString>
#include <QTextStream>

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

} // namespace kavel::cli
