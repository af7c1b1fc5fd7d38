#include "exportcommand.h"

#include "clisupport.h"
#include "export/exportflow.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "media/mlt/mltengine.h"
#include "model/kavelproject.h"
#include "model/timeline.h"
#include "playback/compositionplan.h"
#include "service/settings.h"
#include "timing/pauses.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace kavel::cli {

namespace {

template<typename E>
E choice(const QCommandLineParser &parser, const QCommandLineOption &option,
         std::optional<E> (*fromRaw)(QStringView), E fallback)
{
    if (!parser.isSet(option))
        return fallback;
    const QString value = parser.value(option);
    if (const auto parsed = fromRaw(value))
        return *parsed;
    throw CommandFailure {QCoreApplication::translate("kavel::cli", "--%1 不接受“%2”这个取值")
                              .arg(option.names().first(), value),
                          2};
}

QString stepLabel(const QString &step)
{
    if (step == "subtitles"_L1)
        return QCoreApplication::translate("kavel::cli", "字幕");
    if (step == "audio"_L1)
        return QCoreApplication::translate("kavel::cli", "音频");
    if (step == "interchange"_L1)
        return QCoreApplication::translate("kavel::cli", "项目交换文件");
    return QCoreApplication::translate("kavel::cli", "视频");
}

// A bar that redraws itself in place; only on a terminal, where \r does what it should.
class ProgressBar
{
public:
    ProgressBar()
        : m_enabled(isatty(STDERR_FILENO) == 1)
    { }

    void begin(const QString &label)
    {
        finish();
        m_label = label;
        m_open = true;
        draw(0.0);
    }

    void draw(double progress)
    {
        if (!m_enabled || !m_open)
            return;
        constexpr int width = 30;
        const int filled = int(std::clamp(progress, 0.0, 1.0) * width);
        err() << u'\r' << m_label << u" ["_s << QString(filled, u'#')
              << QString(width - filled, u'-') << u"] "_s
              << QString::number(int(progress * 100)).rightJustified(3) << u'%';
        err().flush();
    }

    void finish()
    {
        if (m_enabled && m_open)
            err() << Qt::endl;
        m_open = false;
    }

private:
    bool m_enabled;
    bool m_open = false;
    QString m_label;
};

QString sizeOf(const QString &path)
{
    return QLocale::c().formattedDataSize(QFileInfo(path).size(), 1, QLocale::DataSizeSIFormat);
}

} // namespace

