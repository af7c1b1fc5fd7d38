#include "importcommand.h"

#include "clisupport.h"
#include "editor/desktopnotifier.h"
#include "editor/importpipeline.h"
#include "editor/usernotifier.h"
#include "media/ffmpeg/loudness.h"
#include "media/mlt/mltaudioconverter.h"
#include "media/mlt/mltengine.h"
#include "playback/playbackclock.h"
#include "service/apiclient.h"
#include "service/appstate.h"
#include "service/recognitionlanguage.h"
#include "service/settings.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCoroSignal>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QTimer>
#include <memory>

using namespace Qt::StringLiterals;

namespace kavel::cli {

namespace {

// Diagnostics go to standard error, so that standard output carries only the result.
service::LogSink errorSink()
{
    return [](const QString &line) { err() << line << Qt::endl; };
}

void signIn(service::APIClient &client, service::Settings &settings, const QString &email,
            const QString &password, const Deadline &deadline)
{
    const auto timedOut
        = [] { return QCoreApplication::translate("kavel::cli", "登录失败：连接服务器超时"); };
    if (!email.isEmpty()) {
        try {
            const auto tokens = awaitTask(
                client.post<service::AuthTokens>(
                    u"/auth/login"_s, QJsonObject {{u"email"_s, email}, {u"password"_s, password}}),
                deadline, timedOut);
            client.setAccessToken(tokens.accessToken);
        } catch (const service::APIError &error) {
            // The service turns a wrong password away with 401, which the window reports
            // in the same words.
            if (error.statusCode() == 401)
                throw CommandFailure {
                    QCoreApplication::translate("kavel::cli", "登录失败：用户名或密码错误")};
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "登录失败：")
                                  + error.description()};
        } catch (const Error &error) {
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "登录失败：")
                                  + error.description()};
        }
        return;
    }
    service::AppState session(client, settings, errorSink());
    awaitTask(session.restoreSession(), deadline, timedOut);
    if (!session.isAuthenticated())
        throw CommandFailure {QCoreApplication::translate(
            "kavel::cli", "需要登录：请先在 Kavel 中登录，或使用 --email 和 --password")};
}

// A language the service cannot recognise is refused before a project is made or a byte
// extracted. A service from before recognition languages cannot say; its upload decides.
void requireLanguage(service::APIClient &client, const QString &language, const Deadline &deadline)
{
    service::RecognitionLanguages heard;
    try {
        heard = awaitTask(client.recognitionLanguages(), deadline, [] {
            return QCoreApplication::translate("kavel::cli", "语音识别失败: 连接服务器超时");
        });
    } catch (const service::APIError &error) {
        if (error.statusCode() == 404)
            return;
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "语音识别失败: ")
                              + error.description()};
    } catch (const Error &error) {
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "语音识别失败: ")
                              + error.description()};
    }
    if (!service::hearsLanguage(heard.languages, language))
        throw CommandFailure {service::unsupportedLanguageMessage(language)};
}

QCoro::Task<> whenEnded(ImportJob &job)
{
    if (job.isActive())
        co_await qCoro(&job, &ImportJob::ended);
}

} // namespace

