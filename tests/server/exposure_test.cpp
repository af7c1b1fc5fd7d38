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

TEST_F(ExposedServer, CommandsRefuseWhatIsUnsafeOrIncomplete)
{
    const QString database = server.databasePath();
    const QStringList serve {u"serve"_s, u"--port"_s, u"0"_s, u"--database"_s, database};
    const QStringList addUser {u"add-user"_s, u"--database"_s, database, u"--password"_s, u"x"_s};
    const QString misspelt = dir.filePath(u"misspelt.conf"_s);
    writeFile(misspelt, "# the service's settings\nport = 0\n\nprot = 8417\n");
    const QString halfFlag = dir.filePath(u"flag.conf"_s);
    writeFile(halfFlag, "insecure = maybe\n");
    const struct
    {
        QStringList arguments;
        int exitCode;
        const char *says;
    } refusals[] = {
        // Plain HTTP stays on loopback unless the operator insists.
        {serve + QStringList {u"--bind"_s, u"0.0.0.0"_s}, 2,
         "refusing to serve plain HTTP on 0.0.0.0"},
        {serve + QStringList {u"--bind"_s, u"192.0.2.7"_s}, 2,
         "--tls-cert and --tls-key, or --insecure"},
        {serve + QStringList {u"--tls-cert"_s, u"c.pem"_s}, 2, "go together"},
        {serve + QStringList {u"--tls-cert"_s, u"absent.pem"_s, u"--tls-key"_s, u"absent.pem"_s}, 1,
         "cannot load the TLS certificate absent.pem"},
        {addUser + QStringList {u"--email"_s, u"e@example.com"_s}, 1,
         "a user with this e-mail address or phone number exists"},
        {addUser, 2, "usage:"},
        // A settings file is read as strictly as the command line, and named with the line.
        {serve + QStringList {u"--config"_s, misspelt}, 1, "misspelt.conf:4: unknown setting prot"},
        {serve + QStringList {u"--config"_s, halfFlag}, 1, "flag.conf:1: insecure takes yes or no"},
        {serve + QStringList {u"--config"_s, dir.filePath(u"absent.conf"_s)}, 1,
         "cannot read the configuration file"},
        {serve + QStringList {u"--metrics-bind"_s, u"9417"_s}, 1, "takes ADDRESS:PORT"},
        {{u"serve"_s, u"--prot"_s, u"1"_s}, 2, "usage:"},
        // PocketSphinx hears English only; a command names what it hears in tags.
        {serve + QStringList {u"--recognizer-languages"_s, u"zh"_s}, 2,
         "goes with --recognizer-command"},
        {serve
             + QStringList {u"--recognizer-command"_s, u"true"_s, u"--recognizer-languages"_s,
                            u"zh,,en"_s},
         2, "takes language tags such as zh,en"},
    };
    for (const auto &[arguments, exitCode, says] : refusals) {
        ServerCommand refused(arguments);
        EXPECT_EQ(refused.exitCode(), exitCode) << arguments.join(u' ').toStdString();
        const QString log = refused.log();
        EXPECT_TRUE(log.contains(QString::fromUtf8(says))) << log.toStdString();
        if (!log.contains(u"usage:"_s)) {
            EXPECT_EQ(log.count(u'\n'), 1) << "one line: " << log.toStdString();
        }
    }
}

TEST_F(ExposedServer, ServesHttpsWithTheGivenCertificate)
{
    const QString cert = dir.filePath(u"cert.pem"_s);
    const QString key = dir.filePath(u"key.pem"_s);
    ASSERT_EQ(QProcess::execute(u"openssl"_s,
                                u"req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 "
                                "-addext subjectAltName=IP:127.0.0.1"_s.split(u' ')
                                    << u"-keyout"_s << key << u"-out"_s << cert),
              0);
    const int port = start({u"--tls-cert"_s, cert, u"--tls-key"_s, key});
    ASSERT_NE(port, 0);

    httplib::SSLClient client("127.0.0.1", port);
    client.set_ca_cert_path(cert.toStdString().c_str());
    client.enable_server_certificate_verification(true);
    const auto reply
        = client.Post("/api/auth/login", loginBody("e@example.com", "pw"), "application/json");
    ASSERT_TRUE(reply) << httplib::to_string(reply.error());
    EXPECT_EQ(reply->status, 200);

    httplib::Client plain("127.0.0.1", port);
    EXPECT_FALSE(plain.Get("/signup")) << "no plain HTTP on the TLS port";
}

