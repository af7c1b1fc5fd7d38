#include "exposedserver.h"
#include "generatedmedia.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace kavel::test;
using namespace Qt::StringLiterals;

TEST_F(ExposedServer, SettingsComeFromAFileAndTheCommandLineWins)
{
    // The settings file of a service whose port the command line replaces.
    const QString state = dir.filePath(u"state"_s);
    ASSERT_TRUE(QDir().mkpath(state));
    const QString config = dir.filePath(u"kavel-server.conf"_s);
    writeFile(config,
              "port = 1\ndatabase = " + state.toUtf8()
                  + "/kavel.db  # beside the uploads\nworkers = 0\ninsecure = no\n");
    // Run by root, add-user writes as the owner of the database's folder, so that the
    // service can open what root made.
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(state.toLocal8Bit().constData(), 65534, 65534), 0);
        QFile::setPermissions(dir.path(),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                  | QFile::ExeGroup | QFile::ExeOther);
    }
    ServerCommand addUser({u"add-user"_s, u"--config"_s, config, u"--email"_s, u"s@example.com"_s,
                           u"--password"_s, u"pw"_s});
    ASSERT_EQ(addUser.exitCode(), 0) << addUser.log().toStdString();
    if (root) {
        EXPECT_EQ(QFileInfo(state + u"/kavel.db"_s).ownerId(), 65534u);
    }

    ServerCommand serve({u"serve"_s, u"--config"_s, config, u"--port"_s, u"0"_s});
    const auto listening
        = serve.waitForLog(QRegularExpression(u"listening on http://127\\.0\\.0\\.1:(\\d+)"_s));
    ASSERT_TRUE(listening) << serve.log().toStdString();
    EXPECT_NE(listening->captured(1), u"1"_s) << "the command line's port wins";
    const auto reply
        = httplib::Client("127.0.0.1", listening->captured(1).toInt())
              .Post("/api/auth/login", loginBody("s@example.com", "pw"), "application/json");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200) << "signs in to the database the file names";
    EXPECT_TRUE(QDir(state + u"/kavel.db.uploads"_s).exists());
}

