// How an import begins and ends in the editor: the picker, and the transcript arriving in
// the open project. The import itself runs in ImportPipeline.

#include "editorviewmodel.h"
#include "service/appstate.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace kavel {

void EditorViewModel::setPendingImportURLs(const QList<QUrl> &v)
{
    assign(m_pendingImportURLs, v, &EditorViewModel::pendingImportURLsChanged);
}
void EditorViewModel::setShowImportConfirm(bool v)
{
    assign(m_showImportConfirm, v, &EditorViewModel::showImportConfirmChanged);
}
void EditorViewModel::setShowLoginRequired(bool v)
{
    assign(m_showLoginRequired, v, &EditorViewModel::showLoginRequiredChanged);
}

void EditorViewModel::logLine(const QString &line) const
{
    if (m_import.log)
        m_import.log(line);
}

ImportPickerRequest EditorViewModel::importPickerRequest()
{
    ImportPickerRequest request;
    request.message
        = QCoreApplication::translate("kavel::editor", "选择要编辑的视频文件（可多选）");
    // MPEG-4 movie, QuickTime movie, movie, video, AVI, MPEG, MPEG-2 video, MP3, WAV,
    // AIFF, audio, MPEG-4 audio.
    request.contentTypes
        = {u"video/mp4"_s,       u"video/quicktime"_s, u"video/*"_s,    u"video/*"_s,
           u"video/x-msvideo"_s, u"video/mpeg"_s,      u"video/mp2t"_s, u"audio/mpeg"_s,
           u"audio/x-wav"_s,     u"audio/x-aiff"_s,    u"audio/*"_s,    u"audio/mp4"_s};
    return request;
}

void EditorViewModel::openFilePickerForImport()
{
    openFilePickerForImport(m_import.appState && m_import.appState->isAuthenticated());
}

void EditorViewModel::openFilePickerForImport(bool isAuthenticated)
{
    if (!isAuthenticated) {
        logLine(u"[EditorVM] Import blocked: not authenticated"_s);
        setShowLoginRequired(true);
        return;
    }
    logLine(u"[EditorVM] Opening file picker for import..."_s);
    if (!m_import.pickFiles)
        return;
    const QList<QUrl> chosen = m_import.pickFiles(importPickerRequest());
    if (chosen.isEmpty())
        return;
    setPendingImportURLs(chosen);
    setShowImportConfirm(true);
}

bool EditorViewModel::receiveTranscript(const KavelProject &project, QList<Paragraph> arrived)
{
    if (m_project.get() != &project)
        return false;
    for (qsizetype i = 0; i < arrived.size(); ++i)
        arrived[i].sortOrder = m_paragraphs.size() + i;
    setParagraphs(m_paragraphs + arrived);
    // Undo must not reach back past the transcript's arrival.
    m_undoManager->clear();
    // The import has copied the media in since the project was opened.
    loadProjectSources();
    syncPlayer();
    m_project->setParagraphs(m_paragraphs);
    m_project->saveTimeline();
    m_savedParagraphs = m_paragraphs;
    return true;
}

} // namespace kavel
