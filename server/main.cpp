// kavel-server: the sign-in and speech-recognition service the Kavel client talks to.
// One program for every role: `serve` answers requests (and recognises, unless told to
// leave that to `worker` processes), `worker` only recognises, `add-user` makes accounts.

#include "commandrecognizer.h"
#include "credentials.h"
#include "healthmetrics.h"
#include "httpservice.h"
#include "languages.h"
#include "parallelrecognizer.h"
#include "pocketsphinxrecognizer.h"
#include "recognitionworkers.h"
#include "serverconfig.h"
#include "serverlog.h"
#include "smssender.h"
#include "store.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <malloc.h>
#include <map>
#include <optional>
#include <pthread.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kavel::server;

constexpr int defaultPort = 8417;
constexpr const char *defaultModel = "/usr/share/pocketsphinx/model/en-us";
constexpr const char *defaultDatabase = "kavel-server.db";

int usage(std::ostream &out = std::cerr)
{
    out << "usage:\n"
           "  kavel-server serve [--port N] [--bind ADDRESS] [--tls-cert FILE --tls-key FILE]\n"
           "                     [--insecure] [--database PATH|URL] [--uploads DIR]\n"
           "                     [--workers N] [--lease SECONDS] [--upload-quota N]\n"
           "                     [--upload-quota-mib N] [--metrics-bind ADDRESS:PORT]\n"
           "                     [--config FILE] [RECOGNIZER]\n"
           "      --port 0 picks a free port; the log line \"listening on\" names it.\n"
           "      --workers 0 answers requests only and leaves recognition to workers.\n"
           "      Plain HTTP off the loopback address needs --insecure.\n"
           "      --upload-quota and --upload-quota-mib bound what one user may have\n"
           "      waiting for recognition (default 64 uploads, 4096 MiB).\n"
           "      GET /healthz answers 200 while the database does, 503 otherwise.\n"
           "      GET /metrics (Prometheus text) needs a token off the loopback address;\n"
           "      --metrics-bind serves both on a listener of their own, to anyone.\n"
           "  kavel-server worker --database PATH|URL --uploads DIR [--workers N]\n"
           "                      [--lease SECONDS] [RECOGNIZER]\n"
           "  kavel-server add-user --database PATH|URL [--email ADDRESS] [--phone NUMBER]\n"
           "                        [--nickname NAME] --password PASSWORD\n"
           "      Run by root without --database, it uses the database of\n"
           "      /etc/kavel-server.conf, as the owner of that database's folder.\n"
           "  RECOGNIZER is [--model DIR] for PocketSphinx, or --recognizer-command CMD\n"
           "  [--recognizer-timeout SECONDS] to run CMD with a WAV file for each stretch,\n"
           "  [--recognizer-languages zh,en,...] for the languages CMD hears (default en;\n"
           "  the first serves uploads that name none; PocketSphinx hears en only),\n"
           "  and [--recognition-threads N] (default: one per core) to recognise the\n"
           "  stretches of one recording at once.\n"
           "  A database is a SQLite file or a postgresql:// URL; --db PATH is the same as\n"
           "  --database PATH.\n"
           "  --config FILE reads options from FILE, one \"key = value\" a line, such as\n"
           "  \"port = 8417\" or \"insecure = yes\"; options on the command line win.\n"
           "  kavel-server --help shows this text.\n";
    return 2;
}

using Options = std::map<std::string, std::string>;

// Options that stand alone; the others take a value.
const std::set<std::string> flags {"--insecure"};

