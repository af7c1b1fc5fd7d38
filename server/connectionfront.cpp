#include "connectionfront.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kavel::server {

namespace {

using Clock = std::chrono::steady_clock;

// Larger heads are not requests this service answers.
constexpr size_t maxHeadBytes = 16 << 10;
constexpr size_t readChunk = 16 << 10;
// Output is sent when the response is complete, or early once this much has piled up.
constexpr size_t maxPendingOutput = 256 << 10;

// Outcome of one non-blocking transfer: bytes moved, 0 at the peer's end, `failed`, or
// `blocked` with the poll events to wait for in `wanted`.
constexpr ssize_t failed = -1;
constexpr ssize_t blocked = -2;

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 24 * 3600 * 1000));
}

bool waitFor(int fd, short events, std::chrono::milliseconds timeout)
{
    pollfd entry {fd, events, 0};
    int ready;
    do
        ready = ::poll(&entry, 1, static_cast<int>(timeout.count()));
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

void describe(const sockaddr_storage &address, std::string &ip, int &port)
{
    char host[NI_MAXHOST] = {};
    char service[NI_MAXSERV] = {};
    if (::getnameinfo(reinterpret_cast<const sockaddr *>(&address), sizeof address, host,
                      sizeof host, service, sizeof service, NI_NUMERICHOST | NI_NUMERICSERV)
        == 0) {
        ip = host;
        port = std::atoi(service);
    }
}

} // namespace

struct ConnectionFront::Connection
{
    int fd = -1;
    SSL *ssl = nullptr;
    bool handshaking = false;
    // Read but not yet consumed, from `consumed` on.
    std::string input;
    size_t consumed = 0;
    std::string output;
    Clock::time_point deadline;
    // Whether the head of the next request has begun (its deadline then runs).
    bool begun = true;
    Clock::time_point readyAt;
    int served = 0;
    // Poll events the transport waits for next.
    short wanted = POLLIN;

    ~Connection()
    {
        if (ssl) {
            SSL_shutdown(ssl);
            SSL_free(ssl);
        }
        if (fd >= 0) {
            ::shutdown(fd, SHUT_RDWR);
            ::close(fd);
        }
    }

    size_t buffered() const { return input.size() - consumed; }

    ssize_t tlsResult(int result)
    {
        if (result > 0)
            return result;
        switch (SSL_get_error(ssl, result)) {
        case SSL_ERROR_WANT_READ:
            wanted = POLLIN;
            return blocked;
        case SSL_ERROR_WANT_WRITE:
            wanted = POLLOUT;
            return blocked;
        case SSL_ERROR_ZERO_RETURN:
            return 0;
        default:
            return failed;
        }
    }

    ssize_t socketResult(ssize_t result, short events)
    {
        if (result >= 0)
            return result;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
            wanted = events;
            return blocked;
        }
        return failed;
    }

    ssize_t readSome(char *data, size_t size)
    {
        if (ssl)
            return tlsResult(
                SSL_read(ssl, data, static_cast<int>(std::min<size_t>(size, 1 << 30))));
        return socketResult(::recv(fd, data, size, 0), POLLIN);
    }

    ssize_t writeSome(const char *data, size_t size)
    {
        if (ssl)
            return tlsResult(
                SSL_write(ssl, data, static_cast<int>(std::min<size_t>(size, 1 << 30))));
        return socketResult(::send(fd, data, size, MSG_NOSIGNAL), POLLOUT);
    }

    // Appends what can be read without waiting (up to `limit` buffered bytes).
    ssize_t fill(size_t limit)
    {
        if (consumed == input.size()) {
            input.clear();
            consumed = 0;
        }
        ssize_t total = 0;
        while (buffered() < limit) {
            const size_t old = input.size();
            input.resize(old + readChunk);
            const ssize_t n = readSome(input.data() + old, readChunk);
            input.resize(old + static_cast<size_t>(std::max<ssize_t>(n, 0)));
            if (n <= 0)
                return total > 0 ? total : n;
            total += n;
        }
        return total;
    }

    bool flush(std::chrono::milliseconds timeout)
    {
        size_t sent = 0;
        while (sent < output.size()) {
            const ssize_t n = writeSome(output.data() + sent, output.size() - sent);
            if (n == blocked && waitFor(fd, wanted, timeout))
                continue;
            if (n <= 0) {
                output.clear();
                return false;
            }
            sent += static_cast<size_t>(n);
        }
        output.clear();
        return true;
    }
};

