#include "recognitionworkers.h"

#include "audiodecoder.h"
#include "languages.h"
#include "serverlog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

namespace kavel::server {

using namespace Qt::StringLiterals;

namespace {

constexpr double paragraphPause = 1.5;
constexpr size_t maxParagraphWords = 120;

} // namespace

std::string paragraphsJson(const std::vector<RecognizedWord> &words)
{
    QJsonArray paragraphs;
    QJsonArray current;
    const auto flush = [&] {
        if (current.isEmpty())
            return;
        paragraphs.append(QJsonObject {
            {u"paragraph_id"_s, QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()},
            {u"word_blocks"_s, current}});
        current = QJsonArray();
    };
    for (size_t i = 0; i < words.size(); ++i) {
        const RecognizedWord &word = words[i];
        const bool longPause = i > 0 && word.start - words[i - 1].end >= paragraphPause;
        if (longPause || static_cast<size_t>(current.size()) >= maxParagraphWords)
            flush();
        QJsonObject record {{u"text"_s, QString::fromStdString(word.text)},
                            {u"media_start"_s, word.start},
                            {u"media_end"_s, word.end},
                            {u"is_filler"_s, word.isFiller},
                            {u"sort_order"_s, current.size()}};
        // Left out when certain, which is what clients that predate it assume; three
        // decimals are finer than anyone reads a recogniser's doubt.
        const double confidence = std::round(std::clamp(word.confidence, 0.0, 1.0) * 1000) / 1000;
        if (confidence < 1.0)
            record.insert(u"confidence"_s, confidence);
        current.append(record);
    }
    flush();
    return QJsonDocument(paragraphs).toJson(QJsonDocument::Compact).toStdString();
}

namespace {

// host:pid:thread:random, unique across machines and restarts, and telling an operator
// who held a task.
std::string workerName(int index)
{
    std::array<char, 256> host {};
    gethostname(host.data(), host.size() - 1);
    std::random_device random;
    return std::string(host.data()) + ":" + std::to_string(getpid()) + ":" + std::to_string(index)
        + ":" + std::to_string(random() % 100000);
}

} // namespace

RecognitionWorkers::RecognitionWorkers(Store &store, RecognizerFactory makeRecognizer,
                                       WorkerOptions options)
    : m_store(store)
    , m_makeRecognizer(std::move(makeRecognizer))
    , m_options(std::move(options))
{
    for (int i = 0; i < m_options.threads; ++i)
        m_threads.emplace_back([this, i] { run(i); });
    m_heartbeat = std::thread([this] { renewLeases(); });
}

RecognitionWorkers::~RecognitionWorkers()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        for (auto &[id, held] : m_held)
            *held.cancel = true;
    }
    m_wake.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
    m_heartbeat.join();
}

void RecognitionWorkers::wake()
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_wakeups;
    }
    // All: the lease keeper waits on the same condition.
    m_wake.notify_all();
}

void RecognitionWorkers::run(int index)
{
    // Recognition yields the processor to the request threads of the same machine.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10);
    const std::string worker = workerName(index);
    std::unique_ptr<SpeechRecognizer> recognizer;
    std::string loadError;
    try {
        recognizer = m_makeRecognizer();
        if (index == 0)
            logLine("speech recognizer ready");
    } catch (const std::exception &error) {
        // Keep going: every task will fail with this reason instead.
        loadError = error.what();
        logLine("speech recognizer unavailable: " + loadError);
    }
    std::uint64_t seenWakeups = 0;
    while (true) {
        {
            std::unique_lock lock(m_mutex);
            if (m_stopping)
                return;
            seenWakeups = m_wakeups;
        }
        std::optional<ClaimedTask> task;
        try {
            task = m_store.claimTask(worker, unixNowMs(), m_options.lease.count(),
                                     m_options.maxClaims);
        } catch (const std::exception &error) {
            logLine(std::string("cannot claim a task: ") + error.what());
        }
        if (!task) {
            std::unique_lock lock(m_mutex);
            m_wake.wait_for(lock, m_options.idlePoll,
                            [&] { return m_stopping || m_wakeups != seenWakeups; });
            continue;
        }
        process(worker, *task, recognizer.get(), loadError);
    }
}

