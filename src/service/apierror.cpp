#include "apierror.h"

#include <QCoreApplication>

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
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::NetworkSessionFailedError:
        return QCoreApplication::translate("kavel::service", "无法连接到服务器");
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

} // namespace kavel::service