// "--key value" pairs and flags after the command; nullopt when an option lacks its
// value or is not one of `known`. "--db" is the old name of "--database". "--config FILE"
// adds FILE's settings; with `strictConfig` a setting `known` lacks is an error there.
std::optional<Options> parseOptions(int argc, char **argv, const std::set<std::string> &known,
                                    bool strictConfig = false)
{
    Options options;
    for (int i = 2; i < argc; ++i) {
        std::string key = argv[i];
        if (key == "--db")
            key = "--database";
        if (known.contains(key) && flags.contains(key)) {
            options[key] = "yes";
            continue;
        }
        if ((!known.contains(key) && key != "--config") || i + 1 >= argc) {
            std::cerr << "kavel-server: unexpected argument " << argv[i] << "\n";
            return std::nullopt;
        }
        options[key] = argv[++i];
    }
    if (const auto config = options.extract("--config")) {
        const std::string problem
            = mergeConfigFile(config.mapped(), options, known, flags, strictConfig);
        if (!problem.empty())
            throw std::runtime_error(problem);
    }
    return options;
}

// Plain HTTP is only for the machine itself.
bool isLoopback(const std::string &address)
{
    return address == "localhost" || address == "::1" || address.rfind("127.", 0) == 0;
}

std::optional<std::string> option(const Options &options, const std::string &key)
{
    const auto it = options.find(key);
    if (it == options.end() || it->second.empty())
        return std::nullopt;
    return it->second;
}

// A whole number in [low, high], or nullopt with a message.
std::optional<int> numberOption(const Options &options, const std::string &key, int fallback,
                                int low, int high)
{
    const auto text = option(options, key);
    if (!text)
        return fallback;
    char *end = nullptr;
    const long value = std::strtol(text->c_str(), &end, 10);
    if (*end != '\0' || value < low || value > high) {
        std::cerr << "kavel-server: " << key << " takes a number from " << low << " to " << high
                  << "\n";
        return std::nullopt;
    }
    return static_cast<int>(value);
}

bool isUrl(const std::string &database)
{
    return database.find("://") != std::string::npos;
}

int addUser(int argc, char **argv)
{
    const std::set<std::string> known {"--database", "--email", "--phone", "--nickname",
                                       "--password"};
    auto options = parseOptions(argc, argv, known);
    if (!options)
        return usage();
    // `sudo kavel-server add-user` finds the system service's database by itself.
    if (!options->contains("--database") && ::geteuid() == 0
        && std::filesystem::exists(systemConfigFile)) {
        const std::string problem
            = mergeConfigFile(systemConfigFile, *options, known, flags, false);
        if (!problem.empty())
            throw std::runtime_error(problem);
    }
    const auto database = option(*options, "--database");
    const auto email = option(*options, "--email");
    const auto phone = option(*options, "--phone");
    const auto password = option(*options, "--password");
    if (!database || (!email && !phone) || !password)
        return usage();
    if (!isUrl(*database)) {
        const std::string problem = becomeOwnerOf(*database);
        if (!problem.empty())
            throw std::runtime_error(problem);
    }
    const auto store = openStore(*database);
    if ((email && store->findUserByAccount(*email))
        || (phone && store->findUserByAccount(*phone))) {
        std::cerr << "kavel-server: a user with this e-mail address or phone number exists\n";
        return 1;
    }
    const UserRecord user = store->addUser(email, phone, option(*options, "--nickname"),
                                           credentials::hashPassword(*password));
    std::cout << user.id << std::endl;
    return 0;
}

// Termination requests are taken by one thread with sigwait; they are blocked everywhere
// else, including the threads started after this.
sigset_t blockTerminationSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

struct WorkerSetup
{
    WorkerOptions options;
    std::string model;
    std::optional<std::string> command;
    std::chrono::seconds commandTimeLimit {};
    int recognitionThreads = 1;
};

const std::set<std::string> workerOptionNames {"--database",
                                               "--uploads",
                                               "--model",
                                               "--workers",
                                               "--lease",
                                               "--recognizer-command",
                                               "--recognizer-timeout",
                                               "--recognizer-languages",
                                               "--recognition-threads"};

