#pragma once

#include "healthmetrics.h"
#include "ratelimiter.h"
#include "smssender.h"
#include "store.h"
#include "taskprogress.h"
#include "uploadspool.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace httplib {
class Server;
class ContentReader;
struct Request;
struct Response;
} // namespace httplib

namespace kavel::server {

// The HTTP face of the service: sign-in under /api/auth, recognition under /api/media.
// Replies are JSON with snake_case keys; failures carry {"detail": reason}.
struct HttpOptions
{
    std::string uploadDirectory;
    // Serve HTTPS with this certificate chain and private key (PEM files) when both are
    // given.
    std::string tlsCertificate;
    std::string tlsKey;
    int threads = 16;
    // What one user may have waiting for recognition at once.
    int maxWaitingUploads = 64;
    std::uint64_t maxWaitingUploadBytes = std::uint64_t {4} << 30;
    // The progress of the tasks this process recognises; without it a running task
    // reports none until it ends.
    TaskProgress *progress = nullptr;
    // The languages the recogniser hears (BCP 47 tags); the first serves uploads that
    // name none.
    std::vector<std::string> languages {"en"};
    // Where requests are counted for GET /metrics; shared with this process's workers.
    std::shared_ptr<ServiceMetrics> metrics = std::make_shared<ServiceMetrics>();
};

class HttpService
{
public:
    // `taskQueued` is called after each upload has become a task, to wake the workers of
    // this process if it has any.
    // Throws std::runtime_error when the TLS certificate or key cannot be loaded.
    HttpService(Store &store, SmsSender &sms, HttpOptions options,
                std::function<void()> taskQueued);
    ~HttpService();

    // Port 0 picks a free one. Returns the bound port, or -1.
    int bind(const std::string &address, int port);
    // Serves until stop() is called from another thread.
    bool run();
    void stop();

private:
    void routes();
    // Decides what can be decided from the headers alone, before any body is read.
    bool screen(const httplib::Request &request, httplib::Response &response);
    std::optional<UserRecord> authenticate(const httplib::Request &request,
                                           httplib::Response &response);
    void sendSmsCode(const httplib::Request &request, httplib::Response &response);
    void login(const httplib::Request &request, httplib::Response &response);
    void me(const httplib::Request &request, httplib::Response &response);
    void upload(const httplib::Request &request, httplib::Response &response,
                const httplib::ContentReader &content);
    void poll(const httplib::Request &request, httplib::Response &response);
    // How long a poll may wait for its task to move on: the "wait" query parameter in
    // seconds, capped, and none while too many polls already wait.
    std::chrono::milliseconds pollWait(const httplib::Request &request) const;

    Store &m_store;
    SmsSender &m_sms;
    HttpOptions m_options;
    std::function<void()> m_taskQueued;
    // What an unknown account's password is checked against, so that it costs as much
    // as a known one's and the time of the answer does not tell them apart.
    std::string m_decoyHash;
    RateLimiter m_signInsByAddress;
    GuessThrottle m_guesses;
    UploadLedger m_uploads;
    int m_listeningSocket = -1;
    std::atomic<int> m_waitingPolls = 0;
    std::unique_ptr<httplib::Server> m_server;
};

} // namespace kavel::server
