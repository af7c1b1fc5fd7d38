#include "homepage.h"

#include "alertbox.h"
#include "editor/editorviewmodel.h"
#include "editor/importpipeline.h"
#include "filemanager.h"
#include "importbadge.h"
#include "model/errors.h"
#include "model/kavelproject.h"
#include "projectactions.h"
#include "symbolicons.h"

#include <QContextMenuEvent>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <utility>

using namespace Qt::StringLiterals;

namespace kavel::app {

QList<ProjectReference> filterProjects(const QList<ProjectReference> &projects,
                                       const QString &searchText)
{
    const QString needle = searchText.trimmed().toLower();
    if (needle.isEmpty())
        return projects;
    QList<ProjectReference> matches;
    for (const ProjectReference &p : projects) {
        if (p.title.toLower().contains(needle)
            || QFileInfo(p.bundlePath).completeBaseName().toLower().contains(needle))
            matches.append(p);
    }
    return matches;
}

QString mediaFileFilter()
{
    // MPEG-4, QuickTime, other movies, AVI, MPEG, MPEG-2, MP3, WAV, AIFF, other sound,
    // MPEG-4 audio.
    return QCoreApplication::translate("kavel::app::HomePage", "媒体文件")
        + u" (*.mp4 *.m4v *.mov *.mkv *.webm *.avi *.mpg *.mpeg *.m2v *.ts *.mp3 "
          "*.wav *.aif *.aiff *.flac *.ogg *.m4a *.aac)"_s;
}

// --- UploadZone ------------------------------------------------------------------------

UploadZone::UploadZone(QWidget *parent)
    : QFrame(parent)
{
    setAcceptDrops(true);
    setCursor(Qt::PointingHandCursor);
    setMinimumHeight(150);
    setObjectName(u"uploadZone"_s);
    auto *layout = new QVBoxLayout(this);
    layout->setAlignment(Qt::AlignCenter);
    auto *icon = new QLabel(this);
    icon->setPixmap(symbolIcon(u"square.and.arrow.up"_s).pixmap(40, 40));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    auto *text = new QLabel(tr("点击上传文件"), this);
    text->setAlignment(Qt::AlignCenter);
    layout->addWidget(text);
    setDragOver(false);
}

void UploadZone::setDragOver(bool over)
{
    m_dragOver = over;
    setStyleSheet(over
                      ? u"#uploadZone { border: 2px dashed palette(highlight); border-radius: 12px;"
                        " background: rgba(60, 120, 240, 40); }"_s
                      : u"#uploadZone { border: 2px dashed palette(mid); border-radius: 12px; }"_s);
}

void UploadZone::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void UploadZone::dragEnterEvent(QDragEnterEvent *event)
{
    if (!event->mimeData()->hasUrls())
        return;
    event->acceptProposedAction();
    setDragOver(true);
}

void UploadZone::dragLeaveEvent(QDragLeaveEvent *)
{
    setDragOver(false);
}

void UploadZone::dropEvent(QDropEvent *event)
{
    setDragOver(false);
    QList<QUrl> files;
    for (const QUrl &url : event->mimeData()->urls()) {
        if (url.isLocalFile())
            files.append(url);
    }
    if (files.isEmpty())
        return;
    event->acceptProposedAction();
    Q_EMIT filesDropped(files);
}

// --- ProjectCard -----------------------------------------------------------------------

ProjectCard::ProjectCard(const ProjectReference &reference, const std::optional<QImage> &thumbnail,
                         bool asRow, QWidget *parent)
    : QFrame(parent)
    , m_reference(reference)
{
    setFrameShape(QFrame::StyledPanel);
    setCursor(Qt::PointingHandCursor);
    setToolTip(reference.title);

    auto *picture = new QLabel(this);
    picture->setAlignment(Qt::AlignCenter);
    picture->setAutoFillBackground(true);
    QPalette plain = picture->palette();
    plain.setColor(QPalette::Window, palette().color(QPalette::AlternateBase).darker(105));
    picture->setPalette(plain);
    const QSize pictureSize = asRow ? QSize(96, 54) : QSize(240, 135);
    picture->setFixedSize(pictureSize);
    if (thumbnail)
        picture->setPixmap(QPixmap::fromImage(
            thumbnail->scaled(pictureSize, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
    else
        picture->setPixmap(symbolIcon(u"film.fill"_s).pixmap(asRow ? 24 : 48));

    auto *title = new QLabel(reference.title, this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto *details = new QLabel(dateText(reference) + u"  ·  "_s + durationText(reference)
                                   + u"  ·  "_s + sizeText(reference),
                               this);
    QPalette dim = details->palette();
    dim.setColor(QPalette::WindowText, palette().color(QPalette::PlaceholderText));
    details->setPalette(dim);

    if (asRow) {
        auto *layout = new QHBoxLayout(this);
        layout->addWidget(picture);
        layout->addWidget(title, 1);
        layout->addWidget(details);
    } else {
        auto *layout = new QVBoxLayout(this);
        layout->addWidget(picture, 0, Qt::AlignHCenter);
        layout->addWidget(title);
        layout->addWidget(details);
    }
}

QMenu *ProjectCard::createContextMenu()
{
    auto *menu = new QMenu(this);
    const QString path = m_reference.bundlePath;
    menu->addAction(tr("打开"), this,
                    [this, path] { Q_EMIT openRequested(QUrl::fromLocalFile(path)); });
    menu->addAction(tr("重命名…"), this, [this] { Q_EMIT renameRequested(m_reference); });
    menu->addAction(tr("在文件管理器中显示"), this, [this, path] { Q_EMIT revealRequested(path); });
    menu->addAction(tr("删除"), this, [this] { Q_EMIT deleteRequested(m_reference); });
    return menu;
}

void ProjectCard::mouseDoubleClickEvent(QMouseEvent *)
{
    Q_EMIT openRequested(QUrl::fromLocalFile(m_reference.bundlePath));
}

void ProjectCard::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu *menu = createContextMenu();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
}

// --- HomePage --------------------------------------------------------------------------

HomePage::HomePage(EditorViewModel &editor, ProjectStore &store,
                   std::function<QList<QUrl>()> pickMedia, std::function<bool()> isSignedIn,
                   QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
    , m_store(store)
    , m_pickMedia(std::move(pickMedia))
    , m_isSignedIn(std::move(isSignedIn))
    , m_upload(new UploadZone(this))
    , m_search(new QLineEdit(this))
    , m_gridButton(new QToolButton(this))
    , m_listButton(new QToolButton(this))
    , m_cardsHost(new QWidget)
    , m_undoBar(new QFrame(this))
    , m_undoLabel(new QLabel(m_undoBar))
    , m_undoButton(new QPushButton(tr("撤销"), m_undoBar))
    , m_undoTimer(new QTimer(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 24, 32, 16);
    layout->setSpacing(16);
    layout->addWidget(m_upload);

    auto *bar = new QHBoxLayout;
    auto *heading = new QLabel(tr("我的项目"), this);
    QFont big = heading->font();
    big.setPointSizeF(big.pointSizeF() * 1.3);
    big.setBold(true);
    heading->setFont(big);
    bar->addWidget(heading);
    bar->addStretch(1);
    m_search->setPlaceholderText(tr("搜索"));
    m_search->addAction(symbolIcon(u"magnifyingglass"_s), QLineEdit::LeadingPosition);
    m_search->setClearButtonEnabled(true);
    m_search->setMaximumWidth(240);
    bar->addWidget(m_search);
    m_gridButton->setIcon(symbolIcon(u"square.grid.2x2"_s));
    m_gridButton->setToolTip(tr("网格"));
    m_listButton->setIcon(symbolIcon(u"list.bullet"_s));
    m_listButton->setToolTip(tr("列表"));
    for (QToolButton *b : {m_gridButton, m_listButton}) {
        b->setCheckable(true);
        b->setAutoRaise(true);
        bar->addWidget(b);
    }
    m_gridButton->setChecked(true);
    layout->addLayout(bar);

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    m_cardsHostLayout = new QVBoxLayout(m_cardsHost);
    m_cardsHostLayout->setContentsMargins(0, 0, 0, 0);
    scroll->setWidget(m_cardsHost);
    layout->addWidget(scroll, 1);

    auto *undoLayout = new QHBoxLayout(m_undoBar);
    undoLayout->setContentsMargins(12, 6, 12, 6);
    undoLayout->addWidget(m_undoLabel, 1);
    undoLayout->addWidget(m_undoButton);
    m_undoBar->setObjectName(u"undoBar"_s);
    m_undoBar->setStyleSheet(
        u"#undoBar { background: #303030; border-radius: 8px; } #undoBar QLabel { color: white; }"_s);
    m_undoBar->hide();
    layout->addWidget(m_undoBar);
    m_undoTimer->setSingleShot(true);
    m_undoTimer->setInterval(undoOfferMilliseconds);
    connect(m_undoTimer, &QTimer::timeout, this, [this] {
        m_undoBar->hide();
        m_lastDeleted.reset();
    });
    connect(m_undoButton, &QPushButton::clicked, this, &HomePage::undoDelete);

    connect(m_upload, &UploadZone::clicked, this, &HomePage::pickAndImport);
    connect(m_upload, &UploadZone::filesDropped, this, &HomePage::startImport);
    connect(m_search, &QLineEdit::textChanged, this, &HomePage::rebuildCards);
    connect(m_gridButton, &QToolButton::clicked, this, [this] { setViewMode(ViewMode::grid); });
    connect(m_listButton, &QToolButton::clicked, this, [this] { setViewMode(ViewMode::list); });
    connect(&store, &ProjectStore::projectsChanged, this, &HomePage::rebuildCards);
    rebuildCards();
}

void HomePage::setViewMode(ViewMode mode)
{
    m_gridButton->setChecked(mode == ViewMode::grid);
    m_listButton->setChecked(mode == ViewMode::list);
    if (mode == m_viewMode)
        return;
    m_viewMode = mode;
    rebuildCards();
}

QString HomePage::searchText() const
{
    return m_search->text();
}

QList<ProjectCard *> HomePage::cards() const
{
    if (!m_cardsContainer)
        return {};
    return m_cardsContainer->findChildren<ProjectCard *>(Qt::FindDirectChildrenOnly);
}

bool HomePage::mayImport()
{
    if (m_isSignedIn && m_isSignedIn())
        return true;
    // The editor logs the refusal and raises the sign-in alert.
    m_editor.openFilePickerForImport(false);
    return false;
}

void HomePage::pickAndImport()
{
    if (!mayImport() || !m_pickMedia)
        return;
    startImport(m_pickMedia());
}

void HomePage::startImport(const QList<QUrl> &urls)
{
    if (urls.isEmpty())
        return;
    if (!mayImport()) {
        m_awaitingSignIn = urls;
        return;
    }
    m_editor.setPendingImportURLs(urls);
    m_editor.setShowImportConfirm(true);
}

void HomePage::finishImportAfterSignIn()
{
    const QList<QUrl> urls = std::exchange(m_awaitingSignIn, {});
    if (m_isSignedIn && m_isSignedIn())
        startImport(urls);
}

void HomePage::showAlert(const QString &text)
{
    m_alert = openWarning(this, u"Kavel"_s, text);
}

void HomePage::askToRename(const ProjectReference &reference)
{
    if (m_renameDialog)
        return;
    auto *dialog = new QInputDialog(this);
    dialog->setWindowTitle(tr("重命名项目"));
    dialog->setLabelText(tr("新的项目名称："));
    dialog->setTextValue(reference.title);
    dialog->setOkButtonText(tr("重命名"));
    dialog->setCancelButtonText(tr("取消"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const QString bundle = reference.bundlePath;
    connect(dialog, &QInputDialog::textValueSelected, this, [this, bundle](const QString &title) {
        const QString refused = renameProject(m_editor, m_store, m_imports, bundle, title);
        if (!refused.isEmpty())
            showAlert(refused);
    });
    m_renameDialog = dialog;
    dialog->open();
}

void HomePage::deleteProject(const ProjectReference &reference)
{
    // The import goes on writing into its bundle until it ends, wherever the folder went.
    if (const ImportJob *job = m_imports ? m_imports->jobFor(reference.bundlePath) : nullptr;
        job && job->isActive()) {
        showAlert(tr("无法删除：项目“%1”正在导入中，请等导入完成。").arg(reference.title));
        return;
    }
    // Nothing may go on working in the trashed bundle: the editor lets it go first, as
    // opening another project would.
    const KavelProject *open = m_editor.project();
    if (!open || QFileInfo(open->bundlePath()) != QFileInfo(reference.bundlePath)) {
        moveToTrash(reference);
        return;
    }
    const auto closeAndTrash = [this, reference] {
        const KavelProject *stillOpen = m_editor.project();
        if (stillOpen && QFileInfo(stillOpen->bundlePath()) == QFileInfo(reference.bundlePath))
            m_editor.closeProject();
        moveToTrash(reference);
    };
    if (m_leaveGuard)
        m_leaveGuard(closeAndTrash);
    else
        closeAndTrash();
}

void HomePage::setLeaveGuard(std::function<void(std::function<void()>)> whenOpenProjectMayClose)
{
    m_leaveGuard = std::move(whenOpenProjectMayClose);
}

void HomePage::moveToTrash(const ProjectReference &reference)
{
    try {
        m_lastDeleted = m_store.deleteProject(reference);
    } catch (const Error &error) {
        showAlert(error.description());
        return;
    }
    m_undoLabel->setText(tr("已将“%1”移到回收站").arg(reference.title));
    m_undoBar->show();
    m_undoTimer->start();
}

void HomePage::undoDelete()
{
    m_undoTimer->stop();
    m_undoBar->hide();
    if (!m_lastDeleted)
        return;
    const trash::TrashedItem item = *std::exchange(m_lastDeleted, std::nullopt);
    try {
        m_store.restoreProject(item);
    } catch (const Error &error) {
        showAlert(error.description());
    }
}

void HomePage::setImports(ImportPipeline *imports)
{
    m_imports = imports;
    // A new import's project gets its card at once, and a finished one its new figures.
    if (imports)
        connect(imports, &ImportPipeline::activeCountChanged, this, [this] { m_store.refresh(); });
    rebuildCards();
}

void HomePage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    m_store.refresh();
}

void HomePage::rebuildCards()
{
    // Later: the card that asked for the change may still be on the stack.
    if (m_cardsContainer) {
        m_cardsContainer->hide();
        m_cardsContainer->deleteLater();
    }
    m_cardsContainer = new QWidget(m_cardsHost);
    const QList<ProjectReference> shown = filterProjects(m_store.projects(), m_search->text());
    const bool asRows = m_viewMode == ViewMode::list;

    QGridLayout *grid = nullptr;
    QVBoxLayout *rows = nullptr;
    if (asRows) {
        rows = new QVBoxLayout(m_cardsContainer);
        rows->setSpacing(8);
    } else {
        grid = new QGridLayout(m_cardsContainer);
        grid->setHorizontalSpacing(24);
        grid->setVerticalSpacing(40);
        for (int c = 0; c < gridColumns; ++c)
            grid->setColumnStretch(c, 1);
    }
    for (qsizetype i = 0; i < shown.size(); ++i) {
        const ProjectReference &ref = shown.at(i);
        auto *card = new ProjectCard(ref, m_store.thumbnail(ref.id), asRows, m_cardsContainer);
        connect(card, &ProjectCard::openRequested, this, &HomePage::openProjectRequested);
        connect(card, &ProjectCard::revealRequested, this,
                [](const QString &path) { revealInFileManager(path); });
        connect(card, &ProjectCard::deleteRequested, this,
                [this](const ProjectReference &r) { deleteProject(r); });
        connect(card, &ProjectCard::renameRequested, this, &HomePage::askToRename);
        if (m_imports)
            ImportBadge::attach(card, ref.bundlePath, *m_imports);
        if (rows)
            rows->addWidget(card);
        else
            grid->addWidget(card, int(i / gridColumns), int(i % gridColumns));
    }
    if (shown.isEmpty()) {
        auto *empty
            = new QLabel(m_store.projects().isEmpty() ? tr("还没有项目") : tr("没有匹配的项目"),
                         m_cardsContainer);
        empty->setAlignment(Qt::AlignCenter);
        if (rows)
            rows->addWidget(empty);
        else
            grid->addWidget(empty, 0, 0, 1, gridColumns);
    }
    if (rows)
        rows->addStretch(1);
    else
        grid->setRowStretch(grid->rowCount(), 1);
    m_cardsHostLayout->addWidget(m_cardsContainer);
}

} // namespace kavel::app
