// The composition root: makes the engine, the session and the editor once and hands
// them to the window.
#include "editor/desktopnotifier.h"
#include "editor/editorviewmodel.h"
#include "editor/importpipeline.h"
#include "export/exportflow.h"
#include "framerouting.h"
#include "homepage.h"
#include "maineditorview.h"
#include "mainwindow.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "media/ffmpeg/loudness.h"
#include "media/mlt/mltaudioconverter.h"
#include "media/mlt/mltengine.h"
#include "media/recordingsummary.h"
#include "model/errors.h"
#include "model/projectpaths.h"
#include "model/projectstore.h"
#include "playback/guideplayerviewmodel.h"
#include "playback/playbackclock.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "service/interfacelanguage.h"
#include "service/loginmodel.h"
#include "service/settings.h"
#include "singleinstance.h"
#include "traynotifier.h"
#include "videoplayerview.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QIcon>
#include <QStandardPaths>
#include <QTextStream>
#include <QTimer>
#include <malloc.h>
#include <qcorotask.h>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

QList<QUrl> pickMediaFiles(QWidget *parent, const QString &title)
{
    // A folder that does not exist would end up typed into the file-name field.
    QString start = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    if (!QFileInfo(start).isDir())
        start = QDir::homePath();
    return QFileDialog::getOpenFileUrls(parent, title, QUrl::fromLocalFile(start),
                                        app::mediaFileFilter());
}

} // namespace

int main(int argc, char *argv[])
{
    // Every decoder thread would otherwise get an arena of its own, each holding on to the
    // frames it once decoded; and a fixed threshold keeps frame-sized blocks in their own
    // mappings, which go back to the system as soon as they are freed.
    mallopt(M_ARENA_MAX, 2);
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    QApplication application(argc, argv);
    QApplication::setOrganizationName(u"Kavel"_s);
    QApplication::setApplicationName(u"Kavel"_s);
    QApplication::setApplicationDisplayName(u"Kavel"_s);
    QApplication::setDesktopFileName(u"kavel"_s);
    QApplication::setWindowIcon(QIcon(u":/kavel/kavel.svg"_s));

    // A second start only hands its files to the window that is already open, before it
    // makes anything of its own.
    app::SingleInstance instance;
    try {
        if (instance.handOverOrListen(QApplication::arguments().mid(1))
            == app::SingleInstance::Role::handedOver)
            return 0;
    } catch (const Error &error) {
        QTextStream(stderr) << error.description() << Qt::endl;
        return 1;
    }
    // Chinese unless the system or the settings screen asks for another language; Qt's
    // own dialogs (the file dialog, standard buttons) follow. A change on the settings
    // screen applies from the next start, since every window is built with its texts.
    const i18n::Translations translations(
        i18n::resolve(i18n::preferenceFromRaw(service::Settings().interfaceLanguage())));

    media::mlt::MltMediaEngine engine;
    media::mlt::MltAudioConverter converter(engine);
    media::ffmpeg::FfmpegRenderer renderer;
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
    services.measureLoudness = media::ffmpeg::loudnessPerMillisecond;
    services.pickFiles = [&dialogParent](const ImportPickerRequest &request) {
        return pickMediaFiles(dialogParent, request.message);
    };
    ImportPipeline imports(clock, services);
    EditorViewModel editor(engine, clock, std::move(services));
    imports.setReceiver([&editor](const KavelProject &project, QList<Paragraph> arrived) {
        return editor.receiveTranscript(project, std::move(arrived));
    });

    // Imports the last run left unfinished (it crashed or was killed) show as failed.
    ImportPipeline::markInterrupted(projectsDirectory());
    ProjectStore store(media::recordingSummarizer(engine), projectsDirectory());

    app::ShellServices shell;
    shell.editor = &editor;
    shell.imports = &imports;
    shell.appState = &appState;
    shell.settings = &settings;
    shell.store = &store;
    shell.login = &login;
    shell.apiClient = &apiClient;
    shell.pickMedia
        = [&dialogParent](const QString &title) { return pickMediaFiles(dialogParent, title); };
    shell.pickFolder = [&dialogParent](const QString &title, const QString &startFolder) {
        const QString start = QFileInfo(startFolder).isDir() ? startFolder : QDir::homePath();
        return QFileDialog::getExistingDirectory(dialogParent, title, start);
    };
    shell.makeExportFlow = [&engine, &renderer, &settings] {
        return std::make_unique<ExportFlow>(engine, renderer, settings);
    };
    shell.makeGuidePlayer = [&engine](app::VideoSurface &surface) {
        auto guide = std::make_unique<GuidePlayerViewModel>(engine);
        app::routeFrames(guide->player(), &surface, &app::VideoSurface::sizeChanged,
                         surface.pictureRoom(),
                         [&surface](const QImage &frame) { surface.showFrame(frame); });
        return guide;
    };
    app::MainWindow window(shell);
    dialogParent = &window;

    app::VideoPlayerView *playerView = window.editorView()->playerView();
    app::routeFrames(editor.playerVM().player(), playerView,
                     &app::VideoPlayerView::frameSizeChanged, playerView->frameSize(),
                     [playerView](const QImage &frame) { playerView->showFrame(frame); });

    // Back on the home page nothing plays: a good moment to give back what the last
    // project's playback and export left in the allocator's hands.
    QObject::connect(&window, &app::MainWindow::navigationSelectionChanged, &window, [&window] {
        if (window.navigationSelection() == app::NavigationItem::home)
            QTimer::singleShot(1000, &window, &media::mlt::MltMediaEngine::releaseUnusedMemory);
    });

    window.show();
    QObject::connect(&instance, &app::SingleInstance::filesReceived, &window,
                     &app::MainWindow::openFiles);
    // What a file manager's "open with" hands over: a bundle opens at once; media files
    // wait for the import confirmation once the stored session is back, since importing
    // needs a signed-in user.
    QList<QUrl> mediaToImport;
    bool bundleOpened = false;
    const QStringList arguments = QApplication::arguments().mid(1);
    for (const QString &argument : arguments) {
        const QUrl url = QUrl::fromLocalFile(QFileInfo(argument).absoluteFilePath());
        if (argument.endsWith(u".kavel"_s) || argument.endsWith(u".kavel/"_s)) {
            if (!bundleOpened)
                window.openProject(url);
            bundleOpened = true;
        } else if (QFileInfo(argument).isFile()) {
            mediaToImport.append(url);
        }
    }
    QCoro::connect(appState.restoreSession(), &appState,
                   [&window, mediaToImport] { window.homePage()->startImport(mediaToImport); });
    return application.exec();
}
