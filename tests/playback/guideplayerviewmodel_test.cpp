#include "playback/guideplayerviewmodel.h"
#include "support/fakemediaengine.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace kavel;
using kavel::test::FakeMediaEngine;
using kavel::test::FakePlayer;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The model over a clip that exists as a plain file, its player ready with 4 s.
class GuidePlayer : public ::testing::Test
{
protected:
    GuidePlayer()
    {
        test::writeFile(clip, QByteArray(5000, 'c'));
        model = std::make_unique<GuidePlayerViewModel>(
            engine, clip, [this](const QString &line) { log.append(line); });
        player = engine.lastPlayer;
        player->makeSourceReady(4.0);
    }

    QTemporaryDir dir;
    const QString clip = QDir(dir.path()).filePath(u"demo.MOV"_s);
    FakeMediaEngine engine;
    QStringList log;
    std::unique_ptr<GuidePlayerViewModel> model;
    FakePlayer *player = nullptr;
};

TEST(GuidePlayerWithoutClip, LogsTheMissingClipAndStaysEmpty)
{
    FakeMediaEngine engine;
    QStringList log;
    // The default place: no clip is compiled into the tests.
    GuidePlayerViewModel model(engine, GuidePlayerViewModel::defaultResourcePath(),
                               [&log](const QString &line) { log.append(line); });
    EXPECT_EQ(log, QStringList {u"[Guide] demo.MOV not found in bundle"_s});
    EXPECT_TRUE(engine.lastPlayer->rawSources.isEmpty());
    model.togglePlayPause();
    EXPECT_FALSE(model.isPlaying());
}

TEST_F(GuidePlayer, PlaysACachedCopyAndPublishesItsDurationAndTime)
{
    const QString cached
        = QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + u"/guide/demo.MOV"_s;
    EXPECT_EQ(player->rawSources, QStringList {cached});
    EXPECT_EQ(readAll(cached), readAll(clip));
    EXPECT_TRUE(log.isEmpty());
    EXPECT_EQ(model->duration(), 4.0);
    player->reportTime(1.25);
    EXPECT_EQ(model->currentTime(), 1.25);

    // A new clip replaces the copy, also when it happens to be just as long.
    test::writeFile(clip, QByteArray(7000, 'n'));
    GuidePlayerViewModel again(engine, clip, [](const QString &) {});
    EXPECT_EQ(engine.lastPlayer->rawSources, QStringList {cached});
    EXPECT_EQ(readAll(cached), QByteArray(7000, 'n'));
    test::writeFile(clip, QByteArray(7000, 'm'));
    GuidePlayerViewModel sameSize(engine, clip, [](const QString &) {});
    EXPECT_EQ(readAll(cached), QByteArray(7000, 'm'));
}

TEST_F(GuidePlayer, ReachingTheEndStartsAgainFromTheBeginning)
{
    model->play();
    player->playTo(2.0);
    player->reportTime(2.0); // standing still in the middle is no end
    EXPECT_TRUE(player->seeks.isEmpty());

    player->playTo(4.0);
    EXPECT_EQ(player->seeks, QList<double> {0.0});
    EXPECT_EQ(model->currentTime(), 0.0);
    player->setRate(0.0); // an engine that stops at the end
    player->completeSeeks();
    EXPECT_EQ(player->rate(), 1.0);
    EXPECT_TRUE(model->isPlaying());

    // Last frames that never show: the time stands still just short of the end.
    player->playTo(3.9);
    player->reportTime(3.9);
    EXPECT_EQ(player->seeks, (QList<double> {0.0, 0.0}));
    player->completeSeeks();

    // Paused before the seek is done: the seek does not start playing again, and nothing
    // watches for the end while paused.
    player->playTo(4.0);
    model->pause();
    player->completeSeeks();
    EXPECT_EQ(player->rate(), 0.0);
    EXPECT_EQ(player->boundaryObserverCount(), 0);
    player->reportTime(3.9);
    player->reportTime(3.9);
    EXPECT_EQ(player->seeks.size(), 3);
}

} // namespace
