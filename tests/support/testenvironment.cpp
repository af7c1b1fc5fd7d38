#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

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

namespace kavel::test {

FullDisk::FullDisk(const QString &folder, const QString &size)
    : m_folder(folder)
{
    QDir().mkpath(folder);
    m_mounted
        = QProcess::execute(QStringLiteral("mount"),
                            {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                             QStringLiteral("size=") + size, QStringLiteral("tmpfs"), folder})
        == 0;
}

FullDisk::~FullDisk()
{
    if (m_mounted)
        QProcess::execute(QStringLiteral("umount"), {m_folder});
}

void FullDisk::fill()
{
    if (!m_mounted)
        return;
    QFile filler(QDir(m_folder).filePath(QStringLiteral(".filler")));
    filler.open(QIODevice::WriteOnly);
    while (filler.write(QByteArray(4096, 0)) == 4096 && filler.flush()) { }
    // The last partial block.
    while (filler.write(QByteArray(1, 0)) == 1 && filler.flush()) { }
}

void FullDisk::whileFull(const std::function<void()> &action)
{
    if (m_mounted) {
        action();
        return;
    }
    rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tight = saved;
    tight.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &tight);
    action();
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);
}

} // namespace kavel::test
