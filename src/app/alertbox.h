#pragma once

#include <QString>

class QMessageBox;
class QWidget;

namespace kavel::app {

// A warning over `parent` with one 确定 button, window-modal and deleted when closed. It is
// open when returned; callers keep it to find it again (tests, screenshots).
QMessageBox *openWarning(QWidget *parent, const QString &title, const QString &text);

} // namespace kavel::app
