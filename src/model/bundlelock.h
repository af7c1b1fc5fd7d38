#pragma once

#include <QString>
#include <functional>
#include <memory>

class QLockFile;

namespace kavel {

// A bundle's claim by the process that edits it: a lock file inside the bundle, so that a
// second window or a kavel-cli run cannot write over its edits. Every object of one
// process that opens the same bundle shares one claim; a claim left by a process that has
// died is taken over.
class BundleLock
{
public:
    // Throws Error naming the bundle and its holder when another process has it.
    static std::shared_ptr<BundleLock> acquire(const QString &bundlePath);
    // Whether an object of this process holds the bundle.
    static bool isHeldHere(const QString &bundlePath);

    explicit BundleLock(QString bundlePath);
    ~BundleLock();
    BundleLock(const BundleLock &) = delete;
    BundleLock &operator=(const BundleLock &) = delete;

    const QString &bundlePath() const { return m_bundlePath; }

    // The bundle is being renamed: the claim is let go for the move and taken again at
    // `to`. `move` does the rename and says whether it happened; if not, the claim is
    // taken again where it was. Throws Error when it cannot be taken again.
    bool follow(const QString &to, const std::function<bool()> &move);

    static constexpr QLatin1StringView fileName {".kavel-lock"};

private:
    void lock();

    QString m_bundlePath;
    std::unique_ptr<QLockFile> m_file;
};

} // namespace kavel
