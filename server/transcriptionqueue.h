#pragma once

#include "database.h"
#include "speechrecognizer.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace kavel::server {

// Runs recognition tasks one after another on a worker thread of its own, so that a
// long recording never holds a request thread. Each task's state lives in the database
// ("pending" -> "processing" -> "completed" or "failed"), where the poll requests read it.
class TranscriptionQueue
{
public:
    using RecognizerFactory = std::function<std::unique_ptr<SpeechRecognizer>()>;

    // The recognizer is built on the worker thread as soon as it starts, so the model
    // loads while the server already answers requests.
    TranscriptionQueue(Database &database, RecognizerFactory makeRecognizer);
    // Abandons the task in hand (marked failed) and drops the rest (they stay "pending"
    // in the database and are marked failed at the next start).
    ~TranscriptionQueue();

    // Takes ownership of the uploaded file and deletes it when done.
    void enqueue(const std::string &taskId, const std::string &audioPath);

private:
    struct Job
    {
        std::string taskId;
        std::string audioPath;
    };

    void run();
    void process(const Job &job, SpeechRecognizer *recognizer, const std::string &loadError);

    Database &m_database;
    RecognizerFactory m_makeRecognizer;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_stopping = false;
    std::atomic<bool> m_cancel = false;
    std::thread m_thread;
};

// The recognized words as the wire's "paragraphs" array (snake_case keys). A new
// paragraph starts after a long pause, so paragraphs follow the speaker's breaths
// rather than a fixed length.
std::string paragraphsJson(const std::vector<RecognizedWord> &words);

} // namespace kavel::server
