#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QTest>
#include <gtest/gtest.h>

namespace kavel::test {

// A D-Bus of the test's own, so that nothing reaches the real desktop: a dbus-daemon
// started for the test, and named connections to it.
class PrivateBus : public ::testing::Test
{
protected:
    void SetUp() override
    {
        daemon.start(QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--session"), QStringLiteral("--nofork"),
                      QStringLiteral("--print-address=1")});
        ASSERT_TRUE(daemon.waitForStarted());
        ASSERT_TRUE(QTest::qWaitFor([this] { return daemon.canReadLine(); }, 10000));
        address = QString::fromUtf8(daemon.readLine()).trimmed();
    }
    void TearDown() override
    {
        for (const QString &name : std::as_const(connected))
            QDBusConnection::disconnectFromBus(name);
        daemon.kill();
        daemon.waitForFinished();
    }

    QDBusConnection connect(const QString &name)
    {
        connected.append(name);
        return QDBusConnection::connectToBus(address, name);
    }

    QProcess daemon;
    QString address;
    QStringList connected;
};

} // namespace kavel::test
