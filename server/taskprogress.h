#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace kavel::server {

// How far the recognition of each task has come, as the workers of this process tell it,
// and a place for requests to wait until some task moves on. Only this process's workers
// report here: a task recognised by a worker elsewhere shows no progress until it ends,
// which waiting requests notice by reading the store again now and then.
class TaskProgress
{
public:
    // 0 to 1.
    void report(const std::string &taskId, double done);
    // The task has ended (or was given up by this process): forget it, wake the waiters.
    void finish(const std::string &taskId);
    std::optional<double> progress(const std::string &taskId) const;

    // Counts every report and finish; a waiter passes the count it saw.
    std::uint64_t changes() const;
    // Returns when the count has moved past `seen`, or at `until`.
    void waitForChange(std::uint64_t seen, std::chrono::steady_clock::time_point until) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::map<std::string, double> m_progress;
    std::uint64_t m_changes = 0;
};

} // namespace kavel::server
