#include "projectactions.h"

#include "editor/editorviewmodel.h"
#include "editor/importjob.h"
#include "editor/importpipeline.h"
#include "model/errors.h"
#include "model/projectstore.h"
#include "playback/videoplayerviewmodel.h"

#include <QCoreApplication>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace kavel::app {

QString renameProject(EditorViewModel &editor, ProjectStore &store, const ImportPipeline *imports,
                      const QString &bundlePath, const QString &title)
{
    // The import writes into its bundle until it ends; the folder must stay where it is.
    if (const ImportJob *job = imports ? imports->jobFor(bundlePath) : nullptr;
        job && job->isActive())
        return QCoreApplication::translate("kavel::app::ProjectActions",
                                           "无法重命名：项目正在导入中，请等导入完成。");
    KavelProject *open = editor.project();
    try {
        if (!open || QFileInfo(open->bundlePath()) != QFileInfo(bundlePath)) {
            for (const ProjectReference &reference : store.projects()) {
                if (QFileInfo(reference.bundlePath) == QFileInfo(bundlePath)) {
                    store.renameProject(reference, title);
                    return {};
                }
            }
            return QCoreApplication::translate("kavel::app::ProjectActions",
                                               "无法重命名：找不到这个项目。");
        }
        open->rename(title);
    } catch (const Error &error) {
        return error.description();
    }
    // The player reads the recordings from inside the bundle, which has just moved.
    QList<PlaybackSource> sources;
    for (const SourceFile &file : open->metadata().sourceFiles) {
        if (const auto url = open->sourceFileURL(file.id))
            sources.append({file.id, *url});
    }
    editor.playerVM().loadSources(sources, true);
    store.refresh();
    return {};
}

} // namespace kavel::app
