#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

// How the recognition queue stands, for operators: tasks by status, and how many of
// them a worker holds under a lease that has not run out.
struct QueueCounts
{
    std::map<std::string, std::int64_t> byStatus;
    std::int64_t leasesHeld = 0;
};

// A task a worker has taken, with the name of its upload inside the shared folder.
struct ClaimedTask
{
    std::string id;
    std::string audioFile;
    // The recording's language as the upload named it; empty for tasks queued before
    // uploads named one, which the recogniser's default serves.
    std::string language;
};

class StoreError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The service's state: users, sign-in sessions, pending SMS codes and the recognition
// queue. Every node of a deployment (API nodes and workers) opens the same store, so it
// is the only place where they meet. All methods are safe to call from any thread.
//
// Times are passed in rather than read here, so that every decision about expiry is
// made with the caller's clock and can be tested without waiting.
class Store
{
public:
    virtual ~Store() = default;

    // Throws StoreError when the e-mail or phone number is already taken.
    virtual UserRecord
    addUser(const std::optional<std::string> &email, const std::optional<std::string> &phone,
            const std::optional<std::string> &nickname, const std::string &passwordHash)
        = 0;
    // An account name is an e-mail address or a phone number.
    virtual std::optional<UserRecord> findUserByAccount(const std::string &account) = 0;
    virtual std::optional<UserRecord> findUserByPhone(const std::string &phone) = 0;
    virtual std::optional<UserRecord> findUserById(const std::string &id) = 0;

    virtual void storeToken(const std::string &tokenDigest, const std::string &userId,
                            const std::string &kind, std::int64_t expiresAt)
        = 0;
    // The user of an unexpired token of the given kind.
    virtual std::optional<UserRecord> userForToken(const std::string &tokenDigest,
                                                   const std::string &kind, std::int64_t now)
        = 0;
    // Drops expired tokens and codes; they can never match again.
    virtual void pruneExpired(std::int64_t now) = 0;

    // Replaces any earlier code for the phone.
    virtual void storeSmsCode(const std::string &phone, const std::string &codeDigest,
                              std::int64_t sentAt, std::int64_t expiresAt)
        = 0;
    virtual std::optional<std::int64_t> lastSmsCodeSentAt(const std::string &phone) = 0;
    // True when the code matches an unexpired one; a matched code is spent. Every
    // attempt counts, and a code tried too often is dropped.
    virtual bool consumeSmsCode(const std::string &phone, const std::string &codeDigest,
                                std::int64_t now, int maxAttempts)
        = 0;

    // The recognition queue. A task is claimed by one worker at a time under a lease
    // (milliseconds since the epoch) that the worker renews while it works; a task whose
    // lease ran out is claimed again by whoever asks next, up to `maxClaims` times in
    // all, after which it fails. Only the holder of the lease can finish a task, so a
    // task completes once even when a slow worker was given up for dead.
    virtual void createTask(const std::string &id, const std::string &userId,
                            const std::string &audioFile, const std::string &language,
                            std::int64_t now)
        = 0;
    virtual std::optional<ClaimedTask> claimTask(const std::string &worker, std::int64_t nowMs,
                                                 std::int64_t leaseMs, int maxClaims)
        = 0;
    // False when the lease is no longer this worker's.
    virtual bool renewLease(const std::string &id, const std::string &worker, std::int64_t untilMs)
        = 0;
    virtual bool completeTask(const std::string &id, const std::string &worker,
                              const std::string &resultJson)
        = 0;
    virtual bool failTask(const std::string &id, const std::string &worker,
                          const std::string &message)
        = 0;
    // Gives a task back untouched (a worker that is stopping), for the next claim.
    virtual void releaseTask(const std::string &id, const std::string &worker) = 0;
    virtual std::optional<TaskRecord> task(const std::string &id) = 0;
    // The upload files of a user's tasks that are waiting or being recognised.
    virtual std::vector<std::string> waitingUploads(const std::string &userId) = 0;

    virtual QueueCounts queueCounts(std::int64_t nowMs) = 0;

    virtual int schemaVersion() = 0;
};

// Opens (creating and migrating as needed) the store at `location`: a
// postgresql:// or postgres:// URL, or else the path of a SQLite file, which is created
// readable by its owner only.
std::unique_ptr<Store> openStore(const std::string &location);

std::string nowIso8601();
std::int64_t unixNow();
std::int64_t unixNowMs();

} // namespace kavel::server
