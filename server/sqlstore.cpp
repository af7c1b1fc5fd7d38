#include "sqlstore.h"

#include <array>
#include <chrono>
#include <ctime>
#include <sodium.h>

namespace kavel::server {

namespace {

// Each entry brings the schema from the previous version to its own. The first one
// is written so that it also adopts files made before versions were recorded.
const std::vector<std::vector<std::string>> migrations {
    {
        R"sql(CREATE TABLE IF NOT EXISTS users (
            id TEXT PRIMARY KEY,
            email TEXT UNIQUE,
            phone TEXT UNIQUE,
            nickname TEXT,
            password_hash TEXT NOT NULL,
            created_at TEXT NOT NULL))sql",
        R"sql(CREATE TABLE IF NOT EXISTS tokens (
            digest TEXT PRIMARY KEY,
            user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
            kind TEXT NOT NULL,
            expires_at BIGINT NOT NULL))sql",
        R"sql(CREATE TABLE IF NOT EXISTS sms_codes (
            phone TEXT PRIMARY KEY,
            digest TEXT NOT NULL,
            sent_at BIGINT NOT NULL,
            expires_at BIGINT NOT NULL,
            attempts BIGINT NOT NULL DEFAULT 0))sql",
        R"sql(CREATE TABLE IF NOT EXISTS tasks (
            id TEXT PRIMARY KEY,
            user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
            status TEXT NOT NULL,
            result TEXT,
            error_message TEXT,
            created_at BIGINT NOT NULL))sql",
    },
    {
        // The queue: where the audio is and who holds the task until when. Tasks left
        // unfinished by a server from before the queue have no audio to resume from.
        "ALTER TABLE tasks ADD COLUMN audio_file TEXT",
        "ALTER TABLE tasks ADD COLUMN lease_owner TEXT",
        "ALTER TABLE tasks ADD COLUMN lease_until BIGINT",
        "ALTER TABLE tasks ADD COLUMN claims BIGINT NOT NULL DEFAULT 0",
        "UPDATE tasks SET status = 'failed', error_message = 'The server restarted before the "
        "task finished' WHERE status IN ('pending', 'processing')",
        "CREATE INDEX IF NOT EXISTS tasks_waiting ON tasks (status, created_at)",
    },
    {
        // The language each recording is recognised in; tasks already queued keep none
        // and are served in the recogniser's default.
        "ALTER TABLE tasks ADD COLUMN language TEXT",
    },
};

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

std::int64_t integer(const std::optional<std::string> &text)
{
    return text ? std::stoll(*text) : 0;
}

SqlValue optional(const std::optional<std::string> &value)
{
    if (value)
        return *value;
    return nullptr;
}

} // namespace

std::int64_t unixNow()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::int64_t unixNowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
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

std::unique_ptr<Store> openStore(const std::string &location)
{
    if (location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0)
        return openPostgresStore(location);
    return openSqliteStore(location);
}

std::unique_lock<std::mutex> SqlStore::exclusive()
{
    if (sharesOneConnection())
        return std::unique_lock(m_mutex);
    return std::unique_lock(m_mutex, std::defer_lock);
}

template<typename Work> auto SqlStore::inTransaction(Work work)
{
    run(beginWriting(), {});
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            run("COMMIT", {});
        } else {
            auto result = work();
            run("COMMIT", {});
            return result;
        }
    } catch (...) {
        try {
            run("ROLLBACK", {});
        } catch (const StoreError &) {
            // The connection is gone; so is the transaction.
        }
        throw;
    }
}

void SqlStore::migrate()
{
    const auto lock = exclusive();
    inTransaction([this] {
        lockForMigration();
        run("CREATE TABLE IF NOT EXISTS schema_version (version BIGINT NOT NULL)", {});
        const SqlResult current = run("SELECT MAX(version) FROM schema_version", {});
        const std::int64_t version = integer(current.rows.at(0).at(0));
        const auto known = static_cast<std::int64_t>(migrations.size());
        if (version > known)
            throw StoreError("the database has schema version " + std::to_string(version)
                             + ", newer than this kavel-server knows (" + std::to_string(known)
                             + ")");
        for (std::int64_t next = version; next < known; ++next) {
            for (const std::string &statement : migrations[static_cast<size_t>(next)])
                run(statement, {});
        }
        if (version < known) {
            run("DELETE FROM schema_version", {});
            run("INSERT INTO schema_version (version) VALUES ($1)", {known});
        }
    });
}

int SqlStore::schemaVersion()
{
    const auto lock = exclusive();
    return static_cast<int>(
        integer(run("SELECT MAX(version) FROM schema_version", {}).rows.at(0).at(0)));
}

