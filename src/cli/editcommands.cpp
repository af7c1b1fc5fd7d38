#include "editcommands.h"

#include "clisupport.h"
#include "editor/paragraphedits.h"
#include "editor/textcorrections.h"
#include "editor/transcriptsearch.h"
#include "model/jsonwriter.h"
#include "model/kavelproject.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace kavel::cli {

namespace {

// The paragraphs in the order they play, which is the order users number them in.
QList<Paragraph> playbackOrder(QList<Paragraph> paragraphs)
{
    std::stable_sort(
        paragraphs.begin(), paragraphs.end(),
        [](const Paragraph &a, const Paragraph &b) { return a.sortOrder < b.sortOrder; });
    return paragraphs;
}

qsizetype paragraphIndex(const QString &text, qsizetype count)
{
    bool ok = false;
    const qsizetype number = text.toLongLong(&ok);
    if (!ok || number < 1 || number > count)
        throw CommandFailure {
            QCoreApplication::translate("kavel::cli", "段落编号 %1 不存在（项目共有 %2 个段落）")
                .arg(text)
                .arg(count)};
    return number - 1;
}

QString hitText(const Paragraph &paragraph, const SearchHit &hit)
{
    QStringList words;
    for (const WordBlock &block : paragraph.wordBlocks) {
        if (hit.blockIds.contains(block.id))
            words << block.text;
    }
    return words.join(u' ');
}

} // namespace

int runEdit(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Edit a transcript and save it: text corrections first, then word deletions, then "
        "paragraph deletions, then moves. Paragraph numbers refer to the transcript as it was "
        "before the edit."_s);
    const QCommandLineOption replace(
        u"replace-text"_s,
        u"Give every run of whole words that reads OLD the text NEW (case and spaces between "
        "words do not matter); the run keeps its time and becomes one word."_s,
        u"OLD=NEW"_s);
    const QCommandLineOption pauses(
        u"keep-pauses"_s,
        u"Keep up to S seconds (0.1-2.0) of each recorded pause between neighbouring words; "
        "\"whole\" (or \"完整\") keeps them whole, as recorded; 0 turns it off."_s,
        u"S"_s);
    const QCommandLineOption fillers(u"delete-fillers"_s, u"Delete every filler word."_s);
    const QCommandLineOption text(u"delete-text"_s,
                                  u"Delete the words of every place PHRASE occurs."_s, u"PHRASE"_s);
    const QCommandLineOption paragraph(u"delete-paragraph"_s, u"Delete paragraph N."_s, u"N"_s);
    const QCommandLineOption move(u"move-paragraph"_s,
                                  u"Move paragraph FROM so that it ends up at position TO."_s,
                                  u"FROM:TO"_s);
    const QCommandLineOption dryRun(u"dry-run"_s, u"Report what would change; save nothing."_s);
    parser.addOptions({replace, pauses, fillers, text, paragraph, move, dryRun});
    const QStringList values = parsePositionals(parser, u"edit"_s, arguments, {u"BUNDLE"_s});

    auto project = openBundleForWriting(values.first());
    // Saving an edit of the empty transcript a damaged file opens as would replace it.
    if (!project->timelineLoadError().isEmpty()) {
        const std::optional<QString> backup = project->backUpDamagedTimeline();
        throw CommandFailure {
            backup ? QCoreApplication::translate("kavel::cli", "转写稿无法读取，原文件已备份到 ")
                    + *backup
                   : project->timelineLoadError()};
    }
    QList<Paragraph> original = playbackOrder(project->paragraphs());

    std::optional<double> pauseLimit;
    if (parser.isSet(pauses)) {
        const QString value = parser.value(pauses).trimmed();
        bool ok = false;
        const double seconds = value.toDouble(&ok);
        if (value.compare(u"whole"_s, Qt::CaseInsensitive) == 0 || value == u"完整"_s)
            pauseLimit = wholePauses;
        else if (ok && (seconds == 0 || (seconds >= minPauseLimit && seconds <= maxPauseLimit)))
            pauseLimit = seconds;
        else
            throw CommandFailure {
                QCoreApplication::translate(
                    "kavel::cli", "--keep-pauses 需要 0、0.1 到 2.0 之间的秒数或“完整”(whole)"),
                2};
    }
    QList<edits::TextCorrection> corrections;
    for (const QString &pair : parser.values(replace)) {
        const qsizetype equals = pair.indexOf(u'=');
        if (equals <= 0 || pair.left(equals).trimmed().isEmpty()
            || pair.mid(equals + 1).trimmed().isEmpty())
            throw CommandFailure {QCoreApplication::translate(
                                      "kavel::cli", "--replace-text 需要 OLD=NEW 形式，而不是“%1”")
                                      .arg(pair),
                                  2};
        corrections.append({pair.left(equals), pair.mid(equals + 1)});
    }
    const edits::CorrectionOutcome corrected = edits::correctWholeWords(original, corrections);
    for (const QString &skipped : corrected.skipped)
        err() << QCoreApplication::translate("kavel::cli", "跳过“%1”：所在的词不在同一段录音中相连")
                     .arg(skipped)
              << Qt::endl;

    // Resolve every paragraph number against the original numbering before anything moves.
    QList<QUuid> paragraphsToDelete;
    for (const QString &n : parser.values(paragraph))
        paragraphsToDelete << original.at(paragraphIndex(n, original.size())).id;
    QList<std::pair<QUuid, qsizetype>> moves;
    for (const QString &spec : parser.values(move)) {
        const QStringList parts = spec.split(u':');
        if (parts.size() != 2)
            throw CommandFailure {
                QCoreApplication::translate("kavel::cli",
                                            "--move-paragraph 需要 FROM:TO 形式，而不是“%1”")
                    .arg(spec),
                2};
        bool ok = false;
        const qsizetype to = parts[1].toLongLong(&ok);
        if (!ok || to < 1)
            throw CommandFailure {
                QCoreApplication::translate("kavel::cli", "目标位置“%1”无效").arg(parts[1]), 2};
        moves.append({original.at(paragraphIndex(parts[0], original.size())).id, to - 1});
    }

    QSet<QUuid> words;
    if (parser.isSet(fillers))
        words += edits::fillerWordIds(original);
    for (const QString &phrase : parser.values(text)) {
        for (const SearchHit &hit : searchTranscript(original, phrase))
            words += QSet<QUuid>(hit.blockIds.cbegin(), hit.blockIds.cend());
    }

    QList<Paragraph> result = edits::removeWords(original, words);
    const qsizetype paragraphsBefore = result.size();
    for (const QUuid &id : paragraphsToDelete)
        result = edits::removeParagraph(result, id);
    const qsizetype paragraphsDeleted = paragraphsBefore - result.size();
    qsizetype moved = 0;
    for (const auto &[id, target] : moves) {
        const qsizetype from = edits::indexOfParagraph(result, id);
        if (from < 0)
            continue; // deleted above, or emptied by the word deletions
        const qsizetype to = std::min(target, result.size() - 1);
        result = edits::moveParagraphs(result, {from}, from < to ? to + 1 : to);
        ++moved;
    }

    // What was done is said only once it is saved: a save that fails did nothing.
    QStringList report;
    if (!corrections.isEmpty()) {
        for (qsizetype i = 0; i < corrections.size(); ++i) {
            if (corrected.perCorrection.at(i) == 0)
                report << QCoreApplication::translate("kavel::cli", "没有与“%1”相符的整词，未替换")
                              .arg(corrections.at(i).from.trimmed());
        }
        report << QCoreApplication::translate("kavel::cli", "替换了 %1 处").arg(corrected.replaced);
    }
    if (pauseLimit)
        report << (*pauseLimit == wholePauses
                       ? QCoreApplication::translate("kavel::cli", "完整保留停顿")
                       : *pauseLimit > 0
                       ? QCoreApplication::translate("kavel::cli", "保留停顿，最长 %1 秒")
                             .arg(*pauseLimit)
                       : QCoreApplication::translate("kavel::cli", "已去掉停顿"));
    report << QCoreApplication::translate("kavel::cli",
                                          "删除了 %1 个词和 %2 个段落，移动了 %3 个段落")
                  .arg(words.size())
                  .arg(original.size() - paragraphsBefore + paragraphsDeleted)
                  .arg(moved);
    if (parser.isSet(dryRun)) {
        report.last() += QCoreApplication::translate("kavel::cli", "（试运行，未保存）");
    } else {
        project->setParagraphs(result);
        project->saveTimeline();
        if (pauseLimit) {
            ProjectMetadata metadata = project->metadata();
            metadata.pauseLimit = *pauseLimit;
            project->setMetadata(metadata);
            project->saveMetadata();
        }
    }
    for (const QString &line : std::as_const(report))
        out() << line << Qt::endl;
    return 0;
}

