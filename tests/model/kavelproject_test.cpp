#include "model/bundlelock.h"
#include "model/errors.h"
#include "model/fileio.h"
#include "model/jsonfields.h"
#include "model/kavelproject.h"
#include "model/projectpaths.h"
#include "model/timeline.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

class ProjectBundle : public ::testing::Test
{
protected:
    QTemporaryDir dir;

    QString path(const QString &relative) const { return QDir(dir.path()).filePath(relative); }

    static QList<Paragraph> sampleParagraphs(int paragraphs = 2, int wordsEach = 3)
    {
        return test::transcript(QList<QStringList>(paragraphs, QStringList(wordsEach, u"词"_s)));
    }

    // What the FileError thrown by `action` says, or nothing.
    static QString fileErrorOf(const std::function<void()> &action)
    {
        try {
            action();
        } catch (const FileError &error) {
            return error.description();
        }
        return {};
    }
};

} // namespace

TEST_F(ProjectBundle, CreateLaysOutTheBundleAndASavedProjectLoadsBackEqual)
{
    // Titles that cannot be file names are refused before anything is made.
    for (const QString &title : {u"a/b"_s, u""_s, u".."_s, u"   "_s})
        EXPECT_THROW(KavelProject::create(title, dir.path()), FileError) << title.toStdString();
    EXPECT_TRUE(QDir(dir.path()).isEmpty());

    auto project = KavelProject::create(u"访谈 一"_s, path(u"nested/projects"_s));
    const QString bundle = path(u"nested/projects/访谈 一.kavel"_s);
    EXPECT_EQ(project->bundlePath(), bundle);
    for (auto sub : {u"media"_s, u"cache"_s, u"exports"_s})
        EXPECT_TRUE(QFileInfo(QDir(bundle).filePath(sub)).isDir()) << sub.toStdString();
    const QString metadataPath = QDir(bundle).filePath(u"project.json"_s);
    const QString createdAt
        = QJsonDocument::fromJson(fileio::readFile(metadataPath))["createdAt"_L1].toString();
    EXPECT_EQ(createdAt,
              QDateTime::fromString(createdAt, Qt::ISODate).toUTC().toString(Qt::ISODate))
        << "whole seconds in UTC";
    // A project that never chose a pause setting keeps the recording's pauses whole.
    EXPECT_FALSE(
        QJsonDocument::fromJson(fileio::readFile(metadataPath)).object().contains("pauseLimit"_L1));
    EXPECT_EQ(KavelProject::load(project->bundleURL())->metadata().pauseLimit, wholePauses);
    EXPECT_FALSE(QJsonDocument::fromJson(fileio::readFile(metadataPath))
                     .object()
                     .contains("previewLoudness"_L1));
    const QByteArray timeline = fileio::readFile(QDir(bundle).filePath(u"timeline.json"_s));
    EXPECT_EQ(timeline.simplified(), QByteArray(R"({ "paragraphs": [], "version": 2 })"));

    // Saving the timeline leaves updatedAt alone (here: a date long past); saving the
    // metadata moves it to now.
    ProjectMetadata old = project->metadata();
    old.updatedAt = QDateTime(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC);
    test::writeFile(metadataPath, encodeMetadataDocument(old));
    project = KavelProject::load(QUrl::fromLocalFile(bundle));
    const QList<Paragraph> paragraphs = sampleParagraphs();
    project->setParagraphs(paragraphs);
    project->saveTimeline();
    auto loaded = KavelProject::load(project->bundleURL());
    EXPECT_EQ(loaded->paragraphs(), paragraphs);
    EXPECT_EQ(loaded->metadata().updatedAt, old.updatedAt);

    project->saveMetadata();
    EXPECT_GT(KavelProject::load(project->bundleURL())->metadata().updatedAt,
              QDateTime::currentDateTimeUtc().addSecs(-60));
    // Off stays off once chosen, and every other setting reads back as it was saved.
    for (const double limit : {0.0, 0.4, wholePauses}) {
        ProjectMetadata metadata = project->metadata();
        metadata.pauseLimit = limit;
        metadata.previewLoudness = limit > 0.0 && limit < 1.0;
        project->setMetadata(metadata);
        project->saveMetadata();
        const ProjectMetadata reread = KavelProject::load(project->bundleURL())->metadata();
        EXPECT_EQ(reread.pauseLimit, limit);
        EXPECT_EQ(reread.previewLoudness, metadata.previewLoudness);
    }
}

