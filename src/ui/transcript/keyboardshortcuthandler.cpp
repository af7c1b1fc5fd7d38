#include "keyboardshortcuthandler.h"

#include "editor/editorviewmodel.h"
#include "editor/paragraphedits.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <algorithm>

namespace kavel::ui {

bool textInputHasFocus()
{
    QWidget *focus = QApplication::focusWidget();
    return qobject_cast<QLineEdit *>(focus) || qobject_cast<QTextEdit *>(focus)
        || qobject_cast<QPlainTextEdit *>(focus);
}

bool isKeyForWindowOf(const QWidget &handler, const QObject *receiver)
{
    // The platform window that first receives a key hands it on to its focus widget; the
    // handlers decide there, where the widget tells whose window it is.
    const auto *widget = qobject_cast<const QWidget *>(receiver);
    return widget && widget->window() == handler.window();
}

void putOnClipboard(EditorViewModel &editor)
{
    editor.copySelectedWords();
    if (editor.selectedBlockIds().isEmpty())
        return;
    QApplication::clipboard()->setText(edits::wordsAsText(editor.copiedWords()));
}

KeyboardShortcutHandler::KeyboardShortcutHandler(EditorViewModel &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(&editor)
{
    setFixedSize(0, 0);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

KeyboardShortcutHandler::~KeyboardShortcutHandler()
{
    removeMonitor();
}

void KeyboardShortcutHandler::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    installMonitor();
}

void KeyboardShortcutHandler::hideEvent(QHideEvent *event)
{
    removeMonitor();
    QWidget::hideEvent(event);
}

void KeyboardShortcutHandler::installMonitor()
{
    // Never two filters for one handler: a re-shown handler replaces its old one.
    removeMonitor();
    if (qApp) {
        qApp->installEventFilter(this);
        m_monitoring = true;
    }
}

void KeyboardShortcutHandler::removeMonitor()
{
    if (m_monitoring && qApp)
        qApp->removeEventFilter(this);
    m_monitoring = false;
}

KeyboardShortcutHandler::Action KeyboardShortcutHandler::actionFor(const QKeyEvent &key)
{
    const Qt::KeyboardModifiers modifiers = key.modifiers();
    if (modifiers.testFlag(Qt::ControlModifier)) {
        switch (key.key()) {
        case Qt::Key_C:
            return [](EditorViewModel &editor) { putOnClipboard(editor); };
        case Qt::Key_V:
            return [](EditorViewModel &editor) { editor.pasteWords(); };
        case Qt::Key_X:
            return [](EditorViewModel &editor) {
                putOnClipboard(editor);
                editor.cutSelectedWords();
            };
        case Qt::Key_A:
            return [](EditorViewModel &editor) { editor.selectAllInParagraph(); };
        case Qt::Key_S:
            return [](EditorViewModel &editor) { editor.save(); };
        case Qt::Key_F:
            return [](EditorViewModel &editor) { editor.setShowSearchBar(true); };
        case Qt::Key_Y:
        case Qt::Key_Z:
            if (key.key() == Qt::Key_Y || modifiers.testFlag(Qt::ShiftModifier))
                return [](EditorViewModel &editor) {
                    editor.undoManager().redo();
                    editor.syncProject();
                };
            return [](EditorViewModel &editor) {
                editor.undoManager().undo();
                editor.syncProject();
            };
        default:
            break; // Ctrl+B and the rest belong to whoever has the focus.
        }
    }

    if ((key.key() == Qt::Key_Return || key.key() == Qt::Key_Enter)
        && !(modifiers & ~Qt::KeypadModifier))
        return [](EditorViewModel &editor) { editor.splitParagraphAtCursor(); };

    if (key.key() == Qt::Key_F2 && !(modifiers & ~Qt::KeypadModifier))
        return [](EditorViewModel &editor) { editor.requestWordCorrection(); };
    if (key.key() == Qt::Key_F8 && !(modifiers & ~(Qt::KeypadModifier | Qt::ShiftModifier))) {
        const bool forward = !modifiers.testFlag(Qt::ShiftModifier);
        return [forward](EditorViewModel &editor) { editor.goToWordToCheck(forward); };
    }

    // Space plays and pauses, as in every player; a held key does not flicker it.
    if (key.key() == Qt::Key_Space && !(modifiers & ~Qt::KeypadModifier)) {
        if (key.isAutoRepeat())
            return [](EditorViewModel &) {};
        return [](EditorViewModel &editor) { editor.playerVM().togglePlayPause(); };
    }

    const bool extend = modifiers.testFlag(Qt::ShiftModifier);
    if (key.key() == Qt::Key_Left) {
        return [extend](EditorViewModel &editor) {
            if (!extend) {
                editor.moveCursorLeft();
                return;
            }
            editor.extendSelection(std::max<qsizetype>(editor.cursorPosition() - 1, 0));
        };
    }
    if (key.key() == Qt::Key_Right) {
        return [extend](EditorViewModel &editor) {
            if (!extend) {
                editor.moveCursorRight();
                return;
            }
            const auto id = editor.cursorParagraphId();
            if (!id)
                return;
            const auto &paragraphs = editor.paragraphs();
            const auto it = std::find_if(paragraphs.cbegin(), paragraphs.cend(),
                                         [&](const Paragraph &p) { return p.id == *id; });
            if (it == paragraphs.cend())
                return;
            editor.extendSelection(std::min(editor.cursorPosition() + 1, it->wordBlocks.size()));
        };
    }
    return {};
}

bool KeyboardShortcutHandler::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride)
        return QObject::eventFilter(watched, event);
    if (!m_editor || !isKeyForWindowOf(*this, watched) || textInputHasFocus())
        return false;

    const auto *key = static_cast<QKeyEvent *>(event);
    // Enter on a focused button presses the button.
    if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter)
        && qobject_cast<QAbstractButton *>(QApplication::focusWidget()))
        return false;
    Action action = actionFor(*key);
    if (!action)
        return false;

    // Claim the key before any menu shortcut does; the press that follows carries the
    // action.
    if (type == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    QPointer<EditorViewModel> editor = m_editor;
    QMetaObject::invokeMethod(
        editor.data(),
        [editor, action = std::move(action)] {
            if (EditorViewModel *target = editor.data())
                action(*target);
        },
        Qt::QueuedConnection);
    return true;
}

} // namespace kavel::ui
