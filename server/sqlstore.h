#pragma once

#include "store.h"

#include <mutex>
#include <variant>
#include <vector>

namespace kavel::server {

using SqlValue = std::variant<std::nullptr_t, std::string, std::int64_t>;

struct SqlResult
{
    std::vector<std::vector<std::optional<std::string>>> rows;
    std::int64_t changed = 0;
};

// The store written once in the SQL that SQLite and PostgreSQL share, over one
// connection that its subclasses provide. Parameters are written $1, $2, ….
class SqlStore : public Store
{
public:
    UserRecord addUser(const std::optional<std::string> &email,
                       const std::optional<std::string> &phone,
                       const std::optional<std::string> &nickname,
                       const std::string &passwordHash) override;
    std::optional<UserRecord> findUserByAccount(const std::string &account) override;
    std::optional<UserRecord> findUserByPhone(const std::string &phone) override;
    std::optional<UserRecord> findUserById(const std::string &id) override;
    void storeToken(const std::string &tokenDigest, const std::string &userId,
                    const std::string &kind, std::int64_t expiresAt) override;
    std::optional<UserRecord> userForToken(const std::string &tokenDigest, const std::string &kind,
                                           std::int64_t now) override;
    void pruneExpired(std::int64_t now) override;
    void storeSmsCode(const std::string &phone, const std::string &codeDigest, std::int64_t sentAt,
                      std::int64_t expiresAt) override;
    std::optional<std::int64_t> lastSmsCodeSentAt(const std::string &phone) override;
    bool consumeSmsCode(const std::string &phone, const std::string &codeDigest, std::int64_t now,
                        int maxAttempts) override;
    void createTask(const std::string &id, const std::string &userId, const std::string &audioFile,
                    const std::string &language, std::int64_t now) override;
    std::optional<ClaimedTask> claimTask(const std::string &worker, std::int64_t nowMs,
                                         std::int64_t leaseMs, int maxClaims) override;
    bool renewLease(const std::string &id, const std::string &worker,
                    std::int64_t untilMs) override;
    bool completeTask(const std::string &id, const std::string &worker,
                      const std::string &resultJson) override;
    bool failTask(const std::string &id, const std::string &worker,
                  const std::string &message) override;
    void releaseTask(const std::string &id, const std::string &worker) override;
    std::optional<TaskRecord> task(const std::string &id) override;
    std::vector<std::string> waitingUploads(const std::string &userId) override;
    QueueCounts queueCounts(std::int64_t nowMs) override;
    int schemaVersion() override;

protected:
    // Runs one statement; throws StoreError.
    virtual SqlResult run(const std::string &sql, const std::vector<SqlValue> &parameters) = 0;
    // How a transaction that writes starts.
    virtual const char *beginWriting() const = 0;
    // Appended to the query that picks the next task, so that concurrent claims pass
    // over each other's rows instead of waiting for them.
    virtual const char *skipLockedRows() const = 0;
    // Taken inside the migration transaction so that nodes starting together migrate
    // one after the other.
    virtual void lockForMigration() { }

    // True when all threads share one connection, whose statements must then take
    // turns; otherwise each thread has a connection of its own.
    virtual bool sharesOneConnection() const { return true; }

    // Creates or brings the schema up to date. Called by the subclass once connected.
    void migrate();

private:
    std::unique_lock<std::mutex> exclusive();
    template<typename Work> auto inTransaction(Work work);
    std::optional<UserRecord> findUser(const std::string &condition, const std::string &value);

    std::mutex m_mutex;
};

std::unique_ptr<Store> openSqliteStore(const std::string &path);
std::unique_ptr<Store> openPostgresStore(const std::string &url);

} // namespace kavel::server
