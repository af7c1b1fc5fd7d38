#pragma once

#include "editor/usernotifier.h"

#include <QSystemTrayIcon>

namespace kavel::app {

// Notifications as tray balloons, for desktops without a notification server. Where
// there is no tray either, they go to `fallback`.
class TrayNotifier final : public UserNotifier
{
public:
    explicit TrayNotifier(UserNotifier &fallback);

    void deliver(const QString &title, const QString &body) override;

private:
    UserNotifier &m_fallback;
    QSystemTrayIcon m_icon;
};

} // namespace kavel::app
