#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;

namespace kavel::app {

// One Kavel per user: a second start hands its files to the running one and ends, so two
// windows never edit the same projects. The meeting point is a local socket in the
// user's runtime folder, which no other user can enter.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    enum class Role { first, handedOver };

    explicit SingleInstance(QString socketPath = defaultSocketPath(), QObject *parent = nullptr);
    ~SingleInstance() override;

    static QString defaultSocketPath();

    // Hands `paths` (made absolute here) to a running Kavel and returns handedOver once it
    // took them; otherwise this process becomes the one later starts hand over to.
    // Throws Error when a Kavel runs but does not answer.
    Role handOverOrListen(const QStringList &paths);

Q_SIGNALS:
    // A later start handed these over (absolute paths; may be empty: just come forward).
    void filesReceived(const QStringList &paths);

private:
    void acceptConnection();

    QString m_socketPath;
    QLocalServer *m_server = nullptr;
};

} // namespace kavel::app
