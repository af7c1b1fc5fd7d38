#include "ui/transcript/deletekeyhandler.h"
#include "ui/transcript/keyboardshortcuthandler.h"
#include "ui/transcript/magnetictextstripview.h"
#include "uifixture.h"

#include <QClipboard>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;

namespace {

// Stands for whatever widget has the focus: records the keys that reach it.
class KeyProbe : public QWidget
{
public:
    using QWidget::QWidget;
    QList<QKeyCombination> received;

protected:
    void keyPressEvent(QKeyEvent *event) override
    {
        // The modifier keys themselves arrive too; only the chords matter here.
        const int key = event->key();
        if (key != Qt::Key_Control && key != Qt::Key_Shift)
            received.append(event->keyCombination());
    }
};

class KeyboardTest : public test::UiFixture
{
protected:
    KeyboardShortcutHandler *shortcuts = nullptr;
    DeleteKeyHandler *deleteKey = nullptr;
    KeyProbe *probe = nullptr;
    QLineEdit *search = nullptr;
    int deletes = 0;

    void SetUp() override
    {
        openTranscript({{u"a"_s, u"b"_s, u"c"_s}, {u"d"_s, u"e"_s}});
        auto *layout = new QVBoxLayout(&window);
        search = new QLineEdit(&window);
        probe = new KeyProbe(&window);
        probe->setFocusPolicy(Qt::StrongFocus);
        shortcuts = new KeyboardShortcutHandler(vm, &window);
        deleteKey = new DeleteKeyHandler(&window);
        deleteKey->setOnDelete([this](bool forward) {
            ++deletes;
            vm.deleteAtCursor(forward);
        });
        for (QWidget *widget : QWidgetList {search, probe, shortcuts, deleteKey})
            layout->addWidget(widget);
        showWindow({300, 200});
        probe->setFocus();
        ASSERT_EQ(QApplication::focusWidget(), probe);
    }

    // Types into whatever has the focus, then lets the queued actions run.
    void press(const QList<QKeyCombination> &keys)
    {
        for (const QKeyCombination key : keys) {
            QTest::keyClick(QApplication::focusWidget(), key.key(), key.keyboardModifiers());
            QCoreApplication::processEvents();
        }
    }
};

} // namespace

TEST_F(KeyboardTest, ArrowsShortcutsAndSpaceDriveTheEditorAndOtherKeysPassThrough)
{
    vm.setCursor(paragraph(0).id, 1);
    press({Qt::Key_Left});
    expectCursor(0, 0, {});
    press({Qt::Key_Right, Qt::Key_Right});
    expectCursor(0, 2, {});
    press({Qt::ShiftModifier | Qt::Key_Left, Qt::ShiftModifier | Qt::Key_Left});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"a"_s, u"b"_s}));

    // Shift+Right stops at the paragraph's end; a plain arrow ends the selection and the
    // cursor stays in its paragraph.
    press(QList<QKeyCombination>(5, Qt::ShiftModifier | Qt::Key_Right));
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"c"_s}));
    press({Qt::Key_Right});
    expectCursor(0, 3, {});

    // The control shortcuts run the editor's commands.
    press({Qt::ControlModifier | Qt::Key_A});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"a"_s, u"b"_s, u"c"_s}));

    // Cut puts the words on the clipboard too; Ctrl+Shift+Z and Ctrl+Y both redo.
    QApplication::clipboard()->clear();
    press({Qt::ControlModifier | Qt::Key_X});
    EXPECT_EQ(text(), u"d e"_s);
    EXPECT_EQ(QApplication::clipboard()->text(), u"a b c"_s);
    for (const QKeyCombination redo :
         {Qt::ControlModifier | Qt::ShiftModifier | Qt::Key_Z, Qt::ControlModifier | Qt::Key_Y}) {
        press({Qt::ControlModifier | Qt::Key_Z});
        EXPECT_EQ(text(), u"a b c | d e"_s);
        press({redo});
        EXPECT_EQ(text(), u"d e"_s);
    }
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs()) << "undo and redo refresh the project";

    vm.setCursor(paragraph(0).id, 2);
    press({Qt::ControlModifier | Qt::Key_V});
    EXPECT_EQ(text(), u"d e a b c"_s);
    EXPECT_EQ(vm.cursorPosition(), 5) << "after the pasted words";

    // Enter splits the paragraph at the caret, unless a button has the focus.
    vm.setCursor(paragraph(0).id, 3);
    press({Qt::Key_Return});
    EXPECT_EQ(text(), u"d e a | b c"_s);
    press({Qt::ControlModifier | Qt::Key_Z});
    auto *button = new QPushButton(u"关闭"_s, &window);
    button->show();
    button->setFocus();
    press({Qt::Key_Return});
    EXPECT_EQ(text(), u"d e a b c"_s);
    delete button;
    probe->setFocus();

    press({Qt::ControlModifier | Qt::Key_F});
    EXPECT_TRUE(vm.showSearchBar());
    press({Qt::ControlModifier | Qt::Key_S});
    EXPECT_TRUE(vm.lastSavedAt().has_value());
    EXPECT_TRUE(probe->received.isEmpty());

    // Space plays and pauses; other keys reach the focused widget.
    vm.setCursor(paragraph(0).id, 1);
    press({Qt::Key_Space});
    EXPECT_TRUE(vm.playerVM().isPlaying());
    QTest::keyPress(QApplication::focusWidget(), Qt::Key_Space, {}, -1);
    QKeyEvent held(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, u" "_s, true);
    QApplication::sendEvent(QApplication::focusWidget(), &held);
    QCoreApplication::processEvents();
    EXPECT_FALSE(vm.playerVM().isPlaying()) << "a held Space toggles once";

    const QList<QKeyCombination> others {Qt::ControlModifier | Qt::Key_B, Qt::Key_Up,
                                         Qt::ShiftModifier | Qt::Key_Return,
                                         Qt::ShiftModifier | Qt::Key_Space, Qt::Key_Escape};
    press(others);
    EXPECT_EQ(probe->received, others);
    EXPECT_EQ(vm.cursorPosition(), 1);
    EXPECT_EQ(text(), u"d e a b c"_s);

    // F8 and Shift+F8 step through the words to check; Ctrl+F8 is not theirs.
    QList<Paragraph> doubted = vm.paragraphs();
    doubted[0].wordBlocks[1].confidence = 0.2;
    doubted[0].wordBlocks[3].confidence = 0.4;
    openParagraphs(doubted);
    press({Qt::Key_F8});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"e"_s}));
    press({Qt::Key_F8});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"b"_s}));
    press({Qt::ShiftModifier | Qt::Key_F8});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"e"_s}));
    probe->received.clear();
    press({Qt::ControlModifier | Qt::Key_F8});
    EXPECT_EQ(probe->received, QList<QKeyCombination> {Qt::ControlModifier | Qt::Key_F8});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"e"_s}));
}