TEST_F(ExposedServer, BodiesAreRefusedFromTheirHeadersAlone)
{
    const int port = start();
    ASSERT_NE(port, 0);
    httplib::Client client("127.0.0.1", port);
    const auto signIn
        = client.Post("/api/auth/login", loginBody("e@example.com", "pw"), "application/json");
    ASSERT_TRUE(signIn && signIn->status == 200);
    const QByteArray token
        = QJsonDocument::fromJson(QByteArray::fromStdString(signIn->body))[u"access_token"_s]
              .toString()
              .toUtf8();

    const QByteArray upload = "POST /api/media/transcribe HTTP/1.1\r\nHost: k\r\n"
                              "Content-Type: multipart/form-data; boundary=b\r\n";
    // A language the recogniser cannot hear is refused as soon as its part has arrived,
    // before the hundred megabytes that follow; old clients name none.
    const auto inLanguage = [&](const QByteArray &language) -> QByteArray {
        return upload + "Authorization: Bearer " + token
            + "\r\nContent-Length: 104857600\r\n\r\n--b\r\nContent-Disposition: form-data; "
              "name=\"language\"\r\n\r\n"
            + language
            + "\r\n--b\r\nContent-Disposition: form-data; name=\"file\"; "
              "filename=\"a.wav\"\r\n\r\nRIFF";
    };
    const struct
    {
        QByteArray head;
        const char *status;
        const char *detail = "";
    } cases[] = {
        {inLanguage("zh"), "422", "此服务暂不支持识别中文，请联系管理员配置中文识别"},
        {inLanguage("ja-JP"), "422", "此服务暂不支持识别日文，请联系管理员配置日文识别"},
        {inLanguage("x;rm -rf"), "422", "识别语言代码无效"},
        {inLanguage("en-US"), ""},
        {inLanguage(""), ""},
        {upload + "Content-Length: 2147483000\r\n\r\n", "401"},
        {upload + "Transfer-Encoding: chunked\r\n\r\n", "401"},
        {upload + "Authorization: Bearer " + token + "\r\nContent-Length: 3221225472\r\n\r\n",
         "413"},
        {"POST /api/auth/login HTTP/1.1\r\nHost: k\r\nContent-Length: 1000000\r\n\r\n", "413"},
        {"POST /api/auth/login HTTP/1.1\r\nHost: k\r\nTransfer-Encoding: chunked\r\n\r\n", "413"},
        // No route takes a body by any other method, and none is read to find that out.
        {"PUT /api/auth/me HTTP/1.1\r\nHost: k\r\nContent-Length: 1000000\r\n\r\n", "413"},
        {"DELETE /signup HTTP/1.1\r\nHost: k\r\nTransfer-Encoding: chunked\r\n\r\n", "413"},
    };
    for (const auto &[head, status, detail] : cases) {
        // No status: it waits for the rest of the body.
        const QByteArray answer = answerTo(port, head);
        EXPECT_EQ(answer.left(12), *status ? "HTTP/1.1 " + QByteArray(status) : QByteArray())
            << head.toStdString() << " -> " << answer.toStdString();
        EXPECT_TRUE(answer.contains(detail)) << answer.toStdString();
    }

    const auto languages = client.Get("/api/recognition/languages");
    ASSERT_TRUE(languages && languages->status == 200);
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(languages->body)).object(),
              (QJsonObject {{u"languages"_s, QJsonArray {u"en"_s}}, {u"default"_s, u"en"_s}}));
}

