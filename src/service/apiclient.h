#pragma once

#include "apierror.h"
#include "authrecords.h"
#include "servicelog.h"
#include "transcriptionrecords.h"
#include "wirecoding.h"

#include <QCoroTask>
#include <QNetworkAccessManager>
#include <QUrl>
#include <chrono>
#include <memory>
#include <optional>

namespace kavel::service {

// How long a transfer may take. A request fails once it has been idle for its
// `perRequest` time; the session's `request` limit applies to requests that set none of
// their own, and `resource` bounds a whole transfer however busy it is, so that a
// trickling upload cannot hang forever. `answer` bounds the wait for the reply once the
// request has been sent: a peer that trickles its answer a byte at a time is never idle,
// yet has not answered.
struct SessionTimeouts
{
    std::chrono::milliseconds perRequest = std::chrono::seconds(60);
    std::chrono::milliseconds request = std::chrono::seconds(1200);
    std::chrono::milliseconds resource = std::chrono::seconds(6000);
    std::chrono::milliseconds answer = std::chrono::seconds(6000);
};

// The one HTTP client of the cloud service. Requests may overlap; the client keeps no
// per-request state, and a request already sent keeps the token it was built with.
// Redirects are followed only within the service's own origin (scheme, host and port):
// anything else would carry the password or the token to a stranger, so it fails with
// an error that names the address.
class APIClient
{
public:
    // `baseUrl` is the API root, e.g. "http://127.0.0.1:8417/api". An invalid URL is a
    // configuration fault and throws std::invalid_argument.
    explicit APIClient(const QUrl &baseUrl, SessionTimeouts timeouts = {},
                       LogSink log = standardOutputSink());
    ~APIClient();
    APIClient(const APIClient &) = delete;
    APIClient &operator=(const APIClient &) = delete;

    const QUrl &baseURL() const { return m_baseURL; }
    const std::optional<QString> &accessToken() const { return m_accessToken; }
    void setAccessToken(std::optional<QString> token) { m_accessToken = std::move(token); }

    // The API root joined with `path` by exactly one slash.
    QUrl endpoint(const QString &path) const;

    // JSON POST. HTTP failures throw APIError::httpError without reading the body; a
    // malformed success reply throws the DecodeError itself; transport failures throw
    // TransportError.
    template<wire::Decodable Response> QCoro::Task<Response> post(QString path, QJsonObject body);

    // The same for a record body, written with the wire's snake_case keys.
    template<wire::Decodable Response, wire::Encodable Body>
    QCoro::Task<Response> post(QString path, const Body &body)
    {
        return post<Response>(std::move(path), body.toJson());
    }

    template<wire::Decodable Response> QCoro::Task<Response> get(QString path);

    // Uploads the whole file for recognition in `language` (a BCP 47 tag; empty leaves
    // it to the service). An unreadable file throws FileError before anything is sent; a
    // rejection carrying a non-empty "detail" throws APIError::httpErrorWithDetail, a
    // language the service cannot hear among them (422).
    QCoro::Task<TranscribeResponse> transcribe(QString filePath, QString language = {});
    // The languages the service's recogniser hears.
    QCoro::Task<RecognitionLanguages> recognitionLanguages();
    // With `waitSeconds`, the service may hold the answer until the task moves on (its
    // status or progress changes) or that time is up; a service that does not wait
    // answers at once, which is just as right.
    QCoro::Task<TranscriptionResult> getTranscriptionResult(QString taskId, int waitSeconds = 0);

    // Multipart pieces of the upload, exposed for the wire-format tests.
    static QString mediaTypeForFile(const QString &fileName);
    static QByteArray multipartBody(const QString &boundary, const QString &fileName,
                                    const QString &mediaType, const QByteArray &bytes,
                                    const QString &language = {});

private:
    struct Reply
    {
        bool isHttp = false;
        int statusCode = -1;
        QByteArray body;
    };

    QNetworkRequest makeRequest(const QUrl &url) const;
    QCoro::Task<Reply> send(QNetworkRequest request, QByteArray verb, QByteArray body);

    // The JSON POST and GET up to the point where the body would be decoded; they log
    // and throw their own failures.
    QCoro::Task<QByteArray> postBody(QString path, QByteArray json);
    QCoro::Task<QByteArray> getBody(QString path);

    template<wire::Decodable Response>
    Response decodeOrLog(const QByteArray &body, QLatin1StringView errorPrefix) const;

    void logLine(const QString &line) const;

    QUrl m_baseURL;
    std::optional<QString> m_accessToken;
    SessionTimeouts m_timeouts;
    LogSink m_log;
    std::unique_ptr<QNetworkAccessManager> m_session;
};

template<wire::Decodable Response>
Response APIClient::decodeOrLog(const QByteArray &body, QLatin1StringView errorPrefix) const
{
    try {
        return wire::decode<Response>(body);
    } catch (const Error &error) {
        logLine(errorPrefix + error.description());
        throw;
    }
}

template<wire::Decodable Response>
QCoro::Task<Response> APIClient::post(QString path, QJsonObject body)
{
    const QByteArray reply = co_await postBody(std::move(path), wire::encode(body));
    co_return decodeOrLog<Response>(reply, QLatin1StringView("[APIClient] Error: "));
}

template<wire::Decodable Response> QCoro::Task<Response> APIClient::get(QString path)
{
    const QByteArray reply = co_await getBody(std::move(path));
    co_return decodeOrLog<Response>(reply, QLatin1StringView("[APIClient] GET Error: "));
}

} // namespace kavel::service
