#include "repeatingtimer.h"

namespace kavel::service {

QtRepeatingTimer::QtRepeatingTimer()
{
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
        if (m_onTick)
            m_onTick();
    });
}

void QtRepeatingTimer::start(std::chrono::milliseconds interval, std::function<void()> onTick)
{
    m_onTick = std::move(onTick);
    m_timer.start(interval);
}

void QtRepeatingTimer::stop()
{
    m_timer.stop();
}

bool QtRepeatingTimer::isActive() const
{
    return m_timer.isActive();
}

} // namespace kavel::service
