#include "projectcommands.h"

#include "clisupport.h"
#include "media/ffmpeg/avsupport.h"
#include "media/mlt/mltengine.h"
#include "model/errors.h"
#include "model/jsonfields.h"
#include "model/jsonwriter.h"
#include "model/kavelproject.h"
#include "model/projectpaths.h"
#include "model/timeline.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace kavel::cli {

int runNew(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Create an empty project in the projects folder."_s);
    const QStringList values = parsePositionals(parser, u"new"_s, arguments, {u"TITLE"_s});

    const QString directory = projectsDirectory();
    const QString title = values.first();
    if (const QString reason = invalidTitleReason(title); !reason.isEmpty())
        throw FileError(FileError::Kind::invalidName, title, reason);
    const QString bundle = QDir(directory).filePath(title + u'.' + bundleExtension);
    if (QFileInfo::exists(bundle))
        throw CommandFailure {QCoreApplication::translate("kavel::cli", "项目已存在：") + bundle};

    auto project = KavelProject::create(title, directory);
    out() << project->bundlePath() << Qt::endl;
    return 0;
}

int runAddMedia(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Copy media files into a project's media folder."_s);
    const QStringList values
        = parsePositionals(parser, u"add-media"_s, arguments, {u"BUNDLE"_s, u"FILE"_s}, true);

    auto project = openBundleForWriting(values.first());
    // Every file is checked before any is copied: a project is never left holding a
    // recording it cannot play.
    media::mlt::MltMediaEngine engine;
    for (const QString &path : values.mid(1)) {
        const QFileInfo info(path);
        if (!info.isFile())
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "找不到文件：") + path};
        if (info.size() == 0)
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "文件是空的：") + path};
        media::MediaInfo probed;
        try {
            probed = engine.probe(info.absoluteFilePath());
        } catch (const Error &) {
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "不是可用的媒体文件：")
                                  + path};
        }
        if (!probed.hasAudio && !probed.hasVideo)
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "不是可用的媒体文件：")
                                  + path};
        // The transcript is made from the sound: without it there is nothing to edit by.
        media::requireSound(probed, path);
        try {
            if (media::ffmpeg::isCutShort(info.absoluteFilePath()))
                throw CommandFailure {QCoreApplication::translate("kavel::cli", "媒体文件不完整：")
                                      + path};
        } catch (const Error &) {
            throw CommandFailure {QCoreApplication::translate("kavel::cli", "不是可用的媒体文件：")
                                  + path};
        }
    }
    for (const QString &path : values.mid(1)) {
        const SourceFile file
            = project->addSourceFile(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
        out() << json::uuidString(file.id) << u'\t' << file.filename << u'\t' << file.originalName
              << Qt::endl;
    }
    return 0;
}

int runInfo(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Show a project's metadata and its words in playback order."_s);
    const QCommandLineOption jsonOption(u"json"_s, u"Print JSON instead of text."_s);
    parser.addOption(jsonOption);
    const QStringList values = parsePositionals(parser, u"info"_s, arguments, {u"BUNDLE"_s});

    auto project = openBundle(values.first());
    warnIfTranscriptUnreadable(*project);

    const ProjectMetadata &m = project->metadata();
    const QList<WordBlock> words = flattenParagraphs(project->paragraphs());

    if (parser.isSet(jsonOption)) {
        JsonWriter w;
        w.beginObject();
        w.key("bundlePath");
        w.value(project->bundlePath());
        w.key("createdAt");
        w.value(json::dateString(m.createdAt));
        w.key("id");
        w.value(m.id);
        w.key("paragraphCount");
        w.value(project->paragraphs().size());
        w.key("sourceFiles");
        w.beginArray();
        for (const SourceFile &file : m.sourceFiles)
            writeJson(w, file);
        w.endArray();
        w.key("title");
        w.value(m.title);
        w.key("updatedAt");
        w.value(json::dateString(m.updatedAt));
        w.key("wordCount");
        w.value(words.size());
        w.key("words");
        w.beginArray();
        for (const WordBlock &word : words)
            writeJson(w, word);
        w.endArray();
        w.endObject();
        out() << QString::fromUtf8(w.take());
        return 0;
    }

    out() << u"Title:       "_s << m.title << Qt::endl;
    out() << u"Id:          "_s << json::uuidString(m.id) << Qt::endl;
    out() << u"Bundle:      "_s << project->bundlePath() << Qt::endl;
    out() << u"Created:     "_s << json::dateString(m.createdAt) << Qt::endl;
    out() << u"Updated:     "_s << json::dateString(m.updatedAt) << Qt::endl;
    out() << u"Sources:     "_s << m.sourceFiles.size() << Qt::endl;
    for (const SourceFile &file : m.sourceFiles) {
        const bool present = project->sourceFileURL(file.id).has_value();
        out() << u"  "_s << file.filename << u"  "_s << file.originalName
              << (present ? QString() : u"  (missing)"_s) << Qt::endl;
    }
    out() << u"Paragraphs:  "_s << project->paragraphs().size() << Qt::endl;
    out() << u"Words:       "_s << words.size() << Qt::endl;
    // Words in playback order under a heading per paragraph; flattenParagraphs numbers
    // them across the whole transcript.
    QList<Paragraph> ordered = project->paragraphs();
    std::stable_sort(ordered.begin(), ordered.end(), [](const Paragraph &a, const Paragraph &b) {
        return a.sortOrder < b.sortOrder;
    });
    qsizetype next = 0;
    for (qsizetype p = 0; p < ordered.size(); ++p) {
        out() << u"Paragraph "_s << p + 1;
        if (ordered[p].speakerLabel)
            out() << u"  [speaker "_s << *ordered[p].speakerLabel << u']';
        out() << Qt::endl;
        for (qsizetype i = 0; i < ordered[p].wordBlocks.size(); ++i) {
            const WordBlock &word = words.at(next++);
            out() << QStringLiteral("%1  %2 - %3  ")
                         .arg(word.sortOrder, 6)
                         .arg(formatSeconds(word.mediaStart), formatSeconds(word.mediaEnd))
                  << word.text;
            if (word.isFiller)
                out() << u"  [filler]"_s;
            out() << Qt::endl;
        }
    }
    // The words the recogniser doubted, to listen to again; kept out of the edit, they do
    // not count.
    QList<const WordBlock *> doubted;
    for (const WordBlock &word : words)
        if (word.needsCheck() && !word.isDeleted)
            doubted.append(&word);
    out() << QCoreApplication::translate("kavel-cli", "待核对的词：%1 个").arg(doubted.size())
          << Qt::endl;
    for (const WordBlock *word : doubted)
        out() << QStringLiteral("  %1 - %2  %3  ")
                     .arg(formatSeconds(word->mediaStart), formatSeconds(word->mediaEnd),
                          word->text)
              << QCoreApplication::translate("kavel-cli", "（可信度 %1）")
                     .arg(word->confidence, 0, 'f', 2)
              << Qt::endl;
    return 0;
}

} // namespace kavel::cli