int runExport(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Export the edited result of a project. Without --video, --audio, --srt, --vtt or "
        "--interchange the movie alone is written; --burn-subtitles implies --video."_s);
    const QCommandLineOption outOption(u"out"_s, u"folder that receives the files"_s, u"DIR"_s);
    const QCommandLineOption titleOption(
        u"title"_s, u"base name of the files (default: the project's title)"_s, u"T"_s);
    const QCommandLineOption videoOption(u"video"_s, u"write a movie: mp4 or mov"_s, u"FORMAT"_s);
    const QCommandLineOption codecOption(u"codec"_s, u"h264 (default) or hevc"_s, u"CODEC"_s);
    const QCommandLineOption resolutionOption(
        u"resolution"_s, u"720p, 1080p or 4k (default: the recording's own)"_s, u"RES"_s);
    const QCommandLineOption audioOption(u"audio"_s, u"write sound alone: wav, aac or mp3"_s,
                                         u"FORMAT"_s);
    const QCommandLineOption srtOption(u"srt"_s, u"write SubRip subtitles"_s);
    const QCommandLineOption vttOption(u"vtt"_s, u"write WebVTT subtitles"_s);
    const QCommandLineOption cuesOption(u"subtitles"_s,
                                        u"cues of whole phrases (default) or of single words"_s,
                                        u"words|phrases"_s);
    const QCommandLineOption interchangeOption(
        u"interchange"_s, u"write the edit for another editor: mlt, edl or fcpxml"_s, u"FORMAT"_s);
    const QCommandLineOption burnOption(
        u"burn-subtitles"_s, u"draw the cues (see --subtitles) into the movie's pictures"_s);
    const QCommandLineOption captionSizeOption(u"caption-size"_s,
                                               u"size of burned-in captions (default: medium)"_s,
                                               u"small|medium|large"_s);
    parser.addOptions({outOption, titleOption, videoOption, codecOption, resolutionOption,
                       audioOption, srtOption, vttOption, cuesOption, interchangeOption, burnOption,
                       captionSizeOption});
    const QCommandLineOption loudnessOption(
        u"loudness"_s, u"bring the sound to -14, -16 or -23 LUFS (true peak at most -1 dBTP)"_s,
        u"TARGET"_s);
    const QCommandLineOption denoiseOption(u"denoise"_s, u"take steady hiss out: light or strong"_s,
                                           u"LEVEL"_s);
    parser.addOptions({loudnessOption, denoiseOption});
    const QStringList values = parsePositionals(parser, u"export"_s, arguments, {u"BUNDLE"_s});
    if (!parser.isSet(outOption))
        throw CommandFailure {QCoreApplication::translate(
                                  "kavel::cli", "用法：kavel-cli export BUNDLE --out DIR [选项]"),
                              2};

    ExportSettings settings;
    settings.title = parser.value(titleOption);
    settings.outputPath
        = QUrl::fromLocalFile(QFileInfo(parser.value(outOption)).absoluteFilePath());
    settings.videoEnabled = parser.isSet(videoOption) || parser.isSet(burnOption)
        || (!parser.isSet(audioOption) && !parser.isSet(srtOption) && !parser.isSet(vttOption)
            && !parser.isSet(interchangeOption));
    settings.videoFormat = choice(parser, videoOption, videoFormatFromRaw, VideoFormat::mp4);
    settings.codec = choice(parser, codecOption, videoCodecFromRaw, VideoCodec::h264);
    settings.audioEnabled = parser.isSet(audioOption);
    settings.audioFormat = choice(parser, audioOption, audioFormatFromRaw, AudioFormat::mp3);
    if (parser.isSet(srtOption) && parser.isSet(vttOption))
        throw CommandFailure {
            QCoreApplication::translate("kavel::cli", "--srt 与 --vtt 只能选一个"), 2};
    settings.subtitleEnabled = parser.isSet(srtOption) || parser.isSet(vttOption);
    settings.subtitleFormat = parser.isSet(vttOption) ? SubtitleFormat::vtt : SubtitleFormat::srt;
    settings.subtitleStyle
        = choice(parser, cuesOption, subtitleStyleFromRaw, SubtitleStyle::phrases);
    settings.interchangeEnabled = parser.isSet(interchangeOption);
    settings.interchangeFormat
        = choice(parser, interchangeOption, interchange::formatFromRaw, interchange::Format::mlt);
    settings.burnSubtitles = parser.isSet(burnOption);
    settings.captionSize
        = choice(parser, captionSizeOption, captionSizeFromRaw, CaptionSize::medium);

    settings.loudness = choice(parser, loudnessOption, loudnessTargetFromRaw, LoudnessTarget::off);
    settings.denoise = choice(parser, denoiseOption, noiseReductionFromRaw, NoiseReduction::off);

    const auto project = openBundleForWriting(values.at(0));
    // An unreadable transcript would export as nothing at all; why is what the user needs.
    if (!project->timelineLoadError().isEmpty())
        throw CommandFailure {project->timelineLoadError()};
    if (settings.title.isEmpty())
        settings.title = project->metadata().title;

    media::mlt::MltMediaEngine engine;
    media::ffmpeg::FfmpegRenderer renderer;
    const service::Settings preferences;
    ExportFlow flow(engine, renderer, preferences);
    const ExportSubject subject {project.get(), project->paragraphs(), false};
    // A recording is not enlarged unless asked for.
    settings.resolution = choice(parser, resolutionOption, resolutionFromRaw,
                                 flow.sourceResolution(subject).value_or(Resolution::p1080));
    flow.setSettings(settings);
    // The engine's diagnostics would tear the progress bar; they go to the summary's
    // stream only when something failed.
    QStringList log;
    flow.renderService().setLogSink([&log](const QString &line) { log.append(line); });

    ProgressBar bar;
    QObject::connect(&flow, &ExportFlow::stepStarted, &flow, [&](const QString &step) {
        // Subtitles and hand-off files are written at once; a bar would only flash.
        if (step == "subtitles"_L1 || step == "interchange"_L1)
            bar.finish();
        else
            bar.begin(stepLabel(step));
    });
    QObject::connect(&flow.renderService(), &LocalRenderService::progressChanged, &flow,
                     [&] { bar.draw(flow.renderService().progress()); });

    const QList<WordBlock> blocks = flattenParagraphs(project->paragraphs());
    double duration = 0.0;
    for (const WordBlock &block : withPauses(blocks, project->metadata().pauseLimit))
        duration += block.duration();
    out() << project->metadata().title << u"  "_s << blocks.size()
          << QCoreApplication::translate("kavel::cli", " 词  ")
          << ExportFlow::formatDuration(duration) << Qt::endl;

    awaitTask(flow.startExport(subject));
    bar.finish();

    if (!flow.exportComplete()) {
        throw CommandFailure {
            flow.exportError().value_or(QCoreApplication::translate("kavel::cli", "导出失败")), 1};
    }
    const auto report = [&](bool enabled, const QString &label, const QString &path) {
        if (!enabled)
            return;
        out() << label << u"  "_s;
        // What this run wrote: an older file of the same name is not this export's.
        if (flow.writtenFiles().contains(path))
            out() << path << u"  ("_s << sizeOf(path) << u')';
        else
            out() << QCoreApplication::translate("kavel::cli", "未写入");
        out() << Qt::endl;
    };
    report(settings.subtitleEnabled, QCoreApplication::translate("kavel::cli", "字幕"),
           flow.subtitlePath());
    report(settings.interchangeEnabled, QCoreApplication::translate("kavel::cli", "项目交换文件"),
           flow.interchangePath());
    report(settings.audioEnabled, QCoreApplication::translate("kavel::cli", "音频"),
           flow.audioPath());
    report(settings.videoEnabled && !flow.exportNotice(),
           QCoreApplication::translate("kavel::cli", "视频"), flow.videoPath());
    if (flow.exportNotice())
        out() << *flow.exportNotice() << Qt::endl;
    if (flow.loudnessReport())
        out() << loudnessSummary(*flow.loudnessReport()) << Qt::endl;
    if (flow.exportError()) {
        for (const QString &line : std::as_const(log))
            err() << line << Qt::endl;
        err() << u"kavel-cli: "_s << *flow.exportError() << Qt::endl;
        return 1;
    }
    return 0;
}

} // namespace kavel::cli
