#pragma once

#include <QPointer>
#include <QWidget>
#include <functional>

class QKeyEvent;

namespace kavel {
class EditorViewModel;
}

namespace kavel::ui {

// True while the focus is in a real text input (a search or title field), which must
// get its keys untouched.
bool textInputHasFocus();

// True when a key event delivered to `receiver` is typed into the window `handler` lives
// in. A dialog or menu open over the editor gets its own keys: Backspace on one of its
// buttons must not delete a word behind it.
bool isKeyForWindowOf(const QWidget &handler, const QObject *receiver);

// Copies the selected words in the editor and puts their text on the system clipboard, so
// they can be pasted into other programs too.
void putOnClipboard(EditorViewModel &editor);

// The editor's keyboard shortcuts, taken from the application's event stream before the
// focused widget sees them, so they work whichever part of the editor has the focus:
// the Ctrl chords, the arrows, Enter to split a paragraph and Space to play and pause.
// It is a zero-size widget placed in the editor screen: the filter is installed while
// the widget is shown and removed when it is hidden or destroyed. Actions run right
// after the key event has been consumed, as queued calls on the main thread.
class KeyboardShortcutHandler : public QWidget
{
    Q_OBJECT

public:
    explicit KeyboardShortcutHandler(EditorViewModel &editor, QWidget *parent = nullptr);
    ~KeyboardShortcutHandler() override;

    bool isMonitoring() const { return m_monitoring; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    using Action = std::function<void(EditorViewModel &)>;
    // The action for a key press, or nothing when the key is not ours.
    static Action actionFor(const QKeyEvent &key);
    void installMonitor();
    void removeMonitor();

    QPointer<EditorViewModel> m_editor;
    bool m_monitoring = false;
};

} // namespace kavel::ui
