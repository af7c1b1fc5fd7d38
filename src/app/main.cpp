// The composition root: makes the engine, the session and the editor once and hands
// them to the window.
#include "editor/desktopnotifier.h"
#include "editor/editorviewmodel.h"
#include "export/exportflow.h"
#include "homepage.h"
#include "maineditorview.h"
#include "mainwindow.h"
#include "media/mlt/mltaudioconverter.h"
#include "media/mlt/mltengine.h"
#include "media/mlt/mltplayer.h"
#include "media/mlt/mltrenderer.h"
#include "model/projectpaths.h"
#include "model/projectstore.h"
#include "playback/playbackclock.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "service/loginmodel.h"
#include "service/settings.h"
#include "traynotifier.h"
#include "videoplayerview.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QStandardPaths>
#include <qcorotask.h>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

QList<QUrl> pickMediaFiles(QWidget *parent, const QString &title)
{
    return QFileDialog::getOpenFileUrls(
        parent, title,
        QUrl::fromLocalFile(QStandardPaths::writableLocation(QStandardPaths::MoviesLocation)),
        app::mediaFileFilter());
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName(u"Kavel"_s);
    QApplication::setApplicationName(u"Kavel"_s);
    QApplication::setApplicationDisplayName(u"Kavel"_s);

    media::mlt::MltMediaEngine engine;
    media::mlt::MltAudioConverter converter(engine);
    media::mlt::MltRenderer renderer(engine);
    SystemPlaybackClock clock;

    service::Settings settings;
    service::APIClient apiClient(settings.apiBaseUrl());
    service::AppState appState(apiClient, settings);
    service::LoginModel login(apiClient, settings, appState);

    LoggingNotifier logged;
    app::TrayNotifier tray(logged);
    DesktopNotifier notifier(tray);

    // The window does not exist yet when the editor is made; the picker finds it later.
    QWidget *dialogParent = nullptr;
    ImportServices services;
    services.apiClient = &apiClient;
    services.appState = &appState;
    services.audioConverter = &converter;
    services.notifier = &notifier;
    services.pickFiles = [&dialogParent](const ImportPickerRequest &request) {
        return pickMediaFiles(dialogParent, request.message);
    };
    EditorViewModel editor(engine, clock, std::move(services));

    ProjectStore store(engine, projectsDirectory());

    app::ShellServices shell;
    shell.editor = &editor;
    shell.appState = &appState;
    shell.settings = &settings;
    shell.store = &store;
    shell.login = &login;
    shell.pickMedia
        = [&dialogParent](const QString &title) { return pickMediaFiles(dialogParent, title); };
    shell.pickFolder = [&dialogParent](const QString &title) {
        return QFileDialog::getExistingDirectory(dialogParent, title);
    };
    shell.makeExportFlow = [&engine, &renderer, &settings] {
        return std::make_unique<ExportFlow>(engine, renderer, settings);
    };
    app::MainWindow window(shell);
    dialogParent = &window;

    // The MLT player hands its frames over on its own thread; the queued connection
    // brings them to the surface.
    app::VideoPlayerView *playerView = window.editorView()->playerView();
    app::VideoSurface *surface = playerView->surface();
    if (auto *player = dynamic_cast<media::mlt::MltPlayer *>(&editor.playerVM().player())) {
        QObject::connect(
            player, &media::mlt::MltPlayer::frameShown, playerView,
            [playerView](const QImage &frame, double) { playerView->showFrame(frame); },
            Qt::QueuedConnection);
        QObject::connect(surface, &app::VideoSurface::sizeChanged, player,
                         [player](QSize size) { player->setVideoSize(size); });
        player->setVideoSize(surface->size());
    }

    window.show();
    // A bundle named on the command line (a file manager's "open with") opens at once.
    const QStringList arguments = QApplication::arguments().mid(1);
    for (const QString &argument : arguments) {
        if (argument.endsWith(u".kavel"_s)) {
            window.openProject(QUrl::fromLocalFile(QFileInfo(argument).absoluteFilePath()));
            break;
        }
    }
    QCoro::connect(appState.restoreSession(), &appState, [] {});
    return application.exec();
}
