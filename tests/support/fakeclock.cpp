#include "fakeclock.h"

#include <algorithm>

namespace kavel::test {

PlaybackClock::CallId FakeClock::callAfter(double delay, std::function<void()> call)
{
    const CallId id = m_nextId++;
    m_calls.emplace(id, Call {m_now + std::max(delay, 0.0), std::move(call)});
    return id;
}

void FakeClock::cancel(CallId id)
{
    m_calls.erase(id);
}

void FakeClock::advance(double seconds)
{
    const double end = m_now + seconds;
    for (;;) {
        auto next
            = std::min_element(m_calls.begin(), m_calls.end(), [](const auto &a, const auto &b) {
                  return a.second.due < b.second.due
                      || (a.second.due == b.second.due && a.first < b.first);
              });
        if (next == m_calls.end() || next->second.due > end + 1e-12)
            break;
        m_now = std::max(m_now, next->second.due);
        std::function<void()> run = std::move(next->second.run);
        m_calls.erase(next);
        run();
    }
    m_now = end;
}

} // namespace kavel::test
