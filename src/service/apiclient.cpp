#include "apiclient.h"

#include "model/fileio.h"

#include <QCoreApplication>
#include <QCoroNetworkReply>
#include <QFileInfo>
#include <QTimer>
#include <QUuid>
#include <stdexcept>

namespace kavel::service {

using namespace Qt::StringLiterals;

namespace {

// What the log says of a body: its size only. Bodies carry passwords, texted codes and
// tokens, and the log goes to a terminal and to files users attach to bug reports.
QString sizeText(const QByteArray &bytes)
{
    return u"("_s + QString::number(bytes.size()) + u" bytes)"_s;
}

bool isSuccess(int statusCode)
{
    return statusCode >= 200 && statusCode <= 299;
}

bool sameOrigin(const QUrl &a, const QUrl &b)
{
    return a.scheme() == b.scheme() && a.host() == b.host()
        && a.port(a.scheme() == u"https" ? 443 : 80) == b.port(b.scheme() == u"https" ? 443 : 80);
}

} // namespace

APIClient::APIClient(const QUrl &baseUrl, SessionTimeouts timeouts, LogSink log)
    : m_baseURL(baseUrl)
    , m_timeouts(timeouts)
    , m_log(std::move(log))
    , m_session(std::make_unique<QNetworkAccessManager>())
{
    if (!m_baseURL.isValid() || m_baseURL.isRelative())
        throw std::invalid_argument("APIClient needs an absolute base URL, got: "
                                    + baseUrl.toString().toStdString());
    m_session->setTransferTimeout(static_cast<int>(m_timeouts.request.count()));
}

APIClient::~APIClient() = default;

void APIClient::logLine(const QString &line) const
{
    if (m_log)
        m_log(line);
}

QUrl APIClient::endpoint(const QString &path) const
{
    QString base = m_baseURL.toString(QUrl::FullyEncoded);
    if (base.endsWith(u'/'))
        base.chop(1);
    const QString separator = path.startsWith(u'/') ? QString() : u"/"_s;
    return QUrl(base + separator + path);
}

QNetworkRequest APIClient::makeRequest(const QUrl &url) const
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(m_timeouts.perRequest.count()));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::PreferNetwork);
    if (m_accessToken)
        request.setRawHeader("Authorization", "Bearer " + m_accessToken->toUtf8());
    return request;
}

QCoro::Task<APIClient::Reply> APIClient::send(QNetworkRequest request, QByteArray verb,
                                              QByteArray body)
{
    const auto later = [](QNetworkReply *r) { r->deleteLater(); };
    std::unique_ptr<QNetworkReply, decltype(later)> reply(
        verb == "GET" ? m_session->get(request) : m_session->sendCustomRequest(request, verb, body),
        later);
    // The per-request limit only counts idle time; this one ends a transfer that keeps
    // moving but never finishes.
    QTimer::singleShot(m_timeouts.resource, reply.get(), [raw = reply.get()] {
        if (raw->isRunning())
            raw->abort();
    });
    // The answer is waited for from the moment the request has gone out; while the body
    // is still being sent, the clock is wound back with every piece.
    QTimer answer;
    answer.setSingleShot(true);
    answer.setInterval(m_timeouts.answer);
    QObject::connect(&answer, &QTimer::timeout, reply.get(), [raw = reply.get()] {
        if (raw->isRunning())
            raw->abort();
    });
    QObject::connect(reply.get(), &QNetworkReply::uploadProgress, &answer,
                     [&answer] { answer.start(); });
    answer.start();
    std::optional<QUrl> foreignRedirect;
    QObject::connect(reply.get(), &QNetworkReply::redirected, reply.get(),
                     [raw = reply.get(), origin = request.url(), &foreignRedirect](const QUrl &to) {
                         if (sameOrigin(origin, to)) {
                             Q_EMIT raw->redirectAllowed();
                             return;
                         }
                         foreignRedirect = to;
                         raw->abort();
                     });
    // Why a secure connection was refused is known only from this signal; the finished
    // reply says no more than that the handshake failed.
    QList<QSslError> certificateErrors;
    QObject::connect(
        reply.get(), &QNetworkReply::sslErrors, reply.get(),
        [&certificateErrors](const QList<QSslError> &errors) { certificateErrors = errors; });
    co_await qCoro(reply.get()).waitForFinished();
    if (foreignRedirect)
        throw Error(QCoreApplication::translate("kavel::service", "服务器要求转到另一个地址（")
                    + foreignRedirect->toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery)
                    + QCoreApplication::translate("kavel::service", "），为保护登录信息已拒绝"));

    Reply result;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (reply->isOpen())
        result.body = reply->readAll();
    if (status.isValid()) {
        result.isHttp = true;
        result.statusCode = status.toInt();
        co_return result;
    }
    switch (reply->error()) {
    case QNetworkReply::NoError:
    // Something answered, but not in HTTP: the reply is there, it just is not one we
    // can read a status from.
    case QNetworkReply::ProtocolFailure:
    case QNetworkReply::ProtocolUnknownError:
        co_return result;
    case QNetworkReply::SslHandshakeFailedError:
        throw TransportError::untrustedCertificate(certificateErrors, reply->errorString());
    default:
        throw TransportError(reply->error(), reply->errorString());
    }
}

