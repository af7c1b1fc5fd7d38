#include "exportflow.h"

#include "media/mediaengine.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "model/timeline.h"
#include "service/settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QPointer>
#include <QTextStream>
#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

QString noFileWritten()
{
    return ExportFlow::tr("未生成有效的文件");
}

QString noFolderChosen()
{
    return ExportFlow::tr("请选择导出目录");
}

void log(const QString &line)
{
    QTextStream(stdout) << u"[Export] "_s << line << Qt::endl;
}

// The technical part of an error, for the log line only.
QString detailOf(const Error &error)
{
    return error.detail().isEmpty() ? QString() : u" ("_s + error.detail() + u')';
}

QString audioExtension(AudioFormat format)
{
    switch (format) {
    case AudioFormat::mp3:
        return u"mp3"_s;
    case AudioFormat::wav:
        return u"wav"_s;
    case AudioFormat::aac:
        return u"m4a"_s;
    }
    return {};
}

// Every recorded source whose copy is still in the bundle; a bundle whose record lost
// track of its media still plays its primary file.
QList<PlaybackSource> sourcesOf(const KavelProject &project)
{
    QList<PlaybackSource> sources;
    for (const SourceFile &file : project.metadata().sourceFiles)
        if (const auto url = project.sourceFileURL(file.id))
            sources.append({file.id, *url});
    if (sources.isEmpty())
        if (const auto url = project.sourceMediaURL())
            sources.append({QUuid(), *url});
    return sources;
}

} // namespace

