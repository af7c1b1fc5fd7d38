#include "previewloudnesstoggle.h"

#include "editor/editorviewmodel.h"
#include "export/exportflow.h"
#include "export/exportsettings.h"
#include "export/soundfinish.h"
#include "model/errors.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "playback/videoplayerviewmodel.h"

#include <QAction>
#include <QDebug>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace kavel::app {

PreviewLoudnessToggle::PreviewLoudnessToggle(EditorViewModel &editor, QObject *parent)
    : QObject(parent)
    , m_editor(editor)
    , m_action(new QAction(tr("预览响度标准化"), this))
{
    m_action->setCheckable(true);
    m_action->setToolTip(tr("预览时按导出设置的目标响度播放（未设置时为 -16 LUFS）"));
    connect(m_action, &QAction::toggled, this, &PreviewLoudnessToggle::choose);
    connect(&m_editor, &EditorViewModel::projectChanged, this, &PreviewLoudnessToggle::refresh);
    // The export dialog may have chosen another target.
    connect(&m_editor, &EditorViewModel::showExportSheetChanged, this, [this] {
        if (!m_editor.showExportSheet())
            refresh();
    });
    refresh();
}

double PreviewLoudnessToggle::target() const
{
    const KavelProject *project = m_editor.project();
    const QString path = project ? ExportFlow::choicesPath(*project) : QString();
    if (!path.isEmpty() && QFileInfo::exists(path)) {
        try {
            const ExportSettings kept
                = exportSettingsFromJson(QJsonDocument::fromJson(fileio::readFile(path)).object());
            if (const auto lufs = lufsOf(kept.loudness))
                return *lufs;
        } catch (const Error &error) {
            qInfo().noquote() << u"[Preview] Export choices unreadable: "_s + error.description();
        }
    }
    return defaultTarget;
}

void PreviewLoudnessToggle::refresh()
{
    const KavelProject *project = m_editor.project();
    const bool on = project && project->metadata().previewLoudness;
    m_action->setEnabled(project != nullptr);
    {
        const QSignalBlocker block(m_action);
        m_action->setChecked(on);
    }
    m_editor.playerVM().player().setLoudnessTarget(on ? std::optional(target()) : std::nullopt);
}

void PreviewLoudnessToggle::choose(bool on)
{
    KavelProject *project = m_editor.project();
    if (!project)
        return;
    ProjectMetadata metadata = project->metadata();
    metadata.previewLoudness = on;
    project->setMetadata(metadata);
    try {
        project->saveMetadata();
    } catch (const Error &error) {
        // Still applies to this session; the project opens without it next time.
        qInfo().noquote() << u"[Preview] Setting not saved: "_s + error.description();
    }
    refresh();
}

} // namespace kavel::app