QCoro::Task<QByteArray> APIClient::postBody(QString path, QByteArray json)
{
    const QUrl url = endpoint(path);
    QNetworkRequest request = makeRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    logLine(u"[APIClient] POST "_s + url.path() + u' ' + sizeText(json));

    Reply reply;
    try {
        reply = co_await send(std::move(request), "POST", json);
    } catch (const Error &error) {
        logLine(u"[APIClient] Error: "_s + error.description());
        throw;
    }
    logLine(u"[APIClient] Response: "_s + QString::number(reply.statusCode) + u' '
            + sizeText(reply.body));
    if (!reply.isHttp) {
        const APIError error = APIError::invalidResponse();
        logLine(u"[APIClient] Error: "_s + error.description());
        throw error;
    }
    if (!isSuccess(reply.statusCode)) {
        const APIError error = APIError::httpError(reply.statusCode);
        logLine(u"[APIClient] Error: "_s + error.description());
        throw error;
    }
    co_return reply.body;
}

QCoro::Task<QByteArray> APIClient::getBody(QString path)
{
    const QUrl url = endpoint(path);
    logLine(u"[APIClient] GET "_s + url.path());
    Reply reply;
    try {
        reply = co_await send(makeRequest(url), "GET", {});
    } catch (const Error &error) {
        logLine(u"[APIClient] GET Error: "_s + error.description());
        throw;
    }
    logLine(u"[APIClient] GET Response: "_s + QString::number(reply.statusCode) + u' '
            + sizeText(reply.body));
    if (!reply.isHttp) {
        const APIError error = APIError::invalidResponse();
        logLine(u"[APIClient] GET Error: "_s + error.description());
        throw error;
    }
    if (!isSuccess(reply.statusCode)) {
        const APIError error = APIError::httpError(reply.statusCode);
        logLine(u"[APIClient] GET Error: "_s + error.description());
        throw error;
    }
    co_return reply.body;
}

QString APIClient::mediaTypeForFile(const QString &fileName)
{
    const QString extension = QFileInfo(fileName).suffix().toLower();
    if (extension == u"m4a" || extension == u"mp4")
        return u"audio/mp4"_s;
    if (extension == u"wav")
        return u"audio/wav"_s;
    if (extension == u"mp3")
        return u"audio/mpeg"_s;
    if (extension == u"aac")
        return u"audio/aac"_s;
    if (extension == u"aiff" || extension == u"aif")
        return u"audio/aiff"_s;
    if (extension == u"flac")
        return u"audio/flac"_s;
    if (extension == u"ogg")
        return u"audio/ogg"_s;
    return u"application/octet-stream"_s;
}

QByteArray APIClient::multipartBody(const QString &boundary, const QString &fileName,
                                    const QString &mediaType, const QByteArray &bytes,
                                    const QString &language)
{
    // The language goes before the file, so that a service which cannot hear it says so
    // before the recording is on its way.
    const QByteArray languagePart = language.isEmpty()
        ? QByteArray()
        : "--" + boundary.toUtf8() + "\r\nContent-Disposition: form-data; name=\"language\"\r\n\r\n"
            + language.toUtf8() + "\r\n";
    // The file name goes in as it stands, quotes and all: the service reads it back the
    // same way, and nothing we upload is named by a stranger.
    const QByteArray head = languagePart + "--" + boundary.toUtf8() + "\r\n"
        + "Content-Disposition: form-data; name=\"file\"; filename=\"" + fileName.toUtf8()
        + "\"\r\n" + "Content-Type: " + mediaType.toUtf8() + "\r\n\r\n";
    const QByteArray tail = "\r\n--" + boundary.toUtf8() + "--\r\n";
    QByteArray body;
    body.reserve(head.size() + bytes.size() + tail.size());
    body += head;
    body += bytes;
    body += tail;
    return body;
}

QCoro::Task<RecognitionLanguages> APIClient::recognitionLanguages()
{
    co_return co_await get<RecognitionLanguages>(u"/recognition/languages"_s);
}

QCoro::Task<TranscribeResponse> APIClient::transcribe(QString filePath, QString language)
{
    QNetworkRequest request = makeRequest(endpoint(u"/media/transcribe"_s));
    const QString boundary = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    request.setRawHeader("Content-Type", "multipart/form-data; boundary=" + boundary.toUtf8());

    const QByteArray bytes = fileio::readFile(filePath);
    const QString fileName = QFileInfo(filePath).fileName();
    QByteArray body
        = multipartBody(boundary, fileName, mediaTypeForFile(fileName), bytes, language);

    const Reply reply = co_await send(std::move(request), "POST", std::move(body));
    if (!reply.isHttp)
        throw APIError::invalidResponse();
    if (isSuccess(reply.statusCode))
        co_return wire::decode<TranscribeResponse>(reply.body);

    const QJsonDocument document = QJsonDocument::fromJson(reply.body);
    const QJsonValue detail = document.object().value("detail"_L1);
    if (detail.isString() && !detail.toString().isEmpty())
        throw APIError::httpErrorWithDetail(reply.statusCode, detail.toString());
    throw APIError::httpError(reply.statusCode);
}

QCoro::Task<TranscriptionResult> APIClient::getTranscriptionResult(QString taskId, int waitSeconds)
{
    if (waitSeconds > 0)
        co_return co_await get<TranscriptionResult>(u"/media/transcribe/"_s + taskId + u"?wait="_s
                                                    + QString::number(waitSeconds));
    co_return co_await get<TranscriptionResult>(u"/media/transcribe/"_s + taskId);
}

} // namespace kavel::service
