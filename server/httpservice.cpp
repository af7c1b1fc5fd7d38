#include "httpservice.h"

#include "connectionfront.h"
#include "credentials.h"
#include "languages.h"
#include "serverlog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <httplib.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace kavel::server {

using namespace Qt::StringLiterals;

namespace {

constexpr std::int64_t accessTokenLifetime = 7 * 24 * 3600;
constexpr std::int64_t refreshTokenLifetime = 30 * 24 * 3600;
constexpr std::int64_t smsCodeLifetime = 5 * 60;
constexpr std::int64_t smsResendInterval = 60;
constexpr int smsMaxAttempts = 5;
constexpr size_t maxUploadBytes = size_t {2} << 30;
// Everything but an upload is a small JSON object.
constexpr size_t maxFormBytes = 64 << 10;
constexpr int listenBacklog = 1024;
// How long a user whose uploads are all waiting is asked to wait before the next.
constexpr std::int64_t uploadRetryAfter = 60;
constexpr std::int64_t busyRetryAfter = 5;
// A poll may wait this long for its task to move on: below the clients' 30 s without a
// byte, and short enough that a proxy in between keeps the connection.
constexpr double maxPollWaitSeconds = 25.0;
// How often a waiting poll reads the store again, for tasks recognised by workers of
// another process, which cannot wake it.
constexpr auto pollRecheck = std::chrono::seconds(1);

void refuseEarly(httplib::Response &response, int status, const std::string &detail,
                 std::optional<std::int64_t> retryAfter = std::nullopt)
{
    if (retryAfter)
        response.set_header("Retry-After", std::to_string(*retryAfter));
    // The body may still be on its way; closing is cheaper than reading it.
    response.set_header("Connection", "close");
    response.status = status;
    response.set_content(QJsonDocument(QJsonObject {{u"detail"_s, QString::fromStdString(detail)}})
                             .toJson(QJsonDocument::Compact)
                             .toStdString(),
                         "application/json");
}

void sendJson(httplib::Response &response, int status, const QJsonObject &body)
{
    response.status = status;
    response.set_content(QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString(),
                         "application/json");
}

void sendDetail(httplib::Response &response, int status, const std::string &detail)
{
    sendJson(response, status, QJsonObject {{u"detail"_s, QString::fromStdString(detail)}});
}

// A flat object of strings, or nothing when the body is anything else.
std::optional<QJsonObject> jsonBody(const httplib::Request &request)
{
    QJsonParseError error;
    const QJsonDocument document
        = QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

std::optional<std::string> stringField(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1StringView(key));
    if (!value.isString() || value.toString().isEmpty())
        return std::nullopt;
    return value.toString().toStdString();
}

std::string extensionOf(const std::string &fileName)
{
    const size_t dot = fileName.find_last_of('.');
    if (dot == std::string::npos || fileName.find('/', dot) != std::string::npos)
        return {};
    std::string extension;
    for (char c : fileName.substr(dot + 1)) {
        // Only harmless characters reach the file system.
        if (std::isalnum(static_cast<unsigned char>(c)))
            extension.push_back(c);
    }
    return extension.empty() ? std::string() : "." + extension;
}

std::uint64_t declaredLength(const httplib::Request &request)
{
    const std::string declared = request.get_header_value("Content-Length");
    return declared.empty() ? 0 : std::strtoull(declared.c_str(), nullptr, 10);
}

// Accounts are made by whoever runs the server; the page says how.
constexpr const char *signUpPage = R"html(<!DOCTYPE html>
<html lang="zh"><head><meta charset="utf-8"><title>Kavel 账户</title></head>
<body>
<h1>注册 Kavel 账户</h1>
<p>这台 Kavel 服务的账户由管理员创建。请联系管理员，让其运行：</p>
<pre>kavel-server add-user --database 数据库 --email 您的邮箱 --password 密码</pre>
<p>Accounts on this Kavel service are created by its administrator with
<code>kavel-server add-user</code>.</p>
</body></html>
)html";

} // namespace

