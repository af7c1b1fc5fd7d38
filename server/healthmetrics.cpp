#include "healthmetrics.h"

#include "connectionfront.h"
#include "serverlog.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <httplib.h>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace kavel::server {

namespace {

thread_local std::optional<std::chrono::steady_clock::time_point> requestStart;

// Routes as labels: a task's id would make a new series of every poll, and paths that
// match no route (scanners probing for well-known files) are all one.
std::string routeLabel(const std::string &path, int status)
{
    const std::string taskPrefix = "/api/media/transcribe/";
    if (path.rfind(taskPrefix, 0) == 0 && path.size() > taskPrefix.size())
        return taskPrefix + "{task}";
    if (status == 404)
        return "other";
    for (char c : path) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '/' && c != '-' && c != '_')
            return "other";
    }
    return path.size() <= 64 ? path : "other";
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value);
    return text;
}

void describe(std::ostringstream &out, const char *name, const char *type, const char *help)
{
    out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

// Resident and virtual size of this process, in bytes.
std::pair<double, double> processMemory()
{
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    statm >> pages >> resident;
    const double pageSize = static_cast<double>(::sysconf(_SC_PAGESIZE));
    return {resident * pageSize, pages * pageSize};
}

bool databaseAnswers(Store &store)
{
    try {
        store.schemaVersion();
        return true;
    } catch (const std::exception &error) {
        logLine(std::string("health check: the database does not answer: ") + error.what());
        return false;
    }
}

void answerHealth(Store &store, httplib::Response &response)
{
    const bool up = databaseAnswers(store);
    response.status = up ? 200 : 503;
    response.set_header("Cache-Control", "no-store");
    response.set_content(up ? "ok\n" : "database unavailable\n", "text/plain; charset=utf-8");
}

void answerMetrics(Store &store, const ServiceMetrics &metrics, const std::string &uploads,
                   httplib::Response &response)
{
    response.set_header("Cache-Control", "no-store");
    response.set_content(metrics.exposition(store, uploads), "text/plain; version=0.0.4");
}

} // namespace

void ServiceMetrics::requestArrived()
{
    requestStart = std::chrono::steady_clock::now();
}

void ServiceMetrics::requestServed(const std::string &path, int status)
{
    const std::string route = routeLabel(path, status);
    std::optional<double> took;
    if (requestStart)
        took = std::chrono::duration<double>(std::chrono::steady_clock::now() - *requestStart)
                   .count();
    requestStart.reset();
    const std::lock_guard lock(m_mutex);
    ++m_requests[{route, status}];
    if (!took)
        return;
    Latency &latency = m_latency[route];
    for (size_t i = 0; i < latencyBuckets.size(); ++i)
        latency.buckets[i] += *took <= latencyBuckets[i] ? 1 : 0;
    ++latency.count;
    latency.sum += *took;
}

void ServiceMetrics::recognised(double audioSeconds, double wallSeconds)
{
    const std::lock_guard lock(m_mutex);
    ++m_recognitions;
    m_audioSeconds += audioSeconds;
    m_recognitionSeconds += wallSeconds;
    if (audioSeconds > 0)
        m_lastRealTimeFactor = wallSeconds / audioSeconds;
}

