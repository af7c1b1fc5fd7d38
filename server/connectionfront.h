#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kavel::server {

struct FrontOptions
{
    // Request threads: they only ever see a connection whose request head (and small
    // body) has arrived, so slow clients wait in the front instead of holding them.
    int threads = 16;
    // From accepting a connection (or the first byte of a kept-alive one's next
    // request) until its whole head has arrived, however the bytes trickle in.
    std::chrono::milliseconds headDeadline {10000};
    // How long a kept-alive connection may sit idle between requests.
    std::chrono::milliseconds keepAliveIdle {2000};
    // Between the bytes of a body a request thread reads (an upload), and for a
    // response to leave.
    std::chrono::milliseconds readTimeout {5000};
    std::chrono::milliseconds writeTimeout {10000};
    // A request head that has waited this long for a request thread is answered 503.
    std::chrono::milliseconds maxQueueWait {2000};
    // A body up to this size with a declared length is read in the front as well.
    size_t smallBody = 64 << 10;
    int requestsPerConnection = 100;
    // Connections held at once; the one closest to its deadline makes room for a
    // newcomer.
    size_t maxConnections = 4096;
};

// Serves one request from `stream`, as httplib's own connection loop would. `last` asks
// for the connection to be closed after the response; `closed` says the request or
// response closed it. False when the connection cannot go on.
using RequestHandler = std::function<bool(httplib::Stream &stream, bool last, bool &closed)>;

// The front of the service: accepted connections wait here, all of them watched by one
// thread with poll(), until a whole request head has arrived (and the TLS handshake has
// ended); only then does a request thread take the connection, serve one request and
// give it back to wait for the next. Responses leave in one write on sockets with
// TCP_NODELAY, so a kept-alive client never waits for a delayed acknowledgement.
class ConnectionFront
{
public:
    // `tls` is the context to accept TLS connections with, or null for plain HTTP.
    ConnectionFront(FrontOptions options, SSL_CTX *tls, RequestHandler handler);
    ~ConnectionFront();
    ConnectionFront(const ConnectionFront &) = delete;
    ConnectionFront &operator=(const ConnectionFront &) = delete;

    // Takes over a freshly accepted socket; returns at once.
    void adopt(int socket);
    // Closes every connection and joins the threads; a request being served ends first.
    void stop();

    struct Connection;

private:
    using Clock = std::chrono::steady_clock;

    void watch();
    void serve();
    // Reads what the connection has; false when it is finished with (closed, failed,
    // or sent something that is not HTTP).
    bool receive(Connection &connection);
    // Whether a request thread can take the connection now. Answers a client that waits
    // for leave to send its small body.
    bool headComplete(Connection &connection);
    void dispatch(std::unique_ptr<Connection> connection);
    void wake();

    FrontOptions m_options;
    SSL_CTX *m_tls;
    RequestHandler m_handler;
    int m_wakeFd = -1;
    std::atomic<bool> m_stopping = false;

    std::mutex m_mutex;
    // Handed to the front: new sockets and connections back from a request.
    std::vector<std::unique_ptr<Connection>> m_incoming;
    // Ready for a request thread.
    std::deque<std::unique_ptr<Connection>> m_ready;
    std::condition_variable m_readyChanged;

    std::thread m_watcher;
    std::vector<std::thread> m_servers;
};

// An httplib server whose connections go through a ConnectionFront instead of being
// handed to a pool thread each. `Base` is httplib::Server or httplib::SSLServer.
template<class Base> class FrontedServer final : public Base
{
public:
    template<class... Arguments>
    explicit FrontedServer(FrontOptions options, Arguments &&...arguments)
        : Base(std::forward<Arguments>(arguments)...)
        , m_options(options)
    {
        // The library accepts and "enqueues" each socket; the queue hands it straight
        // to the front, whose own threads do the rest.
        this->new_task_queue = [this] { return new Queue(*this); };
    }

private:
    struct Queue final : httplib::TaskQueue
    {
        explicit Queue(FrontedServer &server)
            : front(server.m_options, context(server),
                    [&server](httplib::Stream &stream, bool last, bool &closed) {
                        return server.process_request(stream, last, closed, nullptr);
                    })
        {
            server.m_front = &front;
        }
        void enqueue(std::function<void()> work) override { work(); }
        void shutdown() override { front.stop(); }
        ConnectionFront front;
    };

    static SSL_CTX *context(FrontedServer &server)
    {
        if constexpr (std::is_base_of_v<httplib::SSLServer, Base>)
            return server.ssl_context();
        else
            return nullptr;
    }

    bool process_and_close_socket(socket_t socket) override
    {
        m_front->adopt(socket);
        return true;
    }

    FrontOptions m_options;
    ConnectionFront *m_front = nullptr;
};

} // namespace kavel::server
