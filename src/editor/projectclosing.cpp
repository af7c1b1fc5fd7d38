#include "editorundomanager.h"
#include "editorviewmodel.h"
#include "playback/videoplayerviewmodel.h"

namespace kavel {

// Nothing of the last project's caret, selection or search stays with the next one.
void EditorViewModel::forgetCaretSelectionAndSearch()
{
    setCursorParagraphId(std::nullopt);
    setCursorPosition(0);
    setSelectionAnchor(std::nullopt);
    clearSelection();
    setSearchQuery(QString());
    setSearchResults({});
    setCurrentSearchIndex(0);
    setShowSearchBar(false);
}

void EditorViewModel::closeProject()
{
    if (!m_project)
        return;
    m_playerVM->stop();
    // The player reads the recordings from inside the bundle, which may be on its way to
    // the trash: it lets go of them with the project.
    m_playerVM->loadSources({});
    m_project.reset();
    m_savedParagraphs.clear();
    if (std::exchange(m_recoverableEdits, std::nullopt))
        Q_EMIT recoverableEditsChanged();
    setParagraphs({});
    forgetCaretSelectionAndSearch();
    m_undoManager->clear();
    syncPlayer();
    m_playerVM->setCurrentTime(0.0);
    Q_EMIT projectChanged();
}

} // namespace kavel