TEST_F(ExposedServer, GuessesSlowDownTheirOwnAddressAndNeverLockOutTheOwner)
{
    const int port = start();
    ASSERT_NE(port, 0);
    const auto attempt = [port](const char *from, const std::string &account,
                                const std::string &password) {
        return statusAndWait(answerTo(port, post("/api/auth/login", loginBody(account, password)),
                                      QString::fromLatin1(from), 20000));
    };
    // Sign-ins from many addresses at once have their passwords checked a few at a time,
    // each check taking 64 MiB while it lasts: a flood of them cannot take a gigabyte.
    forgetPeakMemory();
    const double before = memory("VmHWM");
    std::vector<std::thread> signIns;
    std::atomic<int> checked = 0;
    for (int i = 0; i < 16; ++i) {
        signIns.emplace_back([&, i] {
            const std::string from = "127.0.1." + std::to_string(i + 1);
            checked += attempt(from.c_str(), "e@example.com", "guess").first == 401;
        });
    }
    for (std::thread &signIn : signIns)
        signIn.join();
    EXPECT_EQ(checked, 16);
    EXPECT_LT(memory("VmHWM") - before, 5 * 64.0) << "MiB more at the peak";
    const char *guesser = "127.0.0.2";
    // A few wrong passwords are answered at once, then the address must wait.
    QList<int> answers;
    for (int i = 0; i < 10; ++i)
        answers << attempt(guesser, "e@example.com", "guess").first;
    EXPECT_EQ(answers, (QList<int> {401, 401, 401, 401, 401, 401, 429, 429, 429, 429}));
    EXPECT_EQ(attempt(guesser, "e@example.com", "pw"), (std::pair {429, 1}))
        << "the right password too, from where the guesses come";
    // The owner, elsewhere, is not locked out.
    EXPECT_EQ(attempt("127.0.0.1", "e@example.com", "pw").first, 200);
    // Each further guess waits twice as long as the one before.
    QThread::msleep(1100);
    EXPECT_EQ(attempt(guesser, "e@example.com", "guess").first, 401);
    EXPECT_EQ(attempt(guesser, "e@example.com", "guess"), (std::pair {429, 2}));

    // One address may try 30 sign-ins a minute, whatever the accounts.
    int refused = 0;
    while (
        refused < 40
        && attempt("127.0.0.3", "someone" + std::to_string(refused) + "@example.com", "guess").first
            == 401)
        ++refused;
    EXPECT_EQ(refused, 30);
    const auto [status, wait] = attempt("127.0.0.3", "e@example.com", "pw");
    EXPECT_EQ(status, 429);
    EXPECT_TRUE(wait >= 1 && wait <= 60) << wait;

    // A code is texted once a minute, and the refusal says when to ask again.
    const std::string phone = R"({"phone":"13800000009"})";
    EXPECT_EQ(statusAndWait(answerTo(port, post("/api/auth/sms-code", phone))).first, 200);
    const auto [smsStatus, smsWait]
        = statusAndWait(answerTo(port, post("/api/auth/sms-code", phone)));
    EXPECT_EQ(smsStatus, 429);
    EXPECT_TRUE(smsWait >= 59 && smsWait <= 60) << smsWait;
}

TEST_F(ExposedServer, SlowClientsHoldNoRequestThreadAndAreDroppedAtTheirHeadDeadline)
{
    const int port = start({u"--bind"_s, u"::1"_s});
    ASSERT_NE(port, 0) << "IPv6 addresses are logged in brackets";
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const auto seconds
        = [started] { return std::chrono::duration<double>(Clock::now() - started).count(); };
    // Each sends a byte of its head a second, and notes when the server hung up. Every
    // fourth asks leave to send a small body, and then trickles that instead.
    constexpr int slowClients = 64;
    std::vector<double> droppedAt(slowClients, -1.0);
    std::atomic<bool> done = false;
    std::vector<std::thread> tricklers;
    for (int i = 0; i < slowClients; ++i) {
        tricklers.emplace_back([&, i] {
            const int fd = ::socket(AF_INET6, SOCK_STREAM, 0);
            sockaddr_in6 address {};
            address.sin6_family = AF_INET6;
            address.sin6_port = htons(static_cast<std::uint16_t>(port));
            address.sin6_addr = in6addr_loopback;
            if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
                const bool asks = i % 4 == 0;
                const std::string head = asks
                    ? "POST /signup HTTP/1.1\r\nHost: k\r\nExpect: 100-continue\r\n"
                      "Content-Length: 60\r\n\r\n"
                    : "GET /signup HTTP/1.1\r\nHost: k\r\nX-Slow: ";
                ::send(fd, head.data(), head.size(), MSG_NOSIGNAL);
                // Told to go ahead at once; a client never told is not counted as dropped.
                char leave[64] = {};
                pollfd asked {fd, POLLIN, 0};
                const bool toldToGoAhead = !asks
                    || (::poll(&asked, 1, 3000) == 1 && ::recv(fd, leave, sizeof leave - 1, 0) > 0
                        && std::string_view(leave).rfind("HTTP/1.1 100 ", 0) == 0);
                while (!done && toldToGoAhead) {
                    pollfd entry {fd, POLLIN, 0};
                    if (::poll(&entry, 1, 1000) > 0) {
                        char byte;
                        if (::recv(fd, &byte, 1, 0) <= 0)
                            droppedAt[static_cast<size_t>(i)] = seconds();
                        break;
                    }
                    ::send(fd, "a", 1, MSG_NOSIGNAL);
                }
            }
            ::close(fd);
        });
    }
    // Meanwhile everyone else is answered as usual.
    httplib::Client client("::1", port);
    client.set_connection_timeout(3);
    client.set_read_timeout(3);
    int asked = 0;
    int answered = 0;
    while (seconds() < 12.5 && std::count(droppedAt.begin(), droppedAt.end(), -1.0) > 0) {
        const auto reply = client.Get("/signup");
        ++asked;
        answered += reply && reply->status == 200;
        QThread::msleep(250);
    }
    done = true;
    for (std::thread &trickler : tricklers)
        trickler.join();
    EXPECT_GT(asked, 30);
    EXPECT_EQ(answered, asked);
    // However steadily the bytes come, the whole head has ten seconds.
    for (double at : droppedAt)
        EXPECT_TRUE(at > 9.0 && at < 12.5) << at;
}

