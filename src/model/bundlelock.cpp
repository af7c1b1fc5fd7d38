#include "bundlelock.h"

#include "errors.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLockFile>
#include <QMutex>
#include <QStorageInfo>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

QString key(const QString &bundlePath)
{
    return QDir::cleanPath(QFileInfo(bundlePath).absoluteFilePath());
}

struct Registry
{
    QMutex mutex;
    QHash<QString, std::weak_ptr<BundleLock>> held;
};

Registry &registry()
{
    static Registry instance;
    return instance;
}

QString projectName(const QString &bundlePath)
{
    return QFileInfo(key(bundlePath)).completeBaseName();
}

} // namespace

BundleLock::BundleLock(QString bundlePath)
    : m_bundlePath(key(bundlePath))
{
    lock();
}

BundleLock::~BundleLock()
{
    if (m_file)
        m_file->unlock();
    Registry &r = registry();
    const QMutexLocker locker(&r.mutex);
    const auto it = r.held.constFind(m_bundlePath);
    if (it != r.held.cend() && it->expired())
        r.held.erase(it);
}

void BundleLock::lock()
{
    auto file = std::make_unique<QLockFile>(QDir(m_bundlePath).filePath(fileName));
    // A project stays open for hours: only a holder that is gone makes a claim stale,
    // never its age.
    file->setStaleLockTime(0);
    if (file->tryLock()) {
        m_file = std::move(file);
        return;
    }
    qint64 pid = 0;
    QString host, application;
    const bool known = file->getLockInfo(&pid, &host, &application);
    // Our own claim, left in a bundle that went to the trash and came back while no object
    // here held it any more.
    if (known && pid == QCoreApplication::applicationPid() && file->removeStaleLockFile()
        && file->tryLock()) {
        m_file = std::move(file);
        return;
    }
    if (file->error() == QLockFile::LockFailedError) {
        const QString holder = known
            ? QCoreApplication::translate("kavel::model", "（%1，进程 %2）")
                  .arg(QFileInfo(application).fileName())
                  .arg(pid)
            : QString();
        throw Error(
            QCoreApplication::translate(
                "kavel::model", "项目“%1”已在另一个 Kavel 窗口或程序中打开%2，请先在那里关闭它。")
                .arg(projectName(m_bundlePath), holder));
    }
    // QLockFile keeps the system's reason to itself; a full disk is the one the user can do
    // something about, so it is looked for.
    const QStorageInfo volume(m_bundlePath);
    const bool full = volume.isValid() && volume.bytesAvailable() < 64 * 1024;
    throw Error(
        QCoreApplication::translate("kavel::model", "未能打开项目“%1”：无法在项目文件夹中写入%2。")
            .arg(projectName(m_bundlePath),
                 full ? QCoreApplication::translate("kavel::model", "（磁盘空间不足）")
                      : QString()),
        file->fileName());
}

std::shared_ptr<BundleLock> BundleLock::acquire(const QString &bundlePath)
{
    Registry &r = registry();
    const QMutexLocker locker(&r.mutex);
    const QString path = key(bundlePath);
    if (std::shared_ptr<BundleLock> shared = r.held.value(path).lock())
        return shared;
    auto made = std::make_shared<BundleLock>(path);
    r.held.insert(path, made);
    return made;
}

bool BundleLock::isHeldHere(const QString &bundlePath)
{
    Registry &r = registry();
    const QMutexLocker locker(&r.mutex);
    return !r.held.value(key(bundlePath)).expired();
}

bool BundleLock::follow(const QString &to, const std::function<bool()> &move)
{
    m_file->unlock();
    m_file.reset();
    const bool moved = move();
    const QString from = m_bundlePath;
    if (moved)
        m_bundlePath = key(to);
    lock();
    Registry &r = registry();
    const QMutexLocker locker(&r.mutex);
    if (moved) {
        r.held.insert(m_bundlePath, r.held.take(from));
    }
    return moved;
}

} // namespace kavel