namespace {

// What a request thread reads a request from and writes its response to: the bytes the
// front read ahead first, then the socket; writes are gathered and sent in one piece.
class FrontStream final : public httplib::Stream
{
public:
    FrontStream(ConnectionFront::Connection &connection, const FrontOptions &options,
                const std::atomic<bool> &stopping)
        : m_connection(connection)
        , m_options(options)
        , m_stopping(stopping)
    { }

    bool is_readable() const override
    {
        return m_connection.buffered() > 0 || (m_connection.ssl && SSL_pending(m_connection.ssl))
            || waitFor(m_connection.fd, POLLIN, m_options.readTimeout);
    }
    bool is_writable() const override { return !m_broken; }

    ssize_t read(char *data, size_t size) override
    {
        // Whatever was written so far (a "100 Continue") must reach the client before
        // it will send more.
        if (!m_connection.output.empty() && !flush())
            return -1;
        while (m_connection.buffered() == 0) {
            // A body still on its way (an upload) does not hold up a stopping server.
            if (m_stopping)
                return -1;
            const ssize_t n = m_connection.fill(readChunk);
            if (n == blocked) {
                if (!awaitInput())
                    return -1;
                continue;
            }
            if (n <= 0)
                return n == 0 ? 0 : -1;
        }
        const size_t n = std::min(size, m_connection.buffered());
        std::memcpy(data, m_connection.input.data() + m_connection.consumed, n);
        m_connection.consumed += n;
        return static_cast<ssize_t>(n);
    }

    ssize_t write(const char *data, size_t size) override
    {
        if (m_broken)
            return -1;
        m_connection.output.append(data, size);
        if (m_connection.output.size() >= maxPendingOutput && !flush())
            return -1;
        return static_cast<ssize_t>(size);
    }

    void get_remote_ip_and_port(std::string &ip, int &port) const override
    {
        sockaddr_storage address {};
        socklen_t length = sizeof address;
        if (::getpeername(m_connection.fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
            describe(address, ip, port);
    }
    void get_local_ip_and_port(std::string &ip, int &port) const override
    {
        sockaddr_storage address {};
        socklen_t length = sizeof address;
        if (::getsockname(m_connection.fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
            describe(address, ip, port);
    }
    socket_t socket() const override { return m_connection.fd; }

    // Waits up to the read timeout for the socket, in slices, so that a server that is
    // stopping need not wait out a slow client.
    bool awaitInput() const
    {
        const auto deadline = Clock::now() + m_options.readTimeout;
        while (!m_stopping && Clock::now() < deadline) {
            if (waitFor(m_connection.fd, m_connection.wanted,
                        std::min(std::chrono::milliseconds(250),
                                 std::chrono::milliseconds(millisecondsUntil(deadline)))))
                return true;
        }
        return false;
    }

    bool flush()
    {
        if (!m_broken && !m_connection.flush(m_options.writeTimeout))
            m_broken = true;
        return !m_broken;
    }
    bool broken() const { return m_broken; }

private:
    ConnectionFront::Connection &m_connection;
    const FrontOptions &m_options;
    const std::atomic<bool> &m_stopping;
    bool m_broken = false;
};

constexpr std::string_view busyBody = R"({"detail":"The server is busy; try again shortly"})";

} // namespace

ConnectionFront::ConnectionFront(FrontOptions options, SSL_CTX *tls, RequestHandler handler)
    : m_options(options)
    , m_tls(tls)
    , m_handler(std::move(handler))
    , m_wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    // poll() takes no more descriptors than the process may open; keep a margin for the
    // listening socket, the database and the uploads being written.
    rlimit files {};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur != RLIM_INFINITY)
        m_options.maxConnections = std::min<size_t>(
            m_options.maxConnections, files.rlim_cur > 256 ? files.rlim_cur - 128 : 128);
    m_watcher = std::thread([this] { watch(); });
    for (int i = 0; i < m_options.threads; ++i)
        m_servers.emplace_back([this] { serve(); });
}

ConnectionFront::~ConnectionFront()
{
    stop();
    ::close(m_wakeFd);
}

void ConnectionFront::adopt(int socket)
{
    auto connection = std::make_unique<Connection>();
    connection->fd = socket;
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    const int yes = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    connection->deadline = Clock::now() + m_options.headDeadline;
    if (m_tls) {
        connection->ssl = SSL_new(m_tls);
        if (!connection->ssl)
            return;
        SSL_set_fd(connection->ssl, socket);
        connection->handshaking = true;
    }
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping)
            return;
        m_incoming.push_back(std::move(connection));
    }
    wake();
}

