#include "mainwindow.h"

#include "alertbox.h"
#include "editor/editorviewmodel.h"
#include "editor/importpipeline.h"
#include "export/exportflow.h"
#include "homepage.h"
#include "importcover.h"
#include "maineditorview.h"
#include "model/errors.h"
#include "model/kavelproject.h"
#include "model/projectstore.h"
#include "previewloudnesstoggle.h"
#include "projectactions.h"
#include "screens.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "service/recognitionlanguage.h"
#include "service/settings.h"
#include "symbolicons.h"

#include <QButtonGroup>
#include <QCloseEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

struct SidebarEntry
{
    const char *label; // translated when shown
    QString symbol;
    NavigationItem destination;
};

const QList<SidebarEntry> &sidebarEntries()
{
    static const QList<SidebarEntry> entries {
        {QT_TRANSLATE_NOOP("kavel::app::MainWindow", "首页"), u"house.fill"_s,
         NavigationItem::home},
        {QT_TRANSLATE_NOOP("kavel::app::MainWindow", "指南"), u"book.fill"_s,
         NavigationItem::guide},
        {QT_TRANSLATE_NOOP("kavel::app::MainWindow", "我的"), u"person.fill"_s,
         NavigationItem::account},
    };
    return entries;
}

} // namespace

MainWindow::MainWindow(ShellServices services, QWidget *parent)
    : QMainWindow(parent)
    , m_services(std::move(services))
    , m_editor(*m_services.editor)
{
    Q_ASSERT(m_services.editor && m_services.imports && m_services.appState && m_services.settings
             && m_services.store);
    setWindowTitle(u"Kavel"_s);
    resize(defaultSize);

    auto *central = new QWidget(this);
    central->setMinimumSize(minimumContentSize);
    auto *layout = new QHBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildSidebar());

    m_stack = new QStackedWidget(central);
    m_home = new HomePage(
        m_editor, *m_services.store,
        [this] {
            return m_services.pickMedia
                ? m_services.pickMedia(EditorViewModel::importPickerRequest().message)
                : QList<QUrl> {};
        },
        [this] { return m_services.appState->isAuthenticated(); }, m_stack);
    m_home->setImports(m_services.imports);
    m_home->setLeaveGuard(
        [this](std::function<void()> proceed) { whenDocumentMayBeLeft(std::move(proceed)); });
    m_editorView = new MainEditorView(m_editor, m_stack);
    m_editorView->setImports(m_services.imports);
    m_placeholder = new ProjectPlaceholder(m_stack);
    m_guide = new GuidePage(m_services.makeGuidePlayer, m_stack);
    m_settingsPage = new SettingsPage(*m_services.settings, m_services.pickFolder, m_stack);
    m_account = new AccountPage(*m_services.appState, m_stack);
    for (QWidget *w : {static_cast<QWidget *>(m_home), static_cast<QWidget *>(m_editorView),
                       static_cast<QWidget *>(m_placeholder), m_guide, m_settingsPage, m_account})
        m_stack->addWidget(w);
    layout->addWidget(m_stack, 1);
    setCentralWidget(central);
    buildMenu();

    connect(m_home, &HomePage::openProjectRequested, this, &MainWindow::openProject);
    connect(m_placeholder, &ProjectPlaceholder::importRequested, m_home, &HomePage::pickAndImport);
    connect(m_placeholder, &ProjectPlaceholder::openRequested, this,
            &MainWindow::openProjectFromPicker);
    // The placeholder gives way once there is something to edit or to wait for.
    const auto refreshEditorScreen = [this] {
        if (m_selection == NavigationItem::editor)
            m_stack->setCurrentWidget(screenFor(NavigationItem::editor));
    };
    connect(&m_editor, &EditorViewModel::projectChanged, this, refreshEditorScreen);
    connect(m_editorView, &MainEditorView::backRequested, this, [this] {
        whenDocumentMayBeLeft([this] {
            // Undo belongs to one stretch of work on a document; leaving it ends that.
            m_editor.undoManager().clear();
            navigate(NavigationItem::home);
        });
    });
    connect(m_editorView, &MainEditorView::renameRequested, this, [this](const QString &title) {
        if (!m_editor.project())
            return;
        const QString refused = renameProject(m_editor, *m_services.store, m_services.imports,
                                              m_editor.project()->bundlePath(), title);
        if (!refused.isEmpty())
            showError(refused);
    });
    connect(static_cast<AccountPage *>(m_account), &AccountPage::signInRequested, this,
            &MainWindow::showLoginSheet);
    connect(static_cast<SettingsPage *>(m_settingsPage), &SettingsPage::closeRequested, this,
            [this] { navigate(NavigationItem::home); });

    connect(&m_editor, &EditorViewModel::navigateToEditorChanged, this, [this] {
        if (!m_editor.navigateToEditor())
            return;
        m_editor.setNavigateToEditor(false);
        navigate(NavigationItem::editor);
    });
    connect(&m_editor, &EditorViewModel::showLoginRequiredChanged, this, [this] {
        if (m_editor.showLoginRequired())
            showLoginRequired();
    });
    connect(&m_editor, &EditorViewModel::showImportConfirmChanged, this, [this] {
        if (m_editor.showImportConfirm())
            showImportConfirm();
    });
    connect(&m_editor, &EditorViewModel::showExportSheetChanged, this, [this] {
        if (m_editor.showExportSheet())
            showExportSheet();
    });
    m_editorView->exportButton()->setVisible(bool(m_services.makeExportFlow));
    connect(m_services.appState, &service::AppState::showLoginSheetChanged, this, [this] {
        if (m_services.appState->showLoginSheet())
            showLoginSheet();
    });

    navigate(NavigationItem::home);
}

