#include "generatedmedia.h"
#include "media/mlt/mltengine.h"
#include "media/recordingsummary.h"
#include "model/errors.h"
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "model/projectstore.h"
#include "model/timeline.h"
#include "service/interfacelanguage.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

class Projects : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_engine = new media::mlt::MltMediaEngine;
        s_media = new QTemporaryDir;
        s_video = kavel::test::makeVideoWithAudio(s_media->path(), u"clip.mp4"_s, 3.0);
        s_tone = kavel::test::makeTone(s_media->path(), u"voice.wav"_s, 2.0);
        s_rotated = kavel::test::makeRotatedVideo(s_media->path(), u"phone.mp4"_s, 2.0);
        s_truncated = kavel::test::makeTruncated(s_media->path(), u"cut.mp4"_s, s_video);
        s_notMedia = kavel::test::makeNotMedia(s_media->path(), u"notes.mov"_s);
    }

    // A bundle as the editor leaves it, with the given update time and words.
    QString makeBundle(const QString &title, const QDateTime &updatedAt, int words,
                       const QStringList &media = {})
    {
        auto project = KavelProject::create(title, root.path());
        for (const QString &file : media)
            project->addSourceFile(QUrl::fromLocalFile(file));
        if (words > 0) {
            QList<Paragraph> paragraphs = test::transcript({QStringList(words, u"词"_s)});
            paragraphs[0].wordBlocks[0].isDeleted = true; // deleted words still count
            project->setParagraphs(paragraphs);
        }
        project->saveTimeline();
        ProjectMetadata metadata = project->metadata();
        metadata.updatedAt = updatedAt;
        fileio::writeFileAtomically(project->bundlePath() + u"/project.json"_s,
                                    encodeMetadataDocument(metadata));
        return project->bundlePath();
    }

    QStringList titles() const
    {
        QStringList result;
        for (const ProjectReference &p : store.projects())
            result.append(p.title);
        return result;
    }

    static inline media::mlt::MltMediaEngine *s_engine = nullptr;
    static inline QTemporaryDir *s_media = nullptr;
    static inline QString s_video, s_tone, s_rotated, s_truncated, s_notMedia;

    QTemporaryDir root;
    ProjectStore store {media::recordingSummarizer(*s_engine), root.path()};
    const QDateTime march = QDateTime(QDate(2025, 3, 5), QTime(10, 0), Qt::UTC);
};

TEST_F(Projects, RefreshSummarisesBundlesNewestFirst)
{
    const QString video = makeBundle(u"采访"_s, march.addDays(2), 3, {s_video, s_tone});
    makeBundle(u"空项目"_s, march, 0);
    makeBundle(u"语音"_s, march.addDays(1), 2, {s_tone});
    makeBundle(u"同时一"_s, march.addDays(-1), 1);
    makeBundle(u"同时二"_s, march.addDays(-1), 1);
    makeBundle(u"手机"_s, march.addDays(-3), 1, {s_rotated});
    // Media that cannot be read is listed without a duration or a picture.
    makeBundle(u"文本"_s, march.addDays(-4), 1, {s_notMedia, s_truncated});
    // An older bundle whose timeline is a bare word list is listed as empty.
    const QString flat = makeBundle(u"旧格式"_s, march.addDays(-2), 0);
    kavel::test::writeFile(flat + u"/timeline.json"_s,
                           R"([{"id":"A0000000-0000-0000-0000-000000000001","text":"x",)"
                           R"("mediaStart":0,"mediaEnd":1}])");
    // Not projects: wrong case, no metadata, undecodable metadata, a plain file.
    QDir(root.path()).mkpath(u"upper.KAVEL"_s);
    QFile::copy(video + u"/project.json"_s, root.filePath(u"upper.KAVEL/project.json"_s));
    QDir(root.path()).mkpath(u"bare.kavel/media"_s);
    kavel::test::writeFile(root.filePath(u"broken.kavel/project.json"_s), "{\"id\": 5}");
    kavel::test::writeFile(root.filePath(u"notes.txt"_s), "x");

    QSignalSpy changed(&store, &ProjectStore::projectsChanged);
    store.refresh();
    EXPECT_EQ(changed.count(), 1);
    // Title, words, tenths of a second, bytes of media, and whether it has a picture.
    using Summary = std::tuple<QString, qsizetype, int, qint64, bool>;
    QList<Summary> summaries;
    for (const ProjectReference &p : store.projects())
        summaries.append({p.title, p.wordBlockCount, int(std::lround(p.videoDuration * 10)),
                          p.fileSize, store.thumbnail(p.id).has_value()});
    const auto size = [](const QString &file) { return QFileInfo(file).size(); };
    EXPECT_EQ(summaries,
              (QList<Summary> {
                  {u"采访"_s, 3, 30, size(s_video) + size(s_tone), true},
                  {u"语音"_s, 2, 20, size(s_tone), false},
                  {u"空项目"_s, 0, 0, 0, false},
                  {u"同时一"_s, 1, 0, 0, false},
                  {u"同时二"_s, 1, 0, 0, false},
                  {u"旧格式"_s, 0, 0, 0, false},
                  {u"手机"_s, 1, 20, size(s_rotated), true},
                  {u"文本"_s, 1, 0, size(s_notMedia) + size(s_truncated), false},
              }));

    const ProjectReference &first = store.projects().at(0);
    EXPECT_EQ(first.bundlePath, video);
    EXPECT_EQ(store.thumbnail(first.id)->size(), QSize(320, 180));
    const std::optional<QImage> phone = store.thumbnail(store.projects().at(6).id);
    EXPECT_EQ(phone->height(), 180);
    EXPECT_LT(phone->width(), phone->height());
    EXPECT_EQ(projectReferenceFromJson(toJson(first)), first);
}

