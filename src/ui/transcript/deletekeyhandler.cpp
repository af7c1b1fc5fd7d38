#include "deletekeyhandler.h"

#include "keyboardshortcuthandler.h"

#include <QApplication>
#include <QKeyEvent>

namespace kavel::ui {

DeleteKeyHandler::DeleteKeyHandler(QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(0, 0);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

DeleteKeyHandler::~DeleteKeyHandler()
{
    removeMonitor();
}

void DeleteKeyHandler::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    installMonitor();
}

void DeleteKeyHandler::hideEvent(QHideEvent *event)
{
    removeMonitor();
    QWidget::hideEvent(event);
}

void DeleteKeyHandler::installMonitor()
{
    removeMonitor();
    if (qApp) {
        qApp->installEventFilter(this);
        m_monitoring = true;
    }
}

void DeleteKeyHandler::removeMonitor()
{
    if (m_monitoring && qApp)
        qApp->removeEventFilter(this);
    m_monitoring = false;
}

bool DeleteKeyHandler::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride)
        return QObject::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    if (key != Qt::Key_Backspace && key != Qt::Key_Delete)
        return false;
    if (!isKeyForWindowOf(*this, watched) || textInputHasFocus())
        return false;
    if (type == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    if (m_onDelete)
        m_onDelete(key == Qt::Key_Delete);
    return true;
}

} // namespace kavel::ui
