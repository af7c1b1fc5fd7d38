#include "editorviewmodel.h"

#include "model/errors.h"
#include "model/recoveryjournal.h"
#include "model/timeline.h"
#include "paragraphedits.h"
#include "playback/playbackclock.h"

#include <QFileInfo>
#include <QPointer>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace kavel {

EditorViewModel::EditorViewModel(media::MediaEngine &engine, PlaybackClock &clock,
                                 ImportServices importServices, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_import(std::move(importServices))
    , m_playerVM(std::make_unique<VideoPlayerViewModel>(engine, clock))
    , m_undoManager(std::make_unique<EditorUndoManager>())
{
    // Views that observe only the editor redraw with the play head.
    for (auto signal :
         {&VideoPlayerViewModel::currentTimeChanged, &VideoPlayerViewModel::durationChanged,
          &VideoPlayerViewModel::activeWordBlockIdChanged,
          &VideoPlayerViewModel::deletedTimeRangesChanged, &VideoPlayerViewModel::isPlayingChanged})
        connect(m_playerVM.get(), signal, this, &EditorViewModel::forwardPlayerChange);
    connect(m_playerVM.get(), &VideoPlayerViewModel::isPlayingChanged, this, [this] {
        if (!m_playerVM->isPlaying())
            setPlayingSentenceId(std::nullopt);
    });
    connect(this, &EditorViewModel::paragraphsChanged, this, &EditorViewModel::scheduleJournal);
}

EditorViewModel::~EditorViewModel() = default;

void EditorViewModel::forwardPlayerChange()
{
    if (!m_suppressPlayerForwarding)
        Q_EMIT playerStateChanged();
}

// --- plain setters ---------------------------------------------------------------------

void EditorViewModel::setParagraphs(const QList<Paragraph> &paragraphs)
{
    m_paragraphs = paragraphs;
    Q_EMIT paragraphsChanged();
}

void EditorViewModel::setIsDragging(bool v)
{
    assign(m_isDragging, v, &EditorViewModel::isDraggingChanged);
}
void EditorViewModel::setProcessingStatus(const QString &v)
{
    assign(m_processingStatus, v, &EditorViewModel::processingStatusChanged);
}
void EditorViewModel::setShowExportSheet(bool v)
{
    assign(m_showExportSheet, v, &EditorViewModel::showExportSheetChanged);
}
void EditorViewModel::setExportSettings(const ExportSettings &v)
{
    assign(m_exportSettings, v, &EditorViewModel::exportSettingsChanged);
}
void EditorViewModel::setShowSearchBar(bool v)
{
    assign(m_showSearchBar, v, &EditorViewModel::showSearchBarChanged);
}
void EditorViewModel::setSearchQuery(const QString &v)
{
    assign(m_searchQuery, v, &EditorViewModel::searchQueryChanged);
}
void EditorViewModel::setIsVideoTrackMuted(bool v)
{
    assign(m_isVideoTrackMuted, v, &EditorViewModel::trackFlagsChanged);
}
void EditorViewModel::setIsAudioTrackMuted(bool v)
{
    assign(m_isAudioTrackMuted, v, &EditorViewModel::trackFlagsChanged);
}
void EditorViewModel::setIsVideoTrackLocked(bool v)
{
    assign(m_isVideoTrackLocked, v, &EditorViewModel::trackFlagsChanged);
}
void EditorViewModel::setIsAudioTrackLocked(bool v)
{
    assign(m_isAudioTrackLocked, v, &EditorViewModel::trackFlagsChanged);
}
void EditorViewModel::setNavigateToEditor(bool v)
{
    assign(m_navigateToEditor, v, &EditorViewModel::navigateToEditorChanged);
}
void EditorViewModel::setSelectedBlockIds(const QSet<QUuid> &v)
{
    assign(m_selectedBlockIds, v, &EditorViewModel::selectedBlockIdsChanged);
}
void EditorViewModel::setSelectedParagraphId(std::optional<QUuid> v)
{
    assign(m_selectedParagraphId, v, &EditorViewModel::selectedParagraphIdChanged);
}
void EditorViewModel::setCursorParagraphId(std::optional<QUuid> v)
{
    assign(m_cursorParagraphId, v, &EditorViewModel::cursorParagraphIdChanged);
}
void EditorViewModel::setCursorPosition(qsizetype v)
{
    assign(m_cursorPosition, v, &EditorViewModel::cursorPositionChanged);
}
void EditorViewModel::setSelectionAnchor(std::optional<qsizetype> v)
{
    assign(m_selectionAnchor, v, &EditorViewModel::selectionAnchorChanged);
}
void EditorViewModel::setPlayingSentenceId(std::optional<QUuid> v)
{
    assign(m_playingSentenceId, v, &EditorViewModel::playingSentenceIdChanged);
}
void EditorViewModel::setShowSaveConfirmation(bool v)
{
    assign(m_showSaveConfirmation, v, &EditorViewModel::showSaveConfirmationChanged);
}
void EditorViewModel::setSearchResults(const QList<SearchHit> &v)
{
    assign(m_searchResults, v, &EditorViewModel::searchResultsChanged);
}
void EditorViewModel::setCurrentSearchIndex(qsizetype v)
{
    assign(m_currentSearchIndex, v, &EditorViewModel::currentSearchIndexChanged);
}

// --- project and player ----------------------------------------------------------------

void EditorViewModel::openProject(const QUrl &url)
{
    std::unique_ptr<KavelProject> loaded;
    try {
        loaded = KavelProject::open(url);
    } catch (const Error &error) {
        setProcessingStatus(tr("打开项目失败: ") + error.description());
        logLine(u"[EditorVM] Failed to open "_s + url.toLocalFile() + u": "_s + error.description()
                + (error.detail().isEmpty() ? QString() : u" ("_s + error.detail() + u')'));
        return;
    }
    openProject(std::shared_ptr<KavelProject>(std::move(loaded)));
}

void EditorViewModel::openProject(std::shared_ptr<KavelProject> project)
{
    m_project = std::move(project);
    m_savedParagraphs = m_project->paragraphs();
    Q_EMIT projectChanged();
    setParagraphs(m_project->paragraphs());
    m_recoverableEdits = journal::recoverable(*m_project);
    Q_EMIT recoverableEditsChanged();
    forgetCaretSelectionAndSearch();
    m_playerVM->stop();
    m_undoManager->clear();
    if (const auto backup = m_project->backUpDamagedTimeline())
        setProcessingStatus(tr("转写稿无法读取，原文件已备份到 ") + *backup);
    else if (!m_project->timelineLoadError().isEmpty())
        setProcessingStatus(m_project->timelineLoadError());
    setNavigateToEditor(true);
    loadProjectSources();
    syncPlayer();
    m_playerVM->setCurrentTime(0.0);
}

void EditorViewModel::loadProjectSources()
{
    QList<PlaybackSource> sources;
    for (const SourceFile &file : m_project->metadata().sourceFiles) {
        if (auto fileUrl = m_project->sourceFileURL(file.id))
            sources.append({file.id, *fileUrl});
    }
    m_playerVM->loadSources(sources);
}

void EditorViewModel::syncPlayer()
{
    if (m_isDeferringPlayerSync) {
        m_deferredSyncNeeded = true;
        return;
    }
    pushToPlayer();
}

void EditorViewModel::pushToPlayer()
{
    m_playerVM->setPauseLimit(m_project ? m_project->metadata().pauseLimit : 0.0);
    m_playerVM->setWordBlocks(flattenParagraphs(m_paragraphs));
    m_playerVM->scheduleRebuild();
}

void EditorViewModel::syncProject()
{
    if (m_project)
        m_project->setParagraphs(m_paragraphs);
}

bool EditorViewModel::save()
{
    bool saved = false;
    if (m_project) {
        m_project->setParagraphs(m_paragraphs);
        try {
            m_project->saveTimeline();
            m_savedParagraphs = m_paragraphs;
            journal::remove(*m_project);
            saved = true;
        } catch (const Error &error) { // unsaved, journal kept: said, and nothing confirmed
            logLine(u"[EditorVM] Save failed: "_s + error.description());
            setProcessingStatus(tr("保存失败：") + error.description());
            return false;
        }
    }
    m_lastSavedAt = QDateTime::currentDateTimeUtc();
    Q_EMIT lastSavedAtChanged();
    setShowSaveConfirmation(true);

    // Each save hides the confirmation two seconds after itself; the first to fire wins.
    QPointer<EditorViewModel> self(this);
    m_clock.callAfter(saveConfirmationSeconds, [self] {
        if (self)
            self->setShowSaveConfirmation(false);
    });
    return saved;
}

bool EditorViewModel::hasUnsavedChanges() const
{
    return m_project && m_paragraphs != m_savedParagraphs;
}

void EditorViewModel::scheduleJournal()
{
    // While the user has not yet answered whether to restore the journal, it stays as it is.
    if (!m_project || m_journalScheduled || m_recoverableEdits)
        return;
    // Nothing to keep, and no journal to take back (an undo all the way to the saved state).
    if (!hasUnsavedChanges() && !QFileInfo::exists(journal::path(*m_project)))
        return;
    m_journalScheduled = true;
    QPointer<EditorViewModel> self(this);
    m_clock.callAfter(journalDelaySeconds, [self] {
        if (self)
            self->writeJournal();
    });
}

void EditorViewModel::writeJournal()
{
    m_journalScheduled = false;
    if (!m_project || m_recoverableEdits)
        return;
    if (!hasUnsavedChanges()) {
        journal::remove(*m_project);
        return;
    }
    try {
        journal::write(*m_project, m_paragraphs);
    } catch (const Error &error) {
        logLine(u"[EditorVM] Keeping unsaved edits failed: "_s + error.description());
    }
}

void EditorViewModel::restoreRecoverableEdits()
{
    if (!m_recoverableEdits)
        return;
    setParagraphs(*std::exchange(m_recoverableEdits, std::nullopt));
    clearSelection();
    syncPlayer();
    Q_EMIT recoverableEditsChanged();
}

void EditorViewModel::discardRecoverableEdits()
{
    if (m_project)
        journal::remove(*m_project);
    if (std::exchange(m_recoverableEdits, std::nullopt))
        Q_EMIT recoverableEditsChanged();
}

void EditorViewModel::discardUnsavedChanges()
{
    if (m_project)
        journal::remove(*m_project);
    m_savedParagraphs = m_paragraphs;
}

// --- cursor and selection --------------------------------------------------------------

void EditorViewModel::seekToBlockAt(const Paragraph &paragraph, qsizetype index)
{
    if (index >= 0 && index < paragraph.wordBlocks.size())
        m_playerVM->seekToBlock(paragraph.wordBlocks.at(index));
}

void EditorViewModel::setCursor(const QUuid &paragraphId, qsizetype position)
{
    setCursorParagraphId(paragraphId);
    setSelectedParagraphId(paragraphId);
    setCursorPosition(position);
    setSelectionAnchor(std::nullopt);
    setSelectedBlockIds({});

    const qsizetype index = edits::indexOfParagraph(m_paragraphs, paragraphId);
    if (index < 0)
        return;
    // The play head goes to the word after the caret, the current one, or to the last
    // word when the caret stands at the end.
    const Paragraph &paragraph = m_paragraphs.at(index);
    seekToBlockAt(paragraph,
                  std::max<qsizetype>(0, std::min(position, paragraph.wordBlocks.size() - 1)));
}

void EditorViewModel::selectParagraph(const Paragraph &paragraph)
{
    setSelectedParagraphId(paragraph.id);
    setCursor(paragraph.id, 0);
    if (!paragraph.wordBlocks.isEmpty())
        m_playerVM->seekToBlock(paragraph.wordBlocks.first());
}

void EditorViewModel::placeCursorAfterWord(const QUuid &blockId)
{
    const auto where = edits::locateWord(m_paragraphs, blockId);
    if (where.isValid())
        setCursor(m_paragraphs.at(where.paragraph).id, where.word + 1);
}

void EditorViewModel::moveCursorLeft()
{
    if (m_cursorParagraphId)
        setCursor(*m_cursorParagraphId, std::max<qsizetype>(m_cursorPosition - 1, 0));
}

void EditorViewModel::moveCursorRight()
{
    if (!m_cursorParagraphId)
        return;
    const qsizetype index = edits::indexOfParagraph(m_paragraphs, *m_cursorParagraphId);
    if (index < 0)
        return;
    const qsizetype n = m_paragraphs.at(index).wordBlocks.size();
    setCursor(*m_cursorParagraphId, std::min(m_cursorPosition + 1, n));
}

void EditorViewModel::selectRange(const QUuid &paragraphId, qsizetype anchor, qsizetype position)
{
    setCursorParagraphId(paragraphId);
    setSelectedParagraphId(paragraphId);
    setSelectionAnchor(anchor);
    setCursorPosition(position);

    const qsizetype index = edits::indexOfParagraph(m_paragraphs, paragraphId);
    if (index < 0)
        return;
    const Paragraph &paragraph = m_paragraphs.at(index);
    const qsizetype n = paragraph.wordBlocks.size();
    const qsizetype lo = std::min(anchor, position);
    if (lo > n)
        return;
    const qsizetype hi = std::min(std::max(anchor, position), n);
    setSelectedBlockIds(edits::wordIdsBetween(m_paragraphs, index, lo, index, hi));
    if (lo < hi)
        seekToBlockAt(paragraph, lo);
}

void EditorViewModel::extendSelection(qsizetype position)
{
    if (!m_cursorParagraphId)
        return;
    const qsizetype anchor = m_selectionAnchor.value_or(m_cursorPosition);
    selectRange(*m_cursorParagraphId, anchor, position);
}

void EditorViewModel::selectAcross(const QUuid &fromParagraphId, qsizetype fromPosition,
                                   const QUuid &toParagraphId, qsizetype toPosition)
{
    const qsizetype a = edits::indexOfParagraph(m_paragraphs, fromParagraphId);
    const qsizetype b = edits::indexOfParagraph(m_paragraphs, toParagraphId);
    if (a < 0 || b < 0)
        return;

    qsizetype first = a, last = b, start = fromPosition, end = toPosition;
    if (a > b) {
        first = b;
        last = a;
        start = toPosition;
        end = fromPosition;
    } else if (a == b) {
        start = std::min(fromPosition, toPosition);
        end = std::max(fromPosition, toPosition);
    }

    setSelectedBlockIds(edits::wordIdsBetween(m_paragraphs, first, start, last, end));
    setCursorParagraphId(toParagraphId);
    setCursorPosition(toPosition);
    setSelectionAnchor(fromPosition);
    setSelectedParagraphId(toParagraphId);
}

void EditorViewModel::clearSelection()
{
    setSelectedBlockIds({});
    setSelectedParagraphId(std::nullopt);
}

void EditorViewModel::selectAllInParagraph()
{
    const std::optional<QUuid> id
        = m_cursorParagraphId ? m_cursorParagraphId : m_selectedParagraphId;
    if (!id)
        return;
    const qsizetype index = edits::indexOfParagraph(m_paragraphs, *id);
    if (index >= 0)
        selectRange(*id, 0, m_paragraphs.at(index).wordBlocks.size());
}

void EditorViewModel::toggleSentencePlayback(const Paragraph &paragraph)
{
    if (m_playingSentenceId == paragraph.id) {
        m_playerVM->stop();
        setPlayingSentenceId(std::nullopt);
        return;
    }
    m_playerVM->stop();
    if (paragraph.wordBlocks.isEmpty())
        return;
    setPlayingSentenceId(paragraph.id);
    setSelectedParagraphId(paragraph.id);
    // It goes round until chosen again or the player stops (Space, another play).
    m_playerVM->playRange(paragraph.wordBlocks.first().id, paragraph.wordBlocks.last().id, {},
                          true);
}

} // namespace kavel
