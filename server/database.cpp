#include "database.h"

#include <array>
#include <chrono>
#include <ctime>
#include <sodium.h>
#include <sqlite3.h>

namespace kavel::server {

namespace {

constexpr const char *schema = R"sql(
PRAGMA journal_mode = WAL;
PRAGMA foreign_keys = ON;
CREATE TABLE IF NOT EXISTS users (
    id TEXT PRIMARY KEY,
    email TEXT UNIQUE,
    phone TEXT UNIQUE,
    nickname TEXT,
    password_hash TEXT NOT NULL,
    created_at TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS tokens (
    digest TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    kind TEXT NOT NULL,
    expires_at INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS sms_codes (
    phone TEXT PRIMARY KEY,
    digest TEXT NOT NULL,
    sent_at INTEGER NOT NULL,
    expires_at INTEGER NOT NULL,
    attempts INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS tasks (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    status TEXT NOT NULL,
    result TEXT,
    error_message TEXT,
    created_at INTEGER NOT NULL
);
)sql";

std::string newUuid()
{
    std::array<unsigned char, 16> bytes {};
    randombytes_buf(bytes.data(), bytes.size());
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40); // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80); // RFC 4122 variant
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text.push_back('-');
        text.push_back(hex[bytes[i] >> 4]);
        text.push_back(hex[bytes[i] & 0x0f]);
    }
    return text;
}

} // namespace

std::int64_t unixNow()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string nowIso8601()
{
    const auto now = std::chrono::system_clock::now();
    const auto ms
        = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()) % 1000;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm utc {};
    gmtime_r(&seconds, &utc);
    std::array<char, 40> text {};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                  static_cast<int>(ms.count()));
    return std::string(text.data());
}

class Database::Statement
{
public:
    Statement(sqlite3 *db, const char *sql)
        : m_db(db)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr) != SQLITE_OK)
            throw DatabaseError(sqlite3_errmsg(db));
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    Statement &bind(int index, const std::string &value)
    {
        sqlite3_bind_text(m_statement, index, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT);
        return *this;
    }
    Statement &bind(int index, const std::optional<std::string> &value)
    {
        if (value)
            return bind(index, *value);
        sqlite3_bind_null(m_statement, index);
        return *this;
    }
    Statement &bind(int index, std::int64_t value)
    {
        sqlite3_bind_int64(m_statement, index, value);
        return *this;
    }

    // True while there is a row to read.
    bool step()
    {
        const int result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW)
            return true;
        if (result == SQLITE_DONE)
            return false;
        throw DatabaseError(sqlite3_errmsg(m_db));
    }

    std::optional<std::string> text(int column) const
    {
        if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
            return std::nullopt;
        const auto *bytes = sqlite3_column_text(m_statement, column);
        return std::string(reinterpret_cast<const char *>(bytes),
                           static_cast<size_t>(sqlite3_column_bytes(m_statement, column)));
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(m_statement, column); }

private:
    sqlite3 *m_db;
    sqlite3_stmt *m_statement = nullptr;
};

Database::Database(const std::string &path)
{
    if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr)
        != SQLITE_OK) {
        const std::string message = m_db ? sqlite3_errmsg(m_db) : "out of memory";
        sqlite3_close(m_db);
        throw DatabaseError("cannot open database " + path + ": " + message);
    }
    // add-user may run while the server holds the file; wait for its lock briefly.
    sqlite3_busy_timeout(m_db, 5000);
    execute(schema);
}

Database::~Database()
{
    sqlite3_close(m_db);
}

void Database::execute(const char *sql)
{
    char *error = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string message = error ? error : "unknown error";
        sqlite3_free(error);
        throw DatabaseError(message);
    }
}

UserRecord Database::addUser(const std::optional<std::string> &email,
                             const std::optional<std::string> &phone,
                             const std::optional<std::string> &nickname,
                             const std::string &passwordHash)
{
    const std::lock_guard lock(m_mutex);
    UserRecord user {newUuid(), email, phone, nickname, passwordHash, nowIso8601()};
    Statement insert(m_db,
                     "INSERT INTO users (id, email, phone, nickname, password_hash, "
                     "created_at) VALUES (?, ?, ?, ?, ?, ?)");
    insert.bind(1, user.id).bind(2, email).bind(3, phone).bind(4, nickname);
    insert.bind(5, passwordHash).bind(6, user.createdAt);
    insert.step();
    return user;
}

std::optional<UserRecord> Database::findUser(const char *sql, const std::string &value)
{
    const std::lock_guard lock(m_mutex);
    Statement query(m_db, sql);
    query.bind(1, value);
    if (!query.step())
        return std::nullopt;
    return UserRecord {*query.text(0), query.text(1),  query.text(2),
                       query.text(3),  *query.text(4), *query.text(5)};
}

#define KAVEL_USER_COLUMNS                                                                         \
    "SELECT id, email, phone, nickname, password_hash, created_at FROM users "

std::optional<UserRecord> Database::findUserByAccount(const std::string &account)
{
    return findUser(KAVEL_USER_COLUMNS "WHERE email = ?1 OR phone = ?1", account);
}

std::optional<UserRecord> Database::findUserByPhone(const std::string &phone)
{
    return findUser(KAVEL_USER_COLUMNS "WHERE phone = ?1", phone);
}

std::optional<UserRecord> Database::findUserById(const std::string &id)
{
    return findUser(KAVEL_USER_COLUMNS "WHERE id = ?1", id);
}

