#include "importcover.h"

#include "editor/editorviewmodel.h"
#include "editor/importpipeline.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

// A path (where a damaged transcript was kept, which file could not be read) has no spaces
// to wrap at: it may break after each "/" instead, so that no line runs past the cover.
QString wrappable(QString text)
{
    return text.replace(u'/', u"/\u200B"_s);
}

} // namespace

ImportCover::ImportCover(EditorViewModel &editor, QWidget *topBar, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
    , m_topBar(topBar)
{
    setAutoFillBackground(true);
    QPalette shade = palette();
    shade.setColor(QPalette::Window, QColor(0, 0, 0, 150));
    shade.setColor(QPalette::WindowText, Qt::white);
    setPalette(shade);
    auto *layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto *steps = new QHBoxLayout;
    steps->addStretch(1);
    for (const QString &step :
         {ImportJob::tr("提取音频"), ImportJob::tr("上传音频"), ImportJob::tr("语音识别中")}) {
        if (!m_stepLabels.isEmpty()) {
            auto *arrow = new QLabel(u"→"_s, this);
            arrow->setEnabled(false);
            steps->addWidget(arrow);
        }
        auto *label = new QLabel(step, this);
        steps->addWidget(label);
        m_stepLabels.append(label);
    }
    steps->addStretch(1);
    layout->addLayout(steps);
    m_status = new QLabel(this);
    m_status->setAlignment(Qt::AlignCenter);
    m_status->setWordWrap(true);
    QFont big = m_status->font();
    big.setPointSizeF(big.pointSizeF() * 1.3);
    m_status->setFont(big);
    layout->addWidget(m_status);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_progress->setFixedWidth(320);
    layout->addWidget(m_progress, 0, Qt::AlignHCenter);
    m_dismiss = new QPushButton(tr("关闭"), this);
    layout->addWidget(m_dismiss, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    hide();

    parent->installEventFilter(this);
    connect(&editor, &EditorViewModel::projectChanged, this, [this] {
        m_notice.clear();
        refresh();
    });
    connect(m_dismiss, &QPushButton::clicked, this, [this] {
        m_notice.clear();
        m_dismissed = openProjectJob();
        if (!m_dismissed && m_editor.project())
            m_dismissedEarlier = m_editor.project()->bundlePath();
        refresh();
    });
}

void ImportCover::setImports(ImportPipeline *imports)
{
    if (m_imports)
        disconnect(m_imports, nullptr, this, nullptr);
    m_imports = imports;
    if (imports)
        connect(imports, &ImportPipeline::jobChanged, this, &ImportCover::refresh);
    refresh();
}

void ImportCover::showNotice(const QString &text)
{
    m_notice = text;
    refresh();
}

ImportJob *ImportCover::openProjectJob() const
{
    if (!m_imports || !m_editor.project())
        return nullptr;
    return m_imports->jobFor(m_editor.project()->bundlePath());
}

void ImportCover::refresh()
{
    ImportJob *job = openProjectJob();
    const bool running = job && job->isActive();
    const bool failed = job && job->state() == ImportJob::State::failed && job != m_dismissed;
    // An import of an earlier run that a quit or a crash cut short says so in its project.
    QString earlier;
    if (!job && m_editor.project() && m_editor.project()->bundlePath() != m_dismissedEarlier)
        earlier = ImportPipeline::failureOf(m_editor.project()->bundlePath());
    if (!running && !failed && earlier.isEmpty() && m_notice.isEmpty()) {
        hide();
        return;
    }
    m_status->setText(wrappable(running || failed       ? job->status()
                                    : earlier.isEmpty() ? m_notice
                                                        : earlier));
    const QString current = job ? job->step() : QString();
    for (QLabel *label : std::as_const(m_stepLabels)) {
        QFont font = label->font();
        font.setBold(label->text() == current);
        label->setFont(font);
        label->setEnabled(label->text() == current);
    }
    for (QLabel *label : findChildren<QLabel *>()) {
        if (label != m_status)
            label->setVisible(running && !current.isEmpty());
    }
    m_progress->setVisible(running && job->progress().has_value());
    m_progress->setValue(running ? static_cast<int>(job->progress().value_or(0.0) * 100.0) : 0);
    m_dismiss->setVisible(!running);
    fitToParent();
    raise();
    show();
}

void ImportCover::fitToParent()
{
    const int top = m_topBar ? m_topBar->geometry().bottom() + 1 : 0;
    setGeometry(0, top, parentWidget()->width(), parentWidget()->height() - top);
}

bool ImportCover::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        fitToParent();
    return QWidget::eventFilter(watched, event);
}

} // namespace kavel::app
