#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <string>

namespace kavel::server {

// What a client's address counts as: an IPv6 client is given a /64 network of its own
// and may send from any address in it, so the network is counted, not the address. IPv4
// addresses (mapped into IPv6 or not) are counted as they are.
inline std::string clientNetwork(const std::string &address)
{
    in6_addr ip {};
    if (address.find(':') == std::string::npos || ::inet_pton(AF_INET6, address.c_str(), &ip) != 1
        || IN6_IS_ADDR_V4MAPPED(&ip))
        return address;
    std::memset(ip.s6_addr + 8, 0, 8);
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET6, &ip, text, sizeof text);
    return std::string(text) + "/64";
}

// At most `limit` events per key within a sliding `window`. Kept in the memory of one
// API node: a deployment of N nodes admits up to N times as many, which still turns a
// password-guessing flood into a trickle.
class RateLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    RateLimiter(int limit, std::chrono::seconds window)
        : m_limit(static_cast<size_t>(limit))
        , m_window(window)
    { }

    // Counts an event for `key`; nothing when it is admitted, otherwise how long until
    // the next one would be (whole seconds, at least 1).
    std::optional<std::int64_t> admit(const std::string &key, Clock::time_point now = Clock::now())
    {
        const std::lock_guard lock(m_mutex);
        if (++m_calls % 1024 == 0)
            forgetIdle(now);
        std::deque<Clock::time_point> &events = m_events[key];
        while (!events.empty() && now - events.front() >= m_window)
            events.pop_front();
        if (events.size() >= m_limit) {
            const auto wait
                = std::chrono::ceil<std::chrono::seconds>(events.front() + m_window - now);
            return std::max<std::int64_t>(1, wait.count());
        }
        events.push_back(now);
        return std::nullopt;
    }

private:
    // Keys whose events have all expired take no memory: a flood of made-up account
    // names cannot grow the map without bound.
    void forgetIdle(Clock::time_point now)
    {
        for (auto it = m_events.begin(); it != m_events.end();) {
            if (it->second.empty() || now - it->second.back() >= m_window)
                it = m_events.erase(it);
            else
                ++it;
        }
    }

    size_t m_limit;
    Clock::duration m_window;
    std::mutex m_mutex;
    std::map<std::string, std::deque<Clock::time_point>> m_events;
    std::uint64_t m_calls = 0;
};

// Password guesses, counted per account and client network together, so that whoever
// guesses at an account slows down only themselves: its owner, signing in from an
// address that has not been failing, goes straight through. The first few attempts of a
// pair are free; after them each one must wait twice as long as the one before (1 s,
// 2 s, 4 s, … up to a quarter of an hour). A successful sign-in clears the pair.
class GuessThrottle
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int freeAttempts = 5;
    static constexpr std::chrono::seconds longestWait {900};
    // A pair that has not tried for this long starts afresh.
    static constexpr std::chrono::hours memory {1};

    // Counts an attempt (before its password is checked, so that concurrent guesses
    // cannot slip past the count); nothing when it may go ahead, otherwise the seconds
    // to wait.
    std::optional<std::int64_t> admit(const std::string &account, const std::string &address,
                                      Clock::time_point now = Clock::now())
    {
        const std::lock_guard lock(m_mutex);
        if (++m_calls % 1024 == 0)
            std::erase_if(m_pairs,
                          [now](const auto &entry) { return now - entry.second.last >= memory; });
        Pair &pair = m_pairs[account + '\n' + clientNetwork(address)];
        if (pair.attempts > 0 && now - pair.last >= memory)
            pair = Pair {};
        if (now < pair.notBefore)
            return std::max<std::int64_t>(
                1, std::chrono::ceil<std::chrono::seconds>(pair.notBefore - now).count());
        pair.last = now;
        if (++pair.attempts > freeAttempts) {
            const int doublings = std::min(pair.attempts - freeAttempts - 1, 10);
            pair.notBefore = now
                + std::min<Clock::duration>(std::chrono::seconds(std::int64_t {1} << doublings),
                                            longestWait);
        }
        return std::nullopt;
    }

    void succeeded(const std::string &account, const std::string &address)
    {
        const std::lock_guard lock(m_mutex);
        m_pairs.erase(account + '\n' + clientNetwork(address));
    }

private:
    struct Pair
    {
        int attempts = 0;
        Clock::time_point last;
        Clock::time_point notBefore;
    };
    std::mutex m_mutex;
    std::map<std::string, Pair> m_pairs;
    std::uint64_t m_calls = 0;
};

} // namespace kavel::server
