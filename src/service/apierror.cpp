#include "apierror.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <algorithm>
#include <initializer_list>

namespace kavel::service {

APIError::APIError(Code code, int statusCode, QString detail, QString description)
    : Error(std::move(description))
    , m_code(code)
    , m_statusCode(statusCode)
    , m_detail(std::move(detail))
{ }

APIError APIError::httpError(int statusCode)
{
    return APIError(Code::httpError, statusCode, {},
                    QCoreApplication::translate("kavel::service", "服务器错误 (")
                        + QString::number(statusCode) + u')');
}

APIError APIError::httpErrorWithDetail(int statusCode, QString detail)
{
    QString text = QCoreApplication::translate("kavel::service", "服务器错误 (")
        + QString::number(statusCode) + QStringLiteral("): ") + detail;
    return APIError(Code::httpErrorWithDetail, statusCode, std::move(detail), std::move(text));
}

APIError APIError::decodingError(const Error &underlying)
{
    return APIError(Code::decodingError, 0, {},
                    QCoreApplication::translate("kavel::service", "数据解析错误: ")
                        + underlying.description());
}

APIError APIError::invalidResponse()
{
    return APIError(Code::invalidResponse, 0, {},
                    QCoreApplication::translate("kavel::service", "无效的服务器响应"));
}

namespace {

QString transportText(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::NetworkSessionFailedError:
        return QCoreApplication::translate("kavel::service", "无法连接到服务器");
    // It was reached, and went away before it answered (or answered in no protocol at all).
    case QNetworkReply::RemoteHostClosedError:
        return QCoreApplication::translate("kavel::service", "服务器中断了连接");
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError:
        return QCoreApplication::translate("kavel::service", "连接服务器超时");
    case QNetworkReply::SslHandshakeFailedError:
        return QCoreApplication::translate("kavel::service", "服务器的安全证书不受信任");
    default:
        return QCoreApplication::translate("kavel::service", "网络错误");
    }
}

} // namespace

TransportError::TransportError(QNetworkReply::NetworkError error, QString detail)
    : Error(transportText(error), std::move(detail))
    , m_error(error)
{ }

TransportError::TransportError(QNetworkReply::NetworkError error, QString description,
                               QString detail)
    : Error(std::move(description), std::move(detail))
    , m_error(error)
{ }

TransportError TransportError::untrustedCertificate(const QList<QSslError> &errors, QString detail)
{
    QString text = transportText(QNetworkReply::SslHandshakeFailedError);
    if (errors.isEmpty())
        return TransportError(QNetworkReply::SslHandshakeFailedError, text, std::move(detail));
    const QSslCertificate certificate = errors.constFirst().certificate();
    const QStringList names = certificate.subjectInfo(QSslCertificate::CommonName);
    if (!names.isEmpty())
        text += QCoreApplication::translate("kavel::service", "：颁发给“%1”")
                    .arg(names.constFirst());
    // Qt lists every fault of the chain; the one named is the one the user can act on
    // first: who vouches for the certificate, then its dates, then its name.
    const auto has = [&errors](std::initializer_list<QSslError::SslError> codes) {
        return std::any_of(errors.cbegin(), errors.cend(), [codes](const QSslError &e) {
            return std::find(codes.begin(), codes.end(), e.error()) != codes.end();
        });
    };
    QString why;
    if (has({QSslError::SelfSignedCertificate, QSslError::SelfSignedCertificateInChain}))
        why = QCoreApplication::translate("kavel::service", "自签名证书");
    else if (has({QSslError::UnableToGetLocalIssuerCertificate,
                  QSslError::UnableToGetIssuerCertificate, QSslError::CertificateUntrusted}))
        why = QCoreApplication::translate("kavel::service", "颁发者不受信任");
    else if (has({QSslError::CertificateExpired}))
        why = QCoreApplication::translate("kavel::service", "证书已过期");
    else if (has({QSslError::CertificateNotYetValid}))
        why = QCoreApplication::translate("kavel::service", "证书尚未生效");
    else if (has({QSslError::HostNameMismatch}))
        why = QCoreApplication::translate("kavel::service", "证书上的名称与服务器地址不符");
    if (!why.isEmpty())
        text += QCoreApplication::translate("kavel::service", "（%1）").arg(why);
    return TransportError(QNetworkReply::SslHandshakeFailedError, text, std::move(detail));
}

} // namespace kavel::service
