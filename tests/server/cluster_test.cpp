#include "mediatools.h"
#include "pgcluster.h"
#include "support/serverprocess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>
#include <httplib.h>
#include <map>

using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

class Deployment : public ::testing::TestWithParam<const char *>
{
protected:
    void SetUp() override
    {
        if (std::string(GetParam()) == "postgresql") {
            cluster = std::make_unique<PgCluster>();
            if (cluster->missing())
                GTEST_SKIP() << cluster->error().toStdString();
            ASSERT_TRUE(cluster->error().isEmpty()) << cluster->error().toStdString();
            database = QString::fromStdString(cluster->newDatabase());
        } else {
            database = dir.filePath(u"kavel.db"_s);
        }
        uploads = dir.filePath(u"uploads"_s);
        hold = dir.filePath(u"hold"_s);
        // Answers at once, unless the hold file exists: then it says so and waits for the
        // file to go, which keeps a task in hand for as long as the test needs.
        recognizer = dir.filePath(u"recognize.sh"_s);
        QFile script(recognizer);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\n"
                     "if [ -e \"$HOLD\" ]; then touch \"$HOLD.seen\";"
                     " while [ -e \"$HOLD\" ]; do sleep 0.05; done; fi\n"
                     "echo '{\"words\":[{\"text\":\"hello\",\"start\":0.1,\"end\":0.3},"
                     "{\"text\":\"world\",\"start\":0.35,\"end\":0.5}]}'\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOLD"_s, hold);
        const QString wav = dir.filePath(u"tone.wav"_s);
        ASSERT_TRUE(ffmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s, u"sine=frequency=300:duration=0.5"_s,
                            u"-ar"_s, u"16000"_s, wav}));
        QFile toneFile(wav);
        ASSERT_TRUE(toneFile.open(QIODevice::ReadOnly));
        tone = toneFile.readAll().toStdString();

        ServerCommand addUser({u"add-user"_s, u"--database"_s, database, u"--email"_s,
                               u"c@example.com"_s, u"--password"_s, u"pw"_s});
        ASSERT_EQ(addUser.exitCode(), 0) << addUser.log().toStdString();
    }

    ServerCommand &startApi()
    {
        apis.push_back(std::make_unique<ServerCommand>(
            QStringList {u"serve"_s, u"--workers"_s, u"0"_s, u"--port"_s, u"0"_s, u"--database"_s,
                         database, u"--uploads"_s, uploads},
            environment));
        const auto match = apis.back()->waitForLog(
            QRegularExpression(u"listening on http://127\\.0\\.0\\.1:(\\d+)"_s));
        EXPECT_TRUE(match) << apis.back()->log().toStdString();
        ports.push_back(match ? match->captured(1).toInt() : 0);
        return *apis.back();
    }
    ServerCommand &startWorker()
    {
        workers.push_back(std::make_unique<ServerCommand>(
            QStringList {u"worker"_s, u"--database"_s, database, u"--uploads"_s, uploads,
                         u"--recognizer-command"_s, recognizer, u"--lease"_s, u"2"_s},
            environment));
        EXPECT_TRUE(workers.back()->waitForLog(QRegularExpression(u"worker started"_s)))
            << workers.back()->log().toStdString();
        return *workers.back();
    }

    httplib::Headers auth() const { return {{"Authorization", "Bearer " + token}}; }

    void signIn(int api)
    {
        httplib::Client client("127.0.0.1", ports[static_cast<size_t>(api)]);
        const auto reply = client.Post(
            "/api/auth/login", R"({"email":"c@example.com","password":"pw"})", "application/json");
        ASSERT_TRUE(reply && reply->status == 200);
        token = QJsonDocument::fromJson(QByteArray::fromStdString(reply->body))
                    .object()[u"access_token"_s]
                    .toString()
                    .toStdString();
    }

    std::string upload(int api)
    {
        httplib::Client client("127.0.0.1", ports[static_cast<size_t>(api)]);
        const httplib::MultipartFormDataItems items {{"file", tone, "tone.wav", "audio/wav"}};
        const auto reply = client.Post("/api/media/transcribe", auth(), items);
        EXPECT_TRUE(reply && reply->status == 200) << (reply ? reply->body : "no answer");
        return reply ? QJsonDocument::fromJson(QByteArray::fromStdString(reply->body))
                           .object()[u"task_id"_s]
                           .toString()
                           .toStdString()
                     : std::string();
    }

    // Polls `api` until every task has ended; returns each one's final reply.
    std::map<std::string, QJsonObject> waitForAll(int api, const std::vector<std::string> &tasks)
    {
        httplib::Client client("127.0.0.1", ports[static_cast<size_t>(api)]);
        std::map<std::string, QJsonObject> ended;
        QDeadlineTimer deadline(40000);
        while (ended.size() < tasks.size() && !deadline.hasExpired()) {
            for (const std::string &task : tasks) {
                if (ended.contains(task))
                    continue;
                const auto reply = client.Get("/api/media/transcribe/" + task, auth());
                if (!reply || reply->status != 200)
                    continue;
                const QJsonObject state
                    = QJsonDocument::fromJson(QByteArray::fromStdString(reply->body)).object();
                const QString status = state[u"status"_s].toString();
                if (status == u"completed"_s || status == u"failed"_s)
                    ended[task] = state;
            }
            QTest::qWait(100); // runs the event loop, which also drains the nodes' logs
        }
        return ended;
    }

    static QString words(const QJsonObject &state)
    {
        QStringList texts;
        for (const QJsonValue &paragraph : state[u"paragraphs"_s].toArray())
            for (const QJsonValue &word : paragraph[u"word_blocks"_s].toArray())
                texts.append(word[u"text"_s].toString());
        return texts.join(u' ');
    }

    // How many times the workers logged `event` ("claimed", "completed") for `task`.
    int times(const std::string &task, const QString &event)
    {
        int count = 0;
        for (const auto &worker : workers)
            count += static_cast<int>(
                worker->log().count(u"task "_s + QString::fromStdString(task) + u' ' + event));
        return count;
    }

    bool waitForFile(const QString &file)
    {
        QDeadlineTimer deadline(20000);
        while (!QFile::exists(file) && !deadline.hasExpired())
            QTest::qWait(50);
        return QFile::exists(file);
    }

    QTemporaryDir dir;
    std::unique_ptr<PgCluster> cluster;
    QString database, uploads, hold, recognizer;
    QProcessEnvironment environment;
    std::vector<std::unique_ptr<ServerCommand>> apis, workers;
    std::vector<int> ports;
    std::string token, tone;
};

} // namespace