MainWindow::~MainWindow() = default;

QWidget *MainWindow::buildSidebar()
{
    auto *sidebar = new QWidget(this);
    sidebar->setFixedWidth(180);
    sidebar->setAutoFillBackground(true);
    QPalette tint = sidebar->palette();
    tint.setColor(QPalette::Window, tint.color(QPalette::Window).darker(106));
    sidebar->setPalette(tint);
    auto *layout = new QVBoxLayout(sidebar);
    layout->setContentsMargins(12, 18, 12, 12);
    layout->setSpacing(4);

    auto *name = new QLabel(u"Kavel"_s, sidebar);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    name->setFont(big);
    layout->addWidget(name);
    layout->addSpacing(16);

    m_sidebarButtons = new QButtonGroup(this);
    m_sidebarButtons->setExclusive(true);
    for (const SidebarEntry &entry : sidebarEntries()) {
        auto *button = new QToolButton(sidebar);
        button->setText(tr(entry.label));
        button->setIcon(symbolIcon(entry.symbol));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setCheckable(true);
        button->setAutoRaise(true);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        button->setMinimumHeight(34);
        m_sidebarButtons->addButton(button, int(entry.destination));
        layout->addWidget(button);
        const NavigationItem destination = entry.destination;
        connect(button, &QToolButton::clicked, this,
                [this, destination] { navigate(destination); });
    }
    layout->addStretch(1);
    return sidebar;
}

