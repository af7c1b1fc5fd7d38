#pragma once

#include "smssender.h"
#include "store.h"

#include <functional>
#include <memory>
#include <string>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace kavel::server {

// The HTTP face of the service: sign-in under /api/auth, recognition under /api/media.
// Replies are JSON with snake_case keys; failures carry {"detail": reason}.
class HttpService
{
public:
    // `taskQueued` is called after each upload has become a task, to wake the workers of
    // this process if it has any.
    HttpService(Store &store, SmsSender &sms, std::string uploadDirectory,
                std::function<void()> taskQueued);
    ~HttpService();

    // Binds to 127.0.0.1; port 0 picks a free one. Returns the bound port, or -1.
    int bind(int port);
    // Serves until stop() is called from another thread.
    bool run();
    void stop();

private:
    void routes();
    std::optional<UserRecord> authenticate(const httplib::Request &request,
                                           httplib::Response &response);
    void sendSmsCode(const httplib::Request &request, httplib::Response &response);
    void login(const httplib::Request &request, httplib::Response &response);
    void me(const httplib::Request &request, httplib::Response &response);
    void upload(const httplib::Request &request, httplib::Response &response);
    void poll(const httplib::Request &request, httplib::Response &response);

    Store &m_store;
    SmsSender &m_sms;
    std::string m_uploadDirectory;
    std::function<void()> m_taskQueued;
    std::unique_ptr<httplib::Server> m_server;
};

} // namespace kavel::server
