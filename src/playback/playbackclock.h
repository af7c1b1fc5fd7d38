#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <functional>

class QTimer;

namespace kavel {

// Monotonic time and delayed calls on the main thread, injected so that the player model's
// debounce and throttle can be driven by a fake clock in tests.
class PlaybackClock
{
public:
    using CallId = quint64;

    virtual ~PlaybackClock() = default;
    // Seconds since an arbitrary fixed point.
    virtual double now() const = 0;
    // Runs `call` once, `delay` seconds from now, unless cancelled first.
    virtual CallId callAfter(double delay, std::function<void()> call) = 0;
    // Cancelling a call that ran or was cancelled already does nothing.
    virtual void cancel(CallId id) = 0;
};

// The real clock: QElapsedTimer for time, single-shot QTimers for calls.
class SystemPlaybackClock final : public QObject, public PlaybackClock
{
public:
    explicit SystemPlaybackClock(QObject *parent = nullptr);
    ~SystemPlaybackClock() override;

    double now() const override;
    CallId callAfter(double delay, std::function<void()> call) override;
    void cancel(CallId id) override;

private:
    QElapsedTimer m_elapsed;
    QHash<CallId, QTimer *> m_pending;
    CallId m_nextId = 1;
};

} // namespace kavel