TEST_F(ProjectBundle, TimelineProblemsOpenTheProjectEmptyAndAnOldOneIsRewritten)
{
    auto project = KavelProject::create(u"Broken"_s, dir.path());
    project->setParagraphs(sampleParagraphs());
    project->saveTimeline();
    const QString timelinePath = QDir(project->bundlePath()).filePath(u"timeline.json"_s);
    const QByteArray good = fileio::readFile(timelinePath);

    // A word's times are checked like every other field: one that ends before it starts,
    // or at a time no clock gives, is named.
    const auto oneWord = [](const char *text, const char *start, const char *end) -> QByteArray {
        return QByteArray(R"({"version": 2, "paragraphs": [{"id": "00000000-0000-4000-8000-)"
                          R"(000000000010", "sortOrder": 0, "wordBlocks": [{"id": "00000000-)"
                          R"(0000-4000-8000-000000000011", "text": ")")
            + text + R"(", "mediaStart": )" + start + R"(, "mediaEnd": )" + end + "}]}]}";
    };
    const QList<QPair<QByteArray, QString>> bad {
        {"garbage", {}},
        {good.left(good.size() / 2), {}},
        {"", {}},
        {R"({"version": 2})", {}},
        {R"({"paragraphs": []})", {}},
        {R"({"version": "2", "paragraphs": []})", {}},
        {"[1]", {}},
        {oneWord("backwards", "2.524", "1.981"), u"backwards"_s},
        {oneWord("tiny", "0", "1e-320"), u"tiny"_s},
    };
    const QDir cache(project->cacheDirectory());
    const QStringList copies {u"timeline-damaged-*.json"_s};
    for (qsizetype i = 0; i < bad.size(); ++i) {
        const auto &[bytes, named] = bad[i];
        test::writeFile(timelinePath, bytes);
        auto loaded = KavelProject::load(project->bundleURL());
        EXPECT_TRUE(loaded->paragraphs().isEmpty());
        EXPECT_TRUE(loaded->timelineLoadError().contains(u"timeline.json"_s));
        EXPECT_TRUE(loaded->timelineLoadError().contains(named))
            << loaded->timelineLoadError().toStdString();
        // Looking writes nothing; the copy is made before anything can write over it,
        // once however often it is asked for.
        EXPECT_EQ(cache.entryList(copies).size(), std::min<qsizetype>(i, 3))
            << "loading wrote a copy";
        const std::optional<QString> backup = loaded->backUpDamagedTimeline();
        ASSERT_TRUE(backup);
        EXPECT_EQ(fileio::readFile(*backup), bytes);
        EXPECT_EQ(KavelProject::load(project->bundleURL())->backUpDamagedTimeline(), backup);
    }
    // Only the last three damages are kept.
    QStringList kept;
    const auto newestFirst
        = [&] { return cache.entryList(copies, QDir::Files, QDir::Name | QDir::Reversed); };
    for (const QString &name : newestFirst())
        kept << QString::fromUtf8(fileio::readFile(cache.filePath(name)));
    EXPECT_EQ(kept,
              (QStringList {QString::fromUtf8(bad[8].first), QString::fromUtf8(bad[7].first),
                            QString::fromUtf8(bad[6].first)}));

    // Saving over a damaged transcript keeps it first.
    test::writeFile(timelinePath, "damaged once more");
    auto overwritten = KavelProject::load(project->bundleURL());
    overwritten->saveTimeline();
    ASSERT_EQ(newestFirst().size(), 3);
    EXPECT_EQ(fileio::readFile(cache.filePath(newestFirst().first())), "damaged once more");

    // A missing timeline is a new project's, not a problem; one that cannot be read (here:
    // a folder in its place) is.
    QFile::remove(timelinePath);
    EXPECT_TRUE(KavelProject::load(project->bundleURL())->timelineLoadError().isEmpty());
    QDir().mkpath(timelinePath);
    EXPECT_FALSE(KavelProject::load(project->bundleURL())->timelineLoadError().isEmpty());

    // An older flat word list is grouped into paragraphs and saved in the new layout.
    QDir().rmdir(timelinePath);
    test::writeFile(timelinePath, R"([
        {"id":"00000000-0000-4000-8000-000000000001","text":"A","speakerLabel":"1","mediaStart":0.0,"mediaEnd":0.5,"sortOrder":0},
        {"id":"00000000-0000-4000-8000-000000000002","text":"B","speakerLabel":"1","mediaStart":2.5,"mediaEnd":3.0,"sortOrder":1},
        {"id":"00000000-0000-4000-8000-000000000003","text":"C","speakerLabel":"1","mediaStart":5.1,"mediaEnd":5.4,"sortOrder":2},
        {"id":"00000000-0000-4000-8000-000000000004","text":"D","speakerLabel":"2","mediaStart":5.5,"mediaEnd":6.0,"sortOrder":3}
    ])");
    auto old = KavelProject::load(project->bundleURL());
    EXPECT_EQ(test::documentText(old->paragraphs()), u"A B | C | D"_s);
    old->saveTimeline();
    EXPECT_EQ(decodeTimelineDocument(fileio::readFile(timelinePath)).paragraphs, old->paragraphs());
}