void RecognitionWorkers::process(const std::string &worker, const ClaimedTask &task,
                                 SpeechRecognizer *recognizer, const std::string &loadError)
{
    const auto cancel = std::make_shared<std::atomic<bool>>(false);
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping)
            *cancel = true;
        m_held[task.id] = {worker, cancel};
    }
    logLine("task " + task.id + " claimed by " + worker);
    const std::string audioPath = m_options.uploadDirectory + "/" + task.audioFile;
    bool finished = false;
    try {
        if (!recognizer)
            throw RecognitionError("Speech recognition is unavailable: " + loadError);
        // The API node checked the language against its own list; a worker set up with
        // another recogniser checks it against what it can hear.
        const auto language = task.language.empty()
            ? std::optional(m_options.languages.front())
            : matchLanguage(task.language, m_options.languages);
        if (!language)
            throw RecognitionError("This worker cannot recognise " + task.language);
        recognizer->setLanguage(*language);
        const auto started = std::chrono::steady_clock::now();
        const std::vector<std::int16_t> samples = decodeAudioForRecognition(audioPath);
        if (m_options.progress) {
            m_options.progress->report(task.id, 0.0);
            recognizer->setProgressSink([board = m_options.progress, id = task.id](double done) {
                board->report(id, done);
            });
        }
        const std::vector<RecognizedWord> words = recognizer->recognize(samples, *cancel);
        finished = m_store.completeTask(task.id, worker, paragraphsJson(words));
        const auto took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
        const double audioSeconds = static_cast<double>(samples.size()) / recognitionSampleRate;
        if (finished && m_options.metrics)
            m_options.metrics->recognised(audioSeconds, took.count());
        logLine("task " + task.id
                + (finished ? " completed: " : " result dropped, another worker took it over: ")
                + std::to_string(words.size()) + " words, " + std::to_string(audioSeconds)
                + " s of audio in " + std::to_string(took.count()) + " s");
    } catch (const RecognitionCancelled &) {
        bool stopping = false;
        {
            const std::lock_guard lock(m_mutex);
            stopping = m_stopping;
        }
        if (stopping) {
            logLine("task " + task.id + " given back: the worker is stopping");
            try {
                m_store.releaseTask(task.id, worker);
            } catch (const std::exception &error) {
                logLine(std::string("cannot give the task back: ") + error.what());
            }
        } else {
            logLine("task " + task.id + " abandoned: its lease ran out");
        }
    } catch (const std::exception &error) {
        logLine("task " + task.id + " failed: " + error.what());
        try {
            finished = m_store.failTask(task.id, worker, error.what());
        } catch (const std::exception &storeError) {
            logLine(std::string("cannot record the failure: ") + storeError.what());
        }
    }
    if (recognizer)
        recognizer->setProgressSink({});
    if (m_options.progress)
        m_options.progress->finish(task.id);
    {
        const std::lock_guard lock(m_mutex);
        m_held.erase(task.id);
    }
    if (finished) {
        std::error_code ignored;
        std::filesystem::remove(audioPath, ignored);
    }
}

void RecognitionWorkers::renewLeases()
{
    const auto interval = m_options.lease / 3;
    std::unique_lock lock(m_mutex);
    while (!m_wake.wait_for(lock, interval, [this] { return m_stopping; })) {
        const std::map<std::string, Held> held = m_held;
        lock.unlock();
        for (const auto &[id, holder] : held) {
            try {
                if (!m_store.renewLease(id, holder.worker, unixNowMs() + m_options.lease.count())) {
                    logLine("task " + id + ": lease lost to another worker");
                    *holder.cancel = true;
                }
            } catch (const std::exception &error) {
                // The store may be back before the lease runs out; try again next time.
                logLine(std::string("cannot renew a lease: ") + error.what());
            }
        }
        lock.lock();
    }
}

} // namespace kavel::server
