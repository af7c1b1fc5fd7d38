// The structural edits of EditorViewModel. Each one computes the new list, changes the
// document, records or executes its undo command, fixes the selection and cursor, pushes
// to the preview and refreshes the project copy — in that order.
#include "editorviewmodel.h"
#include "model/errors.h"
#include "paragraphedits.h"
#include "playback/playbackclock.h"

#include <QCoreApplication>
#include <QPointer>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

// Where the text cursor goes after `ids` are deleted from `paragraphs`: right after the
// last surviving word before the first deleted one, so that pressing Delete again
// removes the next word to the left. Found by ids, since indices shift with the delete.
struct CursorTarget
{
    std::optional<QUuid> afterBlockId; // cursor after this surviving word
    std::optional<QUuid> startOfParagraph; // or at the start of this surviving paragraph
};

CursorTarget cursorAfterDeleting(const QList<Paragraph> &paragraphs, const QSet<QUuid> &ids)
{
    std::optional<QUuid> lastSurvivor;
    for (const Paragraph &paragraph : paragraphs) {
        for (qsizetype i = 0; i < paragraph.wordBlocks.size(); ++i) {
            const QUuid id = paragraph.wordBlocks.at(i).id;
            if (!ids.contains(id)) {
                lastSurvivor = id;
                continue;
            }
            if (i > 0 && lastSurvivor && edits::locateWord({paragraph}, *lastSurvivor).isValid())
                return {lastSurvivor, {}};
            // The first deleted word opens its paragraph: stay in that paragraph if
            // anything of it survives, else fall back to the end of the one before.
            const bool paragraphSurvives
                = std::any_of(paragraph.wordBlocks.cbegin(), paragraph.wordBlocks.cend(),
                              [&](const WordBlock &b) { return !ids.contains(b.id); });
            if (paragraphSurvives)
                return {{}, paragraph.id};
            return {lastSurvivor, {}};
        }
    }
    return {};
}

} // namespace

void EditorViewModel::recordEdit(QList<Paragraph> after)
{
    QList<Paragraph> before = std::exchange(m_paragraphs, std::move(after));
    Q_EMIT paragraphsChanged();
    m_undoManager->record(
        std::make_unique<ParagraphSnapshotCommand>(editTarget(), std::move(before), m_paragraphs));
}

void EditorViewModel::deleteSelectedWords()
{
    if (m_selectedBlockIds.isEmpty())
        return;
    recordEdit(edits::removeWords(m_paragraphs, m_selectedBlockIds));
    clearSelection();
    syncPlayer();
    syncProject();
}

void EditorViewModel::deleteAtCursor(bool forward)
{
    // A key repeat that arrives while a delete is being applied is dropped.
    if (m_isDeleteInProgress)
        return;
    m_isDeleteInProgress = true;
    const auto done = qScopeGuard([this] { m_isDeleteInProgress = false; });

    QSet<QUuid> ids = m_selectedBlockIds;
    if (ids.isEmpty()) {
        if (!m_cursorParagraphId)
            return;
        const qsizetype index = edits::indexOfParagraph(m_paragraphs, *m_cursorParagraphId);
        const qsizetype gap = m_cursorPosition;
        if (index < 0 || gap < 0 || gap > m_paragraphs.at(index).wordBlocks.size())
            return;
        // At the paragraph's edge the key joins it to its neighbour, as in a text editor.
        if (gap == (forward ? m_paragraphs.at(index).wordBlocks.size() : 0)) {
            joinParagraphs(forward ? index + 1 : index);
            return;
        }
        ids.insert(m_paragraphs.at(index).wordBlocks.at(forward ? gap : gap - 1).id);
    }
    const CursorTarget target = cursorAfterDeleting(m_paragraphs, ids);

    m_suppressPlayerForwarding = true;
    m_undoManager->execute(std::make_unique<BatchDeleteWordsCommand>(editTarget(), ids));
    if (target.afterBlockId)
        placeCursorAfterWord(*target.afterBlockId);
    else if (target.startOfParagraph)
        setCursor(*target.startOfParagraph, 0);
    else {
        setCursorParagraphId(std::nullopt);
        setCursorPosition(0);
        setSelectionAnchor(std::nullopt);
        clearSelection();
    }

    // While the preview rebuilds, its notifications would redraw the transcript mid-edit;
    // hold them back briefly. Each delete schedules its own release; the first one wins.
    // The release passes one notification on, so the views catch up with the play head
    // that moved meanwhile.
    QPointer<EditorViewModel> self(this);
    m_clock.callAfter(deleteForwardingPauseSeconds, [this, self] {
        if (!self || !m_suppressPlayerForwarding)
            return;
        m_suppressPlayerForwarding = false;
        Q_EMIT playerStateChanged();
    });
    syncProject();
}

void EditorViewModel::deleteParagraph(const QUuid &paragraphId)
{
    const qsizetype i = edits::indexOfParagraph(m_paragraphs, paragraphId);
    if (i < 0)
        return;
    std::optional<QUuid> cursorBlock;
    if (i > 0 && !m_paragraphs.at(i - 1).wordBlocks.isEmpty())
        cursorBlock = m_paragraphs.at(i - 1).wordBlocks.last().id;
    else if (i == 0 && m_paragraphs.size() >= 2 && !m_paragraphs.at(1).wordBlocks.isEmpty())
        cursorBlock = m_paragraphs.at(1).wordBlocks.first().id;

    m_undoManager->execute(std::make_unique<DeleteParagraphCommand>(editTarget(), paragraphId));
    clearSelection();
    if (cursorBlock)
        placeCursorAfterWord(*cursorBlock);
    syncProject();
}

