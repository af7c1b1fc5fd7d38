#pragma once

#include "support/editorfixture.h"

#include <QApplication>
#include <QTest>
#include <QWidget>

namespace kavel::test {

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
};

} // namespace kavel::test