ExportFlow::ExportFlow(media::MediaEngine &engine, media::Renderer &renderer,
                       const service::Settings &settings, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_renderService(engine, renderer)
    , m_defaultExportPath(settings.defaultExportPath())
{
    const QString start
        = m_defaultExportPath.isEmpty() ? settings.lastExportPath() : m_defaultExportPath;
    if (!start.isEmpty())
        m_settings.outputPath = QUrl::fromLocalFile(start);
}

ExportFlow::~ExportFlow() = default;

void ExportFlow::setSettings(const ExportSettings &settings)
{
    if (settings == m_settings)
        return;
    m_settings = settings;
    Q_EMIT settingsChanged();
    // The complaint about the folder is answered once one is chosen.
    if (m_settings.outputPath && m_exportError == noFolderChosen())
        setExportError(std::nullopt);
}

QString ExportFlow::outputFile(const QString &extension) const
{
    if (!m_settings.outputPath)
        return {};
    const QString title = m_settings.title.isEmpty() ? m_projectTitle : m_settings.title;
    return QDir(m_settings.outputPath->toLocalFile()).filePath(title + u'.' + extension);
}

QString ExportFlow::subtitlePath() const
{
    return outputFile(toRawValue(m_settings.subtitleFormat));
}

QString ExportFlow::interchangePath() const
{
    return outputFile(interchange::toRawValue(m_settings.interchangeFormat));
}

QString ExportFlow::audioPath() const
{
    return outputFile(audioExtension(m_settings.audioFormat));
}

QString ExportFlow::videoPath() const
{
    return outputFile(fileExtension(m_settings.outputFileType()));
}

bool ExportFlow::isAudioMaterial(const QList<PlaybackSource> &sources)
{
    for (const PlaybackSource &source : sources) {
        try {
            if (m_engine.probe(source.url.toLocalFile()).hasVideo)
                return false;
        } catch (const Error &) {
            // A file that cannot be read may well be a movie: the video step runs and
            // reports it, rather than passing the project off as sound alone.
            return false;
        }
    }
    return true;
}

QCoro::Task<> ExportFlow::startExport(ExportSubject subject)
{
    setExportError(std::nullopt);
    setExportComplete(false);
    setExportNotice(std::nullopt);
    setExportCancelled(false);
    setWrittenFiles({});
    m_interruptedFile.clear();
    m_cancelRequested = false;
    m_loudness.reset();

    if (!m_settings.outputPath) {
        setExportError(noFolderChosen());
        co_return;
    }
    if (!subject.project) {
        setExportError(tr("未找到项目"));
        co_return;
    }
    const QList<PlaybackSource> sources = sourcesOf(*subject.project);
    if (sources.isEmpty()) {
        setExportError(tr("项目中没有源媒体"));
        co_return;
    }
    const QList<WordBlock> blocks = flattenParagraphs(subject.paragraphs);
    if (blocks.isEmpty()) {
        setExportError(tr("没有可导出的内容"));
        co_return;
    }

    m_projectTitle = subject.project->metadata().title;
    if (m_remembersChoices)
        rememberChoices(*subject.project, m_settings);
    m_renderService.setPauseLimit(subject.project->metadata().pauseLimit);
    m_renderService.setScratchDirectory(subject.project->cacheDirectory());
    m_renderService.setSoundFinish(soundFinish(m_settings.loudness, m_settings.denoise));
    const QString exportsDirectory = subject.project->exportsDirectory();
    const ExportSettings settings = m_settings;
    const QString folder = settings.outputPath->toLocalFile();
    QDir().mkpath(folder);
    m_isExporting = true;
    Q_EMIT exportStarted(folder);
    QPointer<ExportFlow> self(this);
    QStringList errors;
    // A step's failure shows in the dialog in the error's own words; the detail behind
    // them goes to the log.
    const auto failed
        = [&errors](const QString &step, const QString &failure, const QString &detail) {
              errors.append(step + failure);
              log(step + failure + detail);
          };

    if (settings.subtitleEnabled) {
        Q_EMIT stepStarted(u"subtitles"_s);
        // This step's text stands alone; what went wrong is for the log.
        try {
            m_renderService.writeSubtitles(sources, blocks, subtitlePath(), settings.subtitleStyle,
                                           settings.subtitleFormat);
            if (!keepWritten(subtitlePath()))
                failed(tr("字幕导出失败: "), noFileWritten(), {});
        } catch (const Error &error) {
            failed(tr("字幕导出失败: "), error.description(), detailOf(error));
        }
    }

    if (settings.interchangeEnabled) {
        Q_EMIT stepStarted(u"interchange"_s);
        try {
            m_renderService.writeInterchange(sources, blocks, interchangePath(),
                                             settings.interchangeFormat, m_projectTitle);
            if (!keepWritten(interchangePath()))
                failed(tr("项目交换文件导出失败"), {}, {});
        } catch (const Error &error) {
            failed(tr("项目交换文件导出失败: "), error.description(), detailOf(error));
        }
    }

    if (settings.audioEnabled && !m_cancelRequested) {
        Q_EMIT stepStarted(u"audio"_s);
        QString failure, detail;
        try {
            co_await m_renderService.renderAudioOnly(sources, blocks, subject.isAudioTrackMuted,
                                                     settings.audioFormat, audioPath());
        } catch (const Error &error) {
            failure = error.description();
            detail = detailOf(error);
        }
        if (!self)
            co_return;
        // A stop that came as the file was put in place has nothing left to stop.
        if (m_cancelRequested && !failure.isNull())
            m_interruptedFile = audioPath();
        else if (!failure.isNull())
            failed(tr("音频导出失败: "), failure, detail);
        else if (!keepWritten(audioPath()) && !m_cancelRequested)
            failed(tr("音频导出失败: "), noFileWritten(), {});
        else if (m_renderService.lastLoudness())
            m_loudness = m_renderService.lastLoudness();
    }

    if (settings.videoEnabled && !m_cancelRequested) {
        if (isAudioMaterial(sources)) {
            setExportNotice(tr("检测到当前项目为音频素材，已自动跳过视频导出。"));
        } else {
            Q_EMIT stepStarted(u"video"_s);
            QString failure, detail;
            try {
                co_await m_renderService.renderVideo(sources, blocks, settings, videoPath(),
                                                     subject.isAudioTrackMuted);
            } catch (const Error &error) {
                failure = error.description();
                detail = detailOf(error);
            }
            if (!self)
                co_return;
            if (m_cancelRequested && !failure.isNull())
                m_interruptedFile = videoPath();
            else if (!failure.isNull())
                failed(tr("视频导出失败: "), failure, detail);
            else if (!keepWritten(videoPath()) && !m_cancelRequested)
                failed(tr("视频导出失败: "), noFileWritten(), {});
            else if (m_renderService.lastLoudness())
                m_loudness = m_renderService.lastLoudness();
        }
    }

    m_isExporting = false;
    if (m_cancelRequested) {
        endCancelled();
        co_return;
    }
    setExportComplete(true);
    if (!errors.isEmpty())
        setExportError(errors.join(u"，"_s));
    QDir().mkpath(exportsDirectory);
}

void ExportFlow::cancel()
{
    if (!m_isExporting)
        return;
    m_cancelRequested = true;
    m_renderService.cancel();
}

bool ExportFlow::keepWritten(const QString &path)
{
    if (QFileInfo(path).size() <= 0) {
        log(u"Nothing written to "_s + path);
        return false;
    }
    setWrittenFiles(m_writtenFiles + QStringList {path});
    return true;
}

// What a stopped run finished is as good as any finished file and stays; the step under
// way has removed its partial file already.
void ExportFlow::endCancelled()
{
    setExportCancelled(true);
    log(u"Cancelled; kept "_s + QString::number(m_writtenFiles.size()) + u" file(s)"_s);
}

std::optional<Resolution> ExportFlow::sourceResolution(const ExportSubject &subject)
{
    if (!subject.project)
        return std::nullopt;
    for (const PlaybackSource &source : sourcesOf(*subject.project)) {
        try {
            const media::MediaInfo info = m_engine.probe(source.url.toLocalFile());
            if (info.hasVideo && info.videoSize.isValid())
                return resolutionOfFrame(info.videoSize);
        } catch (const Error &) {
            // An unreadable file says nothing about the size; the next one may.
        }
    }
    return std::nullopt;
}

QString ExportFlow::choicesPath(const KavelProject &project)
{
    return QDir(project.exportsDirectory()).filePath(u"settings.json"_s);
}

void ExportFlow::offerChoicesFor(const ExportSubject &subject)
{
    m_remembersChoices = true;
    if (!subject.project)
        return;
    ExportSettings offered = m_settings;
    const QString path = choicesPath(*subject.project);
    bool remembered = false;
    if (QFileInfo::exists(path)) {
        try {
            ExportSettings kept
                = exportSettingsFromJson(QJsonDocument::fromJson(fileio::readFile(path)).object());
            kept.title = offered.title;
            if (!kept.outputPath)
                kept.outputPath = offered.outputPath;
            offered = kept;
            remembered = true;
        } catch (const Error &error) {
            // A damaged record costs the user the remembered choices, nothing more.
            log(u"Remembered choices unreadable: "_s + error.description() + detailOf(error));
        }
    }
    if (!remembered)
        if (const auto resolution = sourceResolution(subject))
            offered.resolution = *resolution;
    const QList<PlaybackSource> sources = sourcesOf(*subject.project);
    if (!sources.isEmpty() && isAudioMaterial(sources)) {
        offered.videoEnabled = false;
        if (!offered.subtitleEnabled && !offered.interchangeEnabled)
            offered.audioEnabled = true;
    }
    setSettings(offered);
}

void ExportFlow::rememberChoices(const KavelProject &project, ExportSettings settings)
{
    // The title follows the project unless typed again.
    settings.title.clear();
    try {
        fileio::makeDirectory(project.exportsDirectory());
        fileio::writeFileAtomically(choicesPath(project), QJsonDocument(toJson(settings)).toJson());
    } catch (const Error &error) {
        log(u"Choices not kept: "_s + error.description() + detailOf(error));
    }
}

double ExportFlow::editedDuration(const ExportSubject &subject)
{
    if (!subject.project)
        return 0.0;
    const QList<PlaybackSource> sources = sourcesOf(*subject.project);
    const QList<WordBlock> blocks = flattenParagraphs(subject.paragraphs);
    if (sources.isEmpty() || blocks.isEmpty())
        return 0.0;
    const LoadedSources loaded = loadSourceTracks(m_engine, sources, [](const QString &) {});
    return loaded.tracks.isEmpty()
        ? 0.0
        : planComposition(blocks, loaded.tracks, subject.project->metadata().pauseLimit).duration;
}

QString ExportFlow::formatDuration(double seconds)
{
    Q_ASSERT(std::isfinite(seconds));
    const auto whole = static_cast<long long>(seconds);
    const QChar zero(u'0');
    if (whole < 3600)
        //: Minutes and two-digit seconds, as a clock shows them in the language.
        return tr("%1分%2秒").arg(whole / 60).arg(whole % 60, 2, 10, zero);
    return tr("%1小时%2分%3秒")
        .arg(whole / 3600)
        .arg(whole % 3600 / 60, 2, 10, zero)
        .arg(whole % 60, 2, 10, zero);
}

void ExportFlow::setExportError(std::optional<QString> error)
{
    if (error == m_exportError)
        return;
    m_exportError = std::move(error);
    Q_EMIT exportErrorChanged();
}

void ExportFlow::setExportComplete(bool complete)
{
    if (complete == m_exportComplete)
        return;
    m_exportComplete = complete;
    Q_EMIT exportCompleteChanged();
}

void ExportFlow::setExportNotice(std::optional<QString> notice)
{
    if (notice == m_exportNotice)
        return;
    m_exportNotice = std::move(notice);
    Q_EMIT exportNoticeChanged();
}

void ExportFlow::setExportCancelled(bool cancelled)
{
    if (cancelled == m_exportCancelled)
        return;
    m_exportCancelled = cancelled;
    Q_EMIT exportCancelledChanged();
}

void ExportFlow::setWrittenFiles(const QStringList &files)
{
    if (files == m_writtenFiles)
        return;
    m_writtenFiles = files;
    Q_EMIT writtenFilesChanged();
}

} // namespace kavel
