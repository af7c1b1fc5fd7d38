#pragma once

#include "editcommands.h"
#include "paragraphchange.h"

#include <QObject>
#include <memory>
#include <vector>

namespace kavel {

// The editor's history: two stacks of commands, unlimited, emptied only by clear() and
// (the redo stack) by a new edit. Lives in memory only.
//
// Undo restores whole states, yet no step keeps a whole document: the history keeps the
// state its last step left (shared with the document while nothing else changed it) and,
// per step, only what the step changed and what changed between it and the step before
// (an edit that is not recorded, such as a paragraph move). Walking back through those
// changes rebuilds every earlier state exactly.
class EditorUndoManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool canUndo READ canUndo NOTIFY canUndoChanged)
    Q_PROPERTY(bool canRedo READ canRedo NOTIFY canRedoChanged)

public:
    explicit EditorUndoManager(QObject *parent = nullptr);
    ~EditorUndoManager() override;

    bool canUndo() const { return m_canUndo; }
    bool canRedo() const { return m_canRedo; }
    qsizetype undoCount() const { return static_cast<qsizetype>(m_undoStack.size()); }
    qsizetype redoCount() const { return static_cast<qsizetype>(m_redoStack.size()); }

    // For an edit the caller has already applied. An edit that continues the newest step
    // is folded into it.
    void record(std::unique_ptr<EditCommand> command);
    // Applies the edit, then records it.
    void execute(std::unique_ptr<EditCommand> command);
    void undo();
    void redo();
    void clear();

Q_SIGNALS:
    // Sent on every refresh of the flags, whether or not the value changed, so a view
    // bound to them is always told after a history operation.
    void canUndoChanged();
    void canRedoChanged();

private:
    void refreshFlags();

    struct Step
    {
        std::unique_ptr<EditCommand> command;
        // The state after the step into the one before it.
        ParagraphChange undone;
        // The state before the step into the one the previous step left.
        ParagraphChange sincePrevious;
    };
    void push(std::unique_ptr<EditCommand> command, const QList<Paragraph> &before,
              const QList<Paragraph> &after);

    bool m_canUndo = false;
    bool m_canRedo = false;
    std::vector<Step> m_undoStack;
    std::vector<Step> m_redoStack;
    // The state the newest step on the undo stack left.
    QList<Paragraph> m_head;
};

} // namespace kavel
