#include "playbackclock.h"

#include <QTimer>
#include <cmath>

namespace kavel {

SystemPlaybackClock::SystemPlaybackClock(QObject *parent)
    : QObject(parent)
{
    m_elapsed.start();
}

SystemPlaybackClock::~SystemPlaybackClock() = default;

double SystemPlaybackClock::now() const
{
    return static_cast<double>(m_elapsed.nsecsElapsed()) / 1e9;
}

PlaybackClock::CallId SystemPlaybackClock::callAfter(double delay, std::function<void()> call)
{
    const CallId id = m_nextId++;
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, id, call = std::move(call)] {
        if (QTimer *done = m_pending.take(id))
            done->deleteLater();
        call();
    });
    m_pending.insert(id, timer);
    timer->start(static_cast<int>(std::lround(std::max(delay, 0.0) * 1000.0)));
    return id;
}

void SystemPlaybackClock::cancel(CallId id)
{
    if (QTimer *timer = m_pending.take(id)) {
        timer->stop();
        timer->deleteLater();
    }
}

} // namespace kavel
