#include "mltengine.h"

#include "mediaprobe.h"
#include "mltplayer.h"
#include "mltthumbnailgenerator.h"

#include <Mlt.h>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <malloc.h>
#include <mutex>

extern "C" {
#include <libavutil/log.h>
}

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

Mlt::Repository *startMlt(const QString &moduleDirectory)
{
    // MLT's factory is process-wide and cannot be restarted on another folder.
    static std::once_flag once;
    static Mlt::Repository *repository = nullptr;
    std::call_once(once, [&] {
        if (!QFileInfo(moduleDirectory).isDir())
            return;
        // FFmpeg's own console chatter about damaged files is not Kavel's log.
        av_log_set_level(AV_LOG_FATAL);
        // MLT's avformat module sets FFmpeg's level from MLT's own when it first loads,
        // which would bring the muxers' notes back ("Timestamps are unset …").
        mlt_log_set_level(MLT_LOG_FATAL);
        // The player's sound output starts SDL, which would take SIGINT and SIGTERM for
        // itself and turn them into quit events that nothing here reads: the program could
        // then no longer be stopped by a signal. Set before MLT runs any thread.
        if (!qEnvironmentVariableIsSet("SDL_NO_SIGNAL_HANDLERS"))
            qputenv("SDL_NO_SIGNAL_HANDLERS", "1");
        repository = Mlt::Factory::init(QFile::encodeName(moduleDirectory).constData());
    });
    return repository;
}

} // namespace

MltMediaEngine::MltMediaEngine(const QString &moduleDirectory)
{
    if (!startMlt(moduleDirectory))
        throw MediaError(
            QCoreApplication::translate("kavel::media", "无法启动媒体引擎：找不到模块目录 ")
            + moduleDirectory);
}

QString MltMediaEngine::defaultModuleDirectory()
{
    const QString fromEnvironment = qEnvironmentVariable("KAVEL_MLT_MODULES");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    // Installed, the window and the command-line tool come in packages of their own, so
    // each has its own folder, /usr/lib/<program>/mlt-modules.
    const QDir libraries(QCoreApplication::applicationDirPath() + u"/../lib"_s);
    const QString installed = libraries.absoluteFilePath(
        QFileInfo(QCoreApplication::applicationFilePath()).fileName() + u"/mlt-modules"_s);
    if (QFileInfo(installed).isDir())
        return installed;
    return libraries.absoluteFilePath(u"kavel-mlt-modules"_s);
}

void MltMediaEngine::releaseUnusedMemory()
{
    mlt_pool_purge();
    // Decoded frames are freed in the middle of the heap, between blocks still in use; the
    // allocator keeps such holes mapped unless asked to return them.
    malloc_trim(0);
}

MediaInfo MltMediaEngine::probe(const QString &path)
{
    return probeMedia(path).info;
}

std::unique_ptr<Player> MltMediaEngine::createPlayer()
{
    return std::make_unique<MltPlayer>();
}

std::unique_ptr<ThumbnailGenerator>
MltMediaEngine::createThumbnailGenerator(const QString &path, const ThumbnailOptions &options)
{
    return std::make_unique<MltThumbnailGenerator>(path, options);
}

} // namespace kavel::media::mlt
