#pragma once

#include "app/homepage.h"
#include "app/mainwindow.h"
#include "editor/importpipeline.h"
#include "import/importfakes.h"
#include "media/recordingsummary.h"
#include "model/projectstore.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "service/loginmodel.h"
#include "service/settings.h"
#include "ui/uifixture.h"

#include <QDir>
#include <QMessageBox>
#include <QPushButton>

namespace kavel::test {

// The window over the fake engine, a session that is never signed in (its server does
// not exist), a private settings file and a projects folder of its own.
class ShellFixture : public UiFixture
{
protected:
    QTemporaryDir projectsDir;
    service::Settings settings {std::make_unique<QSettings>(
        QDir(dir.path()).filePath(QStringLiteral("settings.ini")), QSettings::IniFormat)};
    service::APIClient api {
        QUrl(QStringLiteral("http://127.0.0.1:9/api")), {}, [](const QString &) {}};
    service::AppState appState {api, settings, [](const QString &) {}};
    service::LoginModel login {api, settings, appState};
    ProjectStore store {media::recordingSummarizer(engine), projectsDir.path()};
    // Conversions wait for the test unless told otherwise; nothing answers the uploads.
    FakeAudioConverter converter;
    ImportPipeline imports {clock, [this] {
                                ImportServices services;
                                services.apiClient = &api;
                                services.audioConverter = &converter;
                                services.projectsDirectory = projectsDir.path();
                                services.log = {};
                                return services;
                            }()};
    int mediaPicks = 0;
    QList<QUrl> filesToPick;
    const std::function<QList<QUrl>()> pickMedia = [this] { return ++mediaPicks, filesToPick; };
    // Where each folder dialog opened.
    QStringList pickerStarts;
    QString folderToPick;
    app::GuidePlayerFactory makeGuidePlayer;
    std::function<std::unique_ptr<ExportFlow>()> makeExportFlow;
    std::unique_ptr<app::MainWindow> main;

    void makeWindow()
    {
        converter.completeAtOnce = false;
        imports.setReceiver([this](const KavelProject &project, QList<Paragraph> arrived) {
            return vm.receiveTranscript(project, std::move(arrived));
        });
        main = std::make_unique<app::MainWindow>(app::ShellServices {
            .editor = &vm,
            .imports = &imports,
            .appState = &appState,
            .settings = &settings,
            .store = &store,
            .login = &login,
            .pickMedia = [this](const QString &) { return pickMedia(); },
            .pickFolder =
                [this](const QString &, const QString &start) {
                    pickerStarts.append(start);
                    return folderToPick;
                },
            .makeExportFlow = makeExportFlow,
            .makeGuidePlayer = makeGuidePlayer,
        });
    }

    void activateWindow()
    {
        main->show();
        QApplication::setActiveWindow(main.get());
        ASSERT_TRUE(QTest::qWaitForWindowActive(main.get()));
    }

    QString makeProject(const QString &title)
    {
        auto project = KavelProject::create(title, projectsDir.path());
        project->saveTimeline();
        return project->bundlePath();
    }

    // The alert on show must say `text`; `button` answers it.
    void answerAlert(const QString &text, const QString &button)
    {
        QMessageBox *box = main->currentAlert();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->text(), text);
        for (QAbstractButton *b : box->buttons()) {
            if (b->text() == button)
                b->click();
        }
    }
};

} // namespace kavel::test
