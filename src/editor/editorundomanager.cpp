#include "editorundomanager.h"

namespace kavel {

EditorUndoManager::EditorUndoManager(QObject *parent)
    : QObject(parent)
{ }

EditorUndoManager::~EditorUndoManager() = default;

void EditorUndoManager::record(std::unique_ptr<EditCommand> command)
{
    m_undoStack.push_back(std::move(command));
    m_redoStack.clear();
    refreshFlags();
}

void EditorUndoManager::execute(std::unique_ptr<EditCommand> command)
{
    command->execute();
    m_undoStack.push_back(std::move(command));
    m_redoStack.clear();
    refreshFlags();
}

void EditorUndoManager::undo()
{
    if (m_undoStack.empty())
        return;
    std::unique_ptr<EditCommand> command = std::move(m_undoStack.back());
    m_undoStack.pop_back();
    command->undo();
    m_redoStack.push_back(std::move(command));
    refreshFlags();
}

void EditorUndoManager::redo()
{
    if (m_redoStack.empty())
        return;
    std::unique_ptr<EditCommand> command = std::move(m_redoStack.back());
    m_redoStack.pop_back();
    command->execute();
    m_undoStack.push_back(std::move(command));
    refreshFlags();
}

void EditorUndoManager::clear()
{
    m_undoStack.clear();
    m_redoStack.clear();
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