int runImport(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Create a project from media files and transcribe it, as the editor's import does."_s);
    const QCommandLineOption serverOption(u"server"_s,
                                          u"API root of the service (default: the setting, "
                                          "or KAVEL_API_BASE_URL)."_s,
                                          u"URL"_s);
    const QCommandLineOption emailOption(u"email"_s, u"Sign in for this run only."_s, u"EMAIL"_s);
    const QCommandLineOption passwordOption(u"password"_s, u"Password for --email."_s,
                                            u"PASSWORD"_s);
    const QCommandLineOption timeoutOption(u"timeout"_s,
                                           u"Give up after this many seconds (default 3600)."_s,
                                           u"SECONDS"_s, u"3600"_s);
    const QCommandLineOption noRefineOption(
        u"no-refine"_s,
        u"Keep the recogniser's word edges instead of moving them into the "
        "quiet beside each word."_s);
    const QCommandLineOption languageOption(
        u"language"_s,
        u"The language spoken in the recording, a BCP 47 code such as zh or en (default: the "
        "service's)."_s,
        u"CODE"_s);
    parser.addOptions(
        {serverOption, emailOption, passwordOption, timeoutOption, noRefineOption, languageOption});
    const QStringList files = parsePositionals(parser, u"import"_s, arguments, {u"FILE"_s}, true);
    if (parser.isSet(emailOption) != parser.isSet(passwordOption))
        throw CommandFailure {
            QCoreApplication::translate("kavel::cli", "--email 和 --password 需要一起给出"), 2};
    const QString language = parser.value(languageOption);
    if (parser.isSet(languageOption) && !service::isLanguageTag(language))
        throw CommandFailure {
            QCoreApplication::translate("kavel::cli", "无效的识别语言代码：%1").arg(language), 2};
    bool timeoutOk = false;
    const double timeoutSeconds = parser.value(timeoutOption).toDouble(&timeoutOk);
    if (!timeoutOk || !(timeoutSeconds > 0))
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "--timeout 需要一个秒数"),
                              2};
    const auto deadline = std::chrono::steady_clock::now()
        + std::chrono::milliseconds(qint64(timeoutSeconds * 1000.0));
    QList<QUrl> urls;
    for (const QString &file : files) {
        const QFileInfo info(file);
        if (!info.isFile())
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "找不到文件：") + file};
        urls.append(QUrl::fromLocalFile(info.absoluteFilePath()));
    }
    // Refused before anything is created or sent, under the name the user gave.
    media::mlt::MltMediaEngine engine;
    for (const QString &file : files) {
        media::MediaInfo probed;
        try {
            probed = engine.probe(QFileInfo(file).absoluteFilePath());
        } catch (const Error &) {
            continue; // the import tries it as it is, as the window's does
        }
        media::requireSound(probed, file);
    }

    service::Settings settings;
    const QUrl base = parser.isSet(serverOption)
        ? QUrl(parser.value(serverOption), QUrl::StrictMode)
        : settings.apiBaseUrl();
    if (!base.isValid() || base.scheme().isEmpty())
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "无效的服务地址：")
                                  + parser.value(serverOption),
                              2};
    // A reply that is not complete half a minute after its request went out is a service
    // that has gone silent, however slowly it keeps trickling.
    service::SessionTimeouts timeouts;
    timeouts.perRequest = std::chrono::seconds(30);
    timeouts.answer = std::chrono::seconds(30);
    service::APIClient client(base, timeouts, errorSink());
    signIn(client, settings, parser.value(emailOption), parser.value(passwordOption), deadline);
    if (!language.isEmpty())
        requireLanguage(client, language, deadline);

    media::mlt::MltAudioConverter converter(engine);
    SystemPlaybackClock clock;
    // A desktop session shows the notification; anywhere else it is one more log line.
    LoggingNotifier logged(errorSink());
    DesktopNotifier notifier(logged);

    ImportServices services;
    services.apiClient = &client;
    services.audioConverter = &converter;
    services.notifier = &notifier;
    // The pipeline logs why its import failed, under the bundle's name; here the command
    // says it itself, once, as the error it ends with, and the bundle is gone by then.
    const auto ownFailures = std::make_shared<QString>();
    services.log = [ownFailures](const QString &line) {
        if (ownFailures->isEmpty() || !line.startsWith(*ownFailures))
            err() << line << Qt::endl;
    };
    if (!parser.isSet(noRefineOption))
        services.measureLoudness = media::ffmpeg::loudnessPerMillisecond;

    // An import that did not finish leaves nothing behind: its bundle is removed, once the
    // pipeline, the engine and the bundle's claim have all let go of it.
    QString bundle;
    std::exception_ptr failure;
    {
        ImportPipeline imports(clock, std::move(services));
        ImportJob *job = nullptr;
        try {
            job = imports.start(urls, language);
        } catch (const Error &error) {
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "无法创建项目: ")
                                  + error.description()};
        }
        bundle = job->bundlePath();
        *ownFailures = u"[Import] "_s + bundle + u": "_s;
        const auto shown = std::make_shared<QString>();
        QObject::connect(job, &ImportJob::changed, job, [job, shown] {
            // The countdown and the percentage change often; each line is said once. It is
            // said a moment later, and only while the import goes on: why it failed is
            // said once, by the error that ends the command.
            QTimer::singleShot(0, job, [job, shown] {
                if (!job->isActive())
                    return;
                if (!job->status().isEmpty() && job->status() != *shown)
                    err() << job->status() << Qt::endl;
                *shown = job->status();
            });
        });
        try {
            // A task the service accepted but never finishes is a recognition that took too
            // long, not a service that cannot be reached; time that ran out before anything
            // was sent was spent here, on this machine.
            const auto timedOut = [job] {
                if (job->step() == kavel::ImportJob::tr("语音识别中"))
                    return QCoreApplication::translate("kavel::cli", "语音识别超时");
                if (job->step() == kavel::ImportJob::tr("上传音频"))
                    return QCoreApplication::translate("kavel::cli",
                                                       "语音识别失败: 连接服务器超时");
                return QCoreApplication::translate("kavel::cli", "导入超时：%1未在限定时间内完成")
                    .arg(job->step().isEmpty()
                             ? QCoreApplication::translate("kavel::cli", "导入媒体")
                             : job->step());
            };
            awaitTask(whenEnded(*job), deadline, timedOut);
            if (job->state() != ImportJob::State::finished)
                throw CommandFailure {job->status()};
        } catch (...) {
            failure = std::current_exception();
            // Stops the extraction's engine too, before anything it uses goes away.
            imports.interruptAll();
        }
    }
    if (failure) {
        QDir(bundle).removeRecursively();
        std::rethrow_exception(failure);
    }
    out() << bundle << Qt::endl;
    return 0;
}

} // namespace kavel::cli