void EditorViewModel::moveParagraphs(const QList<qsizetype> &fromOffsets, qsizetype toOffset,
                                     bool continuesDrag)
{
    QList<Paragraph> after = edits::moveParagraphs(m_paragraphs, fromOffsets, toOffset);
    if (after == m_paragraphs)
        return;
    QList<Paragraph> before = std::exchange(m_paragraphs, std::move(after));
    Q_EMIT paragraphsChanged();
    m_undoManager->record(std::make_unique<MoveParagraphsCommand>(editTarget(), std::move(before),
                                                                  m_paragraphs, continuesDrag));
    syncPlayer();
    syncProject();
}

void EditorViewModel::splitParagraphAtCursor()
{
    if (!m_cursorParagraphId)
        return;
    QList<Paragraph> after = m_paragraphs;
    const auto tail = edits::splitParagraph(after, *m_cursorParagraphId, m_cursorPosition);
    if (!tail)
        return;
    recordEdit(std::move(after));
    setCursor(*tail, 0);
    syncPlayer();
    syncProject();
}

void EditorViewModel::joinParagraphs(qsizetype index)
{
    QList<Paragraph> after = m_paragraphs;
    const qsizetype gap = edits::joinWithPrevious(after, index);
    if (gap < 0)
        return;
    const QUuid joined = after.at(index - 1).id;
    recordEdit(std::move(after));
    setCursor(joined, gap);
    syncPlayer();
    syncProject();
}

qsizetype EditorViewModel::deleteFillerWords()
{
    const QSet<QUuid> fillers = edits::fillerWordIds(m_paragraphs);
    if (fillers.isEmpty())
        return 0;
    recordEdit(edits::removeWords(m_paragraphs, fillers));
    setSelectedBlockIds(m_selectedBlockIds - fillers);
    syncPlayer();
    syncProject();
    return fillers.size();
}

void EditorViewModel::copySelectedWords()
{
    if (m_selectedBlockIds.isEmpty())
        return;
    m_copiedWords.clear();
    for (const Paragraph &paragraph : std::as_const(m_paragraphs)) {
        for (const WordBlock &block : paragraph.wordBlocks) {
            if (m_selectedBlockIds.contains(block.id))
                m_copiedWords.append(block);
        }
    }
}

void EditorViewModel::cutSelectedWords()
{
    if (m_selectedBlockIds.isEmpty())
        return;
    copySelectedWords();
    deleteAtCursor();
}

void EditorViewModel::pasteWords()
{
    // Words copied in another project have no recording here to play them from.
    QList<WordBlock> words;
    for (const WordBlock &word : std::as_const(m_copiedWords)) {
        if (m_project && m_project->sourceFileURL(word.sourceFileId))
            words.append(word);
    }
    if (words.isEmpty() || !m_cursorParagraphId)
        return;
    const qsizetype index = edits::indexOfParagraph(m_paragraphs, *m_cursorParagraphId);
    if (index < 0)
        return;
    QList<Paragraph> after = m_paragraphs;
    const qsizetype gap
        = std::clamp<qsizetype>(m_cursorPosition, 0, after.at(index).wordBlocks.size());
    const QList<QUuid> inserted = edits::insertWords(after, *m_cursorParagraphId, gap, words);
    recordEdit(std::move(after));
    placeCursorAfterWord(inserted.last());
    syncPlayer();
    syncProject();
}

bool EditorViewModel::correctSelectedWords(const QString &text)
{
    QList<Paragraph> after = m_paragraphs;
    const std::optional<QUuid> corrected = edits::replaceText(after, m_selectedBlockIds, text);
    if (!corrected || after == m_paragraphs)
        return false;
    recordEdit(std::move(after));
    setSelectedBlockIds({*corrected});
    syncPlayer();
    syncProject();
    if (m_showSearchBar)
        performSearch();
    return true;
}

void EditorViewModel::requestWordCorrection()
{
    // The word at the caret, or the last one when the caret stands at the end.
    if (m_selectedBlockIds.isEmpty() && m_cursorParagraphId) {
        const qsizetype index = edits::indexOfParagraph(m_paragraphs, *m_cursorParagraphId);
        const qsizetype n = index < 0 ? 0 : m_paragraphs.at(index).wordBlocks.size();
        const qsizetype word = std::min(m_cursorPosition, n - 1);
        if (word >= 0)
            selectRange(*m_cursorParagraphId, word, word + 1);
    }
    if (!m_selectedBlockIds.isEmpty())
        Q_EMIT wordCorrectionRequested();
}

double EditorViewModel::pauseLimit() const
{
    return m_project ? m_project->metadata().pauseLimit : 0.0;
}

void EditorViewModel::setPauseLimit(double seconds)
{
    if (!m_project)
        return;
    const double limit = normalizedPauseLimit(seconds);
    ProjectMetadata metadata = m_project->metadata();
    if (metadata.pauseLimit == limit)
        return;
    metadata.pauseLimit = limit;
    m_project->setMetadata(metadata);
    try {
        m_project->saveMetadata();
    } catch (const Error &error) {
        setProcessingStatus(QCoreApplication::translate("kavel::editor", "保存失败: ")
                            + error.description());
    }
    // The player first: views that follow the change lay their clips through it.
    pushToPlayer();
    Q_EMIT pauseLimitChanged();
}

} // namespace kavel