HttpService::HttpService(Store &store, SmsSender &sms, HttpOptions options,
                         std::function<void()> taskQueued)
    : m_store(store)
    , m_sms(sms)
    , m_options(std::move(options))
    , m_taskQueued(std::move(taskQueued))
    , m_decoyHash(credentials::hashPassword(credentials::newToken()))
    , m_signInsByAddress(30, std::chrono::seconds(60))
    // Half the request threads are kept for everything but uploads.
    , m_uploads(m_options.maxWaitingUploads, m_options.maxWaitingUploadBytes,
                std::max(1, m_options.threads / 2))
{
    FrontOptions front;
    front.threads = m_options.threads;
    if (!m_options.tlsCertificate.empty()) {
        auto secure = std::make_unique<FrontedServer<httplib::SSLServer>>(
            front, m_options.tlsCertificate.c_str(), m_options.tlsKey.c_str());
        if (!secure->is_valid())
            throw std::runtime_error("cannot load the TLS certificate " + m_options.tlsCertificate
                                     + " or its key " + m_options.tlsKey);
        m_server = std::move(secure);
    } else {
        m_server = std::make_unique<FrontedServer<httplib::Server>>(front);
    }
    // The front enforces these; the library announces them in Keep-Alive headers.
    m_server->set_keep_alive_timeout(
        std::chrono::ceil<std::chrono::seconds>(front.keepAliveIdle).count());
    m_server->set_keep_alive_max_count(static_cast<size_t>(front.requestsPerConnection));
    m_server->set_payload_max_length(maxUploadBytes);
    // The library listens with a backlog of 5, too few for a burst of clients; the
    // socket is noted here and given a longer queue once bound.
    m_server->set_socket_options([this](int socket) {
        m_listeningSocket = socket;
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    routes();
}

HttpService::~HttpService() = default;

int HttpService::bind(const std::string &address, int port)
{
    const int bound = port == 0 ? m_server->bind_to_any_port(address)
                                : (m_server->bind_to_port(address, port) ? port : -1);
    // Listening again on a listening socket only changes its backlog.
    if (bound > 0 && m_listeningSocket >= 0)
        ::listen(m_listeningSocket, listenBacklog);
    return bound;
}

bool HttpService::run()
{
    return m_server->listen_after_bind();
}

void HttpService::stop()
{
    m_server->stop();
}

void HttpService::routes()
{
    using httplib::Request;
    using httplib::Response;
    m_server->Post("/api/auth/sms-code",
                   [this](const Request &rq, Response &rs) { sendSmsCode(rq, rs); });
    m_server->Post("/api/auth/login", [this](const Request &rq, Response &rs) { login(rq, rs); });
    m_server->Get("/api/auth/me", [this](const Request &rq, Response &rs) { me(rq, rs); });
    m_server->Post("/api/media/transcribe",
                   [this](const Request &rq, Response &rs, const httplib::ContentReader &body) {
                       upload(rq, rs, body);
                   });
    m_server->Get(R"(/api/media/transcribe/([^/]+))",
                  [this](const Request &rq, Response &rs) { poll(rq, rs); });
    // Asked before an upload so the client offers only what can be heard; no secret in it.
    m_server->Get("/api/recognition/languages", [this](const Request &, Response &response) {
        QJsonArray tags;
        for (const std::string &tag : m_options.languages)
            tags.append(QString::fromStdString(tag));
        sendJson(response, 200,
                 QJsonObject {{u"languages"_s, tags},
                              {u"default"_s, QString::fromStdString(m_options.languages.front())}});
    });

    m_server->Get("/signup", [](const Request &, Response &response) {
        response.set_content(signUpPage, "text/html; charset=utf-8");
    });
    // Metrics name no one, but they tell a stranger how busy the service is.
    addOperatorRoutes(*m_server, m_store, *m_options.metrics, m_options.uploadDirectory,
                      [this](const Request &request, Response &response) {
                          return isLoopbackPeer(request.remote_addr)
                              || authenticate(request, response).has_value();
                      });

    m_server->set_pre_routing_handler([this](const Request &request, Response &response) {
        m_options.metrics->requestArrived();
        return screen(request, response) ? httplib::Server::HandlerResponse::Handled
                                         : httplib::Server::HandlerResponse::Unhandled;
    });

    m_server->set_exception_handler([](const Request &, Response &response, std::exception_ptr e) {
        std::string what = "unknown error";
        try {
            std::rethrow_exception(e);
        } catch (const std::exception &error) {
            what = error.what();
        } catch (...) { }
        logLine("internal error: " + what);
        sendDetail(response, 500, "Internal server error");
    });
    m_server->set_logger([this](const Request &request, const Response &response) {
        m_options.metrics->requestServed(request.path, response.status);
        logLine(request.method + " " + request.path + " -> " + std::to_string(response.status));
    });
}

bool HttpService::screen(const httplib::Request &request, httplib::Response &response)
{
    const bool upload = request.method == "POST" && request.path == "/api/media/transcribe";
    const bool chunked
        = request.get_header_value("Transfer-Encoding").find("chunked") != std::string::npos;
    const std::uint64_t length = declaredLength(request);
    if (upload) {
        // A stranger's upload is refused before a byte of it is read.
        if (!authenticate(request, response)) {
            response.set_header("Connection", "close");
            return true;
        }
        if (length > maxUploadBytes) {
            refuseEarly(response, 413, "The upload is larger than 2 GiB");
            return true;
        }
        return false;
    }
    // Whatever the method: the library reads the body of any PUT, PATCH or DELETE into
    // memory before it finds that no route takes it.
    if (chunked || length > maxFormBytes) {
        refuseEarly(response, 413, "The request body is too large");
        return true;
    }
    if (request.method == "POST"
        && (request.path == "/api/auth/login" || request.path == "/api/auth/sms-code")) {
        if (auto wait = m_signInsByAddress.admit(clientNetwork(request.remote_addr))) {
            refuseEarly(response, 429, "Too many sign-in attempts; try again later", wait);
            return true;
        }
    }
    return false;
}

std::optional<UserRecord> HttpService::authenticate(const httplib::Request &request,
                                                    httplib::Response &response)
{
    const std::string header = request.get_header_value("Authorization");
    const std::string prefix = "Bearer ";
    std::optional<UserRecord> user;
    if (header.size() > prefix.size() && header.compare(0, prefix.size(), prefix) == 0)
        user = m_store.userForToken(credentials::digest(header.substr(prefix.size())), "access",
                                    unixNow());
    if (!user) {
        response.set_header("WWW-Authenticate", "Bearer");
        sendDetail(response, 401,
                   header.empty() ? "Not authenticated" : "Invalid or expired token");
    }
    return user;
}

void HttpService::sendSmsCode(const httplib::Request &request, httplib::Response &response)
{
    const auto body = jsonBody(request);
    const auto phone = body ? stringField(*body, "phone") : std::nullopt;
    if (!phone)
        return sendDetail(response, 422, "Expected a JSON object with a phone number");
    // Known and unknown numbers get the same answers, the same resend limit and the same
    // work, so the service cannot be asked who has an account; only a known number is
    // actually texted.
    const bool known = m_store.findUserByPhone(*phone).has_value();
    const std::int64_t now = unixNow();
    if (auto sentAt = m_store.lastSmsCodeSentAt(*phone);
        sentAt && now - *sentAt < smsResendInterval) {
        response.set_header("Retry-After", std::to_string(smsResendInterval - (now - *sentAt)));
        return sendDetail(response, 429, "A code was sent less than a minute ago");
    }

    const std::string code = credentials::newNumericCode(6);
    m_store.storeSmsCode(*phone, credentials::digest(*phone + ":" + code), now,
                         now + smsCodeLifetime);
    if (known)
        m_sms.send(*phone, code);
    sendJson(response, 200, QJsonObject {{u"success"_s, true}});
}

void HttpService::login(const httplib::Request &request, httplib::Response &response)
{
    const auto body = jsonBody(request);
    if (!body)
        return sendDetail(response, 422, "Expected a JSON object");
    std::optional<UserRecord> user;
    const auto account = stringField(*body, "email");
    const auto phoneNumber = account ? std::nullopt : stringField(*body, "phone");
    if (account || phoneNumber) {
        if (auto wait = m_guesses.admit(account ? *account : *phoneNumber, request.remote_addr)) {
            response.set_header("Retry-After", std::to_string(*wait));
            return sendDetail(response, 429, "Too many sign-in attempts; try again later");
        }
    }
    if (account) {
        const auto password = stringField(*body, "password");
        user = m_store.findUserByAccount(*account);
        // Unknown accounts are checked against the decoy, which never matches.
        const bool matches = credentials::verifyPassword(user ? user->passwordHash : m_decoyHash,
                                                         password.value_or(std::string()));
        if (!password || !user || !matches)
            return sendDetail(response, 401, "Incorrect account or password");
    } else if (auto phone = phoneNumber) {
        const auto code = stringField(*body, "code");
        const bool valid = code
            && m_store.consumeSmsCode(*phone, credentials::digest(*phone + ":" + *code), unixNow(),
                                      smsMaxAttempts);
        user = valid ? m_store.findUserByPhone(*phone) : std::nullopt;
        if (!user)
            return sendDetail(response, 401, "Incorrect or expired code");
    } else {
        return sendDetail(response, 422, "Expected email and password, or phone and code");
    }
    m_guesses.succeeded(account ? *account : *phoneNumber, request.remote_addr);

    const std::string accessToken = credentials::newToken();
    const std::string refreshToken = credentials::newToken();
    const std::int64_t now = unixNow();
    m_store.pruneExpired(now);
    m_store.storeToken(credentials::digest(accessToken), user->id, "access",
                       now + accessTokenLifetime);
    m_store.storeToken(credentials::digest(refreshToken), user->id, "refresh",
                       now + refreshTokenLifetime);
    sendJson(response, 200,
             QJsonObject {{u"access_token"_s, QString::fromStdString(accessToken)},
                          {u"refresh_token"_s, QString::fromStdString(refreshToken)},
                          {u"expires_in"_s, static_cast<qint64>(accessTokenLifetime)},
                          {u"token_type"_s, u"bearer"_s}});
}

void HttpService::me(const httplib::Request &request, httplib::Response &response)
{
    const auto user = authenticate(request, response);
    if (!user)
        return;
    QJsonObject profile {{u"id"_s, QString::fromStdString(user->id)},
                         {u"created_at"_s, QString::fromStdString(user->createdAt)}};
    if (user->email)
        profile.insert(u"email"_s, QString::fromStdString(*user->email));
    if (user->phone)
        profile.insert(u"phone"_s, QString::fromStdString(*user->phone));
    if (user->nickname)
        profile.insert(u"nickname"_s, QString::fromStdString(*user->nickname));
    sendJson(response, 200, profile);
}

void HttpService::upload(const httplib::Request &request, httplib::Response &response,
                         const httplib::ContentReader &content)
{
    const auto user = authenticate(request, response);
    if (!user)
        return;
    if (!request.is_multipart_form_data())
        return refuseEarly(response, 422, "Expected a multipart upload with a \"file\" part");

    // The uploads this user already has waiting, on whichever node they arrived.
    const std::vector<std::string> waiting = m_store.waitingUploads(user->id);
    std::uint64_t waitingBytes = 0;
    for (const std::string &name : waiting) {
        std::error_code error;
        const auto size = std::filesystem::file_size(m_options.uploadDirectory + "/" + name, error);
        waitingBytes += error ? 0 : size;
    }
    const std::uint64_t declared = declaredLength(request);
    const UploadLedger::Admission admission
        = m_uploads.begin(user->id, static_cast<int>(waiting.size()), waitingBytes, declared);
    if (admission.tooMany)
        return refuseEarly(response, 429,
                           "Too many uploads are waiting for recognition; try again when one "
                           "has finished",
                           uploadRetryAfter);
    if (admission.busy)
        return refuseEarly(response, 429,
                           "Too many uploads are arriving at once; try again shortly",
                           busyRetryAfter);
    struct Finish
    {
        UploadLedger &ledger;
        const std::string &user;
        std::uint64_t declared;
        ~Finish() { ledger.finish(user, declared); }
    } finish {m_uploads, user->id, declared};
    const std::uint64_t room = std::min<std::uint64_t>(admission.room, maxUploadBytes);
    const auto tooLarge = [&] {
        refuseEarly(response, 413,
                    room < maxUploadBytes
                        ? "The uploads waiting for recognition would take more than this "
                          "account's room"
                        : "The upload is larger than 2 GiB");
    };
    // The body itself is shorter than its declared length.
    if (declared > room)
        return tooLarge();

    const std::string taskId = QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    std::unique_ptr<UploadFile> file;
    std::string fileName;
    std::string originalName;
    bool inFile = false;
    bool exceeded = false;
    bool unstored = false;
    std::uint64_t received = 0;
    std::uint64_t size = 0;
    // Old clients name no language and get the recogniser's default.
    std::optional<std::string> askedLanguage;
    bool inLanguage = false;
    LanguageChoice language {m_options.languages.front(), {}};
    const auto languageDecided = [&] {
        if (askedLanguage && language.refusal.empty() && inLanguage)
            language = chooseLanguage(*askedLanguage, m_options.languages);
        inLanguage = false;
        return language.refusal.empty();
    };
    // Every part counts against the room, but only the file and the language are kept.
    const bool complete = content(
        [&](const httplib::MultipartFormData &part) {
            // A language it cannot hear is refused before the file that follows is read.
            if (!languageDecided())
                return false;
            inLanguage = part.name == "language" && !askedLanguage;
            if (inLanguage)
                askedLanguage.emplace();
            inFile = part.name == "file" && !file;
            if (inFile) {
                originalName = part.filename;
                // The decoder recognises most formats by their content, but the
                // extension helps it with raw streams such as ADTS AAC.
                fileName = taskId + extensionOf(part.filename);
                file = std::make_unique<UploadFile>(m_options.uploadDirectory, fileName);
            }
            return true;
        },
        [&](const char *data, size_t length) {
            received += length;
            if (received > room) {
                exceeded = true;
                return false;
            }
            if (inLanguage) {
                askedLanguage->append(data, std::min<size_t>(length, 64));
                return true;
            }
            if (!inFile)
                return true;
            size += length;
            unstored = !file->write(data, length);
            return !unstored;
        });
    if (!languageDecided())
        return refuseEarly(response, 422, language.refusal);
    if (exceeded)
        return tooLarge();
    if (unstored)
        return refuseEarly(response, 500, "Cannot store the upload");
    if (!complete)
        return refuseEarly(response, 400, "The upload is incomplete or malformed");
    if (!file)
        return sendDetail(response, 422, "Expected a multipart upload with a \"file\" part");
    if (size == 0)
        return sendDetail(response, 422, "The uploaded file is empty");
    if (!file->commit())
        return sendDetail(response, 500, "Cannot store the upload");
    try {
        m_store.createTask(taskId, user->id, fileName, language.tag, unixNow());
    } catch (...) {
        std::remove((m_options.uploadDirectory + "/" + fileName).c_str());
        throw;
    }
    if (m_taskQueued)
        m_taskQueued();
    logLine("task " + taskId + " queued: " + originalName + ", " + std::to_string(size) + " bytes, "
            + language.tag);
    sendJson(
        response, 200,
        QJsonObject {{u"task_id"_s, QString::fromStdString(taskId)}, {u"status"_s, u"pending"_s}});
}

void HttpService::poll(const httplib::Request &request, httplib::Response &response)
{
    const auto user = authenticate(request, response);
    if (!user)
        return;
    const std::string taskId = request.matches[1];
    auto task = m_store.task(taskId);
    // Someone else's task is as unknown to this user as one that never existed.
    if (!task || task->userId != user->id)
        return sendDetail(response, 404, "Task not found");

    const auto progressOf = [this, &taskId](const TaskRecord &record) {
        if (record.status == "completed" || record.status == "failed")
            return 1.0;
        const auto known = m_options.progress ? m_options.progress->progress(taskId) : std::nullopt;
        return known.value_or(0.0);
    };
    // Asked to wait: answer when the task's status or progress moves, or when the wait is
    // up, instead of making the client ask again and again.
    const std::chrono::milliseconds wait = pollWait(request);
    if (wait.count() > 0) {
        ++m_waitingPolls;
        const auto until = std::chrono::steady_clock::now() + wait;
        const std::string status = task->status;
        const double progress = progressOf(*task);
        while (task && task->status == status && progressOf(*task) == progress
               && status != "completed" && status != "failed"
               && std::chrono::steady_clock::now() < until) {
            const std::uint64_t seen = m_options.progress ? m_options.progress->changes() : 0;
            const auto next = std::min(until, std::chrono::steady_clock::now() + pollRecheck);
            if (m_options.progress)
                m_options.progress->waitForChange(seen, next);
            else
                std::this_thread::sleep_until(next);
            task = m_store.task(taskId);
        }
        --m_waitingPolls;
        if (!task)
            return sendDetail(response, 404, "Task not found");
    }

    QJsonObject reply {{u"task_id"_s, QString::fromStdString(task->id)},
                       {u"status"_s, QString::fromStdString(task->status)},
                       {u"progress"_s, progressOf(*task)}};
    if (task->resultJson)
        reply.insert(u"paragraphs"_s,
                     QJsonDocument::fromJson(QByteArray::fromStdString(*task->resultJson)).array());
    if (task->errorMessage)
        reply.insert(u"error_message"_s, QString::fromStdString(*task->errorMessage));
    sendJson(response, 200, reply);
}

std::chrono::milliseconds HttpService::pollWait(const httplib::Request &request) const
{
    if (!request.has_param("wait"))
        return std::chrono::milliseconds(0);
    char *end = nullptr;
    const std::string text = request.get_param_value("wait");
    const double seconds = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !(seconds > 0))
        return std::chrono::milliseconds(0);
    // Waiting polls hold a request thread each, as bodies on their way do (half the
    // pool): with a quarter for the polls, the last quarter stays for everything else,
    // whatever greedy clients keep waiting or trickle.
    if (m_waitingPolls.load() >= m_options.threads / 4)
        return std::chrono::milliseconds(0);
    return std::chrono::milliseconds(
        static_cast<std::int64_t>(std::min(seconds, maxPollWaitSeconds) * 1000.0));
}

} // namespace kavel::server
