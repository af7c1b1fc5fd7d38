// kavel-server: the sign-in and speech-recognition service the Kavel client talks to.
//
//   kavel-server serve [--port N] [--db PATH] [--uploads DIR] [--model DIR]
//   kavel-server add-user --db PATH (--email ADDRESS | --phone NUMBER) [--email …]
//                         [--phone …] [--nickname NAME] --password PASSWORD

#include "credentials.h"
#include "database.h"
#include "httpservice.h"
#include "pocketsphinxrecognizer.h"
#include "serverlog.h"
#include "smssender.h"
#include "transcriptionqueue.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>

namespace {

using namespace kavel::server;

constexpr int defaultPort = 8417;
constexpr const char *defaultModel = "/usr/share/pocketsphinx/model/en-us";

int usage()
{
    std::cerr << "usage:\n"
                 "  kavel-server serve [--port N] [--db PATH] [--uploads DIR] [--model DIR]\n"
                 "      --port 0 picks a free port; the log line \"listening on\" names it.\n"
                 "  kavel-server add-user --db PATH [--email ADDRESS] [--phone NUMBER]\n"
                 "                        [--nickname NAME] --password PASSWORD\n";
    return 2;
}

// "--key value" pairs after the command; nullopt when an option lacks its value or is
// not one of `known`.
std::optional<std::map<std::string, std::string>>
parseOptions(int argc, char **argv, std::initializer_list<const char *> known)
{
    std::map<std::string, std::string> options;
    for (int i = 2; i < argc; i += 2) {
        const std::string key = argv[i];
        bool isKnown = false;
        for (const char *name : known)
            isKnown = isKnown || key == name;
        if (!isKnown || i + 1 >= argc) {
            std::cerr << "kavel-server: unexpected argument " << key << "\n";
            return std::nullopt;
        }
        options[key] = argv[i + 1];
    }
    return options;
}

std::optional<std::string> option(const std::map<std::string, std::string> &options,
                                  const std::string &key)
{
    const auto it = options.find(key);
    if (it == options.end() || it->second.empty())
        return std::nullopt;
    return it->second;
}

int addUser(int argc, char **argv)
{
    const auto options
        = parseOptions(argc, argv, {"--db", "--email", "--phone", "--nickname", "--password"});
    if (!options)
        return usage();
    const auto db = option(*options, "--db");
    const auto email = option(*options, "--email");
    const auto phone = option(*options, "--phone");
    const auto password = option(*options, "--password");
    if (!db || (!email && !phone) || !password)
        return usage();
    Database database(*db);
    if ((email && database.findUserByAccount(*email))
        || (phone && database.findUserByAccount(*phone))) {
        std::cerr << "kavel-server: a user with this e-mail address or phone number exists\n";
        return 1;
    }
    const UserRecord user = database.addUser(email, phone, option(*options, "--nickname"),
                                             credentials::hashPassword(*password));
    std::cout << user.id << std::endl;
    return 0;
}

// Uploads left behind by a server that did not stop cleanly belong to tasks that are
// marked failed at start; nothing reads them again. Only files named like a task are
// touched, in case the folder is shared with something else.
void removeLeftoverUploads(const std::filesystem::path &folder)
{
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string stem = entry.path().stem().string();
        const bool taskName = stem.size() == 36 && stem[8] == '-' && stem[13] == '-'
            && stem.find_first_not_of("0123456789abcdefABCDEF-") == std::string::npos;
        if (entry.is_regular_file() && taskName)
            std::filesystem::remove(entry.path());
    }
}

int serve(int argc, char **argv)
{
    const auto options = parseOptions(argc, argv, {"--port", "--db", "--uploads", "--model"});
    if (!options)
        return usage();
    const int port
        = std::atoi(option(*options, "--port").value_or(std::to_string(defaultPort)).c_str());
    const std::string dbPath = option(*options, "--db").value_or("kavel-server.db");
    const std::string uploads = option(*options, "--uploads").value_or(dbPath + ".uploads");
    const std::string model = option(*options, "--model").value_or(defaultModel);
    if (port < 0 || port > 65535)
        return usage();

    // Termination requests are taken by one thread with sigwait, which may then stop
    // the server like any other thread; they are blocked everywhere else.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::filesystem::create_directories(uploads);
    removeLeftoverUploads(uploads);
    Database database(dbPath);
    database.pruneExpired(unixNow());
    if (const int interrupted
        = database.failUnfinishedTasks("The server restarted before the task finished"))
        logLine(std::to_string(interrupted) + " unfinished tasks marked failed");
    TranscriptionQueue queue(database,
                             [model] { return std::make_unique<PocketSphinxRecognizer>(model); });
    LogSmsSender sms;
    HttpService service(database, queue, sms, uploads);
    const int bound = service.bind(port);
    if (bound < 0) {
        logLine("cannot listen on 127.0.0.1:" + std::to_string(port));
        return 1;
    }
    logLine("listening on http://127.0.0.1:" + std::to_string(bound));

    std::thread signalWaiter([&service, signals] {
        int received = 0;
        sigwait(&signals, &received);
        logLine("stopping on signal " + std::to_string(received));
        service.stop();
    });
    const bool ok = service.run();
    // run() also returns when listening fails; wake the waiter so it can be joined.
    pthread_kill(signalWaiter.native_handle(), SIGTERM);
    signalWaiter.join();
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return usage();
    try {
        credentials::initialise();
        const std::string command = argv[1];
        if (command == "serve")
            return serve(argc, argv);
        if (command == "add-user")
            return addUser(argc, argv);
    } catch (const std::exception &error) {
        std::cerr << "kavel-server: " << error.what() << "\n";
        return 1;
    }
    return usage();
}
