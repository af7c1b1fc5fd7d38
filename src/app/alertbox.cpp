#include "alertbox.h"

#include <QCoreApplication>
#include <QMessageBox>

using namespace Qt::StringLiterals;

namespace kavel::app {

QMessageBox *openWarning(QWidget *parent, const QString &title, const QString &text)
{
    auto *box = new QMessageBox(QMessageBox::Warning, title, text, QMessageBox::NoButton, parent);
    box->addButton(QCoreApplication::translate("kavel::app::AlertBox", "确定"),
                   QMessageBox::AcceptRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->open();
    return box;
}

} // namespace kavel::app