TEST_F(ProjectBundle, BadMetadataFailsWithAnErrorThatNamesTheFile)
{
    EXPECT_THROW(KavelProject::load(QUrl::fromLocalFile(path(u"nothing.kavel"_s))),
                 KavelProjectError);

    auto project = KavelProject::create(u"Meta"_s, dir.path());
    const QString metadataPath = QDir(project->bundlePath()).filePath(u"project.json"_s);
    const QByteArray good = fileio::readFile(metadataPath);

    const auto withSource = [&](const char *filename) -> QByteArray {
        const QByteArray source
            = QByteArray(
                  R"("sourceFiles": [{"id": "00000000-0000-4000-8000-000000000002", "originalName": "a.mp4", "filename": ")")
            + filename + "\"}]";
        return QByteArray(good).replace("\"sourceFiles\": []", source);
    };
    test::writeFile(metadataPath, withSource("a.mp4"));
    ASSERT_NO_THROW(KavelProject::load(project->bundleURL()));
    // A source must name a file inside the bundle's media folder.
    for (const QByteArray &bytes :
         {QByteArray("{{{"), good.left(good.size() - 10),
          QByteArray(R"({"id":"00000000-0000-4000-8000-000000000001"})"),
          QByteArray(good).replace("Z\"", "\""), withSource("../../outside.mp4"),
          withSource("/etc/passwd"), withSource(".."), withSource("")}) {
        test::writeFile(metadataPath, bytes);
        try {
            KavelProject::load(project->bundleURL());
            FAIL() << "loaded " << bytes.toStdString();
        } catch (const DecodeError &error) {
            EXPECT_TRUE(error.description().startsWith(u"数据格式不正确："_s)
                        && error.description().contains(metadataPath))
                << error.what();
        }
    }

    QFile::remove(metadataPath);
    QDir().mkpath(metadataPath);
    EXPECT_THROW(KavelProject::load(project->bundleURL()), FileError);
}

TEST_F(ProjectBundle, AddingMediaCopiesAndRecordsItOrFailsRecordingNothing)
{
    auto project = KavelProject::create(u"Media"_s, dir.path());
    EXPECT_TRUE(fileErrorOf([&] {
                    project->addSourceFile(QUrl::fromLocalFile(path(u"nope.mp4"_s)));
                }).contains(u"nope.mp4"_s));
    EXPECT_TRUE(project->metadata().sourceFiles.isEmpty());
    EXPECT_TRUE(QDir(project->mediaDirectory()).isEmpty());

    // Without recorded sources, the first media file of the folder stands in.
    test::writeFile(QDir(project->mediaDirectory()).filePath(u"notes.txt"_s), "x");
    test::writeFile(QDir(project->mediaDirectory()).filePath(u"talk.ogg"_s), "x");
    EXPECT_FALSE(project->sourceMediaURL().has_value());
    test::writeFile(QDir(project->mediaDirectory()).filePath(u"Clip.MP4"_s), "x");
    ASSERT_TRUE(project->sourceMediaURL().has_value());
    EXPECT_TRUE(project->sourceMediaURL()->toLocalFile().endsWith(u"Clip.MP4"_s));

    const QString original = path(u"in/Interview.final.mov"_s);
    test::writeFile(original, QByteArray(4096, 'v'));
    const SourceFile file = project->addSourceFile(QUrl::fromLocalFile(original));
    EXPECT_EQ(file.originalName, u"Interview.final"_s);
    EXPECT_EQ(file.filename, json::uuidString(file.id) + u".mov"_s);
    const auto url = project->sourceFileURL(file.id);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(fileio::readFile(url->toLocalFile()), fileio::readFile(original));
    EXPECT_TRUE(QFileInfo::exists(original)) << "the user's file must be copied, not moved";
    EXPECT_EQ(project->sourceMediaURL(), url);
    EXPECT_EQ(KavelProject::load(project->bundleURL())->metadata().sourceFiles,
              QList<SourceFile> {file});

    EXPECT_FALSE(project->sourceFileURL(QUuid::createUuid()).has_value());
    QFile::remove(url->toLocalFile());
    EXPECT_FALSE(project->sourceFileURL(file.id).has_value());
}

