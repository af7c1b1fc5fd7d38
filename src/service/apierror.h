#pragma once

#include "model/errors.h"

#include <QList>
#include <QNetworkReply>
#include <QSslError>

namespace kavel::service {

// A reply from the service that the client cannot use. The description is the text the
// user is shown.
class APIError : public Error
{
public:
    enum class Code {
        httpError,
        httpErrorWithDetail,
        decodingError,
        invalidResponse,
    };

    static APIError httpError(int statusCode);
    static APIError httpErrorWithDetail(int statusCode, QString detail);
    static APIError decodingError(const Error &underlying);
    static APIError invalidResponse();

    Code code() const noexcept { return m_code; }
    // 0 for the cases that carry no status.
    int statusCode() const noexcept { return m_statusCode; }
    const QString &detail() const noexcept { return m_detail; }

private:
    APIError(Code code, int statusCode, QString detail, QString description);

    Code m_code;
    int m_statusCode = 0;
    QString m_detail;
};

// The request never got a reply: no connection, a time-out, an aborted transfer. Carries
// Qt's error so callers can tell a time-out from a refused connection; Qt's text about
// it is the detail.
class TransportError : public Error
{
public:
    TransportError(QNetworkReply::NetworkError error, QString detail);
    // A secure connection refused for the certificate the server showed, named by whom it
    // was issued to and why it is not trusted.
    static TransportError untrustedCertificate(const QList<QSslError> &errors, QString detail);

    QNetworkReply::NetworkError networkError() const noexcept { return m_error; }

private:
    TransportError(QNetworkReply::NetworkError error, QString description, QString detail);

    QNetworkReply::NetworkError m_error;
};

} // namespace kavel::service