void ConnectionFront::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping && !m_watcher.joinable())
            return;
        m_stopping = true;
    }
    wake();
    m_readyChanged.notify_all();
    if (m_watcher.joinable())
        m_watcher.join();
    for (std::thread &thread : m_servers)
        thread.join();
    m_servers.clear();
    const std::lock_guard lock(m_mutex);
    m_incoming.clear();
    m_ready.clear();
}

void ConnectionFront::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wakeFd, &one, sizeof one);
}

bool ConnectionFront::receive(Connection &connection)
{
    if (connection.handshaking) {
        const ssize_t n = connection.tlsResult(SSL_accept(connection.ssl));
        if (n == blocked)
            return true;
        if (n <= 0)
            return false;
        connection.handshaking = false;
        connection.wanted = POLLIN;
    }
    // A head, and the small body that may follow it, fit in this much.
    const ssize_t n = connection.fill(maxHeadBytes + m_options.smallBody + 1);
    if (n == 0 || n == failed)
        return false;
    if (connection.buffered() > 0 && !connection.begun) {
        connection.begun = true;
        connection.deadline = Clock::now() + m_options.headDeadline;
    }
    const std::string_view pending(connection.input.data() + connection.consumed,
                                   connection.buffered());
    return pending.find("\r\n\r\n") != std::string_view::npos || pending.size() <= maxHeadBytes;
}

bool ConnectionFront::headComplete(Connection &connection)
{
    if (connection.handshaking)
        return false;
    const std::string_view pending(connection.input.data() + connection.consumed,
                                   connection.buffered());
    const size_t end = pending.find("\r\n\r\n");
    if (end == std::string_view::npos)
        return false;
    // A small body with a declared length is waited for here as well, so that only
    // uploads are read by a request thread.
    size_t length = 0;
    size_t expectation = std::string_view::npos;
    size_t line = pending.find("\r\n");
    while (line < end) {
        const size_t next = pending.find("\r\n", line + 2);
        const std::string header = lowered(pending.substr(line + 2, next - line - 2));
        if (header.rfind("content-length:", 0) == 0)
            length = std::strtoull(header.c_str() + 15, nullptr, 10);
        else if (header.rfind("transfer-encoding:", 0) == 0)
            return true;
        else if (header.rfind("expect:", 0) == 0
                 && header.find("100-continue") != std::string::npos)
            expectation = connection.consumed + line + 2;
        line = next;
    }
    if (length > m_options.smallBody || pending.size() >= end + 4 + length)
        return true;
    // A client that asks before sending a small body is told to go ahead from here, and
    // its body is waited for like any other: answered by a request thread, a body
    // trickled after the answer would hold that thread for as long as it kept coming.
    // The question is struck from the head so that the request thread does not answer
    // it a second time.
    if (expectation != std::string_view::npos) {
        connection.input[expectation] = 'X';
        connection.output = "HTTP/1.1 100 Continue\r\n\r\n";
        if (!connection.flush(std::chrono::milliseconds(0)))
            connection.deadline = Clock::time_point::min();
    }
    return false;
}

void ConnectionFront::dispatch(std::unique_ptr<Connection> connection)
{
    connection->readyAt = Clock::now();
    {
        const std::lock_guard lock(m_mutex);
        m_ready.push_back(std::move(connection));
    }
    m_readyChanged.notify_one();
}

