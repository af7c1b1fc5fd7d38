#include "sqlstore.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace kavel::server {

namespace {

// The embedded store: one SQLite file, one connection shared by all threads of the
// process. Other processes (add-user, a worker on the same machine) may open the same
// file; SQLite's locks keep them apart.
class SqliteStore final : public SqlStore
{
public:
    explicit SqliteStore(const std::string &path)
    {
        // Created here rather than by SQLite so that it is never readable by others, not
        // even for a moment; SQLite gives its journal files the same permissions.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0)
            ::close(fd);
        if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            nullptr)
            != SQLITE_OK) {
            const std::string message = m_db ? sqlite3_errmsg(m_db) : "out of memory";
            sqlite3_close(m_db);
            throw StoreError("cannot open database " + path + ": " + message);
        }
        // Another process may hold the write lock for a moment; wait for it.
        sqlite3_busy_timeout(m_db, 5000);
        run("PRAGMA journal_mode = WAL", {});
        run("PRAGMA foreign_keys = ON", {});
        migrate();
    }
    ~SqliteStore() override { sqlite3_close(m_db); }

protected:
    SqlResult run(const std::string &sql, const std::vector<SqlValue> &parameters) override
    {
        // SQLite numbers its parameters ?1, ?2, …
        std::string text = sql;
        for (char &c : text) {
            if (c == '$')
                c = '?';
        }
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(m_db, text.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            throw StoreError(sqlite3_errmsg(m_db));
        for (size_t i = 0; i < parameters.size(); ++i) {
            const int index = static_cast<int>(i + 1);
            if (const auto *value = std::get_if<std::string>(&parameters[i]))
                sqlite3_bind_text(statement, index, value->data(), static_cast<int>(value->size()),
                                  SQLITE_TRANSIENT);
            else if (const auto *number = std::get_if<std::int64_t>(&parameters[i]))
                sqlite3_bind_int64(statement, index, *number);
            else
                sqlite3_bind_null(statement, index);
        }
        SqlResult result;
        int status = SQLITE_ROW;
        while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
            auto &row = result.rows.emplace_back();
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                if (sqlite3_column_type(statement, column) == SQLITE_NULL) {
                    row.emplace_back();
                    continue;
                }
                const auto *bytes = sqlite3_column_text(statement, column);
                row.emplace_back(
                    std::string(reinterpret_cast<const char *>(bytes),
                                static_cast<size_t>(sqlite3_column_bytes(statement, column))));
            }
        }
        if (status != SQLITE_DONE) {
            const std::string message = sqlite3_errmsg(m_db);
            sqlite3_finalize(statement);
            throw StoreError(message);
        }
        sqlite3_finalize(statement);
        result.changed = sqlite3_changes(m_db);
        return result;
    }
    // Taking the write lock at the start keeps two writers from each reading, then
    // both failing to upgrade.
    const char *beginWriting() const override { return "BEGIN IMMEDIATE"; }
    // The write lock covers the whole file, so there is nothing to skip.
    const char *skipLockedRows() const override { return ""; }

private:
    sqlite3 *m_db = nullptr;
};

} // namespace

std::unique_ptr<Store> openSqliteStore(const std::string &path)
{
    return std::make_unique<SqliteStore>(path);
}

} // namespace kavel::server