UserRecord SqlStore::addUser(const std::optional<std::string> &email,
                             const std::optional<std::string> &phone,
                             const std::optional<std::string> &nickname,
                             const std::string &passwordHash)
{
    const auto lock = exclusive();
    UserRecord user {newUuid(), email, phone, nickname, passwordHash, nowIso8601()};
    run("INSERT INTO users (id, email, phone, nickname, password_hash, created_at) "
        "VALUES ($1, $2, $3, $4, $5, $6)",
        {user.id, optional(email), optional(phone), optional(nickname), passwordHash,
         user.createdAt});
    return user;
}

std::optional<UserRecord> SqlStore::findUser(const std::string &condition, const std::string &value)
{
    const auto lock = exclusive();
    const SqlResult result
        = run("SELECT id, email, phone, nickname, password_hash, created_at FROM users WHERE "
                  + condition,
              {value});
    if (result.rows.empty())
        return std::nullopt;
    const auto &row = result.rows.front();
    return UserRecord {*row[0], row[1], row[2], row[3], *row[4], *row[5]};
}

std::optional<UserRecord> SqlStore::findUserByAccount(const std::string &account)
{
    return findUser("email = $1 OR phone = $1", account);
}

std::optional<UserRecord> SqlStore::findUserByPhone(const std::string &phone)
{
    return findUser("phone = $1", phone);
}

std::optional<UserRecord> SqlStore::findUserById(const std::string &id)
{
    return findUser("id = $1", id);
}

void SqlStore::storeToken(const std::string &tokenDigest, const std::string &userId,
                          const std::string &kind, std::int64_t expiresAt)
{
    const auto lock = exclusive();
    run("INSERT INTO tokens (digest, user_id, kind, expires_at) VALUES ($1, $2, $3, $4)",
        {tokenDigest, userId, kind, expiresAt});
}

std::optional<UserRecord> SqlStore::userForToken(const std::string &tokenDigest,
                                                 const std::string &kind, std::int64_t now)
{
    // One round trip: every authenticated request asks this.
    const auto lock = exclusive();
    const SqlResult result
        = run("SELECT u.id, u.email, u.phone, u.nickname, u.password_hash, u.created_at "
              "FROM tokens t JOIN users u ON u.id = t.user_id "
              "WHERE t.digest = $1 AND t.kind = $2 AND t.expires_at > $3",
              {tokenDigest, kind, now});
    if (result.rows.empty())
        return std::nullopt;
    const auto &row = result.rows.front();
    return UserRecord {*row[0], row[1], row[2], row[3], *row[4], *row[5]};
}

void SqlStore::pruneExpired(std::int64_t now)
{
    const auto lock = exclusive();
    run("DELETE FROM tokens WHERE expires_at <= $1", {now});
    run("DELETE FROM sms_codes WHERE expires_at <= $1", {now});
}

void SqlStore::storeSmsCode(const std::string &phone, const std::string &codeDigest,
                            std::int64_t sentAt, std::int64_t expiresAt)
{
    const auto lock = exclusive();
    run("INSERT INTO sms_codes (phone, digest, sent_at, expires_at, attempts) "
        "VALUES ($1, $2, $3, $4, 0) ON CONFLICT (phone) DO UPDATE SET digest = excluded.digest, "
        "sent_at = excluded.sent_at, expires_at = excluded.expires_at, attempts = 0",
        {phone, codeDigest, sentAt, expiresAt});
}

std::optional<std::int64_t> SqlStore::lastSmsCodeSentAt(const std::string &phone)
{
    const auto lock = exclusive();
    const SqlResult result = run("SELECT sent_at FROM sms_codes WHERE phone = $1", {phone});
    if (result.rows.empty())
        return std::nullopt;
    return integer(result.rows.front().front());
}

bool SqlStore::consumeSmsCode(const std::string &phone, const std::string &codeDigest,
                              std::int64_t now, int maxAttempts)
{
    const auto lock = exclusive();
    return inTransaction([&] {
        // Counting the attempt first makes concurrent guesses at one code count each.
        const SqlResult counted
            = run("UPDATE sms_codes SET attempts = attempts + 1 WHERE phone = $1 "
                  "RETURNING digest, expires_at, attempts",
                  {phone});
        if (counted.rows.empty())
            return false;
        const auto &row = counted.rows.front();
        const std::string stored = row[0].value_or("");
        const bool live = integer(row[1]) > now && integer(row[2]) <= maxAttempts;
        const bool matches = live && stored.size() == codeDigest.size()
            && sodium_memcmp(stored.data(), codeDigest.data(), stored.size()) == 0;
        if (matches || !live)
            run("DELETE FROM sms_codes WHERE phone = $1", {phone});
        return matches;
    });
}

