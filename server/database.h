#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

struct sqlite3;

namespace kavel::server {

struct UserRecord
{
    std::string id;
    std::optional<std::string> email;
    std::optional<std::string> phone;
    std::optional<std::string> nickname;
    std::string passwordHash;
    std::string createdAt; // ISO 8601, UTC, milliseconds
};

struct TaskRecord
{
    std::string id;
    std::string userId;
    std::string status;
    std::optional<std::string> resultJson; // the paragraphs array, wire form
    std::optional<std::string> errorMessage;
};

class DatabaseError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The service's state in one SQLite file: users, sign-in sessions, pending SMS codes and
// recognition tasks. One connection shared by all threads behind a mutex; every method
// is one short statement or transaction, so the lock is never held for long.
class Database
{
public:
    explicit Database(const std::string &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // Throws DatabaseError when the e-mail or phone number is already taken.
    UserRecord addUser(const std::optional<std::string> &email,
                       const std::optional<std::string> &phone,
                       const std::optional<std::string> &nickname, const std::string &passwordHash);
    // An account name is an e-mail address or a phone number.
    std::optional<UserRecord> findUserByAccount(const std::string &account);
    std::optional<UserRecord> findUserByPhone(const std::string &phone);
    std::optional<UserRecord> findUserById(const std::string &id);

    void storeToken(const std::string &tokenDigest, const std::string &userId,
                    const std::string &kind, std::int64_t expiresAt);
    // The user of an unexpired token of the given kind.
    std::optional<std::string> userForToken(const std::string &tokenDigest, const std::string &kind,
                                            std::int64_t now);

    // Drops expired tokens and codes; they can never match again.
    void pruneExpired(std::int64_t now);

    // Replaces any earlier code for the phone.
    void storeSmsCode(const std::string &phone, const std::string &codeDigest, std::int64_t sentAt,
                      std::int64_t expiresAt);
    std::optional<std::int64_t> lastSmsCodeSentAt(const std::string &phone);
    // True when the code matches an unexpired one; a matched code is spent. Every
    // attempt counts, and a code tried too often is dropped.
    bool consumeSmsCode(const std::string &phone, const std::string &codeDigest, std::int64_t now,
                        int maxAttempts);

    void createTask(const std::string &id, const std::string &userId, std::int64_t now);
    void setTaskStatus(const std::string &id, const std::string &status);
    void completeTask(const std::string &id, const std::string &resultJson);
    void failTask(const std::string &id, const std::string &message);
    std::optional<TaskRecord> task(const std::string &id);
    // Marks every task still pending or processing as failed; returns how many. Run at
    // start, when no worker can still be holding them.
    int failUnfinishedTasks(const std::string &message);

private:
    class Statement;
    void execute(const char *sql);
    std::optional<UserRecord> findUser(const char *sql, const std::string &value);

    sqlite3 *m_db = nullptr;
    std::mutex m_mutex;
};

std::string nowIso8601();
std::int64_t unixNow();

} // namespace kavel::server
