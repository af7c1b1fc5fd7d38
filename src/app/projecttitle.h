#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;

namespace kavel::app {

// The open project's name at the top of the editor. A double click turns it into a field:
// Enter (or leaving the field) asks for the new name, Escape keeps the old one. A dot
// after the name says the project has edits not yet saved, as text editors mark them.
class ProjectTitle : public QWidget
{
    Q_OBJECT

public:
    explicit ProjectTitle(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    QString title() const;
    void setModified(bool modified);
    bool isModified() const;
    void startEditing();
    bool isEditing() const;

    QLabel *label() const { return m_label; }
    QLabel *modifiedMark() const { return m_mark; }
    QLineEdit *field() const { return m_field; }

Q_SIGNALS:
    void renameRequested(const QString &title);

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void finishEditing(bool keep);

    QLabel *m_label;
    QLabel *m_mark;
    QLineEdit *m_field;
    bool m_modified = false;
};

} // namespace kavel::app
