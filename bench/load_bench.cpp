// Status polls against kavel-server while it recognises a long recording: 200 a second
// for 10 seconds over kept-alive connections, spread over the API nodes, each answered
// or counted as an error, while slow clients trickle request heads at every node.
//
//   bench_load                     one `serve` on SQLite, recognising in-process
//   bench_load --postgresql        two API nodes and one worker on a throwaway PostgreSQL
//   --slow-clients N               clients per node that send a header byte every 4 s
//                                  (default 64; 0 for none)
//
// Reports the latency percentiles, measured from when each poll was due (so a server
// that falls behind is charged for the wait), and exits non-zero when p99 is 50 ms or
// more or any poll failed.

#include "../tests/server/pgcluster.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <httplib.h>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int pollsPerSecond = 200;
constexpr int seconds = 10;
constexpr int clientThreads = 16;

QString program()
{
    return QCoreApplication::applicationDirPath() + u"/kavel-server"_s;
}

// A kavel-server process logging to a file: a pipe that nobody reads while the load runs
// would fill and stop the server at its next log line.
struct Node
{
    QProcess process;
    QString logFile;

    Node(const QStringList &arguments, const QString &log)
        : logFile(log)
    {
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setStandardOutputFile(logFile);
        process.start(program(), arguments);
    }
    ~Node()
    {
        process.terminate();
        if (!process.waitForFinished(15000))
            process.kill();
        process.waitForFinished(5000);
    }
    std::optional<QRegularExpressionMatch> waitFor(const QString &pattern, int timeoutMs = 30000)
    {
        const QRegularExpression expression(pattern);
        QDeadlineTimer deadline(timeoutMs);
        while (!deadline.hasExpired() && process.state() != QProcess::NotRunning) {
            QFile file(logFile);
            file.open(QIODevice::ReadOnly);
            const auto match = expression.match(QString::fromUtf8(file.readAll()));
            if (match.hasMatch())
                return match;
            process.waitForFinished(100);
        }
        return std::nullopt;
    }
};

