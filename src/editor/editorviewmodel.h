#pragma once

#include "editcommands.h"
#include "editorundomanager.h"
#include "export/exportsettings.h"
#include "importservices.h"
#include "model/kavelproject.h"
#include "playback/videoplayerviewmodel.h"
#include "transcriptsearch.h"

#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

namespace kavel {

namespace media {
class MediaEngine;
}
class PlaybackClock;

// The state behind the editor screen: the document being edited, the selection and
// the text cursor, the preview player, the undo history and the open project. Views
// read its properties and call its operations; none keeps a copy of the document.
// Operations given ids that are no longer in the document do nothing.
class EditorViewModel : public QObject, private EditTarget
{
    Q_OBJECT
    Q_PROPERTY(QList<kavel::Paragraph> paragraphs READ paragraphs NOTIFY paragraphsChanged)
    Q_PROPERTY(QSet<QUuid> selectedBlockIds READ selectedBlockIds NOTIFY selectedBlockIdsChanged)
    Q_PROPERTY(std::optional<QUuid> selectedParagraphId READ selectedParagraphId NOTIFY
                   selectedParagraphIdChanged)
    Q_PROPERTY(std::optional<QUuid> cursorParagraphId READ cursorParagraphId NOTIFY
                   cursorParagraphIdChanged)
    Q_PROPERTY(qsizetype cursorPosition READ cursorPosition NOTIFY cursorPositionChanged)
    Q_PROPERTY(
        std::optional<qsizetype> selectionAnchor READ selectionAnchor NOTIFY selectionAnchorChanged)
    Q_PROPERTY(bool isDragging READ isDragging WRITE setIsDragging NOTIFY isDraggingChanged)
    Q_PROPERTY(QString processingStatus READ processingStatus NOTIFY processingStatusChanged)
    Q_PROPERTY(bool showExportSheet READ showExportSheet WRITE setShowExportSheet NOTIFY
                   showExportSheetChanged)
    Q_PROPERTY(std::optional<QUuid> playingSentenceId READ playingSentenceId NOTIFY
                   playingSentenceIdChanged)
    Q_PROPERTY(std::optional<QDateTime> lastSavedAt READ lastSavedAt NOTIFY lastSavedAtChanged)
    Q_PROPERTY(
        bool showSaveConfirmation READ showSaveConfirmation NOTIFY showSaveConfirmationChanged)
    Q_PROPERTY(kavel::ExportSettings exportSettings READ exportSettings WRITE setExportSettings
                   NOTIFY exportSettingsChanged)
    Q_PROPERTY(
        bool showSearchBar READ showSearchBar WRITE setShowSearchBar NOTIFY showSearchBarChanged)
    Q_PROPERTY(QString searchQuery READ searchQuery WRITE setSearchQuery NOTIFY searchQueryChanged)
    Q_PROPERTY(QList<kavel::SearchHit> searchResults READ searchResults NOTIFY searchResultsChanged)
    Q_PROPERTY(
        qsizetype currentSearchIndex READ currentSearchIndex NOTIFY currentSearchIndexChanged)
    Q_PROPERTY(bool isVideoTrackMuted READ isVideoTrackMuted WRITE setIsVideoTrackMuted NOTIFY
                   trackFlagsChanged)
    Q_PROPERTY(bool isAudioTrackMuted READ isAudioTrackMuted WRITE setIsAudioTrackMuted NOTIFY
                   trackFlagsChanged)
    Q_PROPERTY(bool isVideoTrackLocked READ isVideoTrackLocked WRITE setIsVideoTrackLocked NOTIFY
                   trackFlagsChanged)
    Q_PROPERTY(bool isAudioTrackLocked READ isAudioTrackLocked WRITE setIsAudioTrackLocked NOTIFY
                   trackFlagsChanged)
    Q_PROPERTY(kavel::KavelProject *project READ project NOTIFY projectChanged)
    Q_PROPERTY(bool navigateToEditor READ navigateToEditor WRITE setNavigateToEditor NOTIFY
                   navigateToEditorChanged)
    Q_PROPERTY(QList<QUrl> pendingImportURLs READ pendingImportURLs WRITE setPendingImportURLs
                   NOTIFY pendingImportURLsChanged)
    Q_PROPERTY(bool showImportConfirm READ showImportConfirm WRITE setShowImportConfirm NOTIFY
                   showImportConfirmChanged)
    Q_PROPERTY(bool showLoginRequired READ showLoginRequired WRITE setShowLoginRequired NOTIFY
                   showLoginRequiredChanged)

public:
    static constexpr double saveConfirmationSeconds = 2.0;
    static constexpr double deleteForwardingPauseSeconds = 0.15;