std::optional<WorkerSetup> workerSetup(const Options &options, const std::string &uploads,
                                       int defaultThreads)
{
    const auto threads = numberOption(options, "--workers", defaultThreads, 0, 256);
    const auto lease = numberOption(options, "--lease", 30, 1, 3600);
    const auto timeLimit = numberOption(options, "--recognizer-timeout", 600, 1, 86400);
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    const auto recognitionThreads = numberOption(options, "--recognition-threads", cores, 1, 256);
    if (!threads || !lease || !timeLimit || !recognitionThreads)
        return std::nullopt;
    WorkerSetup setup;
    setup.options.uploadDirectory = uploads;
    setup.options.threads = *threads;
    setup.options.lease = std::chrono::seconds(*lease);
    setup.model = option(options, "--model").value_or(defaultModel);
    setup.command = option(options, "--recognizer-command");
    setup.commandTimeLimit = std::chrono::seconds(*timeLimit);
    setup.recognitionThreads = *recognitionThreads;
    if (const auto languages = option(options, "--recognizer-languages")) {
        const auto tags = parseLanguageList(*languages);
        if (!tags || !setup.command) {
            std::cerr << "kavel-server: --recognizer-languages takes language tags such as "
                         "zh,en and goes with --recognizer-command\n";
            return std::nullopt;
        }
        setup.options.languages = *tags;
    }
    return setup;
}

std::unique_ptr<RecognitionWorkers> startWorkers(Store &store, const WorkerSetup &setup)
{
    if (setup.options.threads == 0)
        return nullptr;
    RecognitionWorkers::RecognizerFactory factory;
    if (setup.command) {
        factory = [command = *setup.command, limit = setup.commandTimeLimit] {
            return std::make_unique<CommandRecognizer>(command, limit);
        };
    } else {
        factory = [model = setup.model] { return std::make_unique<PocketSphinxRecognizer>(model); };
    }
    // Each task's stretches are spread over the machine's cores.
    return std::make_unique<RecognitionWorkers>(
        store,
        [factory, threads = setup.recognitionThreads]() -> std::unique_ptr<SpeechRecognizer> {
            if (threads == 1)
                return factory();
            return std::make_unique<ParallelRecognizer>(factory, threads);
        },
        setup.options);
}

// The upload folder a database implies when none is named: next to a SQLite file. A
// PostgreSQL deployment spans machines, so its folder must be named on every node.
std::optional<std::string> uploadFolder(const Options &options, const std::string &database)
{
    if (auto named = option(options, "--uploads"))
        return named;
    if (isUrl(database)) {
        std::cerr << "kavel-server: --uploads is required with a PostgreSQL database: name a "
                     "folder every node can read\n";
        return std::nullopt;
    }
    return database + ".uploads";
}

