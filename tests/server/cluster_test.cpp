#include "generatedmedia.h"
#include "pgcluster.h"
#include "support/serverprocess.h"
#include "support/testenvironment.h"

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

QJsonObject json(const httplib::Result &reply)
{
    return reply ? QJsonDocument::fromJson(QByteArray::fromStdString(reply->body)).object()
                 : QJsonObject();
}

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
        // Answers at once, unless the hold file exists: then it says so and waits for the
        // file to go, which keeps a task in hand for as long as the test needs.
        const QString recognizer = dir.filePath(u"recognize.sh"_s);
        writeFile(recognizer, R"sh(#!/bin/sh
if [ -e "$HOLD" ]; then touch "$HOLD.seen"; while [ -e "$HOLD" ]; do sleep 0.05; done; fi
echo '{"words":[{"text":"hello","start":0.1,"end":0.3},{"text":"world","start":0.35,"end":0.5}]}'
)sh");
        QFile::setPermissions(recognizer, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        environment.insert(u"HOLD"_s, holdFile);
        QFile toneFile(makeTone(dir.path(), u"tone.wav"_s, 0.5));
        ASSERT_TRUE(toneFile.open(QIODevice::ReadOnly));
        tone = toneFile.readAll().toStdString();

        ServerCommand addUser({u"add-user"_s, u"--database"_s, database, u"--email"_s,
                               u"c@example.com"_s, u"--password"_s, u"pw"_s});
        ASSERT_EQ(addUser.exitCode(), 0) << addUser.log().toStdString();
        const QStringList shared {u"--database"_s, database, u"--uploads"_s,
                                  dir.filePath(u"uploads"_s)};
        for (int i = 0; i < 2; ++i) {
            apis.push_back(std::make_unique<ServerCommand>(
                QStringList {u"serve"_s, u"--workers"_s, u"0"_s, u"--port"_s, u"0"_s} + shared,
                environment));
            const auto match = apis.back()->waitForLog(
                QRegularExpression(u"listening on http://127\\.0\\.0\\.1:(\\d+)"_s));
            ASSERT_TRUE(match) << apis.back()->log().toStdString();
            ports.push_back(match->captured(1).toInt());
            workers.push_back(
                std::make_unique<ServerCommand>(QStringList {u"worker"_s, u"--recognizer-command"_s,
                                                             recognizer, u"--lease"_s, u"2"_s}
                                                    + shared,
                                                environment));
            ASSERT_TRUE(workers.back()->waitForLog(QRegularExpression(u"worker started"_s)))
                << workers.back()->log().toStdString();
        }
        const auto reply
            = httplib::Client("127.0.0.1", ports[0])
                  .Post("/api/auth/login", R"({"email":"c@example.com","password":"pw"})",
                        "application/json");
        ASSERT_TRUE(reply && reply->status == 200);
        token = json(reply)[u"access_token"_s].toString().toStdString();
    }

    httplib::Headers auth() const { return {{"Authorization", "Bearer " + token}}; }

    std::string upload(int api)
    {
        const httplib::MultipartFormDataItems items {{"file", tone, "tone.wav", "audio/wav"}};
        const auto reply
            = httplib::Client("127.0.0.1", ports[api]).Post("/api/media/transcribe", auth(), items);
        EXPECT_TRUE(reply && reply->status == 200) << (reply ? reply->body : "no answer");
        return json(reply)[u"task_id"_s].toString().toStdString();
    }

    // Polls the second API node until every task has ended; returns each one's words, or
    // its status when it did not complete.
    std::map<std::string, QString> waitForAll(const std::vector<std::string> &tasks)
    {
        httplib::Client client("127.0.0.1", ports[1]);
        std::map<std::string, QString> ended;
        QDeadlineTimer deadline(40000);
        while (ended.size() < tasks.size() && !deadline.hasExpired()) {
            for (const std::string &task : tasks) {
                if (ended.contains(task))
                    continue;
                const QJsonObject state = json(client.Get("/api/media/transcribe/" + task, auth()));
                QStringList words;
                for (const QJsonValue &paragraph : state[u"paragraphs"_s].toArray())
                    for (const QJsonValue &word : paragraph[u"word_blocks"_s].toArray())
                        words.append(word[u"text"_s].toString());
                const QString status = state[u"status"_s].toString();
                if (status == u"completed"_s || status == u"failed"_s)
                    ended[task] = status == u"failed"_s ? status : words.join(u' ');
            }
            QTest::qWait(100); // runs the event loop, which also drains the nodes' logs
        }
        return ended;
    }

    // One figure from an API node's /metrics (-1 when absent), and its /healthz status.
    double metric(int api, const std::string &series)
    {
        const auto reply = httplib::Client("127.0.0.1", ports[api]).Get("/metrics");
        const std::string text = reply ? "\n" + reply->body : std::string();
        const auto at = text.find("\n" + series + " ");
        return at == std::string::npos ? -1 : std::stod(text.substr(at + series.size() + 2));
    }
    int health(int api)
    {
        const auto reply = httplib::Client("127.0.0.1", ports[api]).Get("/healthz");
        return reply ? reply->status : 0;
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

    QTemporaryDir dir;
    std::unique_ptr<PgCluster> cluster;
    QString database, holdFile = dir.filePath(u"hold"_s);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    std::vector<std::unique_ptr<ServerCommand>> apis, workers;
    std::vector<int> ports;
    std::string token, tone;
};

} // namespace

