#include "taskprogress.h"

#include <algorithm>

namespace kavel::server {

void TaskProgress::report(const std::string &taskId, double done)
{
    {
        const std::lock_guard lock(m_mutex);
        double &stored = m_progress[taskId];
        // Stretches finish out of order on several threads; the share only grows.
        stored = std::max(stored, std::clamp(done, 0.0, 1.0));
        ++m_changes;
    }
    m_changed.notify_all();
}

void TaskProgress::finish(const std::string &taskId)
{
    {
        const std::lock_guard lock(m_mutex);
        m_progress.erase(taskId);
        ++m_changes;
    }
    m_changed.notify_all();
}

std::optional<double> TaskProgress::progress(const std::string &taskId) const
{
    const std::lock_guard lock(m_mutex);
    const auto it = m_progress.find(taskId);
    if (it == m_progress.end())
        return std::nullopt;
    return it->second;
}

std::uint64_t TaskProgress::changes() const
{
    const std::lock_guard lock(m_mutex);
    return m_changes;
}

void TaskProgress::waitForChange(std::uint64_t seen,
                                 std::chrono::steady_clock::time_point until) const
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_until(lock, until, [&] { return m_changes != seen; });
}

} // namespace kavel::server