    EditorViewModel(media::MediaEngine &engine, PlaybackClock &clock,
                    ImportServices importServices = {}, QObject *parent = nullptr);
    ~EditorViewModel() override;

    // --- state -----------------------------------------------------------------------
    const QList<Paragraph> &paragraphs() const override { return m_paragraphs; }
    const QSet<QUuid> &selectedBlockIds() const { return m_selectedBlockIds; }
    std::optional<QUuid> selectedParagraphId() const { return m_selectedParagraphId; }
    std::optional<QUuid> cursorParagraphId() const { return m_cursorParagraphId; }
    qsizetype cursorPosition() const { return m_cursorPosition; }
    std::optional<qsizetype> selectionAnchor() const { return m_selectionAnchor; }
    bool isDragging() const { return m_isDragging; }
    void setIsDragging(bool dragging);
    const QString &processingStatus() const { return m_processingStatus; }
    bool showExportSheet() const { return m_showExportSheet; }
    void setShowExportSheet(bool show);
    std::optional<QUuid> playingSentenceId() const { return m_playingSentenceId; }
    std::optional<QDateTime> lastSavedAt() const { return m_lastSavedAt; }
    // The document differs from what was last loaded or saved.
    bool hasUnsavedChanges() const;
    // Edits a crash left unsaved, found in the journal when the project was opened.
    const std::optional<QList<Paragraph>> &recoverableEdits() const { return m_recoverableEdits; }
    void restoreRecoverableEdits();
    void discardRecoverableEdits();
    // The user chose not to save: the journal goes and nothing asks again.
    void discardUnsavedChanges();
    // How soon after an edit the journal is written.
    static constexpr double journalDelaySeconds = 0.5;
    bool showSaveConfirmation() const { return m_showSaveConfirmation; }
    const ExportSettings &exportSettings() const { return m_exportSettings; }
    void setExportSettings(const ExportSettings &settings);
    bool showSearchBar() const { return m_showSearchBar; }
    void setShowSearchBar(bool show);
    const QString &searchQuery() const { return m_searchQuery; }
    void setSearchQuery(const QString &query);
    const QList<SearchHit> &searchResults() const { return m_searchResults; }
    qsizetype currentSearchIndex() const { return m_currentSearchIndex; }
    bool isVideoTrackMuted() const { return m_isVideoTrackMuted; }
    void setIsVideoTrackMuted(bool value);
    bool isAudioTrackMuted() const { return m_isAudioTrackMuted; }
    void setIsAudioTrackMuted(bool value);
    bool isVideoTrackLocked() const { return m_isVideoTrackLocked; }
    void setIsVideoTrackLocked(bool value);
    bool isAudioTrackLocked() const { return m_isAudioTrackLocked; }
    void setIsAudioTrackLocked(bool value);
    KavelProject *project() const { return m_project.get(); }
    bool navigateToEditor() const { return m_navigateToEditor; }
    void setNavigateToEditor(bool value);

    VideoPlayerViewModel &playerVM() { return *m_playerVM; }
    EditorUndoManager &undoManager() { return *m_undoManager; }
    bool suppressPlayerForwarding() const { return m_suppressPlayerForwarding; }
    bool isDeferringPlayerSync() const { return m_isDeferringPlayerSync; }
    bool deferredSyncNeeded() const { return m_deferredSyncNeeded; }

    // --- starting an import (importpicker.cpp); ImportPipeline runs it -------------------
    const QList<QUrl> &pendingImportURLs() const { return m_pendingImportURLs; }
    void setPendingImportURLs(const QList<QUrl> &urls);
    bool showImportConfirm() const { return m_showImportConfirm; }
    void setShowImportConfirm(bool show);
    bool showLoginRequired() const { return m_showLoginRequired; }
    void setShowLoginRequired(bool show);