// A response written in two pieces waits for the client's delayed acknowledgement of the
// first (40 ms) on a kept-alive connection; written in one, it arrives in one read.
TEST_F(ExposedServer, KeptAliveConnectionsGetEachResponseInOnePiece)
{
    const int port = start();
    ASSERT_NE(port, 0);
    const QByteArray token = signIn(port);
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const QByteArray requests[] = {
        "GET /signup HTTP/1.1\r\nHost: k\r\n\r\n",
        "GET /api/auth/me HTTP/1.1\r\nHost: k\r\nAuthorization: Bearer " + token + "\r\n\r\n",
        "GET /api/media/transcribe/absent HTTP/1.1\r\nHost: k\r\nAuthorization: Bearer " + token
            + "\r\n\r\n",
    };
    for (int round = 0; round < 3; ++round) {
        for (const QByteArray &request : requests) {
            ASSERT_EQ(::send(fd, request.data(), static_cast<size_t>(request.size()), 0),
                      request.size());
            pollfd entry {fd, POLLIN, 0};
            ASSERT_EQ(::poll(&entry, 1, 5000), 1);
            QByteArray answer(64 << 10, '\0');
            answer.resize(std::max<ssize_t>(0, ::recv(fd, answer.data(), answer.size(), 0)));
            const qsizetype headEnd = answer.indexOf("\r\n\r\n");
            const auto length = QRegularExpression(u"\r\nContent-Length: (\\d+)\r\n"_s,
                                                   QRegularExpression::CaseInsensitiveOption)
                                    .match(QString::fromLatin1(answer.left(headEnd + 2)));
            ASSERT_TRUE(headEnd > 0 && length.hasMatch()) << answer.toStdString();
            EXPECT_EQ(answer.size() - headEnd - 4, length.captured(1).toInt())
                << "round " << round << ": " << request.left(40).toStdString();
        }
    }
    ::close(fd);
}