QString trashRecord(const QString &infoPath)
{
    return QString::fromUtf8(fileio::readFile(infoPath));
}

TEST_F(Projects, DeletingMovesToTheTrashUndoBringsItBackAndAListThatCannotBeReadIsKept)
{
    // The desktop's trash under the data folder of this HOME, never the working folder.
    const QString trash = QDir::homePath() + u"/.local/share/Trash"_s;
    const QString kept = makeBundle(u"留下"_s, march, 1);
    const QString trashed = makeBundle(u"删除"_s, march.addDays(1), 1);
    store.refresh();
    ASSERT_EQ(titles(), (QStringList {u"删除"_s, u"留下"_s}));

    const trash::TrashedItem first = store.deleteProject(store.projects().first());
    EXPECT_FALSE(QFileInfo::exists(trashed));
    EXPECT_EQ(first.trashedPath, trash + u"/files/删除.kavel"_s);
    EXPECT_TRUE(QFileInfo::exists(first.trashedPath + u"/project.json"_s));
    EXPECT_EQ(titles(), QStringList {u"留下"_s});
    const QString record = trashRecord(first.infoPath);
    EXPECT_TRUE(record.startsWith(u"[Trash Info]\nPath="_s
                                  + QString::fromLatin1(QUrl::toPercentEncoding(trashed, "/"))
                                  + u"\nDeletionDate="_s))
        << record.toStdString();
    EXPECT_TRUE(QDateTime::fromString(record.section(u"DeletionDate="_s, 1).trimmed(),
                                      u"yyyy-MM-ddTHH:mm:ss"_s)
                    .isValid());

    // A second project of the same name gets a name of its own in the trash; bringing the
    // first back is refused while the second stands in its place.
    makeBundle(u"删除"_s, march.addDays(2), 1);
    store.refresh();
    const trash::TrashedItem second = store.deleteProject(store.projects().first());
    EXPECT_EQ(second.trashedPath, trash + u"/files/删除.2.kavel"_s);
    EXPECT_TRUE(QFileInfo::exists(trash + u"/info/删除.2.kavel.trashinfo"_s));
    store.restoreProject(second);
    EXPECT_FALSE(QFileInfo::exists(second.infoPath));
    EXPECT_THROW(store.restoreProject(first), Error);
    EXPECT_TRUE(QFileInfo::exists(first.trashedPath));
    EXPECT_EQ(titles(), (QStringList {u"删除"_s, u"留下"_s}));

    // A bundle that is already gone cannot be trashed: said, and nothing else changes.
    ProjectReference stale = store.projects().first();
    stale.bundlePath = root.filePath(u"gone.kavel"_s);
    EXPECT_THROW(store.deleteProject(stale), Error);
    EXPECT_EQ(titles(), (QStringList {u"删除"_s, u"留下"_s}));
    EXPECT_TRUE(QFileInfo::exists(kept));

    // A folder that cannot be listed lists nothing, or keeps the list it had.
    ProjectStore elsewhere(media::recordingSummarizer(*s_engine), root.filePath(u"missing"_s));
    elsewhere.refresh();
    EXPECT_TRUE(elsewhere.projects().isEmpty());
    root.remove();
    store.refresh();
    EXPECT_EQ(titles(), (QStringList {u"删除"_s, u"留下"_s}));
}

