#include "editorundomanager.h"

namespace kavel {

EditorUndoManager::EditorUndoManager(QObject *parent)
    : QObject(parent)
{ }

EditorUndoManager::~EditorUndoManager() = default;

void EditorUndoManager::push(std::unique_ptr<EditCommand> command, const QList<Paragraph> &before,
                             const QList<Paragraph> &after)
{
    ParagraphChange sincePrevious;
    if (!m_undoStack.empty())
        sincePrevious = ParagraphChange(before, m_head);
    m_undoStack.push_back({std::move(command), ParagraphChange(after, before), sincePrevious});
    m_head = after;
    m_redoStack.clear();
    refreshFlags();
}

void EditorUndoManager::record(std::unique_ptr<EditCommand> command)
{
    // A command made without its states recorded an edit that changed nothing.
    const auto states = command->takeStates();
    const QList<Paragraph> after = states ? states->after : command->target().paragraphs();
    if (!m_undoStack.empty() && command->continues(*m_undoStack.back().command)) {
        // One step from the state before the newest one to this edit's result.
        Step &newest = m_undoStack.back();
        newest.undone = ParagraphChange(after, newest.undone.apply(m_head));
        m_head = after;
        m_redoStack.clear();
        refreshFlags();
        return;
    }
    push(std::move(command), states ? states->before : after, after);
}

void EditorUndoManager::execute(std::unique_ptr<EditCommand> command)
{
    const auto states = command->takeStates();
    const QList<Paragraph> before = states ? states->before : command->target().paragraphs();
    if (states)
        command->redo(states->after);
    else
        command->execute();
    const QList<Paragraph> after = command->target().paragraphs();
    push(std::move(command), before, after);
}

void EditorUndoManager::undo()
{
    if (m_undoStack.empty())
        return;
    Step step = std::move(m_undoStack.back());
    m_undoStack.pop_back();
    const QList<Paragraph> before = step.undone.apply(m_head);
    step.command->undo(before);
    m_head = step.sincePrevious.apply(before);
    m_redoStack.push_back(std::move(step));
    refreshFlags();
}

void EditorUndoManager::redo()
{
    if (m_redoStack.empty())
        return;
    Step step = std::move(m_redoStack.back());
    m_redoStack.pop_back();
    const QList<Paragraph> before = step.sincePrevious.revert(m_head);
    step.command->redo(step.undone.revert(before));
    // Commands that run again on today's document may leave another state than the first
    // run did; the change is taken afresh from what they left.
    m_head = step.command->target().paragraphs();
    step.undone = ParagraphChange(m_head, before);
    m_undoStack.push_back(std::move(step));
    refreshFlags();
}

void EditorUndoManager::clear()
{
    m_undoStack.clear();
    m_redoStack.clear();
    m_head.clear();
    refreshFlags();
}

void EditorUndoManager::refreshFlags()
{
    m_canUndo = !m_undoStack.empty();
    Q_EMIT canUndoChanged();
    m_canRedo = !m_redoStack.empty();
    Q_EMIT canRedoChanged();
}

} // namespace kavel
