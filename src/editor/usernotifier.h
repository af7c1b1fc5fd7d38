#pragma once

#include "service/servicelog.h"

#include <QString>

namespace kavel {

// System notifications ("your transcript is ready"). The desktop sends them to the
// notification server; runs without a desktop write them to the log.
class UserNotifier
{
public:
    virtual ~UserNotifier() = default;
    // Shows `body` under `title` with the default sound. Never throws: a notification that
    // cannot be shown is not worth failing anything for.
    virtual void deliver(const QString &title, const QString &body) = 0;
};

class LoggingNotifier final : public UserNotifier
{
public:
    explicit LoggingNotifier(service::LogSink log = service::standardOutputSink())
        : m_log(std::move(log))
    { }

    void deliver(const QString &title, const QString &body) override
    {
        if (m_log)
            m_log(QStringLiteral("[Notification] ") + title + QStringLiteral(": ") + body);
    }

private:
    service::LogSink m_log;
};

} // namespace kavel
