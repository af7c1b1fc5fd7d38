#pragma once

#include "exportdialog.h"
#include "navigation.h"
#include "screens.h"

#include <QCoroTask>
#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QUrl>
#include <functional>
#include <memory>

class QAction;
class QButtonGroup;

class QStackedWidget;
class QToolButton;

namespace kavel {
class EditorViewModel;
class ExportFlow;
class ImportPipeline;
class ProjectStore;
namespace service {
class APIClient;
class AppState;
class LoginModel;
class Settings;
} // namespace service
} // namespace kavel

namespace kavel::app {

class HomePage;

class MainEditorView;

// What the window shows and works on; all of it outlives the window.
struct ShellServices
{
    EditorViewModel *editor = nullptr;
    ImportPipeline *imports = nullptr;
    service::AppState *appState = nullptr;
    service::Settings *settings = nullptr;
    ProjectStore *store = nullptr;
    service::LoginModel *login = nullptr;
    // Shows a file dialog for media with this title; returns the chosen files.
    std::function<QList<QUrl>(const QString &title)> pickMedia;
    FolderPicker pickFolder;
    // Makes the export flow for one export dialog; the export button has nothing to show
    // without it.
    std::function<std::unique_ptr<ExportFlow>()> makeExportFlow;
    // Makes the guide's demonstration player; the guide shows no video without it.
    GuidePlayerFactory makeGuidePlayer;
    // Asked which languages the service recognises when an import is confirmed; without
    // it every language is offered and the upload decides.
    service::APIClient *apiClient = nullptr;
};

// The application window: the sidebar, the screen of the current destination, the File
// and Edit menus and the alerts.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    static constexpr QSize defaultSize {1200, 800};
    static constexpr QSize minimumContentSize {900, 600};

    explicit MainWindow(ShellServices services, QWidget *parent = nullptr);
    ~MainWindow() override;

    NavigationItem navigationSelection() const { return m_selection; }
    void navigate(NavigationItem item);
    QWidget *currentScreen() const;

    // Opens the bundle in the editor and shows it; a bundle that cannot be read is
    // reported in an alert instead.
    void openProject(const QUrl &bundleUrl);
    // What a second start handed over: the first bundle among `paths` opens, media files
    // go to the import; the window comes to the front.
    void openFiles(const QStringList &paths);
    // Makes the project for the files, opens it and queues its import, recognised in
    // `language` (empty: the service's default); whatever else is open or importing
    // carries on.
    void startImport(const QList<QUrl> &urls, const QString &language = {});
    void showError(const QString &message);
    // Runs `proceed` once the open document may be left: at once when it has nothing
    // unsaved, else after the user chose 保存 (and the save worked) or 不保存; 取消 stops.
    void whenDocumentMayBeLeft(std::function<void()> proceed);

    // The open alert or sheet, if any (for the tests and the screenshots).
    QMessageBox *currentAlert() const { return m_alert; }
    ImportConfirmDialog *importConfirm() const { return m_importConfirm; }
    LoginDialog *loginDialog() const { return m_loginDialog; }
    ExportDialog *exportDialog() const { return m_exportDialog; }

    HomePage *homePage() const { return m_home; }
    MainEditorView *editorView() const { return m_editorView; }
    ProjectPlaceholder *projectPlaceholder() const { return m_placeholder; }
    QToolButton *sidebarButton(NavigationItem item) const;
    QAction *importAction() const { return m_import; }
    QAction *openAction() const { return m_open; }
    QAction *exportAction() const { return m_exportAction; }
    QAction *undoAction() const { return m_undo; }
    QAction *redoAction() const { return m_redo; }

Q_SIGNALS:
    void navigationSelectionChanged();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void offerRecovery();
    void reportDamagedTranscript();
    // Asks before a quit would cut imports short; runs `proceed` when there are none or
    // the user chose to quit anyway.
    void whenImportsMayStop(std::function<void()> proceed);
    QWidget *buildSidebar();
    void buildMenu();
    void openProjectFromPicker();
    void refreshExportAction();
    void showLoginRequired();
    void showImportConfirm();
    QCoro::Task<> offerRecognitionLanguages(QPointer<ImportConfirmDialog> dialog);
    void showLoginSheet();
    void showExportSheet();
    bool editorHasContent() const;
    QWidget *screenFor(NavigationItem item) const;

    ShellServices m_services;
    EditorViewModel &m_editor;
    NavigationItem m_selection = NavigationItem::home;
    QStackedWidget *m_stack = nullptr;
    QButtonGroup *m_sidebarButtons = nullptr;
    HomePage *m_home = nullptr;
    MainEditorView *m_editorView = nullptr;
    ProjectPlaceholder *m_placeholder = nullptr;
    QWidget *m_guide = nullptr;
    QWidget *m_settingsPage = nullptr;
    QWidget *m_account = nullptr;
    QAction *m_import = nullptr;
    QAction *m_open = nullptr;
    QAction *m_exportAction = nullptr;
    QAction *m_undo = nullptr;
    QAction *m_redo = nullptr;
    QPointer<QMessageBox> m_alert;
    bool m_mayClose = false;
    QPointer<ImportConfirmDialog> m_importConfirm;
    QPointer<LoginDialog> m_loginDialog;
    QPointer<ExportDialog> m_exportDialog;
};

} // namespace kavel::app
