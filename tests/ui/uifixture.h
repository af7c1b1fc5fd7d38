#pragma once

#include "support/editorfixture.h"

#include <QApplication>
#include <QMouseEvent>
#include <QTest>
#include <QVBoxLayout>
#include <QWidget>

namespace kavel::test {

// A mouse event sent straight to `target`: a move carries the held buttons, a press or
// release the left button.
inline void sendMouse(QWidget *target, QEvent::Type type, QPointF pos, Qt::MouseButtons buttons,
                      Qt::KeyboardModifiers modifiers = {})
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, pos, target->mapToGlobal(pos), button, buttons, modifiers);
    QApplication::sendEvent(target, &event);
}

// The editor fixture with an hour-long source and a top-level window to put widgets in.
class UiFixture : public EditorFixture
{
protected:
    UiFixture()
    {
        mediaSeconds = 3600.0;
        projectTitle = QStringLiteral("Widgets");
    }

    QWidget window;

    void showWindow(QSize size)
    {
        window.resize(size);
        window.show();
        QApplication::setActiveWindow(&window);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }

    // Fills the window with `widget` alone and shows it.
    template<class Widget> Widget *showAlone(Widget *widget, QSize size)
    {
        auto *layout = new QVBoxLayout(&window);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(widget);
        showWindow(size);
        return widget;
    }

    // The cursor stands at `position` in paragraph `p` with the words `selected` selected.
    void expectCursor(qsizetype p, qsizetype position, const QStringList &selected)
    {
        EXPECT_EQ(std::pair(vm.cursorParagraphId(), vm.cursorPosition()),
                  std::pair(std::optional(paragraph(p).id), position));
        EXPECT_EQ(vm.selectedBlockIds(), ids(selected));
    }
};

} // namespace kavel::test