TEST_F(ProjectBundle, AFullDiskKeepsEveryFileAsItWasAndSaysSo)
{
    // A small timeline fits in any write buffer, so only a writer that checks its flush
    // sees the disk is full; a file-size limit stands in where mounting is not allowed.
    const QString tiny = path(u"tiny"_s);
    QDir().mkpath(tiny);
    const bool mounted
        = QProcess::execute(u"mount"_s,
                            {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=256k"_s, u"tmpfs"_s, tiny})
        == 0;
    const QString where = mounted ? tiny : dir.path();
    auto project = KavelProject::create(u"Full"_s, where);
    project->setParagraphs(sampleParagraphs(1, 2));
    project->saveTimeline();
    const QString timelinePath = QDir(project->bundlePath()).filePath(u"timeline.json"_s);
    const QByteArray before = fileio::readFile(timelinePath);

    // A temporary file left by a write killed before its rename is cleared by the next load.
    const QString stale
        = QDir(project->bundlePath()).filePath(u".timeline.json.kavel-tmp-k1ll3d"_s);
    test::writeFile(stale, "{");
    {
        QFile old(stale);
        ASSERT_TRUE(old.open(QIODevice::ReadWrite));
        old.setFileTime(QDateTime::currentDateTime().addSecs(-120),
                        QFileDevice::FileModificationTime);
    }
    KavelProject::load(project->bundleURL());
    EXPECT_FALSE(QFileInfo::exists(stale));

    if (mounted) {
        QFile filler(QDir(tiny).filePath(u"filler"_s));
        filler.open(QIODevice::WriteOnly);
        while (filler.write(QByteArray(4096, 0)) == 4096 && filler.flush()) { }
    }
    rlimit saved {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    if (!mounted) {
        rlimit tight = saved;
        tight.rlim_cur = 0;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    }
    project->setParagraphs(sampleParagraphs(3, 4));
    const QString saveError = fileErrorOf([&] { project->saveTimeline(); });
    const QString createError = fileErrorOf([&] { KavelProject::create(u"New"_s, where); });
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_TRUE(saveError.startsWith(u"未能存储文件“timeline.json”"_s)) << saveError.toStdString();
    EXPECT_FALSE(createError.isEmpty());
    if (mounted) {
        EXPECT_TRUE(saveError.contains(u"磁盘空间不足"_s)) << saveError.toStdString();
    }
    EXPECT_EQ(fileio::readFile(timelinePath), before);
    EXPECT_EQ(project->paragraphs().size(), 3) << "the edit in memory must survive a failed save";
    EXPECT_FALSE(QFileInfo::exists(QDir(where).filePath(u"New.kavel"_s)))
        << "a bundle that could not be made is not left half made";
    QStringList leftovers = QDir(project->bundlePath()).entryList(QDir::Files | QDir::Hidden);
    leftovers.sort();
    EXPECT_EQ(leftovers, (QStringList {u"project.json"_s, u"timeline.json"_s}));
    if (mounted)
        QProcess::execute(u"umount"_s, {tiny});
}

namespace {

// What the Error thrown by `action` says, or nothing.
QString errorOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Error &error) {
        return error.description();
    }
    return {};
}

TEST_F(ProjectBundle, NewProjectsAreNamedAfterTheirFileAndRenameMovesTheBundleOrSaysWhyNot)
{
    const std::pair<QString, QString> names[] = {
        {u"/media/lesson-3.mp4"_s, u"lesson-3"_s},
        {u"/media/Interview.final.mov"_s, u"Interview.final"_s},
        {u"/media/..hidden.wav"_s, u"hidden"_s},
        {u"/media/.mp4"_s, u"未命名项目"_s},
        {u""_s, u"未命名项目"_s},
    };
    for (const auto &[file, title] : names)
        EXPECT_EQ(titleForMedia(file, dir.path()), title) << file.toStdString();
    KavelProject::create(u"lesson-3"_s, dir.path());
    KavelProject::create(u"lesson-3 2"_s, dir.path());
    EXPECT_EQ(titleForMedia(u"/elsewhere/lesson-3.mp4"_s, dir.path()), u"lesson-3 3"_s);

    auto project = KavelProject::open(QUrl::fromLocalFile(path(u"lesson-3.kavel"_s)));
    project->setParagraphs(sampleParagraphs());
    project->saveTimeline();
    const std::pair<QString, QString> refusals[] = {
        {u"lesson-3 2"_s, u"无法重命名：已有名为“lesson-3 2”的项目。"_s},
        {u"  "_s, u"无法重命名：项目名称不能为空。"_s},
        {u"a/b"_s, u"无法重命名：项目名称不能包含“/”。"_s},
    };
    for (const auto &[title, message] : refusals) {
        EXPECT_EQ(errorOf([&] { project->rename(title); }), message);
        EXPECT_EQ(project->bundlePath(), path(u"lesson-3.kavel"_s));
        EXPECT_EQ(project->metadata().title, u"lesson-3"_s);
    }

    // The folder, the name inside and the claim move together; the words stay.
    project->rename(u"第三课"_s);
    EXPECT_EQ(project->bundlePath(), path(u"第三课.kavel"_s));
    EXPECT_FALSE(QFileInfo::exists(path(u"lesson-3.kavel"_s)));
    EXPECT_TRUE(QFileInfo::exists(path(u"第三课.kavel/.kavel-lock"_s)));
    const auto reloaded = KavelProject::load(project->bundleURL());
    EXPECT_EQ(reloaded->metadata().title, u"第三课"_s);
    EXPECT_EQ(reloaded->paragraphs(), project->paragraphs());
    EXPECT_TRUE(BundleLock::isHeldHere(project->bundlePath()));
    EXPECT_FALSE(BundleLock::isHeldHere(path(u"lesson-3.kavel"_s)));
    project.reset();
    EXPECT_FALSE(QFileInfo::exists(path(u"第三课.kavel/.kavel-lock"_s)));
}

TEST_F(ProjectBundle, ABundleOpenInAnotherProcessIsRefusedAndADeadOnesClaimTakenOver)
{
    const QString bundle = KavelProject::create(u"共享"_s, dir.path())->bundlePath();
    const QUrl url = QUrl::fromLocalFile(bundle);

    QProcess holder;
    holder.start(u"sleep"_s, {u"30"_s});
    ASSERT_TRUE(holder.waitForStarted());
    test::claimBundleFor(bundle, holder.processId(), u"sleep"_s);
    EXPECT_EQ(
        errorOf([&] { KavelProject::open(url); }),
        u"项目“共享”已在另一个 Kavel 窗口或程序中打开（sleep，进程 %1），请先在那里关闭它。"_s.arg(
            holder.processId()));
    EXPECT_FALSE(errorOf([&] { KavelProject::load(url)->rename(u"改名"_s); }).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(bundle));
    // Reading for a look is not writing: the project list and `info` still load it.
    EXPECT_EQ(KavelProject::load(url)->metadata().title, u"共享"_s);

    holder.kill();
    holder.waitForFinished();
    // Every object of this process shares one claim.
    auto first = KavelProject::open(url);
    auto second = KavelProject::open(url);
    first.reset();
    EXPECT_TRUE(BundleLock::isHeldHere(bundle));
    second.reset();
    EXPECT_FALSE(BundleLock::isHeldHere(bundle));
    EXPECT_FALSE(QFileInfo::exists(QDir(bundle).filePath(BundleLock::fileName)));

    // A project being made (an import) is claimed from the start.
    const auto made = KavelProject::create(u"导入中"_s, dir.path());
    made->claim();
    EXPECT_TRUE(QFileInfo::exists(QDir(made->bundlePath()).filePath(BundleLock::fileName)));
    EXPECT_TRUE(BundleLock::isHeldHere(made->bundlePath()));
}

} // namespace
