#pragma once

#include "usernotifier.h"

#include <QDBusConnection>

namespace kavel {

// Freedesktop notifications over D-Bus (org.freedesktop.Notifications). When there is no
// session bus, or the notification server refuses or is missing, the notification goes
// to `fallback` instead (the GUI hands in its tray icon, headless runs a LoggingNotifier).
class DesktopNotifier final : public UserNotifier
{
public:
    static constexpr auto service = "org.freedesktop.Notifications";
    static constexpr auto path = "/org/freedesktop/Notifications";
    static constexpr auto interface = "org.freedesktop.Notifications";
    // The sound theme's name for "something arrived", the freedesktop stand-in for the
    // platform's default notification sound.
    static constexpr auto defaultSound = "message-new-instant";

    explicit DesktopNotifier(UserNotifier &fallback,
                             QDBusConnection bus = QDBusConnection::sessionBus());

    void deliver(const QString &title, const QString &body) override;

private:
    UserNotifier &m_fallback;
    QDBusConnection m_bus;
};

} // namespace kavel
