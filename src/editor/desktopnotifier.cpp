#include "desktopnotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace kavel {

DesktopNotifier::DesktopNotifier(UserNotifier &fallback, QDBusConnection bus)
    : m_fallback(fallback)
    , m_bus(std::move(bus))
{ }

void DesktopNotifier::deliver(const QString &title, const QString &body)
{
    if (!m_bus.isConnected()) {
        m_fallback.deliver(title, body);
        return;
    }
    QDBusMessage call
        = QDBusMessage::createMethodCall(QLatin1StringView(service), QLatin1StringView(path),
                                         QLatin1StringView(interface), u"Notify"_s);
    const QVariantMap hints {{u"sound-name"_s, QString::fromLatin1(defaultSound)}};
    call << u"Kavel"_s << 0u << QString() << title << body << QStringList() << hints << -1;

    // The reply comes back on the event loop, so delivering never blocks the caller; the
    // fallback is told only when the server could not take the notification.
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call));
    UserNotifier *fallback = &m_fallback;
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, fallback, title, body] {
                         if (watcher->isError())
                             fallback->deliver(title, body);
                         watcher->deleteLater();
                     });
}

} // namespace kavel
