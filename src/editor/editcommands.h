#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QSet>
#include <QUuid>
#include <optional>
#include <utility>

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
    // Applies the edit to the document as it is now; used for the first run and for redo.
    virtual void execute() = 0;
    // Restores the state from before the edit; `before` is that state, which the history
    // rebuilds from what each step changed.
    virtual void undo(const QList<Paragraph> &before) = 0;
    // Redo of an edit the caller made: by default the edit runs again on today's document.
    virtual void redo(const QList<Paragraph> &after)
    {
        Q_UNUSED(after);
        execute();
    }
    // The document before and after, for an edit the caller applied and passed whole; the
    // history keeps only their difference, so it takes them and the command lets go.
    struct States
    {
        QList<Paragraph> before, after;
    };
    virtual std::optional<States> takeStates() { return std::nullopt; }
    virtual EditTarget &target() const = 0;
    // Whether this edit goes on with `previous`, the newest step, so that the history folds
    // the two into one step (a paragraph dragged on past several others).
    virtual bool continues(const EditCommand &previous) const
    {
        Q_UNUSED(previous);
        return false;
    }
};

// An edit that was already applied, given as the whole paragraph list before and after.
// Redo and undo restore those whole lists (an unrecorded edit in between is overwritten).
class ParagraphSnapshotCommand : public EditCommand
{
public:
    ParagraphSnapshotCommand(EditTarget &viewModel, QList<Paragraph> before,
                             QList<Paragraph> after);
    void execute() override;
    void undo(const QList<Paragraph> &before) override;
    void redo(const QList<Paragraph> &after) override;
    std::optional<States> takeStates() override { return std::exchange(m_states, std::nullopt); }
    EditTarget &target() const override { return m_viewModel; }

private:
    EditTarget &m_viewModel;
    std::optional<States> m_states;
};

// A paragraph move, kept as the lists before and after. The moves of one drag are one step.
class MoveParagraphsCommand final : public ParagraphSnapshotCommand
{
public:
    MoveParagraphsCommand(EditTarget &viewModel, QList<Paragraph> before, QList<Paragraph> after,
                          bool continuesDrag);
    bool continues(const EditCommand &previous) const override;

private:
    const bool m_continuesDrag;
};

// Removes words by id from the document as it is; paragraphs left empty disappear. Undo
// restores the whole list as it was when the command was made.
class BatchDeleteWordsCommand final : public EditCommand
{
public:
    BatchDeleteWordsCommand(EditTarget &viewModel, QSet<QUuid> idsToDelete);
    void execute() override;
    void undo(const QList<Paragraph> &before) override;
    EditTarget &target() const override { return m_viewModel; }

    const QSet<QUuid> &idsToDelete() const { return m_idsToDelete; }

private:
    EditTarget &m_viewModel;
    const QSet<QUuid> m_idsToDelete;
};

// Removes one paragraph; undo puts it back at the index it had, into the document as it
// is then. Made for an id that is not in the document, it removes nothing and its undo
// inserts an empty paragraph at the top — the editor's long-standing behaviour, kept on
// purpose.
class DeleteParagraphCommand final : public EditCommand
{
public:
    DeleteParagraphCommand(EditTarget &viewModel, QUuid paragraphId);
    void execute() override;
    void undo(const QList<Paragraph> &before) override;
    EditTarget &target() const override { return m_viewModel; }

private:
    EditTarget &m_viewModel;
    const QUuid m_paragraphId;
    Paragraph m_removedParagraph;
    qsizetype m_removedIndex = 0;
};

} // namespace kavel
