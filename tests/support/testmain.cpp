#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

#ifdef KAVEL_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char *argv[])
{
    // A fresh HOME per test program: Documents, settings and caches resolve below it,
    // so the user's real projects and sign-in are never read or changed.
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/kavel-test-home-XXXXXX"));
    if (!home.isValid())
        return EXIT_FAILURE;
    qputenv("HOME", home.path().toUtf8());
    qunsetenv("KAVEL_PROJECTS_DIR");
    qunsetenv("XDG_DOCUMENTS_DIR");
    qunsetenv("XDG_CONFIG_HOME");
    qunsetenv("XDG_DATA_HOME");
    qunsetenv("XDG_CACHE_HOME");
    // The texts the tests expect are the original Chinese ones, whatever the machine's
    // language; a test that wants English asks for it.
    qputenv("LANGUAGE", "zh_CN");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QStandardPaths::setTestModeEnabled(true);
    TestApplication app(argc, argv);
    TestApplication::setOrganizationName(QStringLiteral("Kavel"));
    TestApplication::setApplicationName(QStringLiteral("Kavel"));

    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
