#pragma once

#include <QTimer>
#include <chrono>
#include <functional>
#include <memory>

namespace kavel::service {

// A timer that calls back at a fixed interval until stopped. The sign-in countdown runs
// on one; tests drive a fake so they need not wait out real seconds.
class RepeatingTimer
{
public:
    virtual ~RepeatingTimer() = default;
    // Restarts the timer if it is already running.
    virtual void start(std::chrono::milliseconds interval, std::function<void()> onTick) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
};

class QtRepeatingTimer final : public RepeatingTimer
{
public:
    QtRepeatingTimer();
    void start(std::chrono::milliseconds interval, std::function<void()> onTick) override;
    void stop() override;
    bool isActive() const override;

private:
    QTimer m_timer;
    std::function<void()> m_onTick;
};

} // namespace kavel::service
