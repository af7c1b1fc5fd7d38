#pragma once

#include "playback/playbackclock.h"

#include <QObject>
#include <QPointer>
#include <coroutine>

namespace kavel {

// `co_await sleepOn(clock, seconds, context)` suspends the coroutine for that long on the
// injected clock, so that tests move time instead of waiting for it. When `context` is
// gone by then the coroutine is not resumed: it belonged to that object.
class ClockSleep
{
public:
    ClockSleep(PlaybackClock &clock, double seconds, QObject *context)
        : m_clock(clock)
        , m_seconds(seconds)
        , m_context(context)
    { }

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> handle)
    {
        m_clock.callAfter(m_seconds, [handle, context = m_context] {
            if (context)
                handle.resume();
        });
    }
    void await_resume() const noexcept { }

private:
    PlaybackClock &m_clock;
    double m_seconds;
    QPointer<QObject> m_context;
};

inline ClockSleep sleepOn(PlaybackClock &clock, double seconds, QObject *context)
{
    return ClockSleep(clock, seconds, context);
}

} // namespace kavel
