#pragma once

#include <QString>

namespace kavel {
class EditorViewModel;
class ImportPipeline;
class ProjectStore;
} // namespace kavel

namespace kavel::app {

// Renames the project at `bundlePath`. The one open in the editor is renamed through the
// editor's own project, and its player is pointed at the moved media, so editing goes on
// in the renamed bundle; a project being imported keeps its name until the import ends.
// Returns why it was refused, in the user's words, or nothing.
QString renameProject(EditorViewModel &editor, ProjectStore &store, const ImportPipeline *imports,
                      const QString &bundlePath, const QString &title);

} // namespace kavel::app
