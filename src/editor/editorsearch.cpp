// Search over the transcript: results are recomputed only when asked, so after an edit
// stale hits simply find nothing.
#include "editorviewmodel.h"
#include "paragraphedits.h"
#include "wordstocheck.h"

namespace kavel {

void EditorViewModel::performSearch()
{
    const QList<SearchHit> hits = searchTranscript(m_paragraphs, m_searchQuery);
    setSearchResults(hits);
    setCurrentSearchIndex(0);
    if (!hits.isEmpty())
        goToSearchResult(0);
}

void EditorViewModel::nextSearchResult()
{
    const qsizetype count = m_searchResults.size();
    if (count == 0)
        return;
    setCurrentSearchIndex((m_currentSearchIndex + 1) % count);
    goToSearchResult(m_currentSearchIndex);
}

void EditorViewModel::previousSearchResult()
{
    const qsizetype count = m_searchResults.size();
    if (count == 0)
        return;
    setCurrentSearchIndex((m_currentSearchIndex - 1 + count) % count);
    goToSearchResult(m_currentSearchIndex);
}

void EditorViewModel::goToSearchResult(qsizetype index)
{
    if (index < 0 || index >= m_searchResults.size())
        return;
    const SearchHit hit = m_searchResults.at(index);
    setSelectedParagraphId(hit.paragraphId);
    setSelectedBlockIds(QSet<QUuid>(hit.blockIds.cbegin(), hit.blockIds.cend()));
    if (hit.blockIds.isEmpty())
        return;
    const qsizetype p = edits::indexOfParagraph(m_paragraphs, hit.paragraphId);
    if (p < 0)
        return;
    for (const WordBlock &block : m_paragraphs.at(p).wordBlocks) {
        if (block.id == hit.blockIds.first()) {
            m_playerVM->seekToBlock(block);
            return;
        }
    }
}

void EditorViewModel::goToWordToCheck(bool forward)
{
    const qsizetype paragraph
        = m_cursorParagraphId ? edits::indexOfParagraph(m_paragraphs, *m_cursorParagraphId) : -1;
    const qsizetype anchor = m_selectionAnchor.value_or(m_cursorPosition);
    // Past the selection, so that the word just found is not found again.
    const qsizetype gap
        = forward ? std::max(anchor, m_cursorPosition) : std::min(anchor, m_cursorPosition);
    const auto found = edits::nextWordToCheck(m_paragraphs, paragraph, gap, forward);
    if (found)
        selectRange(m_paragraphs.at(found->paragraph).id, found->word, found->word + 1);
}

bool EditorViewModel::isSearchMatch(const QUuid &blockId) const
{
    if (m_searchQuery.isEmpty() || m_searchResults.isEmpty())
        return false;
    for (const SearchHit &hit : m_searchResults) {
        if (hit.blockIds.contains(blockId))
            return true;
    }
    return false;
}

} // namespace kavel
