#pragma once

#include <QByteArray>
#include <QString>

// Small file-system primitives that throw FileError with the system's reason, so that
// callers can pass failures up unchanged.
namespace kavel::fileio {

QByteArray readFile(const QString &path);

// Writes through a temporary file in the same folder that then replaces the target:
// readers see the old content or the new, never a torn file, and a failed write
// leaves the old file as it was.
void writeFileAtomically(const QString &path, const QByteArray &bytes);

// A write killed between creating its temporary file and the rename leaves that file
// behind; this clears such leftovers of `path` (writeFileAtomically does it too).
void removeStaleTemporaries(const QString &path);

// Creates the folder and any missing parents.
void makeDirectory(const QString &path);

// Copies (never moves) a file; the target must not exist yet.
void copyFile(const QString &from, const QString &to);

} // namespace kavel::fileio