TEST_F(KeyboardTest, DeleteKeysAreAlwaysConsumedAndDeleteAroundTheCaretWhileShown)
{
    press({Qt::Key_Delete});
    EXPECT_EQ(deletes, 1) << "consumed even with nothing to delete";
    EXPECT_EQ(text(), u"a b c | d e"_s);
    vm.setCursor(paragraph(0).id, 2);
    press({Qt::Key_Backspace});
    EXPECT_EQ(text(), u"a c | d e"_s);
    press({Qt::Key_Delete});
    EXPECT_EQ(text(), u"a | d e"_s) << "Delete takes the word after the caret";
    press({Qt::Key_Delete});
    EXPECT_EQ(text(), u"a d e"_s) << "at the end it joins the next paragraph";
    EXPECT_TRUE(probe->received.isEmpty());

    // Hidden, the handlers let the keys through to the focused widget.
    shortcuts->hide();
    deleteKey->hide();
    press({Qt::ControlModifier | Qt::Key_F, Qt::Key_Backspace});
    EXPECT_FALSE(vm.showSearchBar());
    EXPECT_EQ(deletes, 4);
    EXPECT_EQ(probe->received.size(), 2);
    shortcuts->show();
    press({Qt::ControlModifier | Qt::Key_F});
    EXPECT_TRUE(vm.showSearchBar());
}

TEST_F(KeyboardTest, KeysForATextFieldOrAnotherWindowStayThere)
{
    vm.setCursor(paragraph(0).id, 2);
    search->setFocus();
    QTest::keyClicks(search, u"x yz"_s);
    press({Qt::Key_Left, Qt::Key_Backspace});
    EXPECT_EQ(search->text(), u"x z"_s);
    press({Qt::ControlModifier | Qt::Key_Z});
    EXPECT_EQ(search->text(), u"x yz"_s) << "the field's own undo";
    press({Qt::ControlModifier | Qt::Key_A, Qt::Key_Delete});
    EXPECT_EQ(search->text(), QString());
    press({Qt::Key_Space});
    EXPECT_FALSE(vm.playerVM().isPlaying());

    // A dialog over the editor, its focus on a widget that is not a text field.
    QWidget dialog(&window, Qt::Dialog);
    auto *button = new KeyProbe(&dialog);
    button->setFocusPolicy(Qt::StrongFocus);
    dialog.show();
    QApplication::setActiveWindow(&dialog);
    ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
    button->setFocus();
    ASSERT_EQ(QApplication::focusWidget(), button);
    const QList<QKeyCombination> editing {Qt::Key_Backspace, Qt::Key_Delete,
                                          Qt::ShiftModifier | Qt::Key_Left,
                                          Qt::ControlModifier | Qt::Key_Z};
    press(editing);
    EXPECT_EQ(button->received, editing);

    EXPECT_EQ(deletes, 0);
    expectCursor(0, 2, {});
    EXPECT_FALSE(vm.undoManager().canUndo()) << "the text is untouched";
}