int runSearch(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Find text in a transcript (case-insensitive, across word joins) and print each hit "
        "with its paragraph and source times."_s);
    const QCommandLineOption jsonOption(u"json"_s, u"Print JSON instead of text."_s);
    parser.addOption(jsonOption);
    const QStringList values
        = parsePositionals(parser, u"search"_s, arguments, {u"BUNDLE"_s, u"TEXT"_s});

    auto project = openBundle(values[0]);
    warnIfTranscriptUnreadable(*project);
    const QList<Paragraph> paragraphs = playbackOrder(project->paragraphs());
    const QList<SearchHit> hits = searchTranscript(paragraphs, values[1]);

    JsonWriter json;
    json.beginArray();
    for (qsizetype i = 0; i < hits.size(); ++i) {
        const SearchHit &hit = hits[i];
        const qsizetype p = edits::indexOfParagraph(paragraphs, hit.paragraphId);
        const Paragraph &paragraph = paragraphs.at(p);
        const auto first = edits::locateWord({paragraph}, hit.blockIds.first());
        const auto last = edits::locateWord({paragraph}, hit.blockIds.last());
        const double start = paragraph.wordBlocks.at(first.word).mediaStart;
        const double end = paragraph.wordBlocks.at(last.word).mediaEnd;
        if (parser.isSet(jsonOption)) {
            json.beginObject();
            json.key("paragraph");
            json.value(p + 1);
            json.key("mediaStart");
            json.value(start);
            json.key("mediaEnd");
            json.value(end);
            json.key("text");
            json.value(hitText(paragraph, hit));
            json.key("blockIds");
            json.beginArray();
            for (const QUuid &id : hit.blockIds)
                json.value(id);
            json.endArray();
            json.endObject();
            continue;
        }
        out() << QStringLiteral("%1  paragraph %2  %3 - %4  %5")
                     .arg(i + 1, 4)
                     .arg(p + 1)
                     .arg(formatSeconds(start), formatSeconds(end), hitText(paragraph, hit))
              << Qt::endl;
    }
    json.endArray();
    if (parser.isSet(jsonOption))
        out() << QString::fromUtf8(json.take());
    else
        out() << hits.size() << (hits.size() == 1 ? u" hit"_s : u" hits"_s) << Qt::endl;
    return 0;
}

} // namespace kavel::cli