void MainWindow::buildMenu()
{
    QMenu *file = menuBar()->addMenu(tr("文件"));
    // The import goes through the editor, which asks for sign-in before showing a picker.
    m_import
        = file->addAction(tr("导入新视频…"), this, [this] { m_editor.openFilePickerForImport(); });
    m_import->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    m_open = file->addAction(tr("打开项目…"), this, &MainWindow::openProjectFromPicker);
    m_open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    file->addSeparator();
    m_exportAction
        = file->addAction(tr("导出…"), this, [this] { m_editor.setShowExportSheet(true); });
    m_exportAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    connect(&m_editor, &EditorViewModel::projectChanged, this, &MainWindow::refreshExportAction);
    connect(m_services.imports, &ImportPipeline::jobChanged, this,
            &MainWindow::refreshExportAction);
    refreshExportAction();

    QMenu *edit = menuBar()->addMenu(tr("编辑"));
    m_undo = edit->addAction(tr("撤销"));
    m_undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    m_redo = edit->addAction(tr("重做"));
    m_redo->setShortcut(QKeySequence(Qt::SHIFT | Qt::CTRL | Qt::Key_Z));
    // Window-wide, so the commands reach the editor whichever widget has the focus.
    m_undo->setShortcutContext(Qt::ApplicationShortcut);
    m_redo->setShortcutContext(Qt::ApplicationShortcut);
    connect(m_undo, &QAction::triggered, this, [this] { m_editor.undoManager().undo(); });
    connect(m_redo, &QAction::triggered, this, [this] { m_editor.undoManager().redo(); });
    edit->addSeparator();
    // The transcript claims F8 itself while it is shown; the menu names the keys and
    // serves a click.
    QAction *nextToCheck
        = edit->addAction(tr("下一个待核对的词"), this, [this] { m_editor.goToWordToCheck(true); });
    nextToCheck->setShortcut(QKeySequence(Qt::Key_F8));
    QAction *previousToCheck = edit->addAction(tr("上一个待核对的词"), this,
                                               [this] { m_editor.goToWordToCheck(false); });
    previousToCheck->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_F8));
    edit->addSeparator();
    edit->addAction((new PreviewLoudnessToggle(m_editor, this))->action());
    QMenu *settings = menuBar()->addMenu(tr("设置"));
    settings->addAction(tr("偏好设置…"), this, [this] { navigate(NavigationItem::settings); })
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
}

void MainWindow::openProjectFromPicker()
{
    if (!m_services.pickFolder)
        return;
    // Bundles are folders; the user's own live in the projects folder.
    const QString bundle
        = m_services.pickFolder(tr("选择 .kavel 项目文件"), m_services.store->directory());
    if (!bundle.isEmpty())
        openProject(QUrl::fromLocalFile(bundle));
}

void MainWindow::refreshExportAction()
{
    // Like the editor's export button: there is nothing to export before a project is open
    // or while its transcript is still being made.
    const ImportJob *job = m_editor.project()
        ? m_services.imports->jobFor(m_editor.project()->bundlePath())
        : nullptr;
    m_exportAction->setEnabled(m_services.makeExportFlow && m_editor.project()
                               && !(job && job->isActive()));
}

QToolButton *MainWindow::sidebarButton(NavigationItem item) const
{
    return qobject_cast<QToolButton *>(m_sidebarButtons->button(int(item)));
}

QWidget *MainWindow::screenFor(NavigationItem item) const
{
    switch (item) {
    case NavigationItem::home:
    case NavigationItem::projects:
        return m_home;
    case NavigationItem::editor:
        return editorHasContent() ? static_cast<QWidget *>(m_editorView)
                                  : static_cast<QWidget *>(m_placeholder);
    case NavigationItem::guide:
        return m_guide;
    case NavigationItem::settings:
        return m_settingsPage;
    case NavigationItem::account:
        return m_account;
    }
    return m_home;
}

bool MainWindow::editorHasContent() const
{
    return m_editor.project() != nullptr;
}

QWidget *MainWindow::currentScreen() const
{
    return m_stack->currentWidget();
}

void MainWindow::navigate(NavigationItem item)
{
    m_stack->setCurrentWidget(screenFor(item));
    if (QAbstractButton *button = m_sidebarButtons->button(int(item))) {
        button->setChecked(true);
    } else if (QAbstractButton *checked = m_sidebarButtons->checkedButton()) {
        // No entry stands for this screen: none is highlighted.
        m_sidebarButtons->setExclusive(false);
        checked->setChecked(false);
        m_sidebarButtons->setExclusive(true);
    }
    if (item == m_selection)
        return;
    m_selection = item;
    Q_EMIT navigationSelectionChanged();
}

void MainWindow::openProject(const QUrl &bundleUrl)
{
    whenDocumentMayBeLeft([this, bundleUrl] {
        // A successful open replaces the project object; a failed one only changes the
        // status.
        const KavelProject *before = m_editor.project();
        // A project being imported is shared with its import, which fills it in.
        const ImportJob *job = m_services.imports->jobFor(bundleUrl.toLocalFile());
        if (job && job->isActive()) {
            m_editor.openProject(job->project());
            navigate(NavigationItem::editor);
            return;
        }
        m_editor.openProject(bundleUrl);
        if (!m_editor.project() || m_editor.project() == before) {
            showError(m_editor.processingStatus());
            return;
        }
        navigate(NavigationItem::editor);
        if (!m_editor.project()->timelineLoadError().isEmpty())
            reportDamagedTranscript();
        else
            offerRecovery();
    });
}

