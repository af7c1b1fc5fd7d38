#include "model/fileio.h"
#include "model/kavelproject.h"
#include "model/timeline.h"
#include "positionmedia.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

struct CliResult
{
    int exitCode = -1;
    QString out, err;
};

// `environment` adds or replaces variables ("NAME=value") of the test's own.
CliResult runCli(const QStringList &arguments, const QStringList &environment = {})
{
    QProcess process;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (const QString &variable : environment)
        variables.insert(variable.section(u'=', 0, 0), variable.section(u'=', 1));
    process.setProcessEnvironment(variables);
    process.start(test::programPath(u"kavel-cli"_s), arguments);
    EXPECT_TRUE(process.waitForFinished(30'000));
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

// A refusal is one line on stderr that names what was wrong, and nothing on stdout.
void expectRefusal(const CliResult &result, const QString &named = {})
{
    EXPECT_NE(result.exitCode, 0);
    EXPECT_TRUE(result.out.isEmpty()) << result.out.toStdString();
    EXPECT_TRUE(result.err.startsWith(u"kavel-cli: "_s) && result.err.count(u'\n') == 1
                && result.err.contains(named))
        << result.err.toStdString();
}

// "hello big world" / "um yes" / "bye", with "um" a filler, 0.5 s a word.
QString bundleWithTranscript(const QString &title, bool storedReversed = false)
{
    const QString bundle = runCli({u"new"_s, title}).out.trimmed();
    auto project = KavelProject::load(QUrl::fromLocalFile(bundle));
    QList<Paragraph> paragraphs
        = test::transcript({{u"hello"_s, u"big"_s, u"world"_s}, {u"um"_s, u"yes"_s}, {u"bye"_s}});
    paragraphs[1].wordBlocks[0].isFiller = true;
    // The recogniser doubted "world" and "bye"; 0.6 is sure enough.
    paragraphs[0].wordBlocks[1].confidence = 0.6;
    paragraphs[0].wordBlocks[2].confidence = 0.31;
    paragraphs[2].wordBlocks[0].confidence = 0.05;
    if (storedReversed)
        std::reverse(paragraphs.begin(), paragraphs.end());
    project->setParagraphs(paragraphs);
    project->saveTimeline();
    return bundle;
}

QString savedText(const QString &bundle)
{
    return test::documentText(KavelProject::load(QUrl::fromLocalFile(bundle))->paragraphs());
}

void makeSound(const QString &path, const QStringList &options)
{
    ASSERT_EQ(QProcess::execute(
                  u"ffmpeg"_s,
                  QStringList {u"-v"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"sine=d=4"_s}
                      + options + QStringList {path}),
              0);
}

} // namespace

// The test main gives every program a private HOME, so the projects folder is
// Documents/Kavel below it.
TEST(Cli, NewMakesABundleThatAddMediaFillsAndBothRefuseWhatIsWrong)
{
    const QDir projects(QDir(test::homeDirectory()).filePath(u"Documents/Kavel"_s));
    const CliResult created = runCli({u"new"_s, u"课程 01"_s});
    ASSERT_EQ(created.exitCode, 0) << created.err.toStdString();
    EXPECT_EQ(created.out.trimmed(), projects.filePath(u"课程 01.kavel"_s));

    const QStringList before = projects.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    expectRefusal(runCli({u"new"_s, u"课程 01"_s}));
    expectRefusal(runCli({u"new"_s, u"a/b"_s}));
    // The messages speak the system's language: English for any but Chinese or none.
    const QStringList english {u"LANGUAGE="_s, u"LC_ALL="_s, u"LANG=en_US.UTF-8"_s};
    EXPECT_EQ(runCli({u"new"_s, u"课程 01"_s}, english).err,
              u"kavel-cli: The project already exists: "_s + created.out);
    EXPECT_EQ(runCli({u"frobnicate"_s}, english).err,
              u"kavel-cli: there is no command \"frobnicate\" (see kavel-cli --help)\n"_s);
    for (const QStringList &chinese : {QStringList {u"LANGUAGE="_s, u"LANG=zh_CN.UTF-8"_s},
                                       QStringList {u"LANGUAGE="_s, u"LANG=C.UTF-8"_s}})
        EXPECT_EQ(runCli({u"frobnicate"_s}, chinese).err,
                  u"kavel-cli: 没有“frobnicate”这个命令（见 kavel-cli --help）\n"_s);
    EXPECT_EQ(projects.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), before);
    EXPECT_EQ(runCli({u"new"_s}).exitCode, 2);
    EXPECT_EQ(runCli({u"frobnicate"_s}).exitCode, 2);

    const QString bundle = created.out.trimmed();
    QTemporaryDir inputs;
    const QDir in(inputs.path());
    const QString clip = in.filePath(u"Talk.MOV"_s);
    makeSound(clip, {u"-f"_s, u"mov"_s});
    const CliResult added = runCli({u"add-media"_s, bundle, clip});
    ASSERT_EQ(added.exitCode, 0) << added.err.toStdString();
    const QStringList fields = added.out.trimmed().split(u'\t');
    ASSERT_EQ(fields.size(), 3);
    EXPECT_TRUE(fields[1].endsWith(u".MOV"_s));
    EXPECT_EQ(fields[2], u"Talk"_s);
    EXPECT_EQ(fileio::readFile(QDir(bundle).filePath(u"media/"_s + fields[1])),
              fileio::readFile(clip));

    // Empty, not media, cut at the front, or cut short behind an index at the front that
    // promises more data than is there: refused, and nothing is recorded.
    test::writeFile(in.filePath(u"empty.mp4"_s), {});
    test::writeFile(in.filePath(u"notes.mp4"_s), "these are not frames");
    const QByteArray whole = fileio::readFile(clip);
    test::writeFile(in.filePath(u"cut.mov"_s), whole.right(whole.size() / 2));
    const QString indexed = in.filePath(u"indexed.mp4"_s);
    makeSound(indexed, {u"-movflags"_s, u"+faststart"_s});
    const QByteArray full = fileio::readFile(indexed);
    test::writeFile(in.filePath(u"short.mp4"_s), full.left(full.size() / 2));
    // Nothing to make a transcript from: a sound of no length, a picture without sound.
    // The import refuses them too, before anything is created or sent.
    ASSERT_EQ(
        QProcess::execute(u"ffmpeg"_s,
                          {u"-v"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"anullsrc=r=16000"_s,
                           u"-t"_s, u"0"_s, in.filePath(u"zero.wav"_s)}),
        0);
    ASSERT_EQ(QProcess::execute(u"ffmpeg"_s,
                                {u"-v"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                                 u"color=s=64x64:d=2"_s, u"-c:v"_s, u"mpeg4"_s,
                                 in.filePath(u"mute.mp4"_s)}),
              0);
    const QList<std::pair<QString, QString>> refused {
        {u"gone.mp4"_s, {}},
        {u"empty.mp4"_s, {}},
        {u"notes.mp4"_s, {}},
        {u"cut.mov"_s, {}},
        {u"short.mp4"_s, {}},
        {u"zero.wav"_s, u"媒体文件的长度为 0.0 秒"_s},
        {u"mute.mp4"_s, u"媒体文件中没有声音"_s},
    };
    for (const auto &[name, says] : refused) {
        const CliResult refusal = runCli({u"add-media"_s, bundle, in.filePath(name)});
        expectRefusal(refusal, name);
        EXPECT_TRUE(refusal.err.contains(says)) << refusal.err.toStdString();
    }
    for (const QString &name : {u"zero.wav"_s, u"mute.mp4"_s}) {
        const CliResult imported
            = runCli({u"import"_s, in.filePath(name), u"--server"_s, u"http://127.0.0.1:1/api"_s,
                      u"--email"_s, u"a"_s, u"--password"_s, u"b"_s});
        expectRefusal(imported, name);
        EXPECT_TRUE(imported.err.contains(u"声音"_s)) << imported.err.toStdString();
    }
    EXPECT_EQ(KavelProject::load(QUrl::fromLocalFile(bundle))->metadata().sourceFiles.size(), 1);
    expectRefusal(runCli({u"add-media"_s, u"/no/such.kavel"_s, clip}));
}

// Stored out of order: the sort orders decide what info lists and how search numbers.
TEST(Cli, InfoAndSearchGoInPlaybackOrderCorrectionsKeepTimesAndDamageIsReported)
{
    const QString bundle = bundleWithTranscript(u"Info"_s, true);
    const CliResult text = runCli({u"info"_s, bundle});
    ASSERT_EQ(text.exitCode, 0) << text.err.toStdString();
    EXPECT_TRUE(text.out.contains(u"Words:       6"_s));
    EXPECT_TRUE(text.out.contains(u"00:00:00.500 - 00:00:00.900  big"_s)) << text.out.toStdString();
    EXPECT_LT(text.out.indexOf(u"big"_s), text.out.indexOf(u"bye"_s));
    const qsizetype toCheck = text.out.indexOf(u"待核对的词：2 个\n"_s);
    EXPECT_GE(toCheck, 0) << text.out.toStdString();
    EXPECT_EQ(text.out.mid(toCheck).section(u'\n', 1, 2),
              u"  00:00:01.000 - 00:00:01.400  world  （可信度 0.31）\n"
              "  00:00:02.500 - 00:00:02.900  bye  （可信度 0.05）"_s);
    const QJsonDocument json
        = QJsonDocument::fromJson(runCli({u"info"_s, bundle, u"--json"_s}).out.toUtf8());
    const QJsonObject last = json["words"_L1].toArray().last().toObject();
    EXPECT_EQ(last["text"_L1].toString(), u"bye"_s);
    EXPECT_EQ(last["mediaStart"_L1].toDouble(), 2.5);
    EXPECT_EQ(last["confidence"_L1].toDouble(), 0.05);

    const CliResult found = runCli({u"search"_s, bundle, u"OBIG"_s});
    ASSERT_EQ(found.exitCode, 0) << found.err.toStdString();
    EXPECT_TRUE(found.out.contains(u"paragraph 1  00:00:00.000 - 00:00:00.900  hello big"_s))
        << found.out.toStdString();
    EXPECT_TRUE(found.out.trimmed().endsWith(u"1 hit"_s));
    const QJsonArray hits
        = QJsonDocument::fromJson(runCli({u"search"_s, bundle, u"e"_s, u"--json"_s}).out.toUtf8())
              .array();
    ASSERT_EQ(hits.size(), 3); // hello, yes, bye
    EXPECT_EQ(hits[1].toObject().value("mediaStart"_L1).toDouble(), 2.0);
    EXPECT_EQ(runCli({u"search"_s, bundle, u"zzz"_s}).out.trimmed(), u"0 hits"_s);

    // OLD is a run of whole words, whatever its case and spacing ("BIG  World" is "big"
    // "world"); NEW may hold "="; a piece of a word ("e", "gw") is no match, and is said.
    const CliResult fixed
        = runCli({u"edit"_s, bundle, u"--replace-text"_s, u"BIG  World=big wide world"_s,
                  u"--replace-text"_s, u"bye=good=bye"_s, u"--replace-text"_s, u"e=x"_s,
                  u"--replace-text"_s, u"gw=g wide w"_s, u"--keep-pauses"_s, u"0.3"_s});
    ASSERT_EQ(fixed.exitCode, 0) << fixed.err.toStdString();
    EXPECT_TRUE(fixed.out.contains(u"替换了 2 处"_s)) << fixed.out.toStdString();
    EXPECT_TRUE(fixed.out.contains(u"没有与“e”相符的整词，未替换"_s)
                && fixed.out.contains(u"没有与“gw”相符的整词，未替换"_s))
        << fixed.out.toStdString();
    const auto project = KavelProject::load(QUrl::fromLocalFile(bundle));
    const QList<WordBlock> words = flattenParagraphs(project->paragraphs());
    EXPECT_EQ(test::wordTexts({{}, words, 0, {}}),
              (QStringList {u"hello"_s, u"big wide world"_s, u"um"_s, u"yes"_s, u"good=bye"_s}));
    EXPECT_DOUBLE_EQ(words[1].mediaStart, 0.5);
    EXPECT_DOUBLE_EQ(words[1].mediaEnd, 1.4);
    EXPECT_EQ(words[1].confidence, 1.0) << "a corrected word is no longer in doubt";
    EXPECT_EQ(words[4].confidence, 1.0);
    EXPECT_EQ(project->metadata().pauseLimit, 0.3);
    EXPECT_TRUE(runCli({u"edit"_s, bundle, u"--replace-text"_s, u"zzz=y"_s})
                    .out.contains(u"替换了 0 处"_s));
    // The whole pause, in either language, and off.
    for (const auto &[value, kept] :
         {std::pair {u"whole"_s, wholePauses}, {u"0"_s, 0.0}, {u"完整"_s, wholePauses}}) {
        const CliResult set = runCli({u"edit"_s, bundle, u"--keep-pauses"_s, value});
        ASSERT_EQ(set.exitCode, 0) << set.err.toStdString();
        EXPECT_TRUE(set.out.contains(kept > 0 ? u"完整保留停顿"_s : u"已去掉停顿"_s))
            << set.out.toStdString();
        EXPECT_EQ(KavelProject::load(QUrl::fromLocalFile(bundle))->metadata().pauseLimit, kept);
    }

    // A garbage timeline only warns; garbage metadata fails, naming the file.
    test::writeFile(QDir(bundle).filePath(u"timeline.json"_s), "\x01\x02 not json");
    const CliResult warned = runCli({u"info"_s, bundle});
    EXPECT_EQ(warned.exitCode, 0);
    EXPECT_TRUE(warned.err.startsWith(u"警告："_s)) << warned.err.toStdString();
    EXPECT_TRUE(warned.out.contains(u"Words:       0"_s));
    // Every command that shows the words says so; an export of nothing is refused, why named.
    for (const QStringList &looking :
         {QStringList {u"search"_s, bundle, u"x"_s}, QStringList {u"composition"_s, bundle}}) {
        const CliResult shown = runCli(looking);
        EXPECT_EQ(shown.exitCode, 0) << shown.err.toStdString();
        EXPECT_TRUE(shown.err.startsWith(u"警告："_s) && shown.err.contains(u"timeline.json"_s))
            << shown.err.toStdString();
    }
    EXPECT_TRUE(QDir(bundle).entryList({u"cache/*"_s}).isEmpty()
                && QDir(QDir(bundle).filePath(u"cache"_s)).isEmpty())
        << "looking wrote into the bundle";
    QTemporaryDir exports;
    expectRefusal(runCli({u"export"_s, bundle, u"--out"_s, exports.path(), u"--srt"_s}),
                  u"timeline.json"_s);
    EXPECT_TRUE(QDir(exports.path()).isEmpty());
    test::writeFile(QDir(bundle).filePath(u"project.json"_s), "{ broken");
    expectRefusal(runCli({u"info"_s, bundle}), u"project.json"_s);
}

TEST(Cli, EditAppliesWordDeletionsThenParagraphDeletionsThenMovesAndSaves)
{
    const QString bundle = bundleWithTranscript(u"Batch"_s);
    const CliResult dry = runCli({u"edit"_s, bundle, u"--delete-fillers"_s, u"--dry-run"_s});
    EXPECT_TRUE(dry.out.contains(u"删除了 1 个词"_s)) << dry.out.toStdString();
    EXPECT_EQ(savedText(bundle), u"hello big world | um yes | bye"_s) << "a dry run saves nothing";

    // "gw" spans the join of "big" and "world"; paragraph numbers are the original ones.
    const CliResult edited = runCli({u"edit"_s, bundle, u"--delete-fillers"_s, u"--delete-text"_s,
                                     u"GW"_s, u"--move-paragraph"_s, u"3:1"_s});
    ASSERT_EQ(edited.exitCode, 0) << edited.err.toStdString();
    EXPECT_EQ(savedText(bundle), u"bye | hello | yes"_s);
    EXPECT_EQ(runCli({u"edit"_s, bundle, u"--delete-paragraph"_s, u"2"_s}).exitCode, 0);
    EXPECT_EQ(savedText(bundle), u"bye | yes"_s);

    for (const QString &bad :
         {u"--delete-paragraph=7"_s, u"--move-paragraph=1-2"_s, u"--replace-text=bye"_s,
          u"--replace-text= =x"_s, u"--keep-pauses=3"_s, u"--keep-pauses=all"_s})
        expectRefusal(runCli({u"edit"_s, bundle, bad}));
    EXPECT_EQ(savedText(bundle), u"bye | yes"_s);

    // On a full disk the save fails, and what it would have done is not reported as done.
    QTemporaryDir scratch;
    test::FullDisk full(scratch.filePath(u"full"_s), u"256k"_s);
    auto onFull = KavelProject::create(u"Full"_s, full.path());
    onFull->setParagraphs(KavelProject::load(QUrl::fromLocalFile(bundle))->paragraphs());
    onFull->saveTimeline();
    full.fill();
    CliResult failed;
    full.whileFull([&] {
        failed = runCli({u"edit"_s, onFull->bundlePath(), u"--delete-text"_s, u"yes"_s});
    });
    // A full disk stops it before anything is read: not even the bundle's lock fits.
    expectRefusal(failed, full.isMounted() ? u"磁盘空间不足"_s : u"timeline.json"_s);
    EXPECT_EQ(savedText(onFull->bundlePath()), u"bye | yes"_s);
}

// Captions burned in by the command line: the cues of the subtitle file drawn into every
// frame they cover, at the size asked for, and nothing drawn without the option.
TEST(Cli, ExportBurnsTheSubtitleCuesIntoTheMovieAtTheSizeAskedFor)
{
    QTemporaryDir inputs;
    // The smallest size class, so the movie is written at the recording's own size.
    const QSize size(1280, 720);
    const QString clip = test::makeBlackVideo(inputs.path(), u"black.mp4"_s, 3.0, size);
    const QString bundle = runCli({u"new"_s, u"烧录"_s}).out.trimmed();
    ASSERT_EQ(runCli({u"add-media"_s, bundle, clip}).exitCode, 0);
    auto project = KavelProject::load(QUrl::fromLocalFile(bundle));
    QList<WordBlock> words;
    for (const auto &[from, to, text] : {std::tuple {0.3, 0.8, u"大家"_s},
                                         {0.8, 1.2, u"好。"_s},
                                         {1.5, 2.0, u"欢迎"_s},
                                         {2.0, 2.4, u"你们"_s}})
        words.append(test::timedWord(from, to, words.size(), {}, text));
    project->setParagraphs({Paragraph {QUuid::createUuid(), words, 0, {}}});
    project->saveTimeline();
    project.reset();

    const QString out = inputs.filePath(u"out"_s);
    const auto exported = [&](const QString &title, const QStringList &options) {
        const CliResult result = runCli(
            QStringList {u"export"_s, bundle, u"--out"_s, out, u"--title"_s, title} + options);
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        return test::brightPixelsPerFrame(QDir(out).filePath(title + u".mp4"_s),
                                          QRect(0, 480, size.width(), 240));
    };
    // The short sentence shares its cue with the next: all 54 frames carry a caption.
    const std::vector<int> large
        = exported(u"大"_s, {u"--burn-subtitles"_s, u"--srt"_s, u"--caption-size"_s, u"large"_s});
    EXPECT_EQ(fileio::readFile(QDir(out).filePath(u"大.srt"_s)),
              "1\n00:00:00,000 --> 00:00:01,800\n大家好。欢迎你们\n");
    ASSERT_EQ(large.size(), 54u);
    EXPECT_EQ(std::count_if(large.begin(), large.end(), [](int n) { return n < 30; }), 0);
    const std::vector<int> small
        = exported(u"小"_s, {u"--burn-subtitles"_s, u"--caption-size"_s, u"small"_s});
    ASSERT_EQ(small.size(), 54u);
    EXPECT_LT(small[10] * 1.4, large[10]);

    const std::vector<int> plain = exported(u"无"_s, {u"--video"_s, u"mp4"_s});
    EXPECT_EQ(std::count_if(plain.begin(), plain.end(), [](int n) { return n > 4; }), 0);

    const CliResult refused = runCli({u"export"_s, bundle, u"--out"_s, out, u"--burn-subtitles"_s,
                                      u"--caption-size"_s, u"huge"_s});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_TRUE(refused.out.isEmpty());
    EXPECT_TRUE(refused.err.contains(u"kavel-cli: --caption-size 不接受“huge”这个取值"_s))
        << refused.err.toStdString();
}