TEST_F(ExposedServer, OperatorsSeeHealthAndMetricsButNoOnesData)
{
    const QString recognizer = dir.filePath(u"recognize.sh"_s);
    writeFile(recognizer,
              "#!/bin/sh\necho '{\"words\":[{\"text\":\"hi\",\"start\":0.1,"
              "\"end\":0.2}]}'\n");
    QFile::setPermissions(recognizer, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QString error;
    ASSERT_TRUE(server.start(
        &error, {u"--recognizer-command"_s, recognizer, u"--metrics-bind"_s, u"127.0.0.1:0"_s}))
        << error.toStdString();
    const int port = server.apiBaseUrl().port();
    const auto metricsPort = server.waitForLog(QRegularExpression(u"checks on port (\\d+)"_s));
    ASSERT_TRUE(metricsPort);

    httplib::Client client("127.0.0.1", port);
    const auto health = client.Get("/healthz");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 200);
    EXPECT_EQ(health->body, "ok\n");

    // One recording recognised, with a poll by its task's id.
    const std::string token = signIn(port).toStdString();
    const httplib::Headers auth {{"Authorization", "Bearer " + token}};
    QFile tone(makeTone(dir.path(), u"tone.wav"_s, 2.0));
    ASSERT_TRUE(tone.open(QIODevice::ReadOnly));
    const auto queued
        = client.Post("/api/media/transcribe", auth,
                      {{"file", tone.readAll().toStdString(), "tone.wav", "audio/wav"}});
    ASSERT_TRUE(queued && queued->status == 200);
    const std::string task
        = QJsonDocument::fromJson(QByteArray::fromStdString(queued->body))[u"task_id"_s]
              .toString()
              .toStdString();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto poll = client.Get("/api/media/transcribe/" + task, auth);
            return poll && poll->body.find("completed") != std::string::npos;
        },
        20000));
    client.Get("/nowhere/.env");

    // The worker counts a recognition and removes its upload just after the task reads
    // completed, so a scrape straight after the poll may come a moment early.
    std::string text;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto metrics = client.Get("/metrics");
            if (!metrics || metrics->status != 200)
                return false;
            text = metrics->body;
            return metric(text, "kavel_recognitions_total") == 1
                && metric(text, "kavel_uploads_waiting") == 0;
        },
        10000))
        << "no token from the machine itself\n"
        << text;
    EXPECT_EQ(metric(text, R"(kavel_http_requests_total{route="/api/auth/login",status="200"})"),
              1);
    EXPECT_EQ(
        metric(text, R"(kavel_http_requests_total{route="/api/media/transcribe",status="200"})"),
        1);
    EXPECT_GE(
        metric(text,
               R"(kavel_http_requests_total{route="/api/media/transcribe/{task}",status="200"})"),
        1);
    EXPECT_EQ(metric(text, R"(kavel_http_requests_total{route="other",status="404"})"), 1);
    const double logins
        = metric(text, R"(kavel_http_request_duration_seconds_count{route="/api/auth/login"})");
    EXPECT_EQ(logins, 1);
    EXPECT_EQ(
        metric(text,
               R"(kavel_http_request_duration_seconds_bucket{route="/api/auth/login",le="+Inf"})"),
        logins);
    EXPECT_GT(metric(text, R"(kavel_http_request_duration_seconds_sum{route="/api/auth/login"})"),
              0);
    EXPECT_EQ(metric(text, R"(kavel_tasks{state="completed"})"), 1);
    EXPECT_EQ(metric(text, R"(kavel_tasks{state="pending"})"), 0);
    EXPECT_EQ(metric(text, "kavel_worker_leases_held"), 0);
    EXPECT_EQ(metric(text, "kavel_uploads_waiting"), 0) << "the recognised upload is gone";
    EXPECT_EQ(metric(text, "kavel_recognitions_total"), 1);
    EXPECT_NEAR(metric(text, "kavel_recognition_audio_seconds_total"), 2.0, 0.05);
    const double factor = metric(text, "kavel_recognition_real_time_factor");
    EXPECT_GT(factor, 0);
    EXPECT_NEAR(factor * 2.0, metric(text, "kavel_recognition_seconds_total"), 0.01);
    EXPECT_GT(metric(text, "process_resident_memory_bytes"), 1 << 20);
    EXPECT_EQ(metric(text, "kavel_database_up"), 1);
    for (const std::string &secret : {task, token, std::string("e@example.com")})
        EXPECT_EQ(text.find(secret), std::string::npos) << secret;

    // The listener of their own serves the operators' two routes and nothing else, and
    // has its checks answered while others send their requests as slowly as they like.
    const int operatorsPort = metricsPort->captured(1).toInt();
    std::vector<std::unique_ptr<QTcpSocket>> slow;
    for (int i = 0; i < 4; ++i) {
        slow.push_back(std::make_unique<QTcpSocket>());
        slow.back()->connectToHost(u"127.0.0.1"_s, static_cast<quint16>(operatorsPort));
        ASSERT_TRUE(slow.back()->waitForConnected(5000));
        slow.back()->write("GET /healthz HTTP/1.1\r\nHost: k\r\n");
        ASSERT_TRUE(slow.back()->waitForBytesWritten(5000));
    }
    httplib::Client operators("127.0.0.1", operatorsPort);
    operators.set_read_timeout(3);
    const auto scraped = operators.Get("/metrics");
    ASSERT_TRUE(scraped);
    EXPECT_EQ(scraped->status, 200);
    EXPECT_EQ(metric(scraped->body, R"(kavel_tasks{state="completed"})"), 1);
    EXPECT_EQ(operators.Get("/healthz")->status, 200);
    EXPECT_EQ(operators.Get("/api/auth/me", auth)->status, 404);
}
