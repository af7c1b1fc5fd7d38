#include "fileio.h"

#include "errors.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kavel::fileio {

namespace {

// The system's own words for the failures a user can do something about.
QString reasonFor(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return QCoreApplication::translate("kavel::model", "磁盘空间不足");
    case EACCES:
    case EPERM:
        return QCoreApplication::translate("kavel::model", "没有权限");
    case EROFS:
        return QCoreApplication::translate("kavel::model", "磁盘是只读的");
    default:
        return {};
    }
}

[[noreturn]] void failWrite(const QString &path, int error)
{
    throw FileError(FileError::Kind::writeFailed, path, reasonFor(error),
                    QString::fromLocal8Bit(std::strerror(error)));
}

QString temporaryPrefix(const QString &path)
{
    return u'.' + QFileInfo(path).fileName() + QStringLiteral(".kavel-tmp-");
}

} // namespace

void removeStaleTemporaries(const QString &path)
{
    // Only those older than any write still under way: a reader in one window must not
    // take the temporary file from under a save in another.
    const QDateTime settled = QDateTime::currentDateTime().addSecs(-60);
    const QFileInfo target(path);
    QDir folder = target.dir();
    for (const QFileInfo &file :
         folder.entryInfoList({temporaryPrefix(path) + u'*'}, QDir::Files | QDir::Hidden))
        if (file.lastModified() < settled)
            folder.remove(file.fileName());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        throw FileError(FileError::Kind::notFound, path);
    if (QFileInfo(path).isDir())
        throw FileError(FileError::Kind::readFailed, path,
                        QCoreApplication::translate("kavel::model", "这是一个文件夹"));
    if (!file.open(QIODevice::ReadOnly))
        throw FileError(FileError::Kind::readFailed, path, {}, file.errorString());
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw FileError(FileError::Kind::readFailed, path, {}, file.errorString());
    return bytes;
}

void writeFileAtomically(const QString &path, const QByteArray &bytes)
{
    removeStaleTemporaries(path);
    // Plain POSIX calls, each checked: a buffered writer reports a full disk only when it
    // flushes, and a rename after an unnoticed short write would put an empty file in
    // place of a good one.
    QByteArray temporary
        = QFile::encodeName(QFileInfo(path).dir().filePath(temporaryPrefix(path))) + "XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        failWrite(path, errno);
    const auto abandon = [&](int error) {
        ::close(fd);
        ::unlink(temporary.constData());
        failWrite(path, error);
    };
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            abandon(n < 0 ? errno : ENOSPC);
        written += n;
    }
    // The data must be on disk before the name points at it, or a crash could leave the
    // new name over an empty file.
    if (::fchmod(fd, 0644) != 0 || ::fsync(fd) != 0)
        abandon(errno);
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        failWrite(path, error);
    }
    if (::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        failWrite(path, error);
    }
}

void makeDirectory(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (!QDir().mkpath(path))
        throw FileError(FileError::Kind::createDirectoryFailed, path,
                        QFileInfo::exists(path)
                            ? QCoreApplication::translate("kavel::model", "已存在同名文件")
                            : QString());
}

void copyFile(const QString &from, const QString &to)
{
    QFile source(from);
    if (!source.exists())
        throw FileError(FileError::Kind::notFound, from);
    if (QFileInfo(from).isDir())
        throw FileError(FileError::Kind::copyFailed, from,
                        QCoreApplication::translate("kavel::model", "这是一个文件夹"));
    if (!source.copy(to))
        throw FileError(FileError::Kind::copyFailed, from, {}, source.errorString());
}

} // namespace kavel::fileio