TEST_F(ExposedServer, UploadsGoToDiskInPiecesWithinEachUsersQuota)
{
    const int port = start({u"--upload-quota"_s, u"5"_s, u"--upload-quota-mib"_s, u"600"_s});
    ASSERT_NE(port, 0);
    const QByteArray token = signIn(port);
    const httplib::Headers auth {{"Authorization", "Bearer " + token.toStdString()}};
    const std::string type = "multipart/form-data; boundary=b0undary";
    const std::string opening = "--b0undary\r\nContent-Disposition: form-data; name=\"file\"; "
                                "filename=\"big.wav\"\r\n\r\n";
    const std::string closing = "\r\n--b0undary--\r\n";
    constexpr size_t size = 256 << 20;
    // The body as a stream: the opening, zeros a MiB at a time, the closing.
    const auto produce = [&](size_t offset, httplib::DataSink &sink) {
        static const std::string zeros(1 << 20, '\0');
        if (offset == 0)
            return sink.write(opening.data(), opening.size());
        const size_t sent = offset - opening.size();
        if (sent < size)
            return sink.write(zeros.data(), std::min(zeros.size(), size - sent));
        if (sent == size)
            return sink.write(closing.data(), closing.size());
        sink.done();
        return true;
    };
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(60);
    client.set_write_timeout(60);
    for (const bool chunked : {false, true}) {
        forgetPeakMemory();
        const double before = memory("VmHWM");
        const auto reply = chunked
            ? client.Post("/api/media/transcribe", auth, produce, type.c_str())
            : client.Post(
                "/api/media/transcribe", auth, opening.size() + size + closing.size(),
                [&](size_t offset, size_t, httplib::DataSink &sink) {
                    return produce(offset, sink);
                },
                type.c_str());
        EXPECT_TRUE(reply && reply->status == 200) << (reply ? reply->body : "no reply");
        EXPECT_LT(memory("VmHWM") - before, 32.0) << (chunked ? "chunked" : "with its length");
    }
    const QFileInfoList stored
        = QDir(server.databasePath() + u".uploads"_s).entryInfoList(QDir::Files);
    ASSERT_EQ(stored.size(), 2);
    EXPECT_EQ(stored[0].size() + stored[1].size(), qint64 {2} * qint64 {size});

    // Another 100 MiB would take the user past 600 MiB waiting: refused from its headers.
    const QByteArray upload = "POST /api/media/transcribe HTTP/1.1\r\nHost: k\r\n"
                              "Content-Type: multipart/form-data; boundary=b\r\n"
                              "Authorization: Bearer "
        + token + "\r\n";
    EXPECT_EQ(statusAndWait(answerTo(port, upload + "Content-Length: 104857600\r\n\r\n")).first,
              413);
    // Bodies on their way hold request threads: two at a time per user.
    std::vector<std::unique_ptr<QTcpSocket>> arriving;
    for (int i = 0; i < 2; ++i) {
        arriving.push_back(std::make_unique<QTcpSocket>());
        arriving.back()->connectToHost(u"127.0.0.1"_s, static_cast<quint16>(port));
        ASSERT_TRUE(arriving.back()->waitForConnected(5000));
        arriving.back()->write(upload + "Content-Length: 1048576\r\n\r\n--b\r\n");
        ASSERT_TRUE(arriving.back()->waitForBytesWritten(5000));
    }
    QThread::msleep(300);
    EXPECT_EQ(statusAndWait(answerTo(port, upload + "Content-Length: 1048576\r\n\r\n")),
              (std::pair {429, 5}));
    arriving.clear();
    QThread::msleep(300);
    // Small ones fit, until five are waiting: one more is asked to wait.
    const httplib::MultipartFormDataItems small {{"file", "RIFF", "small.wav", "audio/wav"}};
    std::string task;
    for (int i = 0; i < 3; ++i) {
        const auto queued = client.Post("/api/media/transcribe", auth, small);
        EXPECT_EQ(queued->status, 200);
        task = QJsonDocument::fromJson(QByteArray::fromStdString(queued->body))[u"task_id"_s]
                   .toString()
                   .toStdString();
    }
    const auto refused = client.Post("/api/media/transcribe", auth, small);
    EXPECT_EQ(refused->status, 429);
    EXPECT_EQ(refused->get_header_value("Retry-After"), "60");

    // Polls that wait for their task to move on hold request threads too: four at a
    // time, so that with the bodies on their way a quarter of the threads stays free.
    const std::string waiting = "/api/media/transcribe/" + task + "?wait=8";
    std::vector<std::thread> polls;
    for (int i = 0; i < 4; ++i) {
        polls.emplace_back([&] {
            httplib::Client poller("127.0.0.1", port);
            poller.set_read_timeout(30);
            const auto answer = poller.Get(waiting, auth);
            EXPECT_TRUE(answer && answer->status == 200);
        });
    }
    QThread::msleep(1000);
    const auto asked = std::chrono::steady_clock::now();
    const auto fifth = client.Get(waiting, auth);
    EXPECT_TRUE(fifth && fifth->status == 200);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4))
        << "a fifth is answered without waiting";
    for (std::thread &poll : polls)
        poll.join();
}
