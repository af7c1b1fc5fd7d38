#include "maineditorview.h"

#include "editor/editorviewmodel.h"
#include "importcover.h"
#include "model/projectmetadata.h"
#include "pauselimitbox.h"
#include "projecttitle.h"
#include "symbolicons.h"
#include "ui/timeline/timelineview.h"
#include "ui/transcript/deletekeyhandler.h"
#include "ui/transcript/keyboardshortcuthandler.h"
#include "ui/transcript/magnetictextstripview.h"
#include "videoplayerview.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace kavel::app {

MainEditorView::MainEditorView(EditorViewModel &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto *topBar = new QWidget(this);
    auto *top = new QHBoxLayout(topBar);
    top->setContentsMargins(8, 6, 8, 6);
    m_back = new QToolButton(topBar);
    m_back->setText(tr("返回首页"));
    m_back->setIcon(symbolIcon(u"chevron.left"_s));
    m_back->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_back->setAutoRaise(true);
    top->addWidget(m_back);
    top->addStretch(1);
    m_title = new ProjectTitle(topBar);
    top->addWidget(m_title);
    top->addStretch(1);
    connect(m_title, &ProjectTitle::renameRequested, this, &MainEditorView::renameRequested);
    const auto showTitle = [this] {
        m_title->setTitle(m_editor.project() ? m_editor.project()->metadata().title : QString());
    };
    connect(&m_editor, &EditorViewModel::projectChanged, this, [this, showTitle] {
        showTitle();
        if (KavelProject *project = m_editor.project())
            connect(project, &KavelProject::metadataChanged, m_title, showTitle);
    });
    // A save that failed leaves the mark, since only a successful one says when it was.
    const auto showModified = [this] { m_title->setModified(m_editor.hasUnsavedChanges()); };
    for (const auto signal : {&EditorViewModel::projectChanged, &EditorViewModel::paragraphsChanged,
                              &EditorViewModel::lastSavedAtChanged})
        connect(&m_editor, signal, m_title, showModified);
    m_export = new QToolButton(topBar);
    m_export->setText(tr("导出"));
    m_export->setIcon(symbolIcon(u"square.and.arrow.up"_s));
    m_export->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    top->addWidget(m_export);
    layout->addWidget(topBar);

    auto *toolbar = new QWidget(this);
    auto *tools = new QHBoxLayout(toolbar);
    tools->setContentsMargins(8, 0, 8, 6);
    toolbar->setLayout(tools);
    auto *undo = addToolButton(toolbar, u"arrow.uturn.backward"_s, tr("撤销 (Ctrl+Z)"));
    auto *redo
        = addToolButton(toolbar, u"arrow.uturn.forward"_s, tr("重做 (Ctrl+Shift+Z 或 Ctrl+Y)"));
    auto *cut = addToolButton(toolbar, u"scissors"_s, tr("剪切 (Ctrl+X)"));
    auto *copy = addToolButton(toolbar, u"doc.on.doc"_s, tr("拷贝 (Ctrl+C)"));
    auto *paste = addToolButton(toolbar, u"doc.on.clipboard"_s, tr("粘贴 (Ctrl+V)"));
    auto *remove = addToolButton(toolbar, u"trash"_s, tr("删除 (Delete)"));
    auto *fillers = addToolButton(toolbar, u"wand.and.stars"_s, tr("删除语气词"));
    auto *correct = addToolButton(toolbar, u"pencil"_s, tr("更正文字 (F2)"));
    auto *save = addToolButton(toolbar, u"square.and.arrow.down"_s, tr("保存 (Ctrl+S)"));

    // The project's pause setting: off lays words end to end, on keeps the pauses whole or
    // up to the limit.
    m_keepPauses = new QCheckBox(tr("保留停顿"), toolbar);
    m_keepPauses->setToolTip(
        tr("在相邻的词之间保留录音中原有的停顿：完整保留，或最长不超过所设秒数"));
    tools->addWidget(m_keepPauses);
    m_pauseLimit = new PauseLimitBox(toolbar);
    tools->addWidget(m_pauseLimit);

    m_savedBox = new QWidget(toolbar);
    auto *savedLayout = new QHBoxLayout(m_savedBox);
    savedLayout->setContentsMargins(6, 0, 6, 0);
    auto *savedIcon = new QLabel(m_savedBox);
    savedIcon->setPixmap(symbolIcon(u"checkmark.circle.fill"_s).pixmap(16, 16));
    savedLayout->addWidget(savedIcon);
    m_saved = new QLabel(tr("已保存"), m_savedBox);
    savedLayout->addWidget(m_saved);
    m_savedBox->setVisible(false);
    tools->addWidget(m_savedBox);
    m_notice = new QLabel(toolbar);
    m_notice->setVisible(false);
    tools->addWidget(m_notice);
    tools->addStretch(1);

    m_search = new QLineEdit(toolbar);
    m_search->setPlaceholderText(tr("搜索"));
    m_search->setToolTip(tr("搜索 (Ctrl+F)"));
    m_search->installEventFilter(this);
    m_search->addAction(symbolIcon(u"magnifyingglass"_s), QLineEdit::LeadingPosition);
    m_search->setClearButtonEnabled(true);
    m_search->setMaximumWidth(220);
    tools->addWidget(m_search);
    m_counter = new QLabel(toolbar);
    tools->addWidget(m_counter);
    m_previous = new QToolButton(toolbar);
    m_previous->setIcon(symbolIcon(u"chevron.up"_s));
    m_previous->setToolTip(tr("上一个"));
    m_previous->setAutoRaise(true);
    tools->addWidget(m_previous);
    m_next = new QToolButton(toolbar);
    m_next->setIcon(symbolIcon(u"chevron.down"_s));
    m_next->setToolTip(tr("下一个"));
    m_next->setAutoRaise(true);
    tools->addWidget(m_next);
    layout->addWidget(toolbar);

    m_player = new VideoPlayerView(editor.playerVM(), this);
    m_transcript = new ui::MagneticTextStripView(editor, this);
    m_timeline = new ui::TimelineView(editor, this);
    auto *side = new QSplitter(Qt::Horizontal, this);
    side->addWidget(m_player);
    side->addWidget(m_transcript);
    side->setStretchFactor(0, 1);
    side->setStretchFactor(1, 1);
    auto *stack = new QSplitter(Qt::Vertical, this);
    stack->addWidget(side);
    stack->addWidget(m_timeline);
    stack->setStretchFactor(0, 3);
    stack->setStretchFactor(1, 1);
    layout->addWidget(stack, 1);

    // The key handlers take no room; they only need to live in the window.
    auto *shortcuts = new ui::KeyboardShortcutHandler(editor, this);
    shortcuts->setFixedSize(0, 0);
    auto *deleteKey = new ui::DeleteKeyHandler(this);
    deleteKey->setFixedSize(0, 0);
    deleteKey->setOnDelete([this](bool forward) { m_editor.deleteAtCursor(forward); });

    m_overlay = new ImportCover(editor, topBar, this);
    // A status said while no import of this project runs (a save that failed, a transcript
    // that could not be read) stays on the cover until the user closes it.
    connect(&editor, &EditorViewModel::processingStatusChanged, this, [this] {
        if (!m_editor.processingStatus().isEmpty())
            m_overlay->showNotice(m_editor.processingStatus());
    });

    connect(m_back, &QToolButton::clicked, this, &MainEditorView::backRequested);
    connect(m_export, &QToolButton::clicked, this, [this] { m_editor.setShowExportSheet(true); });
    connect(undo, &QToolButton::clicked, this, [this] {
        m_editor.undoManager().undo();
        m_editor.syncProject();
    });
    connect(redo, &QToolButton::clicked, this, [this] {
        m_editor.undoManager().redo();
        m_editor.syncProject();
    });
    connect(cut, &QToolButton::clicked, this, [this] {
        ui::putOnClipboard(m_editor);
        m_editor.cutSelectedWords();
    });
    connect(copy, &QToolButton::clicked, this, [this] { ui::putOnClipboard(m_editor); });
    connect(paste, &QToolButton::clicked, this, [this] { m_editor.pasteWords(); });
    // As the Delete key: the selection, else the word at the caret.
    connect(remove, &QToolButton::clicked, this, [this] { m_editor.deleteAtCursor(true); });
    connect(fillers, &QToolButton::clicked, this, [this] {
        const qsizetype removed = m_editor.deleteFillerWords();
        showNotice(removed > 0 ? tr("已删除 %1 个语气词").arg(removed) : tr("没有找到语气词"));
    });
    connect(save, &QToolButton::clicked, this, [this] { m_editor.save(); });
    connect(correct, &QToolButton::clicked, this, [this] { m_editor.requestWordCorrection(); });
    const auto applyPauses = [this] {
        m_editor.setPauseLimit(m_keepPauses->isChecked() ? m_pauseLimit->value() : 0.0);
    };
    connect(m_keepPauses, &QCheckBox::toggled, this, applyPauses);
    connect(m_pauseLimit, &QDoubleSpinBox::valueChanged, this, [this, applyPauses] {
        if (m_keepPauses->isChecked())
            applyPauses();
    });
    const auto showPauses = [this](bool opened) {
        const double limit = m_editor.pauseLimit();
        const QSignalBlocker blockCheck(m_keepPauses), blockLimit(m_pauseLimit);
        m_keepPauses->setChecked(limit > 0);
        m_keepPauses->setEnabled(m_editor.project() != nullptr);
        // Switched off, the box keeps its limit for switching on again; a project opened
        // without pauses offers the default, whole, never the last project's limit.
        if (limit > 0 || opened)
            m_pauseLimit->showLimit(limit > 0 ? limit : wholePauses);
        m_pauseLimit->setEnabled(limit > 0);
    };
    connect(&m_editor, &EditorViewModel::pauseLimitChanged, this,
            [showPauses] { showPauses(false); });
    connect(&m_editor, &EditorViewModel::projectChanged, this, [showPauses] { showPauses(true); });
    showPauses(true);

    connect(&editor.undoManager(), &EditorUndoManager::canUndoChanged, this,
            &MainEditorView::refreshUndoButtons);
    connect(&editor.undoManager(), &EditorUndoManager::canRedoChanged, this,
            &MainEditorView::refreshUndoButtons);
    connect(&editor, &EditorViewModel::showSaveConfirmationChanged, this,
            [this] { m_savedBox->setVisible(m_editor.showSaveConfirmation()); });

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_editor.setSearchQuery(text);
        m_editor.performSearch();
    });
    connect(m_search, &QLineEdit::returnPressed, this, [this] { m_editor.nextSearchResult(); });
    connect(m_previous, &QToolButton::clicked, this, [this] { m_editor.previousSearchResult(); });
    connect(m_next, &QToolButton::clicked, this, [this] { m_editor.nextSearchResult(); });
    connect(&editor, &EditorViewModel::searchResultsChanged, this,
            &MainEditorView::refreshSearchCounter);
    connect(&editor, &EditorViewModel::currentSearchIndexChanged, this,
            &MainEditorView::refreshSearchCounter);
    // The counter shows whether there is a query even when the matches stay none.
    connect(&editor, &EditorViewModel::searchQueryChanged, this, [this] {
        if (m_search->text() != m_editor.searchQuery())
            m_search->setText(m_editor.searchQuery());
        refreshSearchCounter();
    });

    // Ctrl+F asks for the search bar, which is always there: it takes the cursor, and
    // gives the request back when the cursor leaves it, so the next Ctrl+F works again.
    connect(&editor, &EditorViewModel::showSearchBarChanged, this, [this] {
        if (!m_editor.showSearchBar())
            return;
        m_search->setFocus(Qt::ShortcutFocusReason);
        m_search->selectAll();
    });

    refreshUndoButtons();
    refreshSearchCounter();
}

