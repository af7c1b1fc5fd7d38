#pragma once

#include "paragraph.h"

#include <QList>
#include <optional>

namespace kavel {

class KavelProject;

// Edits not yet saved, kept beside the project in its cache/ so that a crash or a kill
// loses at most the last moment of work. The project file itself is only ever written
// by a save; a save removes the journal.
namespace journal {

QString path(const KavelProject &project);
// Throws FileError.
void write(const KavelProject &project, const QList<Paragraph> &paragraphs);
void remove(const KavelProject &project);
// The journalled paragraphs when the journal is newer than the saved transcript and can
// be read; nothing otherwise.
std::optional<QList<Paragraph>> recoverable(const KavelProject &project);

} // namespace journal
} // namespace kavel