void MainWindow::openFiles(const QStringList &paths)
{
    QList<QUrl> media;
    std::optional<QUrl> bundle;
    for (const QString &path : paths) {
        const QUrl url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        if (path.endsWith(u".kavel"_s) || path.endsWith(u".kavel/"_s)) {
            if (!bundle)
                bundle = url;
        } else if (QFileInfo(path).isFile()) {
            media.append(url);
        }
    }
    if (isMinimized())
        showNormal();
    raise();
    activateWindow();
    if (bundle)
        openProject(*bundle);
    else if (!media.isEmpty())
        m_home->startImport(media);
}

// Said on every open of such a project, in the editor: it looks empty, and without a
// word the user would take the transcript for lost or start over on top of it.
void MainWindow::reportDamagedTranscript()
{
    const KavelProject &project = *m_editor.project();
    // The editor says it only when its status changes, which a second open does not.
    m_editorView->processingOverlay()->showNotice(m_editor.processingStatus());
    QString text
        = tr("项目“%1”的转写稿无法读取，项目打开时没有文字。").arg(project.metadata().title);
    if (const auto &backup = project.damagedTimelineBackup())
        text += tr("\n\n损坏的转写稿已备份到：\n%1").arg(*backup);
    auto *box = new QMessageBox(QMessageBox::Warning, tr("转写稿无法读取"), text,
                                QMessageBox::NoButton, this);
    box->setInformativeText(project.timelineLoadError());
    box->addButton(tr("确定"), QMessageBox::AcceptRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    connect(box, &QMessageBox::finished, this, &MainWindow::offerRecovery);
    m_alert = box;
    box->open();
}

void MainWindow::startImport(const QList<QUrl> &urls, const QString &language)
{
    ImportJob *job = nullptr;
    try {
        if (!language.isEmpty() && m_services.settings)
            m_services.settings->setLastRecognitionLanguage(language);
        job = m_services.imports->start(urls, language);
    } catch (const Error &error) {
        showError(tr("无法创建项目: ") + error.description());
        return;
    }
    openProject(QUrl::fromLocalFile(job->bundlePath()));
}

void MainWindow::whenImportsMayStop(std::function<void()> proceed)
{
    const int running = m_services.imports->activeCount();
    if (running == 0) {
        proceed();
        return;
    }
    auto *box = new QMessageBox(
        QMessageBox::Warning, u"Kavel"_s,
        tr("还有 %1 个项目正在导入。现在退出会中断导入，这些项目将标记为导入失败。确定退出吗？")
            .arg(running),
        QMessageBox::NoButton, this);
    QPushButton *quit = box->addButton(tr("退出"), QMessageBox::DestructiveRole);
    box->addButton(tr("取消"), QMessageBox::RejectRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, quit, proceed] {
        if (box->clickedButton() != quit)
            return;
        m_services.imports->interruptAll();
        proceed();
    });
    m_alert = box;
    box->open();
}

void MainWindow::offerRecovery()
{
    if (!m_editor.recoverableEdits())
        return;
    auto *box = new QMessageBox(QMessageBox::Question, u"Kavel"_s, tr("恢复未保存的修改？"),
                                QMessageBox::NoButton, this);
    QPushButton *restore = box->addButton(tr("恢复"), QMessageBox::AcceptRole);
    box->addButton(tr("放弃"), QMessageBox::DestructiveRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, restore] {
        if (box->clickedButton() == restore)
            m_editor.restoreRecoverableEdits();
        else
            m_editor.discardRecoverableEdits();
    });
    m_alert = box;
    box->open();
}

