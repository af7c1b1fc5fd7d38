#pragma once

#include "store.h"

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace kavel::server {

// What operators watch a running service by: requests by route and status with their
// latency, and the recognition this process has done. Counted from any thread; the
// queue, upload and memory figures are read when the metrics are asked for.
class ServiceMetrics
{
public:
    // Upper bounds of the latency histogram's buckets, in seconds.
    static constexpr std::array<double, 12> latencyBuckets {0.005, 0.01, 0.025, 0.05, 0.1, 0.25,
                                                            0.5,   1,    2.5,   5,    10,  30};

    // Marks the start of the request this thread is about to serve.
    void requestArrived();
    // Counts the request this thread has served; its latency counts when its start was
    // marked.
    void requestServed(const std::string &path, int status);
    void recognised(double audioSeconds, double wallSeconds);

    // Every figure in the Prometheus text format. The store's failure is reported as
    // kavel_database_up 0 rather than as a failed scrape.
    std::string exposition(Store &store, const std::string &uploadDirectory) const;

private:
    struct Latency
    {
        std::array<std::uint64_t, latencyBuckets.size()> buckets {};
        std::uint64_t count = 0;
        double sum = 0;
    };

    mutable std::mutex m_mutex;
    std::map<std::pair<std::string, int>, std::uint64_t> m_requests; // by route and status
    std::map<std::string, Latency> m_latency; // by route
    std::uint64_t m_recognitions = 0;
    double m_audioSeconds = 0;
    double m_recognitionSeconds = 0;
    double m_lastRealTimeFactor = 0;
};

// Whether a request may read the metrics: without a token from the machine itself,
// otherwise as the service's own policy says (filling in the refusal).
using MetricsAccess = std::function<bool(const httplib::Request &, httplib::Response &)>;

// GET /healthz (200 when the database answers a trivial query, 503 when it does not;
// nothing else is said) and GET /metrics on `server`.
void addOperatorRoutes(httplib::Server &server, Store &store, const ServiceMetrics &metrics,
                       const std::string &uploadDirectory, MetricsAccess access);

bool isLoopbackPeer(const std::string &address);

// A plain HTTP listener of its own for /healthz and /metrics, open to whoever reaches
// its address, for a scraper on another machine.
class OperatorListener
{
public:
    OperatorListener(Store &store, const ServiceMetrics &metrics, std::string uploadDirectory);
    ~OperatorListener();

    // "ADDRESS:PORT" ("[::1]:9417" for IPv6); port 0 picks one. Returns the bound port,
    // or -1 with `error` filled in.
    int start(const std::string &where, std::string &error);

private:
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
};

} // namespace kavel::server
