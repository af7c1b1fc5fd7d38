#include "importjob.h"

#include "model/kavelproject.h"

#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace kavel {

ImportJob::ImportJob(QList<QUrl> urls, std::shared_ptr<KavelProject> project, QString language,
                     QObject *parent)
    : QObject(parent)
    , m_urls(std::move(urls))
    , m_project(std::move(project))
    , m_bundlePath(m_project->bundlePath())
    , m_language(std::move(language))
{
    m_status = tr("等待导入...");
}

ImportJob::~ImportJob() = default;

std::shared_ptr<KavelProject> ImportJob::project() const
{
    return m_project ? m_project : m_endedProject.lock();
}

QString remainingText(int seconds)
{
    return ImportJob::tr("预计剩余 %1:%2")
        .arg(seconds / 60, 2, 10, QChar(u'0'))
        .arg(seconds % 60, 2, 10, QChar(u'0'));
}

QString ImportJob::summary() const
{
    switch (m_state) {
    case State::waiting:
        return tr("等待导入");
    case State::finished:
        return {};
    case State::failed:
        return tr("导入失败");
    case State::running:
        break;
    }
    QString text = m_step.isEmpty() ? tr("正在导入") : m_step;
    if (m_progress)
        text += u' ' + QString::number(static_cast<int>(std::floor(*m_progress * 100.0))) + u'%';
    if (m_remaining)
        text += u" · "_s + remainingText(*m_remaining);
    return text;
}

void ImportJob::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    if (!isActive() && m_project)
        m_endedProject = std::exchange(m_project, nullptr);
    Q_EMIT changed();
    if (!isActive())
        Q_EMIT ended();
}

void ImportJob::setStep(const QString &step, const QString &status)
{
    m_step = step;
    m_status = status;
    m_progress.reset();
    m_remaining.reset();
    Q_EMIT changed();
}

void ImportJob::setStatus(const QString &status)
{
    if (m_status == status)
        return;
    m_status = status;
    Q_EMIT changed();
}

void ImportJob::setProgress(std::optional<double> progress)
{
    if (m_progress == progress)
        return;
    m_progress = progress;
    Q_EMIT changed();
}

void ImportJob::setRemainingSeconds(std::optional<int> seconds)
{
    if (m_remaining == seconds)
        return;
    m_remaining = seconds;
    Q_EMIT changed();
}

} // namespace kavel
