#include "projecttitle.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>

using namespace Qt::StringLiterals;

namespace kavel::app {

ProjectTitle::ProjectTitle(QWidget *parent)
    : QWidget(parent)
    , m_label(new QLabel(this))
    , m_mark(new QLabel(u"●"_s, this))
    , m_field(new QLineEdit(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    QFont bold = m_label->font();
    bold.setBold(true);
    m_label->setFont(bold);
    m_label->setToolTip(tr("双击重命名"));
    m_mark->setToolTip(tr("有未保存的修改 (Ctrl+S 保存)"));
    m_mark->setAccessibleName(tr("有未保存的修改"));
    m_mark->hide();
    m_field->setAccessibleName(tr("项目名称"));
    m_field->setMinimumWidth(240);
    m_field->hide();
    m_field->installEventFilter(this);
    layout->addWidget(m_label);
    layout->addWidget(m_mark);
    layout->addWidget(m_field);
    connect(m_field, &QLineEdit::returnPressed, this, [this] { finishEditing(true); });
}

void ProjectTitle::setTitle(const QString &title)
{
    m_label->setText(title);
}

QString ProjectTitle::title() const
{
    return m_label->text();
}

void ProjectTitle::setModified(bool modified)
{
    m_modified = modified;
    m_mark->setVisible(modified && !isEditing());
}

bool ProjectTitle::isModified() const
{
    return m_modified;
}

bool ProjectTitle::isEditing() const
{
    return m_field->isVisibleTo(this);
}

void ProjectTitle::startEditing()
{
    if (m_label->text().isEmpty())
        return;
    m_field->setText(m_label->text());
    m_label->hide();
    m_mark->hide();
    m_field->show();
    m_field->setFocus();
    m_field->selectAll();
}

void ProjectTitle::finishEditing(bool keep)
{
    if (!isEditing())
        return;
    m_field->hide();
    m_label->show();
    m_mark->setVisible(m_modified);
    const QString text = m_field->text();
    if (keep && text != m_label->text())
        Q_EMIT renameRequested(text);
}

void ProjectTitle::mouseDoubleClickEvent(QMouseEvent *)
{
    startEditing();
}

bool ProjectTitle::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_field) {
        if (event->type() == QEvent::KeyPress
            && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
            finishEditing(false);
            return true;
        }
        if (event->type() == QEvent::FocusOut)
            finishEditing(true);
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace kavel::app