    static ImportPickerRequest importPickerRequest();
    // Signed out: asks the shell to explain that sign-in is needed. Otherwise shows the
    // picker; chosen files wait in pendingImportURLs for the confirmation screen.
    void openFilePickerForImport(bool isAuthenticated);
    // The same, asking the session handed in at construction.
    void openFilePickerForImport();
    // A transcript made for `project`: when that is the open project, its words are
    // appended (undo starts afresh) and it is saved, and true is returned; otherwise
    // nothing changes. Throws FileError when the save fails, with the words on screen.
    bool receiveTranscript(const KavelProject &project, QList<Paragraph> arrived);

    // --- project and player ------------------------------------------------------------
    // Loads the bundle; on failure only processingStatus changes ("打开项目失败: …").
    void openProject(const QUrl &url);
    // Opens a project already in memory, such as one an import is filling in.
    void openProject(std::shared_ptr<KavelProject> project);
    // Lets go of the open project, unsaved edits and all (projectclosing.cpp).
    void closeProject();
    // Hands the flattened document to the preview (or notes it must, while deferred).
    void syncPlayer() override;
    // Copies the document into the open project, in memory only.
    void syncProject();
    // Writes the timeline and clears the journal; returns whether it was written. A failed
    // write is logged: the confirmation shows a save was asked for, document and journal stay.
    bool save();

    // --- cursor and selection ----------------------------------------------------------
    void setCursor(const QUuid &paragraphId, qsizetype position);
    void selectParagraph(const Paragraph &paragraph);
    void placeCursorAfterWord(const QUuid &blockId);
    void moveCursorLeft();
    void moveCursorRight();
    void selectRange(const QUuid &paragraphId, qsizetype anchor, qsizetype position);
    void extendSelection(qsizetype position);
    void selectAcross(const QUuid &fromParagraphId, qsizetype fromPosition,
                      const QUuid &toParagraphId, qsizetype toPosition);
    void clearSelection();
    // Selects every word of the cursor's paragraph (or of the selected one).
    void selectAllInParagraph();
    void toggleSentencePlayback(const Paragraph &paragraph);

    // --- editing (editoperations.cpp) --------------------------------------------------
    void deleteSelectedWords();
    // Backspace, or Delete with `forward`: the selection, else the word before (after) the
    // caret; at the paragraph's start (end) it joins the paragraph to the one before (after).
    void deleteAtCursor(bool forward = false);
    void deleteParagraph(const QUuid &paragraphId);
    // Enter: the words from the caret on become a new paragraph; the caret goes with them.
    void splitParagraphAtCursor();
    // One undo step per drag: a move that `continuesDrag` is folded into the one before.
    void moveParagraphs(const QList<qsizetype> &fromOffsets, qsizetype toOffset,
                        bool continuesDrag = false);
    // Removes every filler word in one undoable step; returns how many were removed.
    qsizetype deleteFillerWords();
    // Gives the selected words the corrected text as one undoable step (see
    // edits::replaceText); the corrected word stays selected. Returns false when nothing
    // changed: no selection, blank text, or words that do not follow each other in one
    // paragraph.
    bool correctSelectedWords(const QString &text);
    // Asks the transcript to open its in-place editor on the selection, or on the word
    // at the caret when nothing is selected (F2).
    void requestWordCorrection();
    // "保留停顿": 0 off, above maxPauseLimit whole, otherwise at least minPauseLimit.
    // Written to the project at once and applied to the preview.
    void setPauseLimit(double seconds);
    double pauseLimit() const;
    // Keeps a copy of the selected words, in document order; cutting also removes them.
    void copySelectedWords();
    void cutSelectedWords();
    const QList<WordBlock> &copiedWords() const { return m_copiedWords; }
    // Inserts the copied words of this project's recordings at the cursor as new words
    // (fresh ids), one undoable step; the cursor ends after them.
    void pasteWords();

