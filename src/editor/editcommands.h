#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QSet>
#include <QUuid>

namespace kavel {

// What undo commands edit. The editor implements it; commands never keep pointers into
// the paragraph list, they find paragraphs and words by id each time they run.
class EditTarget
{
public:
    virtual ~EditTarget() = default;

    virtual const QList<Paragraph> &paragraphs() const = 0;
    virtual void setParagraphs(const QList<Paragraph> &paragraphs) = 0;
    // Hands the current document to the preview at once.
    virtual void pushToPlayer() = 0;
    // Hands the document to the preview unless pushes are being deferred.
    virtual void syncPlayer() = 0;
};

class EditCommand
{
public:
    virtual ~EditCommand() = default;
    // Applies the edit; also used for redo.
    virtual void execute() = 0;
    virtual void undo() = 0;
};

// An edit that was already applied, kept as the whole paragraph list before and after.
// Both lists share their unchanged paragraphs with each other and with the document.
class ParagraphSnapshotCommand final : public EditCommand
{
public:
    ParagraphSnapshotCommand(EditTarget &viewModel, QList<Paragraph> before,
                             QList<Paragraph> after);
    void execute() override;
    void undo() override;

private:
    EditTarget &m_viewModel;
    const QList<Paragraph> m_before;
    const QList<Paragraph> m_after;
};

// Removes words by id; paragraphs left empty disappear. Undo restores the whole list as
// it was when the command was made.
class BatchDeleteWordsCommand final : public EditCommand
{
public:
    BatchDeleteWordsCommand(EditTarget &viewModel, QSet<QUuid> idsToDelete);
    void execute() override;
    void undo() override;

    const QSet<QUuid> &idsToDelete() const { return m_idsToDelete; }

private:
    EditTarget &m_viewModel;
    const QSet<QUuid> m_idsToDelete;
    const QList<Paragraph> m_snapshotBefore;
};

// Removes one paragraph; undo puts it back at the index it had. Made for an id that is
// not in the document, it removes nothing and its undo inserts an empty paragraph at
// the top — the editor's long-standing behaviour, kept on purpose.
class DeleteParagraphCommand final : public EditCommand
{
public:
    DeleteParagraphCommand(EditTarget &viewModel, QUuid paragraphId);
    void execute() override;
    void undo() override;

private:
    EditTarget &m_viewModel;
    const QUuid m_paragraphId;
    Paragraph m_removedParagraph;
    qsizetype m_removedIndex = 0;
};

} // namespace kavel
