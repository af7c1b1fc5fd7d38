#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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

} // namespace kavel::test
