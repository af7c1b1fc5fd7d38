#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <string>

namespace kavel::test {

// A throwaway PostgreSQL server in a temporary folder, listening on a socket there and
// trusting local connections. Run as an ordinary user even when the tests run
// as root, since PostgreSQL refuses root. Stopped and removed when the object goes away.
class PgCluster
{
public:
    PgCluster();
    ~PgCluster();
    PgCluster(const PgCluster &) = delete;
    PgCluster &operator=(const PgCluster &) = delete;

    // Empty when the cluster runs; otherwise why not (PostgreSQL missing, or failed).
    const QString &error() const { return m_error; }
    // True when the reason is that PostgreSQL is not installed at all.
    bool missing() const { return m_missing; }

    // A fresh, empty database in the cluster; its postgresql:// URL.
    std::string newDatabase();
    // Shuts the server down at once, as a crash of the database machine would look to
    // its clients.
    void stop();

private:
    std::string url(const std::string &database) const;

    QTemporaryDir m_directory;
    QProcess m_server;
    QString m_error;
    bool m_missing = false;
    int m_databases = 0;
};

} // namespace kavel::test