void MainWindow::whenDocumentMayBeLeft(std::function<void()> proceed)
{
    if (!m_editor.hasUnsavedChanges()) {
        proceed();
        return;
    }
    auto *box = new QMessageBox(QMessageBox::Warning, u"Kavel"_s,
                                tr("项目有未保存的修改，是否保存？"), QMessageBox::NoButton, this);
    QPushButton *save = box->addButton(tr("保存"), QMessageBox::AcceptRole);
    QPushButton *discard = box->addButton(tr("不保存"), QMessageBox::DestructiveRole);
    box->addButton(tr("取消"), QMessageBox::RejectRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, save, discard, proceed] {
        if (box->clickedButton() == save) {
            if (!m_editor.save()) {
                showError(m_editor.processingStatus());
                return;
            }
        } else if (box->clickedButton() == discard) {
            m_editor.discardUnsavedChanges();
        } else {
            return;
        }
        proceed();
    });
    m_alert = box;
    box->open();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_mayClose || (!m_editor.hasUnsavedChanges() && m_services.imports->activeCount() == 0)) {
        QMainWindow::closeEvent(event);
        return;
    }
    event->ignore();
    whenImportsMayStop([this] {
        whenDocumentMayBeLeft([this] {
            m_mayClose = true;
            close();
        });
    });
}

void MainWindow::showError(const QString &message)
{
    m_alert = openWarning(this, tr("错误"), message);
}

void MainWindow::showLoginRequired()
{
    auto *box
        = new QMessageBox(QMessageBox::Information, tr("需要登录"),
                          tr("上传视频需要登录账户，请先登录。"), QMessageBox::NoButton, this);
    QPushButton *signIn = box->addButton(tr("去登录"), QMessageBox::AcceptRole);
    box->addButton(tr("取消"), QMessageBox::RejectRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, signIn] {
        m_editor.setShowLoginRequired(false);
        if (box->clickedButton() == signIn)
            m_services.appState->setShowLoginSheet(true);
        else
            m_home->finishImportAfterSignIn();
    });
    m_alert = box;
    box->open();
}

void MainWindow::showImportConfirm()
{
    if (m_importConfirm)
        return;
    auto *dialog = new ImportConfirmDialog(m_editor, m_services.pickMedia, this);
    dialog->setLanguage(service::initialLanguage(
        m_services.settings ? m_services.settings->lastRecognitionLanguage() : QString(),
        QLocale().name()));
    if (m_services.apiClient)
        QCoro::connect(offerRecognitionLanguages(dialog), this, [] {});
    connect(dialog, &ImportConfirmDialog::importConfirmed, this, &MainWindow::startImport);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::finished, this, [this] { m_editor.setShowImportConfirm(false); });
    m_importConfirm = dialog;
    dialog->open();
}

QCoro::Task<> MainWindow::offerRecognitionLanguages(QPointer<ImportConfirmDialog> dialog)
{
    try {
        const service::RecognitionLanguages heard
            = co_await m_services.apiClient->recognitionLanguages();
        if (dialog)
            dialog->setServiceLanguages(heard.languages);
    } catch (const std::exception &) {
        // A service that cannot say is offered every language; its upload decides.
    }
}

void MainWindow::showLoginSheet()
{
    if (m_loginDialog || !m_services.login)
        return;
    auto *dialog = new LoginDialog(*m_services.login, *m_services.appState, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::finished, this, [this] {
        m_services.appState->setShowLoginSheet(false);
        // Files dropped while signed out go on to the import once the user is in.
        m_home->finishImportAfterSignIn();
    });
    m_loginDialog = dialog;
    dialog->open();
}

void MainWindow::showExportSheet()
{
    if (m_exportDialog || !m_services.makeExportFlow) {
        m_editor.setShowExportSheet(false);
        return;
    }
    std::unique_ptr<ExportFlow> flow = m_services.makeExportFlow();
    auto *dialog = new ExportDialog(*flow, m_editor, m_services.pickFolder, this);
    // The next export starts where this one went, unless a default folder is set.
    service::Settings *settings = m_services.settings;
    connect(flow.get(), &ExportFlow::exportStarted, dialog,
            [settings](const QString &folder) { settings->setLastExportPath(folder); });
    flow->setParent(dialog); // the flow lives as long as its dialog
    flow.release();
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::finished, this, [this] { m_editor.setShowExportSheet(false); });
    m_exportDialog = dialog;
    dialog->open();
}

} // namespace kavel::app