TEST_P(Deployment, TasksCompleteOnceAcrossNodesAndSurviveKilledOnes)
{
    startApi();
    startApi();
    startWorker();
    startWorker();
    ASSERT_FALSE(::testing::Test::HasFailure());
    signIn(0);

    // Imports spread over both API nodes, claimed and recognised by the workers, each
    // exactly once.
    std::vector<std::string> tasks;
    for (int i = 0; i < 40; ++i)
        tasks.push_back(upload(i % 2));
    auto ended = waitForAll(1, tasks);
    ASSERT_EQ(ended.size(), tasks.size());
    for (const std::string &task : tasks) {
        EXPECT_EQ(ended[task][u"status"_s].toString(), u"completed"_s) << task;
        EXPECT_EQ(words(ended[task]), u"hello world"_s) << task;
        EXPECT_EQ(times(task, u"claimed"_s), 1) << task;
        EXPECT_EQ(times(task, u"completed"_s), 1) << task;
    }

    // A worker killed in the middle of a task: the other takes it over when the lease
    // runs out.
    QFile(hold).open(QIODevice::WriteOnly);
    const std::string held = upload(0);
    ASSERT_TRUE(waitForFile(hold + u".seen"_s));
    const bool firstHasIt
        = workers[0]->log().contains(QString::fromStdString(held) + u" claimed"_s);
    ServerCommand &victim = firstHasIt ? *workers[0] : *workers[1];
    victim.kill();
    QFile::remove(hold);
    ended = waitForAll(1, {held});
    EXPECT_EQ(ended[held][u"status"_s].toString(), u"completed"_s);
    EXPECT_EQ(times(held, u"completed"_s), 1);

    // An API node killed: its clients carry on through the other one.
    QFile(hold).open(QIODevice::WriteOnly);
    QFile::remove(hold + u".seen"_s);
    std::vector<std::string> orphans {upload(0), upload(0), upload(0)};
    ASSERT_TRUE(waitForFile(hold + u".seen"_s));
    apis[0]->kill();
    QFile::remove(hold);
    ended = waitForAll(1, orphans);
    for (const std::string &task : orphans)
        EXPECT_EQ(ended[task][u"status"_s].toString(), u"completed"_s) << task;
}

INSTANTIATE_TEST_SUITE_P(Stores, Deployment, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &param) { return std::string(param.param); });
