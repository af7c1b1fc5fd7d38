#pragma once

#include "playback/playbackclock.h"

#include <map>

namespace kavel::test {

// Time stands still until advance() moves it; due calls then run in time order.
class FakeClock final : public PlaybackClock
{
public:
    explicit FakeClock(double start = 1000.0)
        : m_now(start)
    { }

    double now() const override { return m_now; }
    CallId callAfter(double delay, std::function<void()> call) override;
    void cancel(CallId id) override;

    void advance(double seconds);
    qsizetype pendingCalls() const { return static_cast<qsizetype>(m_calls.size()); }

private:
    struct Call
    {
        double due;
        std::function<void()> run;
    };
    double m_now;
    CallId m_nextId = 1;
    std::map<CallId, Call> m_calls;
};

} // namespace kavel::test
