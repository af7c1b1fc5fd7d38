#include "parallelrecognizer.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>

namespace kavel::server {

namespace {

constexpr double samplesPerSecond = 16000.0;
constexpr double longestStretch = 30.0;
// Shorter stretches decode worse: the recogniser has less speech to adapt to at the start
// of each.
constexpr double shortestStretch = 4.0;
constexpr int stretchesPerThread = 1;

} // namespace

ParallelRecognizer::ParallelRecognizer(const Factory &makeRecognizer, int threads)
{
    for (int i = 0; i < std::max(1, threads); ++i)
        m_recognizers.push_back(makeRecognizer());
}

std::vector<size_t> ParallelRecognizer::boundaries(std::span<const std::int16_t> samples,
                                                   int threads)
{
    const double seconds = static_cast<double>(samples.size()) / samplesPerSecond;
    const double target = std::clamp(seconds / (std::max(1, threads) * stretchesPerThread),
                                     shortestStretch, longestStretch);
    return stretchBoundaries(samples, target);
}

void ParallelRecognizer::setLanguage(std::string language)
{
    for (const auto &recognizer : m_recognizers)
        recognizer->setLanguage(language);
    SpeechRecognizer::setLanguage(std::move(language));
}

std::vector<RecognizedWord> ParallelRecognizer::recognize(std::span<const std::int16_t> samples,
                                                          const std::atomic<bool> &cancel)
{
    const std::vector<size_t> boundaries
        = ParallelRecognizer::boundaries(samples, static_cast<int>(m_recognizers.size()));
    const size_t stretches = boundaries.size() - 1;
    std::atomic<size_t> samplesDone = 0;
    std::vector<std::vector<RecognizedWord>> heard(stretches);
    std::atomic<size_t> next = 0;
    // Set when one stretch failed, so that no further ones are started; the first
    // error is the one told.
    std::atomic<bool> stop = false;
    std::exception_ptr failure;
    std::mutex failureMutex;

    const auto work = [&](SpeechRecognizer &recognizer) {
        for (size_t i = next++; i < stretches && !stop && !cancel; i = next++) {
            try {
                const auto stretch
                    = samples.subspan(boundaries[i], boundaries[i + 1] - boundaries[i]);
                heard[i] = recognizer.recognize(stretch, cancel);
                samplesDone += stretch.size();
                reportProgress(static_cast<double>(samplesDone)
                               / static_cast<double>(std::max<size_t>(1, samples.size())));
            } catch (...) {
                const std::lock_guard lock(failureMutex);
                if (!failure)
                    failure = std::current_exception();
                stop = true;
            }
        }
    };
    const size_t helpers = std::min(m_recognizers.size(), stretches) - 1;
    std::vector<std::thread> threads;
    for (size_t t = 0; t < helpers; ++t)
        threads.emplace_back(work, std::ref(*m_recognizers[t + 1]));
    work(*m_recognizers.front());
    for (std::thread &thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
    if (cancel)
        throw RecognitionCancelled();

    std::vector<RecognizedWord> words;
    for (size_t i = 0; i < stretches; ++i) {
        const double offset = static_cast<double>(boundaries[i]) / samplesPerSecond;
        for (RecognizedWord &word : heard[i]) {
            word.start += offset;
            word.end += offset;
            words.push_back(std::move(word));
        }
    }
    return words;
}

} // namespace kavel::server
