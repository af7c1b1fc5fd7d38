#include "fileio.h"

#include "errors.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace kavel::fileio {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        throw FileError(FileError::Kind::notFound, path);
    if (QFileInfo(path).isDir())
        throw FileError(FileError::Kind::readFailed, path, QStringLiteral("这是一个文件夹"));
    if (!file.open(QIODevice::ReadOnly))
        throw FileError(FileError::Kind::readFailed, path, {}, file.errorString());
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw FileError(FileError::Kind::readFailed, path, {}, file.errorString());
    return bytes;
}

void writeFileAtomically(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw FileError(FileError::Kind::writeFailed, path, {}, file.errorString());
    if (file.write(bytes) != bytes.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        throw FileError(FileError::Kind::writeFailed, path, {}, reason);
    }
    if (!file.commit())
        throw FileError(FileError::Kind::writeFailed, path, {}, file.errorString());
}

void makeDirectory(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (!QDir().mkpath(path))
        throw FileError(FileError::Kind::createDirectoryFailed, path,
                        QFileInfo::exists(path) ? QStringLiteral("已存在同名文件") : QString());
}

void copyFile(const QString &from, const QString &to)
{
    QFile source(from);
    if (!source.exists())
        throw FileError(FileError::Kind::notFound, from);
    if (QFileInfo(from).isDir())
        throw FileError(FileError::Kind::copyFailed, from, QStringLiteral("这是一个文件夹"));
    if (!source.copy(to))
        throw FileError(FileError::Kind::copyFailed, from, {}, source.errorString());
}

} // namespace kavel::fileio