std::string ServiceMetrics::exposition(Store &store, const std::string &uploadDirectory) const
{
    std::ostringstream out;
    {
        const std::lock_guard lock(m_mutex);
        describe(out, "kavel_http_requests_total", "counter",
                 "Requests answered, by route and status.");
        for (const auto &[key, count] : m_requests)
            out << "kavel_http_requests_total{route=\"" << key.first << "\",status=\"" << key.second
                << "\"} " << count << '\n';
        describe(out, "kavel_http_request_duration_seconds", "histogram",
                 "Time from a request's head to its answer, by route.");
        for (const auto &[route, latency] : m_latency) {
            const std::string label = "kavel_http_request_duration_seconds_bucket{route=\"" + route;
            for (size_t i = 0; i < latencyBuckets.size(); ++i)
                out << label << "\",le=\"" << number(latencyBuckets[i]) << "\"} "
                    << latency.buckets[i] << '\n';
            out << label << "\",le=\"+Inf\"} " << latency.count << '\n'
                << "kavel_http_request_duration_seconds_sum{route=\"" << route << "\"} "
                << number(latency.sum) << '\n'
                << "kavel_http_request_duration_seconds_count{route=\"" << route << "\"} "
                << latency.count << '\n';
        }
        describe(out, "kavel_recognitions_total", "counter",
                 "Recordings recognised by this process's workers.");
        out << "kavel_recognitions_total " << m_recognitions << '\n';
        describe(out, "kavel_recognition_audio_seconds_total", "counter",
                 "Seconds of audio recognised by this process's workers.");
        out << "kavel_recognition_audio_seconds_total " << number(m_audioSeconds) << '\n';
        describe(out, "kavel_recognition_seconds_total", "counter",
                 "Seconds this process's workers spent recognising.");
        out << "kavel_recognition_seconds_total " << number(m_recognitionSeconds) << '\n';
        describe(out, "kavel_recognition_real_time_factor", "gauge",
                 "Recognition time over audio time of the last recording recognised here.");
        out << "kavel_recognition_real_time_factor " << number(m_lastRealTimeFactor) << '\n';
    }

    std::optional<QueueCounts> queue;
    try {
        queue = store.queueCounts(unixNowMs());
    } catch (const std::exception &error) {
        logLine(std::string("metrics: the database does not answer: ") + error.what());
    }
    describe(out, "kavel_database_up", "gauge", "Whether the database answered the last scrape.");
    out << "kavel_database_up " << (queue ? 1 : 0) << '\n';
    if (queue) {
        describe(out, "kavel_tasks", "gauge", "Recognition tasks in the database, by state.");
        std::map<std::string, std::int64_t> states {
            {"pending", 0}, {"processing", 0}, {"completed", 0}, {"failed", 0}};
        for (const auto &[state, count] : queue->byStatus)
            states[state] = count;
        for (const auto &[state, count] : states)
            out << "kavel_tasks{state=\"" << state << "\"} " << count << '\n';
        describe(out, "kavel_worker_leases_held", "gauge",
                 "Tasks that a worker of any node holds under a live lease.");
        out << "kavel_worker_leases_held " << queue->leasesHeld << '\n';
    }

    std::uint64_t waiting = 0;
    std::uint64_t waitingBytes = 0;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(uploadDirectory, error)) {
        std::error_code ignored;
        if (!entry.is_regular_file(ignored))
            continue;
        ++waiting;
        waitingBytes += entry.file_size(ignored);
    }
    describe(out, "kavel_uploads_waiting", "gauge",
             "Uploaded recordings in the upload folder, waiting for or under recognition.");
    out << "kavel_uploads_waiting " << waiting << '\n';
    describe(out, "kavel_uploads_waiting_bytes", "gauge", "Their size in bytes.");
    out << "kavel_uploads_waiting_bytes " << waitingBytes << '\n';

    const auto [resident, virtualSize] = processMemory();
    describe(out, "process_resident_memory_bytes", "gauge", "Resident memory size in bytes.");
    out << "process_resident_memory_bytes " << number(resident) << '\n';
    describe(out, "process_virtual_memory_bytes", "gauge", "Virtual memory size in bytes.");
    out << "process_virtual_memory_bytes " << number(virtualSize) << '\n';
    return out.str();
}

bool isLoopbackPeer(const std::string &address)
{
    return address.rfind("127.", 0) == 0 || address == "::1"
        || address.rfind("::ffff:127.", 0) == 0;
}

void addOperatorRoutes(httplib::Server &server, Store &store, const ServiceMetrics &metrics,
                       const std::string &uploadDirectory, MetricsAccess access)
{
    server.Get("/healthz", [&store](const httplib::Request &, httplib::Response &response) {
        answerHealth(store, response);
    });
    server.Get("/metrics",
               [&store, &metrics, uploadDirectory, access](const httplib::Request &request,
                                                           httplib::Response &response) {
                   if (access(request, response))
                       answerMetrics(store, metrics, uploadDirectory, response);
               });
}

namespace {

FrontOptions operatorFront()
{
    FrontOptions options;
    options.threads = 2;
    return options;
}

} // namespace

OperatorListener::OperatorListener(Store &store, const ServiceMetrics &metrics,
                                   std::string uploadDirectory)
    // Its two threads, too, take only connections whose request has arrived: a load
    // balancer's health check must not wait behind someone trickling a request.
    : m_server(std::make_unique<FrontedServer<httplib::Server>>(operatorFront()))
{
    addOperatorRoutes(*m_server, store, metrics, uploadDirectory,
                      [](const httplib::Request &, httplib::Response &) { return true; });
}

OperatorListener::~OperatorListener()
{
    m_server->stop();
    if (m_thread.joinable())
        m_thread.join();
}

int OperatorListener::start(const std::string &where, std::string &error)
{
    const auto colon = where.rfind(':');
    std::string address = colon == std::string::npos ? std::string() : where.substr(0, colon);
    if (address.size() > 2 && address.front() == '[' && address.back() == ']')
        address = address.substr(1, address.size() - 2);
    char *end = nullptr;
    const std::string portText = colon == std::string::npos ? "" : where.substr(colon + 1);
    const long port = std::strtol(portText.c_str(), &end, 10);
    if (address.empty() || portText.empty() || *end != '\0' || port < 0 || port > 65535) {
        error = "--metrics-bind takes ADDRESS:PORT, such as 0.0.0.0:9417";
        return -1;
    }
    const int bound = port == 0
        ? m_server->bind_to_any_port(address)
        : (m_server->bind_to_port(address, static_cast<int>(port)) ? static_cast<int>(port) : -1);
    if (bound < 0) {
        error = "cannot listen for metrics on " + where;
        return -1;
    }
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    return bound;
}

} // namespace kavel::server