// A volume of its own (a tmpfs; mounting needs root, as in CI) to trash across devices.
class OtherVolume : public Projects
{
protected:
    QTemporaryDir mountPoint;
    bool mounted = false;

    void SetUp() override
    {
        QProcess mount;
        mount.start(
            u"mount"_s,
            {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=16m"_s, u"kaveltest"_s, mountPoint.path()});
        mounted = mount.waitForFinished(10000) && mount.exitStatus() == QProcess::NormalExit
            && mount.exitCode() == 0;
        if (!mounted)
            GTEST_SKIP() << "mounting a tmpfs is not permitted here";
    }

    void TearDown() override
    {
        if (mounted)
            QProcess::execute(u"umount"_s, {mountPoint.path()});
    }

    QString bundleOnVolume(const QString &title)
    {
        auto project = KavelProject::create(title, mountPoint.path());
        return project->bundlePath();
    }
};

TEST_F(OtherVolume, TrashGoesToTheVolumesOwnTrashOrNothingIsDeleted)
{
    const QString top = mountPoint.path();
    const QString uid = QString::number(::getuid());
    ProjectReference project;

    // No trash there yet: ".Trash-<uid>" is made, and the record is relative to the volume.
    project.bundlePath = bundleOnVolume(u"外盘"_s);
    const trash::TrashedItem own = store.deleteProject(project);
    EXPECT_EQ(own.trashedPath, top + u"/.Trash-"_s + uid + u"/files/外盘.kavel"_s);
    EXPECT_TRUE(trashRecord(own.infoPath).contains(u"\nPath=%E5%A4%96%E7%9B%98.kavel\n"_s))
        << trashRecord(own.infoPath).toStdString();
    EXPECT_EQ(QFileInfo(top + u"/.Trash-"_s + uid).permissions() & QFileDevice::ReadOther,
              QFileDevice::Permissions());
    store.restoreProject(own);
    EXPECT_TRUE(QFileInfo::exists(project.bundlePath + u"/project.json"_s));

    // The administrator's ".Trash" with the sticky bit is used, with a folder per user.
    QDir(top).mkdir(u".Trash"_s);
    ASSERT_EQ(::chmod(QFile::encodeName(top + u"/.Trash"_s), 01777), 0);
    EXPECT_EQ(store.deleteProject(project).trashedPath,
              top + u"/.Trash/"_s + uid + u"/files/外盘.kavel"_s);

    // Without the sticky bit it is not safe to share, and where no trash can be made the
    // project stays and the user is told why.
    project.bundlePath = bundleOnVolume(u"无处可去"_s);
    ASSERT_EQ(::chmod(QFile::encodeName(top + u"/.Trash"_s), 0777), 0);
    QDir(top + u"/.Trash-"_s + uid).removeRecursively();
    test::writeFile(top + u"/.Trash-"_s + uid, "not a folder");
    try {
        store.deleteProject(project);
        ADD_FAILURE() << "deleted without a trash";
    } catch (const Error &error) {
        EXPECT_EQ(
            error.description(),
            u"未能将“无处可去.kavel”移到回收站（所在磁盘没有可用的回收站），它没有被删除。"_s);
    }
    EXPECT_TRUE(QFileInfo::exists(project.bundlePath + u"/project.json"_s));
}

TEST(ProjectCardTexts, DatesSizesAndDurations)
{
    ProjectReference r;
    r.updatedAt = QDateTime(QDate(2025, 3, 5), QTime(12, 0));
    EXPECT_EQ(dateText(r), u"3月5日"_s);
    {
        const i18n::Translations english(i18n::Language::english);
        EXPECT_EQ(dateText(r), u"Mar 5"_s);
    }
    for (const auto &[bytes, size, seconds, duration] :
         {std::tuple {12'345'678LL, u"12M"_s, 59.9, u"00:59"_s},
          {1'250'000'000LL, u"1.2G"_s, 3725.0, u"1:02:05"_s},
          {999'999'999LL, u"1000M"_s, 3599.99, u"59:59"_s},
          {499'999LL, u"0M"_s, 36000.0, u"10:00:00"_s}}) {
        r.fileSize = bytes;
        r.videoDuration = seconds;
        EXPECT_EQ(sizeText(r), size) << bytes;
        EXPECT_EQ(durationText(r), duration) << seconds;
    }
}

} // namespace
