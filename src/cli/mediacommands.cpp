#include "mediacommands.h"

#include "clisupport.h"
#include "media/mlt/mltengine.h"
#include "media/recordingsummary.h"
#include "model/jsonfields.h"
#include "model/kavelproject.h"
#include "model/projectpaths.h"
#include "model/projectstore.h"
#include "model/timeline.h"
#include "playback/compositionplan.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace kavel::cli {

namespace {

QString seconds(double value)
{
    return QString::number(value, 'f', 3);
}

} // namespace

int runList(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"List the projects in the projects folder, newest first."_s);
    const QCommandLineOption json(u"json"_s, u"print the list as JSON"_s);
    parser.addOption(json);
    parsePositionals(parser, u"list"_s, arguments, {});

    media::mlt::MltMediaEngine engine;
    ProjectStore store(media::recordingSummarizer(engine), projectsDirectory());
    store.refresh();

    if (parser.isSet(json)) {
        QJsonArray array;
        for (const ProjectReference &reference : store.projects()) {
            QJsonObject object = toJson(reference);
            object.insert(u"dateText"_s, dateText(reference));
            object.insert(u"sizeText"_s, sizeText(reference));
            object.insert(u"durationText"_s, durationText(reference));
            object.insert(u"hasThumbnail"_s, store.thumbnail(reference.id).has_value());
            array.append(object);
        }
        out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        out().flush();
        return 0;
    }
    if (store.projects().isEmpty()) {
        out() << QCoreApplication::translate("kavel::cli", "没有项目：") << projectsDirectory()
              << Qt::endl;
        return 0;
    }
    for (const ProjectReference &reference : store.projects()) {
        out() << reference.title << u"  "_s << dateText(reference) << u"  "_s << sizeText(reference)
              << u"  "_s << durationText(reference) << u"  "_s << reference.wordBlockCount
              << QCoreApplication::translate("kavel::cli", " 词  ") << reference.status
              << u"\n    "_s << reference.bundlePath << u'\n';
    }
    out().flush();
    return 0;
}

int runThumbnail(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Write the project's card thumbnail (320x180, from 1 s into its first source)."_s);
    const QStringList values
        = parsePositionals(parser, u"thumbnail"_s, arguments, {u"BUNDLE"_s, u"OUT.png"_s});

    const auto project = openBundle(values.at(0));
    const QList<SourceFile> &sources = project->metadata().sourceFiles;
    const std::optional<QUrl> url
        = sources.isEmpty() ? std::nullopt : project->sourceFileURL(sources.first().id);
    if (!url)
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "项目没有可用的媒体文件")};

    media::mlt::MltMediaEngine engine;
    const std::optional<QImage> image
        = media::recordingSummarizer(engine)(url->toLocalFile()).thumbnail;
    if (!image)
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "无法从媒体中取出画面")};
    if (!image->save(values.at(1), "PNG"))
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "无法写入 ")
                              + values.at(1)};
    out() << values.at(1) << u" ("_s << image->width() << u'x' << image->height() << u")\n"_s;
    out().flush();
    return 0;
}

int runComposition(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Print the preview's composition of a project: where each word plays, the edited "
        u"duration and the source stretches that are cut."_s);
    const QStringList values = parsePositionals(parser, u"composition"_s, arguments, {u"BUNDLE"_s});

    const auto project = openBundle(values.at(0));
    warnIfTranscriptUnreadable(*project);
    QList<PlaybackSource> sources;
    for (const SourceFile &source : project->metadata().sourceFiles)
        if (const std::optional<QUrl> url = project->sourceFileURL(source.id))
            sources.append({source.id, *url});

    media::mlt::MltMediaEngine engine;
    const LoadedSources loaded
        = loadSourceTracks(engine, sources, [](const QString &line) { err() << line << Qt::endl; });
    const QList<WordBlock> blocks = flattenParagraphs(project->paragraphs());
    const CompositionPlan plan
        = planComposition(blocks, loaded.tracks, project->metadata().pauseLimit);

    out() << u"duration "_s << seconds(plan.duration) << u'\n';
    out() << u"entries "_s << plan.map.size() << u" of "_s << blocks.size() << u" words\n"_s;
    for (const CompositionEntry &entry : plan.map)
        out() << u"  "_s << seconds(entry.compositionStart) << u"  "_s
              << json::uuidString(entry.block.id) << u"  ["_s << seconds(entry.block.mediaStart)
              << u'-' << seconds(entry.block.mediaEnd) << u"]  "_s << entry.block.text << u'\n';
    const QList<DeletedTimeRange> deleted = deletedTimeRanges(plan.map);
    out() << u"deleted "_s << deleted.size() << u'\n';
    for (const DeletedTimeRange &range : deleted)
        out() << u"  "_s << seconds(range.start) << u'-' << seconds(range.end) << u'\n';
    out().flush();
    return 0;
}

} // namespace kavel::cli
