#pragma once

#include "healthmetrics.h"
#include "speechrecognizer.h"
#include "store.h"
#include "taskprogress.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kavel::server {

struct WorkerOptions
{
    // Where the API nodes put uploads; the store names files inside it.
    std::string uploadDirectory;
    int threads = 1;
    // How long a claim lasts without being renewed; renewed every third of it. A worker
    // that dies holds its task this long at most.
    std::chrono::milliseconds lease {30000};
    // How often an idle worker asks the store for work it was not told about.
    std::chrono::milliseconds idlePoll {500};
    // A task whose worker died this many times fails instead of taking down another.
    int maxClaims = 3;
    // Where each task's progress is told, for the requests of this process; optional.
    TaskProgress *progress = nullptr;
    // What the recogniser hears, the first being what a task that names no language is
    // recognised in.
    std::vector<std::string> languages {"en"};
    // Where recognition time is counted for the metrics; optional.
    ServiceMetrics *metrics = nullptr;
};

// Recognition workers: threads that claim tasks from the store, recognise their audio
// and record the result. They run below the priority of the request threads, so that a
// long recording never slows the answers to polls. Any number of processes on any
// number of machines may run them against one store.
class RecognitionWorkers
{
public:
    using RecognizerFactory = std::function<std::unique_ptr<SpeechRecognizer>()>;

    // Each thread builds its recognizer as soon as it starts, so models load while the
    // server already answers requests.
    RecognitionWorkers(Store &store, RecognizerFactory makeRecognizer, WorkerOptions options);
    // Abandons the tasks in hand and gives them back to the queue for another worker
    // (or this one, after a restart).
    ~RecognitionWorkers();

    // A task was just queued: an idle worker looks now instead of at its next poll.
    void wake();

private:
    struct Held
    {
        std::string worker;
        std::shared_ptr<std::atomic<bool>> cancel;
    };

    void run(int index);
    void process(const std::string &worker, const ClaimedTask &task, SpeechRecognizer *recognizer,
                 const std::string &loadError);
    void renewLeases();

    Store &m_store;
    RecognizerFactory m_makeRecognizer;
    WorkerOptions m_options;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
    std::uint64_t m_wakeups = 0;
    std::map<std::string, Held> m_held; // by task id
    std::vector<std::thread> m_threads;
    std::thread m_heartbeat;
};

// The recognized words as the wire's "paragraphs" array (snake_case keys). A new
// paragraph starts after a long pause, so paragraphs follow the speaker's breaths
// rather than a fixed length.
std::string paragraphsJson(const std::vector<RecognizedWord> &words);

} // namespace kavel::server
