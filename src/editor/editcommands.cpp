#include "editcommands.h"

#include "paragraphedits.h"

namespace kavel {

ParagraphSnapshotCommand::ParagraphSnapshotCommand(EditTarget &viewModel, QList<Paragraph> before,
                                                   QList<Paragraph> after)
    : m_viewModel(viewModel)
    , m_states(States {std::move(before), std::move(after)})
{ }

void ParagraphSnapshotCommand::execute()
{
    // Only reached before the history took the states: a redo passes them back.
    if (m_states)
        redo(m_states->after);
}

void ParagraphSnapshotCommand::undo(const QList<Paragraph> &before)
{
    m_viewModel.setParagraphs(before);
    m_viewModel.pushToPlayer();
}

void ParagraphSnapshotCommand::redo(const QList<Paragraph> &after)
{
    m_viewModel.setParagraphs(after);
    m_viewModel.pushToPlayer();
}

MoveParagraphsCommand::MoveParagraphsCommand(EditTarget &viewModel, QList<Paragraph> before,
                                             QList<Paragraph> after, bool continuesDrag)
    : ParagraphSnapshotCommand(viewModel, std::move(before), std::move(after))
    , m_continuesDrag(continuesDrag)
{ }

bool MoveParagraphsCommand::continues(const EditCommand &previous) const
{
    return m_continuesDrag && dynamic_cast<const MoveParagraphsCommand *>(&previous);
}

BatchDeleteWordsCommand::BatchDeleteWordsCommand(EditTarget &viewModel, QSet<QUuid> idsToDelete)
    : m_viewModel(viewModel)
    , m_idsToDelete(std::move(idsToDelete))
{ }

void BatchDeleteWordsCommand::execute()
{
    m_viewModel.setParagraphs(edits::removeWords(m_viewModel.paragraphs(), m_idsToDelete));
    m_viewModel.pushToPlayer();
}

void BatchDeleteWordsCommand::undo(const QList<Paragraph> &before)
{
    m_viewModel.setParagraphs(before);
    m_viewModel.pushToPlayer();
}

DeleteParagraphCommand::DeleteParagraphCommand(EditTarget &viewModel, QUuid paragraphId)
    : m_viewModel(viewModel)
    , m_paragraphId(paragraphId)
{
    const qsizetype index = edits::indexOfParagraph(viewModel.paragraphs(), paragraphId);
    if (index >= 0) {
        m_removedParagraph = viewModel.paragraphs().at(index);
        m_removedIndex = index;
    } else {
        m_removedParagraph.id = QUuid::createUuid();
    }
}

void DeleteParagraphCommand::execute()
{
    m_viewModel.setParagraphs(edits::removeParagraph(m_viewModel.paragraphs(), m_paragraphId));
    m_viewModel.syncPlayer();
}

void DeleteParagraphCommand::undo(const QList<Paragraph> &)
{
    QList<Paragraph> paragraphs = m_viewModel.paragraphs();
    if (m_removedIndex < 0 || m_removedIndex > paragraphs.size())
        return;
    paragraphs.insert(m_removedIndex, m_removedParagraph);
    edits::renumber(paragraphs);
    m_viewModel.setParagraphs(paragraphs);
    m_viewModel.syncPlayer();
}

} // namespace kavel
