#include "mediafixture.h"
#include "model/kavelproject.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

class MediaCommands : public kavel::test::MediaFixture
{
protected:
    // Runs kavel-cli on the private projects folder; returns standard output.
    QString run(const QStringList &arguments, int expectedExit = 0)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"KAVEL_PROJECTS_DIR"_s, projects.path());
        process.setProcessEnvironment(environment);
        process.start(kavel::test::programPath(u"kavel-cli"_s), arguments);
        EXPECT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), expectedExit) << process.readAllStandardError().constData();
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    QTemporaryDir projects;
};

TEST_F(MediaCommands, ListThumbnailCompositionAndExportReadTheBundle)
{
    auto project = KavelProject::create(u"访谈"_s, projects.path());
    project->addSourceFile(QUrl::fromLocalFile(s_video));
    const QUuid source = project->metadata().sourceFiles.first().id;
    Paragraph paragraph;
    paragraph.id = QUuid::createUuid();
    for (const auto &[start, end] : {std::pair {0.5, 1.0}, {1.0, 1.5}, {2.5, 3.0}})
        paragraph.wordBlocks.append(kavel::test::timedWord(start, end, 0, source, u"字"_s));
    project->setParagraphs({paragraph});
    project->saveTimeline();
    const QString bundle = project->bundlePath();

    const QJsonArray list = QJsonDocument::fromJson(run({u"list"_s, u"--json"_s}).toUtf8()).array();
    ASSERT_EQ(list.size(), 1);
    const QJsonObject entry = list.first().toObject();
    EXPECT_EQ(entry.value(u"title"_s).toString(), u"访谈"_s);
    EXPECT_EQ(entry.value(u"wordBlockCount"_s).toInt(), 3);
    EXPECT_EQ(entry.value(u"status"_s).toString(), u"ready"_s);
    EXPECT_EQ(entry.value(u"durationText"_s).toString(), u"00:04"_s);
    EXPECT_EQ(entry.value(u"sizeText"_s).toString(), u"0M"_s);
    EXPECT_TRUE(entry.value(u"hasThumbnail"_s).toBool());
    EXPECT_TRUE(run({u"list"_s}).startsWith(u"访谈  "_s));

    const QString png = projects.filePath(u"card.png"_s);
    run({u"thumbnail"_s, bundle, png});
    EXPECT_EQ(QImage(png).size(), QSize(320, 180));

    const QStringList lines = run({u"composition"_s, bundle}).split(u'\n');
    ASSERT_GE(lines.size(), 8);
    EXPECT_EQ(lines[0], u"duration 1.500"_s);
    EXPECT_EQ(lines[1], u"entries 3 of 3 words"_s);
    EXPECT_TRUE(lines[4].startsWith(u"  1.000  "_s));
    EXPECT_TRUE(lines[4].endsWith(u"[2.500-3.000]  字"_s));
    EXPECT_EQ(lines[5], u"deleted 3"_s);
    EXPECT_EQ(lines[6], u"  0.000-0.500"_s);
    EXPECT_EQ(lines[7], u"  1.500-2.500"_s);

    run({u"composition"_s, projects.filePath(u"none.kavel"_s)}, 1);

    // An export the flow cannot finish (here: a project without its recording) fails the
    // command, so scripts can tell.
    const QString empty = KavelProject::create(u"空"_s, projects.path())->bundlePath();
    run({u"export"_s, empty, u"--out"_s, projects.filePath(u"out"_s), u"--srt"_s}, 1);
}

} // namespace