    // --- search (editorsearch.cpp) -----------------------------------------------------
    void performSearch();
    void nextSearchResult();
    void previousSearchResult();
    void goToSearchResult(qsizetype index);
    bool isSearchMatch(const QUuid &blockId) const;
    // F8 / Shift+F8: selects the next (previous) word to check after (before) the caret or
    // selection, going round the end (edits::nextWordToCheck).
    void goToWordToCheck(bool forward);

Q_SIGNALS:
    void paragraphsChanged();
    void recoverableEditsChanged();
    void selectedBlockIdsChanged();
    void selectedParagraphIdChanged();
    void cursorParagraphIdChanged();
    void cursorPositionChanged();
    void selectionAnchorChanged();
    void isDraggingChanged();
    void processingStatusChanged();
    void showExportSheetChanged();
    void playingSentenceIdChanged();
    void lastSavedAtChanged();
    void showSaveConfirmationChanged();
    void exportSettingsChanged();
    void showSearchBarChanged();
    void searchQueryChanged();
    void searchResultsChanged();
    void currentSearchIndexChanged();
    void trackFlagsChanged();
    void projectChanged();
    void pauseLimitChanged();
    void wordCorrectionRequested();
    void navigateToEditorChanged();
    void pendingImportURLsChanged();
    void showImportConfirmChanged();
    void showLoginRequiredChanged();
    // The preview moved or changed (play head, active word, …), forwarded so that views
    // observing only the editor redraw with it. Held back briefly after a keyboard delete.
    void playerStateChanged();

protected:
    void setProcessingStatus(const QString &status);

private:
    // EditTarget: what the undo commands use.
    void setParagraphs(const QList<Paragraph> &paragraphs) override;
    void pushToPlayer() override;
    EditTarget &editTarget() { return *this; }
    // Makes `after` the document as one undo step.
    void recordEdit(QList<Paragraph> after);
    void joinParagraphs(qsizetype index);

    // Assigns and notifies when the value changes: the one setter behind every property.
    template<typename T> void assign(T &field, const T &value, void (EditorViewModel::*changed)())
    {
        if (field == value)
            return;
        field = value;
        Q_EMIT(this->*changed)();
    }

    void setSelectedBlockIds(const QSet<QUuid> &ids);
    void setSelectedParagraphId(std::optional<QUuid> id);
    void setCursorParagraphId(std::optional<QUuid> id);
    void setCursorPosition(qsizetype position);
    void setSelectionAnchor(std::optional<qsizetype> anchor);
    void setPlayingSentenceId(std::optional<QUuid> id);
    void setShowSaveConfirmation(bool show);
    void setSearchResults(const QList<SearchHit> &results);
    void setCurrentSearchIndex(qsizetype index);
    void seekToBlockAt(const Paragraph &paragraph, qsizetype index);
    void forwardPlayerChange();
    void loadProjectSources();
    void forgetCaretSelectionAndSearch();

    void logLine(const QString &line) const;

    PlaybackClock &m_clock;
    ImportServices m_import;
    std::unique_ptr<VideoPlayerViewModel> m_playerVM;
    std::unique_ptr<EditorUndoManager> m_undoManager;
    // Shared with the import that fills it in, when one does.
    std::shared_ptr<KavelProject> m_project;

    QList<Paragraph> m_paragraphs;
    QSet<QUuid> m_selectedBlockIds;
    std::optional<QUuid> m_selectedParagraphId;
    std::optional<QUuid> m_cursorParagraphId;
    qsizetype m_cursorPosition = 0;
    std::optional<qsizetype> m_selectionAnchor;
    bool m_isDragging = false;
    QString m_processingStatus;
    bool m_showExportSheet = false;
    std::optional<QUuid> m_playingSentenceId;
    std::optional<QDateTime> m_lastSavedAt;
    QList<Paragraph> m_savedParagraphs;
    std::optional<QList<Paragraph>> m_recoverableEdits;
    bool m_journalScheduled = false;
    void scheduleJournal();
    void writeJournal();
    bool m_showSaveConfirmation = false;
    ExportSettings m_exportSettings;
    bool m_showSearchBar = false;
    QString m_searchQuery;
    QList<SearchHit> m_searchResults;
    qsizetype m_currentSearchIndex = 0;
    bool m_isVideoTrackMuted = false;
    bool m_isAudioTrackMuted = false;
    bool m_isVideoTrackLocked = false;
    bool m_isAudioTrackLocked = false;
    bool m_navigateToEditor = false;

    bool m_suppressPlayerForwarding = false;
    // The hook for batching many edits into one preview rebuild: while set, pushes only
    // mark that one is due. Nothing sets it yet.
    bool m_isDeferringPlayerSync = false;
    bool m_deferredSyncNeeded = false;
    bool m_isDeleteInProgress = false;

    QList<QUrl> m_pendingImportURLs;
    bool m_showImportConfirm = false;
    bool m_showLoginRequired = false;
    QList<WordBlock> m_copiedWords;
};

} // namespace kavel
