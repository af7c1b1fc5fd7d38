#pragma once

#include "model/projectstore.h"

#include <QFrame>
#include <QInputDialog>
#include <QMessageBox>
#include <QPointer>
#include <QUrl>
#include <functional>

class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QTimer;
class QToolButton;
class QVBoxLayout;

namespace kavel {
class EditorViewModel;
class ImportPipeline;
} // namespace kavel

namespace kavel::app {

// The projects whose lower-cased title (or bundle name) contains the trimmed, lower-cased search
// text, in the list's order; all of them for an empty search.
QList<ProjectReference> filterProjects(const QList<ProjectReference> &projects,
                                       const QString &searchText);

// The file types the import accepts, as a file-dialog name filter.
QString mediaFileFilter();

// Where media comes in: clicking asks for files, dropping hands over the dropped ones.
class UploadZone : public QFrame
{
    Q_OBJECT

public:
    explicit UploadZone(QWidget *parent = nullptr);
    bool isDragOver() const { return m_dragOver; }

Q_SIGNALS:
    void clicked();
    void filesDropped(const QList<QUrl> &urls);

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void setDragOver(bool over);
    bool m_dragOver = false;
};

// One project of the home page, as a grid card or a list row.
class ProjectCard : public QFrame
{
    Q_OBJECT

public:
    ProjectCard(const ProjectReference &reference, const std::optional<QImage> &thumbnail,
                bool asRow, QWidget *parent = nullptr);
    const ProjectReference &reference() const { return m_reference; }
    QMenu *createContextMenu();

Q_SIGNALS:
    void openRequested(const QUrl &bundleUrl);
    void revealRequested(const QString &bundlePath);
    void deleteRequested(const ProjectReference &reference);
    void renameRequested(const ProjectReference &reference);

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    ProjectReference m_reference;
};

class HomePage : public QWidget
{
    Q_OBJECT

public:
    enum class ViewMode { grid, list };
    static constexpr int gridColumns = 3;

    // `pickMedia` shows the file dialog and returns the chosen files (empty when cancelled);
    // `isSignedIn` tells whether an upload may start at all.
    HomePage(EditorViewModel &editor, ProjectStore &store, std::function<QList<QUrl>()> pickMedia,
             std::function<bool()> isSignedIn, QWidget *parent = nullptr);

    ViewMode viewMode() const { return m_viewMode; }
    void setViewMode(ViewMode mode);
    QString searchText() const;
    QList<ProjectCard *> cards() const;

    UploadZone *uploadZone() const { return m_upload; }
    QLineEdit *searchField() const { return m_search; }
    QToolButton *gridButton() const { return m_gridButton; }
    QToolButton *listButton() const { return m_listButton; }

    // Hands files to the import: they wait in the editor for the confirmation. Signed out,
    // the editor asks for a sign-in first and the files wait here for its outcome.
    void startImport(const QList<QUrl> &urls);
    // The sign-in asked for by startImport() is over: a signed-in user goes on to the
    // confirmation with the waiting files; otherwise they are dropped.
    void finishImportAfterSignIn();
    // Asks for files with the dialog, then starts their import; signed out, the dialog is
    // not shown at all.
    void pickAndImport();
    // The imports whose progress the cards show.
    void setImports(ImportPipeline *imports);

    // Asks for a new name for the project; a refusal is said in an alert.
    void askToRename(const ProjectReference &reference);
    // Moves the project to the trash and offers 撤销 for a while; a refusal (no trash,
    // open elsewhere, its import still running) is said in an alert and nothing is deleted.
    // The project open in the editor is closed first, once `whenOpenProjectMayClose` (see
    // setLeaveGuard) lets it go; when it does not, nothing is deleted.
    void deleteProject(const ProjectReference &reference);
    // Runs its argument once the open project may be left (unsaved edits answered for);
    // without one it is left at once.
    void setLeaveGuard(std::function<void(std::function<void()>)> whenOpenProjectMayClose);
    // Brings the last deleted project back while the offer stands.
    void undoDelete();
    static constexpr int undoOfferMilliseconds = 8000;

    QInputDialog *renameDialog() const { return m_renameDialog; }
    QMessageBox *alert() const { return m_alert; }
    // The bar with the 撤销 offer after a deletion.
    QWidget *undoBar() const { return m_undoBar; }
    QLabel *undoLabel() const { return m_undoLabel; }
    QPushButton *undoButton() const { return m_undoButton; }

Q_SIGNALS:
    void openProjectRequested(const QUrl &bundleUrl);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void rebuildCards();
    bool mayImport();
    void showAlert(const QString &text);
    void moveToTrash(const ProjectReference &reference);

    EditorViewModel &m_editor;
    ProjectStore &m_store;
    ImportPipeline *m_imports = nullptr;
    std::function<QList<QUrl>()> m_pickMedia;
    std::function<bool()> m_isSignedIn;
    std::function<void(std::function<void()>)> m_leaveGuard;
    QList<QUrl> m_awaitingSignIn;
    ViewMode m_viewMode = ViewMode::grid;
    UploadZone *m_upload;
    QLineEdit *m_search;
    QToolButton *m_gridButton;
    QToolButton *m_listButton;
    QWidget *m_cardsHost;
    QWidget *m_cardsContainer = nullptr;
    QVBoxLayout *m_cardsHostLayout;
    QPointer<QInputDialog> m_renameDialog;
    QPointer<QMessageBox> m_alert;
    QWidget *m_undoBar;
    QLabel *m_undoLabel;
    QPushButton *m_undoButton;
    QTimer *m_undoTimer;
    std::optional<trash::TrashedItem> m_lastDeleted;
};

} // namespace kavel::app
