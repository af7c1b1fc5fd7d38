#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <gtest/gtest.h>

namespace kavel::test {

QString homeDirectory()
{
    return qEnvironmentVariable("HOME");
}

QString programPath(const QString &name)
{
    QString dir = qEnvironmentVariable("KAVEL_BIN_DIR");
    if (dir.isEmpty())
        dir = QCoreApplication::applicationDirPath() + QStringLiteral("/../bin");
    return QDir(dir).filePath(name);
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

void claimBundleFor(const QString &bundle, qint64 pid, const QString &program)
{
    const QString lockPath = QDir(bundle).filePath(QStringLiteral(".kavel-lock"));
    QByteArray contents;
    {
        QLockFile own(lockPath);
        ASSERT_TRUE(own.tryLock());
        QFile file(lockPath);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        contents = file.readAll();
    }
    QList<QByteArray> lines = contents.split('\n');
    ASSERT_GE(lines.size(), 3);
    lines[0] = QByteArray::number(pid);
    lines[1] = program.toUtf8();
    writeFile(lockPath, lines.join('\n'));
}

} // namespace kavel::test
