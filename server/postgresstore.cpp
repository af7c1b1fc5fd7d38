#include "sqlstore.h"

#include <libpq-fe.h>
#include <map>
#include <mutex>
#include <thread>

namespace kavel::server {

namespace {

std::string firstLine(const char *message)
{
    std::string text = message ? message : "unknown error";
    text = text.substr(0, text.find('\n'));
    return text;
}

// The shared store of a deployment with several nodes. Each thread that uses it gets a
// connection of its own, so that request threads never queue behind each other's
// round trips; a connection is re-established when the server went away and came back.
class PostgresStore final : public SqlStore
{
public:
    explicit PostgresStore(const std::string &url)
        : m_url(url)
    {
        migrate();
    }
    ~PostgresStore() override
    {
        for (auto &[thread, connection] : m_connections)
            PQfinish(connection);
    }

protected:
    bool sharesOneConnection() const override { return false; }

    SqlResult run(const std::string &sql, const std::vector<SqlValue> &parameters) override
    {
        PGconn *const link = connection();
        std::vector<std::string> texts(parameters.size());
        std::vector<const char *> values(parameters.size(), nullptr);
        for (size_t i = 0; i < parameters.size(); ++i) {
            if (const auto *value = std::get_if<std::string>(&parameters[i])) {
                texts[i] = *value;
                values[i] = texts[i].c_str();
            } else if (const auto *number = std::get_if<std::int64_t>(&parameters[i])) {
                texts[i] = std::to_string(*number);
                values[i] = texts[i].c_str();
            }
        }
        PGresult *reply = PQexecParams(link, sql.c_str(), static_cast<int>(values.size()), nullptr,
                                       values.data(), nullptr, nullptr, 0);
        const ExecStatusType status = PQresultStatus(reply);
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
            const std::string message = firstLine(PQresultErrorMessage(reply));
            PQclear(reply);
            throw StoreError(message.empty() ? firstLine(PQerrorMessage(link)) : message);
        }
        SqlResult result;
        for (int row = 0; row < PQntuples(reply); ++row) {
            auto &fields = result.rows.emplace_back();
            for (int column = 0; column < PQnfields(reply); ++column) {
                if (PQgetisnull(reply, row, column))
                    fields.emplace_back();
                else
                    fields.emplace_back(
                        std::string(PQgetvalue(reply, row, column),
                                    static_cast<size_t>(PQgetlength(reply, row, column))));
            }
        }
        const char *changed = PQcmdTuples(reply);
        result.changed = changed && *changed ? std::stoll(changed) : 0;
        PQclear(reply);
        return result;
    }
    const char *beginWriting() const override { return "BEGIN"; }
    const char *skipLockedRows() const override { return " FOR UPDATE SKIP LOCKED"; }
    void lockForMigration() override
    {
        // Any constant will do, as long as every node uses the same one.
        run("SELECT pg_advisory_xact_lock(8417)", {});
    }

private:
    // This thread's connection, made on first use.
    PGconn *connection()
    {
        const std::lock_guard lock(m_mutex);
        PGconn *&connection = m_connections[std::this_thread::get_id()];
        if (!connection) {
            connection = PQconnectdb(m_url.c_str());
            if (PQstatus(connection) != CONNECTION_OK) {
                const std::string message = firstLine(PQerrorMessage(connection));
                PQfinish(connection);
                connection = nullptr;
                throw StoreError("cannot connect to PostgreSQL: " + message);
            }
            PQclear(PQexec(connection, "SET client_min_messages = warning"));
        } else if (PQstatus(connection) != CONNECTION_OK) {
            PQreset(connection);
            if (PQstatus(connection) != CONNECTION_OK)
                throw StoreError("lost the connection to PostgreSQL: "
                                 + firstLine(PQerrorMessage(connection)));
        }
        return connection;
    }

    std::string m_url;
    std::mutex m_mutex;
    std::map<std::thread::id, PGconn *> m_connections;
};

} // namespace

std::unique_ptr<Store> openPostgresStore(const std::string &url)
{
    return std::make_unique<PostgresStore>(url);
}

} // namespace kavel::server
