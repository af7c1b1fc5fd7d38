#include "trash.h"

#include "errors.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace kavel::trash {

namespace {

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

std::optional<struct stat> statOf(const QString &path, bool followLinks = false)
{
    struct stat info
    {
    };
    const int result = followLinks ? ::stat(encoded(path), &info) : ::lstat(encoded(path), &info);
    if (result != 0)
        return std::nullopt;
    return info;
}

QString systemReason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

[[noreturn]] void refuse(const QString &path, const QString &why, const QString &detail = {})
{
    throw Error(
        QCoreApplication::translate("kavel::model", "未能将“%1”移到回收站（%2），它没有被删除。")
            .arg(QFileInfo(path).fileName(), why),
        detail);
}

// A trash folder of our own: a real directory (not a link someone planted) that only we
// can enter, with its "files" and "info" made when missing.
bool prepareTrash(const QString &trash)
{
    for (const QString &folder : QStringList {trash, trash + u"/files"_s, trash + u"/info"_s}) {
        if (::mkdir(encoded(folder), 0700) != 0 && errno != EEXIST)
            return false;
        const auto info = statOf(folder);
        if (!info || !S_ISDIR(info->st_mode) || info->st_uid != ::getuid())
            return false;
    }
    return ::access(encoded(trash + u"/files"_s), W_OK | X_OK) == 0
        && ::access(encoded(trash + u"/info"_s), W_OK | X_OK) == 0;
}

QString homeTrash()
{
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty() || !QDir::isAbsolutePath(dataHome))
        dataHome = QDir::homePath() + u"/.local/share"_s;
    return QDir::cleanPath(dataHome) + u"/Trash"_s;
}

// The mount point of the volume holding `path`: the last folder upwards on its device.
QString topDirectoryOf(const QString &path, dev_t device)
{
    QString top = QFileInfo(path).absolutePath();
    while (top != u"/"_s) {
        const QString parent = QFileInfo(top).absolutePath();
        const auto info = statOf(parent, true);
        if (!info || info->st_dev != device)
            break;
        top = parent;
    }
    return top;
}

// The administrator's shared ".Trash" counts only when it is a real folder with the
// sticky bit, so that users cannot take each other's files out of it.
std::optional<QString> volumeTrash(const QString &top)
{
    const QString uid = QString::number(::getuid());
    const QString shared = top + u"/.Trash"_s;
    if (const auto info = statOf(shared); info && S_ISDIR(info->st_mode)
        && (info->st_mode & S_ISVTX) && prepareTrash(shared + u'/' + uid))
        return shared + u'/' + uid;
    const QString own = (top == u"/"_s ? QString() : top) + u"/.Trash-"_s + uid;
    if (prepareTrash(own))
        return own;
    return std::nullopt;
}

// Values in a .trashinfo file are escaped as in URLs, "/" left as it is.
QByteArray escapedPath(const QString &path)
{
    return QUrl::toPercentEncoding(path, "/");
}

// Claims a name in the trash by creating its record exclusively: two deletions of items
// with the same name cannot pick the same one.
QString claimName(const QString &trash, const QString &name, const QByteArray &record)
{
    const QString base = QFileInfo(name).completeBaseName();
    const QString suffix = QFileInfo(name).suffix();
    for (int n = 1; n < 10000; ++n) {
        QString candidate = name;
        if (n > 1)
            candidate = suffix.isEmpty() ? u"%1.%2"_s.arg(name).arg(n)
                                         : u"%1.%2.%3"_s.arg(base).arg(n).arg(suffix);
        if (statOf(trash + u"/files/"_s + candidate))
            continue;
        const QString info = trash + u"/info/"_s + candidate + u".trashinfo"_s;
        const int fd = ::open(encoded(info), O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            return {};
        }
        const bool written
            = ::write(fd, record.constData(), size_t(record.size())) == ssize_t(record.size());
        if (::close(fd) != 0 || !written) {
            ::unlink(encoded(info));
            return {};
        }
        return candidate;
    }
    return {};
}

} // namespace

TrashedItem moveToTrash(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    const auto item = statOf(absolute);
    if (!item)
        refuse(absolute, QCoreApplication::translate("kavel::model", "它已不存在"));

    // The home trash takes what is on its own device; anything else would be copied
    // across devices, which a trash never does.
    QString trash;
    QString recordedPath = absolute;
    const QString home = homeTrash();
    QDir().mkpath(QFileInfo(home).absolutePath());
    const auto homeInfo = prepareTrash(home) ? statOf(home, true) : std::nullopt;
    if (homeInfo && homeInfo->st_dev == item->st_dev) {
        trash = home;
    } else {
        const QString top = topDirectoryOf(absolute, item->st_dev);
        const std::optional<QString> onVolume = volumeTrash(top);
        if (!onVolume)
            refuse(absolute,
                   QCoreApplication::translate("kavel::model", "所在磁盘没有可用的回收站"));
        trash = *onVolume;
        // Relative to the volume, so the record stays right wherever it is mounted.
        recordedPath = absolute.mid(top == u"/"_s ? 1 : top.size() + 1);
    }

    const QByteArray record = "[Trash Info]\nPath=" + escapedPath(recordedPath) + "\nDeletionDate="
        + QDateTime::currentDateTime().toString(u"yyyy-MM-ddTHH:mm:ss"_s).toLatin1() + "\n";
    const QString name = claimName(trash, QFileInfo(absolute).fileName(), record);
    if (name.isEmpty())
        refuse(absolute, QCoreApplication::translate("kavel::model", "无法写入回收站"), trash);
    TrashedItem trashed {absolute, trash + u"/files/"_s + name,
                         trash + u"/info/"_s + name + u".trashinfo"_s};
    if (::rename(encoded(absolute), encoded(trashed.trashedPath)) != 0) {
        const int error = errno;
        ::unlink(encoded(trashed.infoPath));
        refuse(absolute,
               error == EACCES || error == EPERM
                   ? QCoreApplication::translate("kavel::model", "没有权限")
                   : QCoreApplication::translate("kavel::model", "无法移动"),
               systemReason(error));
    }
    return trashed;
}

void restore(const TrashedItem &item)
{
    const QString name = QFileInfo(item.originalPath).fileName();
    if (statOf(item.originalPath))
        throw Error(
            QCoreApplication::translate("kavel::model", "未能恢复“%1”：原位置已有同名项目。")
                .arg(name));
    if (!statOf(item.trashedPath))
        throw Error(QCoreApplication::translate("kavel::model", "未能恢复“%1”：它已不在回收站中。")
                        .arg(name));
    if (::rename(encoded(item.trashedPath), encoded(item.originalPath)) != 0)
        throw Error(QCoreApplication::translate("kavel::model", "未能恢复“%1”。").arg(name),
                    systemReason(errno));
    ::unlink(encoded(item.infoPath));
}

} // namespace kavel::trash