#undef KAVEL_USER_COLUMNS

void Database::storeToken(const std::string &tokenDigest, const std::string &userId,
                          const std::string &kind, std::int64_t expiresAt)
{
    const std::lock_guard lock(m_mutex);
    Statement insert(m_db,
                     "INSERT INTO tokens (digest, user_id, kind, expires_at) VALUES (?, ?, ?, ?)");
    insert.bind(1, tokenDigest).bind(2, userId).bind(3, kind).bind(4, expiresAt);
    insert.step();
}

std::optional<std::string> Database::userForToken(const std::string &tokenDigest,
                                                  const std::string &kind, std::int64_t now)
{
    const std::lock_guard lock(m_mutex);
    Statement query(m_db,
                    "SELECT user_id FROM tokens WHERE digest = ? AND kind = ? AND expires_at > ?");
    query.bind(1, tokenDigest).bind(2, kind).bind(3, now);
    if (!query.step())
        return std::nullopt;
    return query.text(0);
}

void Database::pruneExpired(std::int64_t now)
{
    const std::lock_guard lock(m_mutex);
    Statement tokens(m_db, "DELETE FROM tokens WHERE expires_at <= ?");
    tokens.bind(1, now);
    tokens.step();
    Statement codes(m_db, "DELETE FROM sms_codes WHERE expires_at <= ?");
    codes.bind(1, now);
    codes.step();
}

void Database::storeSmsCode(const std::string &phone, const std::string &codeDigest,
                            std::int64_t sentAt, std::int64_t expiresAt)
{
    const std::lock_guard lock(m_mutex);
    Statement insert(m_db,
                     "INSERT OR REPLACE INTO sms_codes (phone, digest, sent_at, "
                     "expires_at, attempts) VALUES (?, ?, ?, ?, 0)");
    insert.bind(1, phone).bind(2, codeDigest).bind(3, sentAt).bind(4, expiresAt);
    insert.step();
}

std::optional<std::int64_t> Database::lastSmsCodeSentAt(const std::string &phone)
{
    const std::lock_guard lock(m_mutex);
    Statement query(m_db, "SELECT sent_at FROM sms_codes WHERE phone = ?");
    query.bind(1, phone);
    if (!query.step())
        return std::nullopt;
    return query.integer(0);
}

bool Database::consumeSmsCode(const std::string &phone, const std::string &codeDigest,
                              std::int64_t now, int maxAttempts)
{
    const std::lock_guard lock(m_mutex);
    Statement query(m_db, "SELECT digest, expires_at, attempts FROM sms_codes WHERE phone = ?");
    query.bind(1, phone);
    if (!query.step())
        return false;
    const std::string stored = *query.text(0);
    const bool live = query.integer(1) > now && query.integer(2) < maxAttempts;
    const bool matches = live && stored.size() == codeDigest.size()
        && sodium_memcmp(stored.data(), codeDigest.data(), stored.size()) == 0;
    if (matches || !live) {
        Statement remove(m_db, "DELETE FROM sms_codes WHERE phone = ?");
        remove.bind(1, phone);
        remove.step();
    } else {
        Statement count(m_db, "UPDATE sms_codes SET attempts = attempts + 1 WHERE phone = ?");
        count.bind(1, phone);
        count.step();
    }
    return matches;
}

void Database::createTask(const std::string &id, const std::string &userId, std::int64_t now)
{
    const std::lock_guard lock(m_mutex);
    Statement insert(m_db,
                     "INSERT INTO tasks (id, user_id, status, created_at) "
                     "VALUES (?, ?, 'pending', ?)");
    insert.bind(1, id).bind(2, userId).bind(3, now);
    insert.step();
}

void Database::setTaskStatus(const std::string &id, const std::string &status)
{
    const std::lock_guard lock(m_mutex);
    Statement update(m_db, "UPDATE tasks SET status = ? WHERE id = ?");
    update.bind(1, status).bind(2, id);
    update.step();
}

void Database::completeTask(const std::string &id, const std::string &resultJson)
{
    const std::lock_guard lock(m_mutex);
    Statement update(m_db, "UPDATE tasks SET status = 'completed', result = ? WHERE id = ?");
    update.bind(1, resultJson).bind(2, id);
    update.step();
}

void Database::failTask(const std::string &id, const std::string &message)
{
    const std::lock_guard lock(m_mutex);
    Statement update(m_db, "UPDATE tasks SET status = 'failed', error_message = ? WHERE id = ?");
    update.bind(1, message).bind(2, id);
    update.step();
}

std::optional<TaskRecord> Database::task(const std::string &id)
{
    const std::lock_guard lock(m_mutex);
    Statement query(m_db,
                    "SELECT id, user_id, status, result, error_message FROM tasks WHERE id = ?");
    query.bind(1, id);
    if (!query.step())
        return std::nullopt;
    return TaskRecord {*query.text(0), *query.text(1), *query.text(2), query.text(3),
                       query.text(4)};
}

int Database::failUnfinishedTasks(const std::string &message)
{
    const std::lock_guard lock(m_mutex);
    Statement update(m_db,
                     "UPDATE tasks SET status = 'failed', error_message = ? "
                     "WHERE status IN ('pending', 'processing')");
    update.bind(1, message);
    update.step();
    return sqlite3_changes(m_db);
}

} // namespace kavel::server
