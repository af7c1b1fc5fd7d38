#include "traynotifier.h"

#include "symbolicons.h"

using namespace Qt::StringLiterals;

namespace kavel::app {

TrayNotifier::TrayNotifier(UserNotifier &fallback)
    : m_fallback(fallback)
    , m_icon(symbolIcon(u"film.fill"_s))
{
    m_icon.setToolTip(u"Kavel"_s);
}

void TrayNotifier::deliver(const QString &title, const QString &body)
{
    if (!QSystemTrayIcon::isSystemTrayAvailable() || !QSystemTrayIcon::supportsMessages()) {
        m_fallback.deliver(title, body);
        return;
    }
    // Shown from the first message on, so the tray stays clear until there is news.
    m_icon.show();
    m_icon.showMessage(title, body, QSystemTrayIcon::Information);
}

} // namespace kavel::app