TEST_P(Deployment, TasksCompleteOnceAcrossNodesAndSurviveKilledOnes)
{
    // Imports spread over both API nodes, claimed and recognised by the workers, each
    // exactly once.
    std::vector<std::string> tasks;
    for (int i = 0; i < 40; ++i)
        tasks.push_back(upload(i % 2));
    auto ended = waitForAll(tasks);
    ASSERT_EQ(ended.size(), tasks.size());
    for (const std::string &task : tasks) {
        EXPECT_EQ(ended[task], u"hello world"_s) << task;
        EXPECT_EQ(times(task, u"claimed"_s), 1) << task;
        EXPECT_EQ(times(task, u"completed"_s), 1) << task;
    }
    // Either node tells of the whole queue; each counts its own requests.
    for (int api : {0, 1}) {
        EXPECT_EQ(health(api), 200);
        EXPECT_EQ(metric(api, R"(kavel_tasks{state="completed"})"), 40);
        EXPECT_EQ(metric(api, "kavel_worker_leases_held"), 0);
        EXPECT_EQ(
            metric(api, R"(kavel_http_requests_total{route="/api/media/transcribe",status="200"})"),
            20);
    }

    // A worker killed in the middle of a task: the other takes it over when the lease
    // runs out. An API node killed: its clients carry on through the other one.
    for (const bool killWorker : {true, false}) {
        QFile(holdFile).open(QIODevice::WriteOnly); // keeps the tasks claimed now in hand
        std::vector<std::string> held {upload(0)};
        if (!killWorker)
            held.insert(held.end(), {upload(0), upload(0)});
        ASSERT_TRUE(QTest::qWaitFor([&] { return QFile::exists(holdFile + u".seen"_s); }, 20000));
        if (killWorker) {
            EXPECT_EQ(metric(1, "kavel_worker_leases_held"), 1);
            EXPECT_EQ(metric(1, R"(kavel_tasks{state="processing"})"), 1);
        }
        const bool firstHasIt
            = workers[0]->log().contains(QString::fromStdString(held[0]) + u" claimed"_s);
        (killWorker ? (firstHasIt ? workers[0] : workers[1]) : apis[0])->kill();
        QFile::remove(holdFile);
        QFile::remove(holdFile + u".seen"_s);
        ended = waitForAll(held);
        for (const std::string &task : held) {
            EXPECT_EQ(ended[task], u"hello world"_s) << task;
            EXPECT_EQ(times(task, u"completed"_s), 1) << task;
        }
    }

    // A database that stopped answering is what the health check is for.
    if (cluster) {
        cluster->stop();
        EXPECT_EQ(health(1), 503);
        EXPECT_EQ(metric(1, "kavel_database_up"), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, Deployment, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &param) { return std::string(param.param); });
