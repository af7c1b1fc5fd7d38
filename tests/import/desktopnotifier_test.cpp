#include "editor/desktopnotifier.h"
#include "importfakes.h"
#include "support/privatebus.h"

#include <QDBusConnectionInterface>
#include <QVariantMap>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

// Keeps each notification as "app|replaces|summary|body|sound".
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList received;

public Q_SLOTS:
    uint Notify(const QString &appName, uint replacesId, const QString &, const QString &summary,
                const QString &body, const QStringList &, const QVariantMap &hints, int)
    {
        received.append(QStringList {appName, QString::number(replacesId), summary, body,
                                     hints.value(u"sound-name"_s).toString()}
                            .join(u'|'));
        return uint(received.size());
    }
};

TEST_F(PrivateBus, NotificationReachesTheServerOrElseTheFallback)
{
    QDBusConnection serverSide = connect(u"server"_s);
    FakeNotificationServer server;
    ASSERT_TRUE(serverSide.registerObject(u"/org/freedesktop/Notifications"_s, &server,
                                          QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(serverSide.registerService(u"org.freedesktop.Notifications"_s));

    RecordingNotifier fallback;
    DesktopNotifier notifier(fallback, connect(u"client"_s));
    notifier.deliver(u"Kavel"_s, u"嘿，您的视频已经准备好了，让我们开始吧！"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !server.received.isEmpty(); }, 5000));
    EXPECT_EQ(server.received.first(),
              u"Kavel|0|Kavel|嘿，您的视频已经准备好了，让我们开始吧！|message-new-instant"_s);

    // Without a notification server on the bus the fallback shows it (without a bus at
    // all, the command line's import shows it). Answers come in order, so the one
    // delivered above did not reach the fallback too.
    ASSERT_TRUE(serverSide.unregisterService(u"org.freedesktop.Notifications"_s));
    notifier.deliver(u"Kavel"_s, u"语音识别失败，请重试。"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fallback.delivered.isEmpty(); }, 5000));
    EXPECT_EQ(fallback.delivered,
              (QList<QPair<QString, QString>> {{u"Kavel"_s, u"语音识别失败，请重试。"_s}}));
    EXPECT_EQ(server.received.size(), 1);
}

} // namespace

#include "desktopnotifier_test.moc"