void MainEditorView::setImports(ImportPipeline *imports)
{
    m_overlay->setImports(imports);
}

QToolButton *MainEditorView::addToolButton(QWidget *bar, const QString &symbol,
                                           const QString &tooltip)
{
    auto *button = new QToolButton(bar);
    button->setIcon(symbolIcon(symbol));
    button->setToolTip(tooltip);
    button->setAutoRaise(true);
    button->setIconSize(QSize(18, 18));
    bar->layout()->addWidget(button);
    m_tools.append(button);
    return button;
}

QToolButton *MainEditorView::toolButton(const QString &tooltip) const
{
    for (QToolButton *button : m_tools) {
        if (button->toolTip().startsWith(tooltip))
            return button;
    }
    return nullptr;
}

void MainEditorView::showNotice(const QString &text)
{
    m_notice->setText(text);
    m_notice->setVisible(true);
    // Each notice hides itself unless a newer one replaced it.
    QTimer::singleShot(noticeMilliseconds, m_notice, [notice = m_notice, text] {
        if (notice->text() == text)
            notice->setVisible(false);
    });
}

void MainEditorView::refreshUndoButtons()
{
    if (QToolButton *undo = toolButton(tr("撤销")))
        undo->setEnabled(m_editor.undoManager().canUndo());
    if (QToolButton *redo = toolButton(tr("重做")))
        redo->setEnabled(m_editor.undoManager().canRedo());
}

void MainEditorView::refreshSearchCounter()
{
    const qsizetype count = m_editor.searchResults().size();
    const bool any = count > 0;
    m_counter->setVisible(!m_editor.searchQuery().isEmpty());
    m_counter->setText(any ? u"%1/%2"_s.arg(m_editor.currentSearchIndex() + 1).arg(count)
                           : u"0/0"_s);
    m_previous->setEnabled(any);
    m_next->setEnabled(any);
}

bool MainEditorView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_search) {
        if (event->type() == QEvent::FocusOut) {
            m_editor.setShowSearchBar(false);
        } else if (event->type() == QEvent::KeyPress
                   && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
            // Escape hands the keys back to the transcript.
            m_transcript->setFocus(Qt::ShortcutFocusReason);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace kavel::app