int serve(int argc, char **argv)
{
    std::set<std::string> names = workerOptionNames;
    names.insert({"--port", "--bind", "--tls-cert", "--tls-key", "--insecure", "--upload-quota",
                  "--upload-quota-mib", "--metrics-bind"});
    const auto options = parseOptions(argc, argv, names, true);
    if (!options)
        return usage();
    const auto port = numberOption(*options, "--port", defaultPort, 0, 65535);
    const auto uploadQuota = numberOption(*options, "--upload-quota", 64, 1, 10000);
    const auto uploadQuotaMib = numberOption(*options, "--upload-quota-mib", 4096, 1, 1 << 24);
    const std::string address = option(*options, "--bind").value_or("127.0.0.1");
    HttpOptions http;
    http.tlsCertificate = option(*options, "--tls-cert").value_or("");
    http.tlsKey = option(*options, "--tls-key").value_or("");
    if (http.tlsCertificate.empty() != http.tlsKey.empty()) {
        std::cerr << "kavel-server: --tls-cert and --tls-key go together\n";
        return 2;
    }
    const bool tls = !http.tlsCertificate.empty();
    if (!tls && !isLoopback(address) && !options->contains("--insecure")) {
        std::cerr << "kavel-server: refusing to serve plain HTTP on " << address
                  << ": give --tls-cert and --tls-key, or --insecure\n";
        return 2;
    }
    const std::string database = option(*options, "--database").value_or(defaultDatabase);
    const auto uploads = uploadFolder(*options, database);
    const auto setup = uploads ? workerSetup(*options, *uploads, 1) : std::nullopt;
    if (!port || !setup || !uploadQuota || !uploadQuotaMib)
        return usage();
    http.maxWaitingUploads = *uploadQuota;
    http.maxWaitingUploadBytes = std::uint64_t(*uploadQuotaMib) << 20;

    const sigset_t signals = blockTerminationSignals();
    std::filesystem::create_directories(*uploads);
    ::chmod(uploads->c_str(), 0700);
    const auto store = openStore(database);
    store->pruneExpired(unixNow());
    // This process's workers tell its requests how far each task has come. Made before
    // the workers, so that it outlives them.
    TaskProgress progress;
    // Started once the address is bound, so that a server that cannot start says only
    // why.
    std::unique_ptr<RecognitionWorkers> workers;
    LogSmsSender sms;
    http.uploadDirectory = *uploads;
    http.languages = setup->options.languages;
    http.progress = &progress;
    WorkerSetup local = *setup;
    local.options.progress = &progress;
    local.options.metrics = http.metrics.get();
    HttpService service(*store, sms, http, [&workers] {
        if (workers)
            workers->wake();
    });
    std::unique_ptr<OperatorListener> operatorListener;
    if (const auto where = option(*options, "--metrics-bind")) {
        operatorListener = std::make_unique<OperatorListener>(*store, *http.metrics, *uploads);
        std::string problem;
        const int metricsPort = operatorListener->start(*where, problem);
        if (metricsPort < 0) {
            logLine(problem);
            return 1;
        }
        logLine("metrics and health checks on port " + std::to_string(metricsPort));
    }
    const int bound = service.bind(address, *port);
    if (bound < 0) {
        logLine("cannot listen on " + address + ":" + std::to_string(*port));
        return 1;
    }
    // An IPv6 address is written in brackets in a URL, or its port would read as part
    // of it.
    const bool ipv6 = address.find(':') != std::string::npos;
    logLine(std::string("listening on ") + (tls ? "https" : "http") + "://"
            + (ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(bound));
    notifyReady();
    workers = startWorkers(*store, local);

    std::thread signalWaiter([&service, signals] {
        int received = 0;
        sigwait(&signals, &received);
        logLine("stopping on signal " + std::to_string(received));
        notifyStopping();
        service.stop();
    });
    const bool ok = service.run();
    // run() also returns when listening fails; wake the waiter so it can be joined.
    pthread_kill(signalWaiter.native_handle(), SIGTERM);
    signalWaiter.join();
    return ok ? 0 : 1;
}

int worker(int argc, char **argv)
{
    const auto options = parseOptions(argc, argv, workerOptionNames);
    if (!options)
        return usage();
    const auto database = option(*options, "--database");
    if (!database)
        return usage();
    const auto uploads = uploadFolder(*options, *database);
    const auto setup = uploads ? workerSetup(*options, *uploads, 1) : std::nullopt;
    if (!setup || setup->options.threads == 0)
        return usage();

    const sigset_t signals = blockTerminationSignals();
    const auto store = openStore(*database);
    const auto workers = startWorkers(*store, *setup);
    logLine("worker started with " + std::to_string(setup->options.threads) + " threads");
    int received = 0;
    sigwait(&signals, &received);
    logLine("stopping on signal " + std::to_string(received));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return usage();
    // glibc raises its mmap threshold to the size of each large block freed, up to
    // 32 MiB; after one recording's samples (or one long transcript) had come and gone,
    // every later one of that size was carved out of the request and recognition
    // threads' arenas and kept there, and the server grew for hours. A fixed threshold
    // gives large blocks back when they are freed, and fewer arenas waste less.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_ARENA_MAX, 4);
    try {
        credentials::initialise();
        const std::string command = argv[1];
        if (command == "--help" || command == "-h" || command == "help") {
            usage(std::cout);
            return 0;
        }
        if (command == "serve")
            return serve(argc, argv);
        if (command == "worker")
            return worker(argc, argv);
        if (command == "add-user")
            return addUser(argc, argv);
    } catch (const std::exception &error) {
        std::cerr << "kavel-server: " << error.what() << "\n";
        return 1;
    }
    return usage();
}
