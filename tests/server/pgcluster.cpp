#include "pgcluster.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QThread>
#include <csignal>
#include <filesystem>
#include <libpq-fe.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace kavel::test {

using namespace Qt::StringLiterals;

namespace {

// The newest installed server's programs (versions since 10 sort as text).
QString serverBinaries()
{
    const QDir versions(u"/usr/lib/postgresql"_s);
    for (const QString &version :
         versions.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::Reversed)) {
        if (QFileInfo::exists(versions.filePath(version + u"/bin/initdb"_s)))
            return versions.filePath(version + u"/bin"_s);
    }
    return {};
}

// Runs as `user` (when the tests are root) and dies with the test program.
void prepareChild(QProcess &process, const passwd *user)
{
    const uid_t uid = user ? user->pw_uid : 0;
    const gid_t gid = user ? user->pw_gid : 0;
    process.setChildProcessModifier([uid, gid] {
        if (uid != 0 && (::setgid(gid) != 0 || ::setuid(uid) != 0))
            ::_exit(126);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    });
}

} // namespace

PgCluster::PgCluster()
    : m_directory(QDir::tempPath() + u"/kavel-pg-XXXXXX"_s)
{
    const QString bin = serverBinaries();
    if (bin.isEmpty()) {
        m_missing = true;
        m_error = u"PostgreSQL is not installed (scripts/setup installs it)"_s;
        return;
    }
    const passwd *user = nullptr;
    if (::geteuid() == 0) {
        user = ::getpwnam("postgres");
        if (!user)
            user = ::getpwnam("nobody");
        if (!user
            || ::chown(m_directory.path().toLocal8Bit().constData(), user->pw_uid, user->pw_gid)
                != 0) {
            m_error = u"no unprivileged user to run PostgreSQL as"_s;
            return;
        }
    }
    const QString data = m_directory.filePath(u"data"_s);
    QProcess initdb;
    prepareChild(initdb, user);
    initdb.setProcessChannelMode(QProcess::MergedChannels);
    initdb.start(bin + u"/initdb"_s,
                 {u"-D"_s, data, u"-U"_s, u"kavel"_s, u"-A"_s, u"trust"_s, u"-E"_s, u"UTF8"_s,
                  u"--no-sync"_s});
    if (!initdb.waitForFinished(60000) || initdb.exitCode() != 0) {
        m_error = u"initdb failed: "_s + QString::fromLocal8Bit(initdb.readAll());
        return;
    }
    prepareChild(m_server, user);
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    m_server.start(bin + u"/postgres"_s,
                   {u"-D"_s, data, u"-k"_s, m_directory.path(), u"-c"_s, u"listen_addresses="_s,
                    u"-c"_s, u"fsync=off"_s, u"-c"_s, u"max_connections=60"_s});
    const std::string probe = url("postgres");
    QDeadlineTimer deadline(30000);
    while (PQping(probe.c_str()) != PQPING_OK) {
        if (deadline.hasExpired() || m_server.state() == QProcess::NotRunning) {
            m_error = u"PostgreSQL did not start: "_s + QString::fromLocal8Bit(m_server.readAll());
            return;
        }
        m_server.waitForFinished(50);
    }
}

PgCluster::~PgCluster()
{
    stop();
}

void PgCluster::stop()
{
    if (m_server.state() == QProcess::NotRunning)
        return;
    // SIGINT is PostgreSQL's fast shutdown: it does not wait for clients to leave.
    ::kill(static_cast<pid_t>(m_server.processId()), SIGINT);
    if (!m_server.waitForFinished(15000)) {
        m_server.kill();
        m_server.waitForFinished(5000);
    }
}

std::string PgCluster::url(const std::string &database) const
{
    // Only on a socket in the cluster's own folder, so clusters never compete for a port.
    return "postgresql://kavel@/" + database + "?host=" + m_directory.path().toStdString();
}

std::string PgCluster::newDatabase()
{
    const std::string name = "kavel" + std::to_string(++m_databases);
    PGconn *connection = PQconnectdb(url("postgres").c_str());
    PGresult *result = PQexec(connection, ("CREATE DATABASE " + name).c_str());
    const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
    const std::string message = PQerrorMessage(connection);
    PQclear(result);
    PQfinish(connection);
    if (!ok)
        throw std::runtime_error("cannot create a database: " + message);
    return url(name);
}

} // namespace kavel::test
