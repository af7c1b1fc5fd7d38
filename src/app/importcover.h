#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace kavel {
class EditorViewModel;
class ImportJob;
class ImportPipeline;
} // namespace kavel

namespace kavel::app {

// Covers the editor, below its top bar, while the open project is being imported: the
// import's steps, its status line and how far it has come. After a failure it stays with
// the reason until closed. Other projects are never covered, whatever imports run.
class ImportCover : public QWidget
{
    Q_OBJECT

public:
    // Covers `parent` below `topBar`.
    ImportCover(EditorViewModel &editor, QWidget *topBar, QWidget *parent);

    void setImports(ImportPipeline *imports);
    // Shows `text` until closed or another project opens, unless an import covers it.
    void showNotice(const QString &text);

    QLabel *statusLabel() const { return m_status; }
    QProgressBar *progressBar() const { return m_progress; }
    QPushButton *dismissButton() const { return m_dismiss; }
    // The import's steps as the cover names them; the running one is enabled.
    const QList<QLabel *> &stepLabels() const { return m_stepLabels; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // The latest import of the open project, if any.
    ImportJob *openProjectJob() const;
    void refresh();
    void fitToParent();

    EditorViewModel &m_editor;
    QWidget *m_topBar;
    QPointer<ImportPipeline> m_imports;
    QLabel *m_status;
    QProgressBar *m_progress;
    QList<QLabel *> m_stepLabels;
    QPushButton *m_dismiss;
    // The failed import whose reason the user closed.
    QPointer<ImportJob> m_dismissed;
    // The bundle whose failed import of an earlier run the user closed.
    QString m_dismissedEarlier;
    QString m_notice;
};

} // namespace kavel::app
