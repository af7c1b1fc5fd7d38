#include "transcriptionqueue.h"

#include "audiodecoder.h"
#include "serverlog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>
#include <chrono>
#include <cstdio>

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
        current.append(QJsonObject {{u"text"_s, QString::fromStdString(word.text)},
                                    {u"media_start"_s, word.start},
                                    {u"media_end"_s, word.end},
                                    {u"is_filler"_s, word.isFiller},
                                    {u"sort_order"_s, current.size()}});
    }
    flush();
    return QJsonDocument(paragraphs).toJson(QJsonDocument::Compact).toStdString();
}

TranscriptionQueue::TranscriptionQueue(Database &database, RecognizerFactory makeRecognizer)
    : m_database(database)
    , m_makeRecognizer(std::move(makeRecognizer))
    , m_thread([this] { run(); })
{ }

TranscriptionQueue::~TranscriptionQueue()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_cancel = true;
        for (const Job &job : m_jobs)
            std::remove(job.audioPath.c_str());
        m_jobs.clear();
    }
    m_wake.notify_all();
    m_thread.join();
}

void TranscriptionQueue::enqueue(const std::string &taskId, const std::string &audioPath)
{
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back({taskId, audioPath});
    }
    m_wake.notify_one();
}

void TranscriptionQueue::run()
{
    std::unique_ptr<SpeechRecognizer> recognizer;
    std::string loadError;
    try {
        recognizer = m_makeRecognizer();
        logLine("speech recognizer ready");
    } catch (const std::exception &error) {
        // Keep answering: every task will fail with this reason instead.
        loadError = error.what();
        logLine("speech recognizer unavailable: " + loadError);
    }
    while (true) {
        Job job;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_stopping)
                return;
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        process(job, recognizer.get(), loadError);
        std::remove(job.audioPath.c_str());
    }
}

void TranscriptionQueue::process(const Job &job, SpeechRecognizer *recognizer,
                                 const std::string &loadError)
{
    try {
        m_database.setTaskStatus(job.taskId, "processing");
        if (!recognizer) {
            m_database.failTask(job.taskId, "Speech recognition is unavailable: " + loadError);
            return;
        }
        const auto started = std::chrono::steady_clock::now();
        const std::vector<std::int16_t> samples = decodeAudioForRecognition(job.audioPath);
        const std::vector<RecognizedWord> words = recognizer->recognize(samples, m_cancel);
        m_database.completeTask(job.taskId, paragraphsJson(words));
        const auto took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
        logLine("task " + job.taskId + " completed: " + std::to_string(words.size()) + " words, "
                + std::to_string(static_cast<double>(samples.size()) / recognitionSampleRate)
                + " s of audio in " + std::to_string(took.count()) + " s");
    } catch (const RecognitionCancelled &) {
        logLine("task " + job.taskId + " abandoned: the server is stopping");
        m_database.failTask(job.taskId, "The server stopped before the task finished");
    } catch (const std::exception &error) {
        logLine("task " + job.taskId + " failed: " + error.what());
        try {
            m_database.failTask(job.taskId, error.what());
        } catch (const std::exception &databaseError) {
            logLine(std::string("cannot record the failure: ") + databaseError.what());
        }
    }
}

} // namespace kavel::server