void ConnectionFront::watch()
{
    std::vector<std::unique_ptr<Connection>> held;
    std::vector<pollfd> entries;
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopping)
                return;
            for (auto &connection : m_incoming) {
                // A kept-alive connection may have brought its next request along.
                if (headComplete(*connection)) {
                    connection->readyAt = Clock::now();
                    m_ready.push_back(std::move(connection));
                    m_readyChanged.notify_one();
                    continue;
                }
                if (held.size() >= m_options.maxConnections) {
                    const auto soonest = std::min_element(
                        held.begin(), held.end(),
                        [](const auto &a, const auto &b) { return a->deadline < b->deadline; });
                    held.erase(soonest);
                }
                held.push_back(std::move(connection));
            }
            m_incoming.clear();
        }

        entries.assign(1, pollfd {m_wakeFd, POLLIN, 0});
        Clock::time_point soonest = Clock::time_point::max();
        for (const auto &connection : held) {
            entries.push_back(pollfd {connection->fd, connection->wanted, 0});
            soonest = std::min(soonest, connection->deadline);
        }
        const int timeout = soonest == Clock::time_point::max() ? -1 : millisecondsUntil(soonest);
        if (::poll(entries.data(), entries.size(), timeout) < 0) {
            // Only EINTR and ENOMEM can happen here; either way, look again.
            for (pollfd &entry : entries)
                entry.revents = 0;
        }
        if (entries[0].revents) {
            std::uint64_t count;
            [[maybe_unused]] const ssize_t read = ::read(m_wakeFd, &count, sizeof count);
        }

        const auto now = Clock::now();
        std::vector<std::unique_ptr<Connection>> waiting;
        waiting.reserve(held.size());
        for (size_t i = 0; i < held.size(); ++i) {
            auto &connection = held[i];
            if (entries[i + 1].revents && !receive(*connection))
                continue;
            if (headComplete(*connection)) {
                dispatch(std::move(connection));
                continue;
            }
            // Past the deadline the connection is dropped without an answer: whoever
            // trickles a head that slowly is not waiting for one.
            if (now < connection->deadline)
                waiting.push_back(std::move(connection));
        }
        held.swap(waiting);
    }
}

void ConnectionFront::serve()
{
    for (;;) {
        std::unique_ptr<Connection> connection;
        {
            std::unique_lock lock(m_mutex);
            m_readyChanged.wait(lock, [this] { return m_stopping || !m_ready.empty(); });
            if (m_stopping)
                return;
            connection = std::move(m_ready.front());
            m_ready.pop_front();
        }
        // Its client has probably given up by now, and working through a backlog would
        // keep the server deaf for longer than the flood lasted.
        if (Clock::now() - connection->readyAt > m_options.maxQueueWait) {
            connection->output = "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 1\r\n"
                                 "Connection: close\r\nContent-Type: application/json\r\n"
                                 "Content-Length: "
                + std::to_string(busyBody.size()) + "\r\n\r\n" + std::string(busyBody);
            connection->flush(m_options.writeTimeout);
            continue;
        }
        FrontStream stream(*connection, m_options, m_stopping);
        bool closed = false;
        const bool last = connection->served + 1 >= m_options.requestsPerConnection;
        bool ok = false;
        try {
            ok = m_handler(stream, last, closed);
        } catch (...) {
            ok = false;
        }
        // A response that refused a body it did not read closes the connection, whatever
        // the request asked for.
        const size_t headEnd = connection->output.find("\r\n\r\n");
        closed = closed
            || lowered(std::string_view(connection->output)
                           .substr(0, headEnd == std::string::npos ? headEnd : headEnd + 2))
                    .find("\r\nconnection: close\r\n")
                != std::string::npos;
        if (!stream.flush() || !ok || closed || last)
            continue;
        ++connection->served;
        connection->begun = connection->buffered() > 0;
        connection->deadline
            = Clock::now() + (connection->begun ? m_options.headDeadline : m_options.keepAliveIdle);
        connection->wanted = POLLIN;
        {
            const std::lock_guard lock(m_mutex);
            if (m_stopping)
                return;
            m_incoming.push_back(std::move(connection));
        }
        wake();
    }
}

} // namespace kavel::server
