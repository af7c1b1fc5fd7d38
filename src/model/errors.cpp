#include "errors.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace kavel {

Error::Error(QString description, QString detail)
    : m_description(std::move(description))
    , m_detail(std::move(detail))
    , m_utf8(m_description.toUtf8())
{ }

namespace {

QString fileErrorText(FileError::Kind kind, const QString &path, const QString &reason)
{
    const QString name = QFileInfo(path).fileName().isEmpty() ? path : QFileInfo(path).fileName();
    QString text;
    switch (kind) {
    case FileError::Kind::notFound:
        text = QCoreApplication::translate("kavel::model", "未能打开文件“%1”，因为它不存在。")
                   .arg(name);
        break;
    case FileError::Kind::readFailed:
        text = QCoreApplication::translate("kavel::model", "未能读取文件“%1”。").arg(name);
        break;
    case FileError::Kind::writeFailed:
        text = QCoreApplication::translate("kavel::model", "未能存储文件“%1”。").arg(name);
        break;
    case FileError::Kind::copyFailed:
        text = QCoreApplication::translate("kavel::model", "未能拷贝文件“%1”。").arg(name);
        break;
    case FileError::Kind::createDirectoryFailed:
        text = QCoreApplication::translate("kavel::model", "未能创建文件夹“%1”。").arg(name);
        break;
    case FileError::Kind::invalidName:
        text = QCoreApplication::translate("kavel::model", "名称“%1”不能用作文件名。").arg(path);
        break;
    }
    if (!reason.isEmpty())
        text += QStringLiteral("（%1）").arg(reason);
    return text;
}

QString decodeErrorText(const QString &where, const QString &reason)
{
    if (where.isEmpty())
        return QCoreApplication::translate("kavel::model", "数据格式不正确：%1").arg(reason);
    return QCoreApplication::translate("kavel::model", "数据格式不正确：%1（位于 %2）")
        .arg(reason, where);
}

} // namespace

FileError::FileError(Kind kind, QString path, QString reason, QString detail)
    : Error(fileErrorText(kind, path, reason), std::move(detail))
    , m_kind(kind)
    , m_path(std::move(path))
{ }

DecodeError::DecodeError(QString where, QString reason, QString detail)
    : Error(decodeErrorText(where, reason), std::move(detail))
    , m_where(std::move(where))
    , m_reason(std::move(reason))
{ }

DecodeError DecodeError::nested(const QString &outer) const
{
    if (m_where.isEmpty())
        return DecodeError(outer, m_reason, detail());
    const QString joined
        = m_where.startsWith(u'[') ? QString(outer + m_where) : QString(outer + u'.' + m_where);
    return DecodeError(joined, m_reason, detail());
}

KavelProjectError::KavelProjectError(Code code)
    : Error(descriptionOf(code))
    , m_code(code)
{ }

QString KavelProjectError::descriptionOf(Code code)
{
    switch (code) {
    case Code::noSourceVideo:
        return QCoreApplication::translate("kavel::model", "项目中没有源视频文件");
    case Code::noAudioTrack:
        return QCoreApplication::translate("kavel::model", "视频中没有音频轨道");
    case Code::audioExtractionFailed:
        return QCoreApplication::translate("kavel::model", "音频提取失败");
    case Code::bundleNotFound:
        return QCoreApplication::translate("kavel::model", "项目文件不存在");
    }
    return {};
}

} // namespace kavel
