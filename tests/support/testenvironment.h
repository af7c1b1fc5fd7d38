#pragma once

#include <QString>
#include <QTemporaryDir>
#include <functional>

namespace kavel::test {

// The private HOME the test main set up; projects and settings land below it.
QString homeDirectory();

// Path of a built program (kavel-cli, kavel-server) next to the tests' binaries.
QString programPath(const QString &name);

// Writes bytes to a file, creating parent folders; fails the current test on error.
void writeFile(const QString &path, const QByteArray &bytes);

// Makes the bundle look open in another process, as that process's own claim would: Qt's
// lock file, with its id and program name.
void claimBundleFor(const QString &bundle, qint64 pid, const QString &program);

} // namespace kavel::test

namespace kavel::test {

// A folder whose disk is full: a small tmpfs of its own, filled to the last byte once the
// test has put there what it needs. Where mounting is not allowed, a zero file-size limit
// for what runs inside whileFull() stands in (its errors then say "file too large").
class FullDisk
{
public:
    FullDisk(const QString &folder, const QString &size);
    ~FullDisk();
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

    bool isMounted() const { return m_mounted; }
    const QString &path() const { return m_folder; }
    // Takes every byte still free.
    void fill();
    // Runs `action` (which may start programs) with writes failing for want of room.
    void whileFull(const std::function<void()> &action);

private:
    QString m_folder;
    bool m_mounted = false;
};

} // namespace kavel::test