void put(std::string &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

// Five minutes of synthetic speech with pauses, as one 16 kHz mono WAV in memory.
std::string longRecording(const QTemporaryDir &dir)
{
    const QString sentence = dir.filePath(u"s.wav"_s);
    const QString resampled = dir.filePath(u"r.raw"_s);
    if (QProcess::execute(u"flite"_s,
                          {u"-t"_s,
                           u"We will meet again tomorrow morning and talk about the plan."_s,
                           u"-o"_s, sentence})
            != 0
        || QProcess::execute(u"ffmpeg"_s,
                             {u"-loglevel"_s, u"error"_s, u"-y"_s, u"-i"_s, sentence, u"-ar"_s,
                              u"16000"_s, u"-ac"_s, u"1"_s, u"-f"_s, u"s16le"_s, resampled})
            != 0)
        throw std::runtime_error("cannot make speech with flite and ffmpeg");
    QFile raw(resampled);
    raw.open(QIODevice::ReadOnly);
    const QByteArray speech = raw.readAll();
    std::string pcm;
    while (pcm.size() < 300u * 32000u) {
        pcm.append(speech.constData(), static_cast<size_t>(speech.size()));
        pcm.append(32000, '\0');
    }
    std::string wav = "RIFF";
    put(wav, static_cast<std::uint32_t>(36 + pcm.size()), 4);
    wav += "WAVEfmt ";
    put(wav, 16, 4);
    put(wav, 1, 2);
    put(wav, 1, 2);
    put(wav, 16000, 4);
    put(wav, 32000, 4);
    put(wav, 2, 2);
    put(wav, 16, 2);
    wav += "data";
    put(wav, static_cast<std::uint32_t>(pcm.size()), 4);
    return wav + pcm;
}

// Sends a request head one byte every four seconds, reconnecting whenever the server
// hangs up, until `done`.
void trickle(int port, const std::atomic<bool> &done)
{
    const std::string head = "GET /signup HTTP/1.1\r\nHost: bench\r\nX-Slow: yes\r\n\r\n";
    while (!done) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
            for (size_t sent = 0; sent < head.size() && !done; ++sent) {
                if (::send(fd, &head[sent], 1, MSG_NOSIGNAL) != 1)
                    break;
                pollfd entry {fd, POLLIN, 0};
                // Readable before the head is out means the server hung up.
                if (::poll(&entry, 1, 4000) > 0)
                    break;
            }
        }
        ::close(fd);
        if (!done)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::string field(const std::string &json, const char *key)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(json))
        .object()[QString::fromLatin1(key)]
        .toString()
        .toStdString();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    bool postgres = false;
    int slowClients = 64;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--postgresql") == 0) {
            postgres = true;
        } else if (std::strcmp(argv[i], "--slow-clients") == 0 && i + 1 < argc) {
            slowClients = std::atoi(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: bench_load [--postgresql] [--slow-clients N]\n");
            return 2;
        }
    }
    QTemporaryDir dir;
    const QString uploads = dir.filePath(u"uploads"_s);
    std::unique_ptr<kavel::test::PgCluster> cluster;
    QString database = dir.filePath(u"k.db"_s);
    if (postgres) {
        cluster = std::make_unique<kavel::test::PgCluster>();
        if (!cluster->error().isEmpty()) {
            std::fprintf(stderr, "bench_load: %s\n", qPrintable(cluster->error()));
            return 2;
        }
        database = QString::fromStdString(cluster->newDatabase());
    }
    if (QProcess::execute(program(),
                          {u"add-user"_s, u"--database"_s, database, u"--email"_s,
                           u"b@example.com"_s, u"--password"_s, u"pw"_s})
        != 0)
        return 2;

    std::vector<std::unique_ptr<Node>> nodes;
    std::vector<int> ports;
    const QStringList common {u"--port"_s, u"0"_s,         u"--database"_s,
                              database,    u"--uploads"_s, uploads};
    for (int i = 0; i < (postgres ? 2 : 1); ++i) {
        nodes.push_back(std::make_unique<Node>(
            QStringList {u"serve"_s} + common
                + (postgres ? QStringList {u"--workers"_s, u"0"_s} : QStringList {}),
            dir.filePath(u"api%1.log"_s.arg(i))));
        const auto match = nodes.back()->waitFor(u"listening on http://127\\.0\\.0\\.1:(\\d+)"_s);
        if (!match)
            return 2;
        ports.push_back(match->captured(1).toInt());
    }
    std::unique_ptr<Node> worker;
    if (postgres)
        worker = std::make_unique<Node>(
            QStringList {u"worker"_s, u"--database"_s, database, u"--uploads"_s, uploads},
            dir.filePath(u"worker.log"_s));

    httplib::Client first("127.0.0.1", ports.front());
    first.set_read_timeout(30);
    const auto login = first.Post("/api/auth/login", R"({"email":"b@example.com","password":"pw"})",
                                  "application/json");
    if (!login || login->status != 200)
        return 2;
    const httplib::Headers auth {{"Authorization", "Bearer " + field(login->body, "access_token")}};
    const auto queued = first.Post(
        "/api/media/transcribe", auth,
        httplib::MultipartFormDataItems {{"file", longRecording(dir), "long.wav", "audio/wav"}});
    if (!queued || queued->status != 200)
        return 2;
    const std::string task = field(queued->body, "task_id");
    std::fprintf(stderr, "bench_load: task %s queued\n", task.c_str());
    const std::string path = "/api/media/transcribe/" + task;
    QDeadlineTimer started(60000);
    while (field(first.Get(path, auth)->body, "status") != "processing") {
        if (started.hasExpired())
            return 2;
        QThread::msleep(50);
    }

    std::atomic<bool> done = false;
    std::vector<std::thread> tricklers;
    for (int port : ports) {
        for (int i = 0; i < slowClients; ++i)
            tricklers.emplace_back([port, &done] { trickle(port, done); });
    }
    // Let them take whatever they can before the polls begin.
    std::this_thread::sleep_for(std::chrono::seconds(slowClients > 0 ? 5 : 0));
    std::fprintf(stderr, "bench_load: recognition running; polling with %d slow clients a node\n",
                 slowClients);
    // Open loop: poll i is due at start + i / rate, whoever sends it.
    const int total = pollsPerSecond * seconds;
    const auto start = Clock::now() + std::chrono::milliseconds(100);
    std::vector<double> latencies(static_cast<size_t>(total), -1.0);
    std::atomic<int> errors = 0;
    std::vector<std::thread> clients;
    for (int t = 0; t < clientThreads; ++t) {
        clients.emplace_back([&, t] {
            std::vector<std::unique_ptr<httplib::Client>> connections;
            for (int port : ports) {
                connections.push_back(std::make_unique<httplib::Client>("127.0.0.1", port));
                connections.back()->set_read_timeout(5);
                // As the editor polls: one connection kept open for all of them.
                connections.back()->set_keep_alive(true);
            }
            for (int i = t; i < total; i += clientThreads) {
                const auto due = start + std::chrono::microseconds(i * 1000000LL / pollsPerSecond);
                std::this_thread::sleep_until(due);
                auto &connection = *connections[static_cast<size_t>(i) % connections.size()];
                const auto reply = connection.Get(path, auth);
                latencies[static_cast<size_t>(i)]
                    = std::chrono::duration<double, std::milli>(Clock::now() - due).count();
                if (!reply || reply->status != 200)
                    ++errors;
            }
        });
    }
    for (std::thread &client : clients)
        client.join();
    done = true;
    for (std::thread &trickler : tricklers)
        trickler.join();
    const auto last = first.Get(path, auth);
    const std::string after = last ? field(last->body, "status") : "unknown (no answer)";

    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double share) {
        return latencies[std::min(
            latencies.size() - 1,
            static_cast<size_t>(share * static_cast<double>(latencies.size())))];
    };
    std::printf("%s: %d kept-alive polls in %d s over %zu API node(s) with %d slow clients each, "
                "%d errors; recognition %s\n",
                postgres ? "postgresql" : "sqlite", total, seconds, ports.size(), slowClients,
                errors.load(),
                after == "processing" ? "still running at the end" : ("ended: " + after).c_str());
    std::printf("latency from due time: p50 %.1f ms, p99 %.1f ms, max %.1f ms\n", at(0.5), at(0.99),
                latencies.back());
    return at(0.99) < 50.0 && errors == 0 ? 0 : 1;
}
