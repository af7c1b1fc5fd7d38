#include "importbadge.h"

#include "editor/importpipeline.h"

#include <QLabel>
#include <QLayout>
#include <QProgressBar>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace kavel::app {

ImportBadge::ImportBadge(ImportPipeline &imports, QString bundlePath, QWidget *parent)
    : QWidget(parent)
    , m_imports(&imports)
    , m_bundlePath(std::move(bundlePath))
    , m_label(new QLabel(this))
    , m_bar(new QProgressBar(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_label);
    m_bar->setRange(0, 100);
    m_bar->setTextVisible(false);
    m_bar->setMaximumHeight(6);
    layout->addWidget(m_bar);
    connect(&imports, &ImportPipeline::jobChanged, this, [this](ImportJob *job) {
        if (job->bundlePath() == m_bundlePath)
            refresh();
    });
    refresh();
}

ImportBadge *ImportBadge::attach(QWidget *card, const QString &bundlePath, ImportPipeline &imports)
{
    auto *badge = new ImportBadge(imports, bundlePath, card);
    if (card->layout())
        card->layout()->addWidget(badge);
    return badge;
}

void ImportBadge::refresh()
{
    if (!m_imports)
        return;
    const ImportJob *job = m_imports->jobFor(m_bundlePath);
    QString failure;
    if (job && job->state() == ImportJob::State::failed)
        failure = job->status();
    else if (!job)
        failure = ImportPipeline::failureOf(m_bundlePath);
    const bool running = job && job->isActive();
    if (!running && failure.isEmpty()) {
        hide();
        return;
    }
    QPalette tint = m_label->palette();
    tint.setColor(QPalette::WindowText,
                  running ? palette().color(QPalette::Highlight) : QColor(0xc0, 0x39, 0x2b));
    m_label->setPalette(tint);
    m_label->setText(running ? job->summary() : tr("导入失败"));
    setToolTip(running ? job->status() : failure);
    m_bar->setVisible(running && job->progress().has_value());
    m_bar->setValue(static_cast<int>(job ? job->progress().value_or(0.0) * 100.0 : 0.0));
    show();
}

} // namespace kavel::app