void SqlStore::createTask(const std::string &id, const std::string &userId,
                          const std::string &audioFile, const std::string &language,
                          std::int64_t now)
{
    const auto lock = exclusive();
    run("INSERT INTO tasks (id, user_id, status, audio_file, language, created_at) "
        "VALUES ($1, $2, 'pending', $3, $4, $5)",
        {id, userId, audioFile, language, now});
}

std::optional<ClaimedTask> SqlStore::claimTask(const std::string &worker, std::int64_t nowMs,
                                               std::int64_t leaseMs, int maxClaims)
{
    const auto lock = exclusive();
    return inTransaction([&]() -> std::optional<ClaimedTask> {
        // A task whose workers kept dying on it is not handed to another one.
        run("UPDATE tasks SET status = 'failed', lease_owner = NULL, lease_until = NULL, "
            "error_message = 'Recognition was interrupted too many times' "
            "WHERE status = 'processing' AND lease_until < $1 AND claims >= $2",
            {nowMs, std::int64_t {maxClaims}});
        const SqlResult claimed = run(
            std::string("UPDATE tasks SET status = 'processing', lease_owner = $1, "
                        "lease_until = $2, claims = claims + 1 WHERE id = (SELECT id FROM tasks "
                        "WHERE status = 'pending' OR (status = 'processing' AND lease_until < $3) "
                        "ORDER BY created_at, id LIMIT 1")
                + skipLockedRows() + ") RETURNING id, audio_file, language",
            {worker, nowMs + leaseMs, nowMs});
        if (claimed.rows.empty())
            return std::nullopt;
        const auto &row = claimed.rows.front();
        return ClaimedTask {*row[0], row[1].value_or(""), row[2].value_or("")};
    });
}

bool SqlStore::renewLease(const std::string &id, const std::string &worker, std::int64_t untilMs)
{
    const auto lock = exclusive();
    return run("UPDATE tasks SET lease_until = $3 WHERE id = $1 AND lease_owner = $2 "
               "AND status = 'processing'",
               {id, worker, untilMs})
               .changed
        == 1;
}

bool SqlStore::completeTask(const std::string &id, const std::string &worker,
                            const std::string &resultJson)
{
    const auto lock = exclusive();
    return run("UPDATE tasks SET status = 'completed', result = $3, lease_owner = NULL, "
               "lease_until = NULL WHERE id = $1 AND lease_owner = $2 AND status = 'processing'",
               {id, worker, resultJson})
               .changed
        == 1;
}

bool SqlStore::failTask(const std::string &id, const std::string &worker,
                        const std::string &message)
{
    const auto lock = exclusive();
    return run("UPDATE tasks SET status = 'failed', error_message = $3, lease_owner = NULL, "
               "lease_until = NULL WHERE id = $1 AND lease_owner = $2 AND status = 'processing'",
               {id, worker, message})
               .changed
        == 1;
}

void SqlStore::releaseTask(const std::string &id, const std::string &worker)
{
    const auto lock = exclusive();
    run("UPDATE tasks SET status = 'pending', lease_owner = NULL, lease_until = NULL, "
        "claims = claims - 1 WHERE id = $1 AND lease_owner = $2 AND status = 'processing'",
        {id, worker});
}

std::optional<TaskRecord> SqlStore::task(const std::string &id)
{
    const auto lock = exclusive();
    const SqlResult result
        = run("SELECT id, user_id, status, result, error_message FROM tasks WHERE id = $1", {id});
    if (result.rows.empty())
        return std::nullopt;
    const auto &row = result.rows.front();
    return TaskRecord {*row[0], *row[1], *row[2], row[3], row[4]};
}

std::vector<std::string> SqlStore::waitingUploads(const std::string &userId)
{
    const auto lock = exclusive();
    const SqlResult result = run("SELECT audio_file FROM tasks WHERE user_id = $1 "
                                 "AND status IN ('pending', 'processing')",
                                 {userId});
    std::vector<std::string> files;
    for (const auto &row : result.rows)
        files.push_back(row[0].value_or(""));
    return files;
}

QueueCounts SqlStore::queueCounts(std::int64_t nowMs)
{
    const auto lock = exclusive();
    QueueCounts counts;
    for (const auto &row : run("SELECT status, COUNT(*) FROM tasks GROUP BY status", {}).rows)
        counts.byStatus[row[0].value_or("")] = integer(row[1]);
    counts.leasesHeld = integer(run("SELECT COUNT(*) FROM tasks WHERE status = 'processing' "
                                    "AND lease_until >= $1",
                                    {nowMs})
                                    .rows.at(0)
                                    .at(0));
    return counts;
}

} // namespace kavel::server
