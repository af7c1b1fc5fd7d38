// How fast kavel-server recognises a long recording with PocketSphinx: one recognizer
// working through the stretches in turn, then one per core at once, on the same samples.
// Reports both real-time factors and whether the words are the same.
//
//   bench_recognition [--minutes N] [--threads N]   (defaults: 10 minutes, one per core)

#include "audiodecoder.h"
#include "parallelrecognizer.h"
#include "pocketsphinxrecognizer.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

using namespace kavel::server;
using namespace Qt::StringLiterals;

namespace {

constexpr const char *model = "/usr/share/pocketsphinx/model/en-us";

const char *const sentences[] = {
    "The quick brown fox jumps over the lazy dog.",
    "We will meet again tomorrow morning at the station.",
    "Please send the report to the whole team before Friday.",
    "It was a bright cold day in April, and the clocks were striking thirteen.",
    "Um, I think we should, uh, look at the numbers again.",
    "Nobody expected the meeting to run for three hours.",
};

// Speech of several voices' worth of sentences, a breath apart, for `seconds`.
std::vector<std::int16_t> recording(const QTemporaryDir &dir, double seconds)
{
    std::vector<std::vector<std::int16_t>> spoken;
    for (const char *sentence : sentences) {
        const QString file = dir.filePath(u"s%1.wav"_s.arg(spoken.size()));
        if (QProcess::execute(u"flite"_s, {u"-t"_s, QString::fromUtf8(sentence), u"-o"_s, file})
            != 0)
            throw std::runtime_error("flite failed");
        spoken.push_back(decodeAudioForRecognition(file.toStdString()));
    }
    std::vector<std::int16_t> samples;
    const auto wanted = static_cast<size_t>(seconds * recognitionSampleRate);
    for (size_t i = 0; samples.size() < wanted; ++i) {
        const auto &sentence = spoken[i % spoken.size()];
        samples.insert(samples.end(), sentence.begin(), sentence.end());
        // Pauses of 0.4 to 1.6 s, as in talk.
        samples.insert(samples.end(), recognitionSampleRate * (4 + (i * 7) % 13) / 10, 0);
    }
    samples.resize(wanted);
    return samples;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    double minutes = 10.0;
    int threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--minutes") == 0)
            minutes = std::atof(argv[i + 1]);
        else if (std::strcmp(argv[i], "--threads") == 0)
            threads = std::atoi(argv[i + 1]);
    }
    QTemporaryDir dir;
    const std::vector<std::int16_t> samples = recording(dir, minutes * 60.0);
    const double audioSeconds = static_cast<double>(samples.size()) / recognitionSampleRate;
    const std::atomic<bool> cancel = false;
    const auto make = [] { return std::make_unique<PocketSphinxRecognizer>(model); };

    const auto timed = [&](SpeechRecognizer &recognizer, std::vector<RecognizedWord> &words) {
        const auto start = std::chrono::steady_clock::now();
        words = recognizer.recognize(samples, cancel);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    auto single = make();
    std::vector<RecognizedWord> inTurn;
    const double sequential = timed(*single, inTurn);
    ParallelRecognizer parallel(make, threads);
    std::vector<RecognizedWord> atOnce;
    const double concurrent = timed(parallel, atOnce);

    bool same = inTurn.size() == atOnce.size();
    for (size_t i = 0; same && i < inTurn.size(); ++i)
        same = inTurn[i].text == atOnce[i].text && inTurn[i].start == atOnce[i].start
            && inTurn[i].end == atOnce[i].end;
    std::printf("recording: %.0f s, %zu words\n", audioSeconds, inTurn.size());
    std::printf("sequential: %.1f s, real-time factor %.3f\n", sequential,
                sequential / audioSeconds);
    std::printf("parallel on %d threads: %.1f s, real-time factor %.3f\n", threads, concurrent,
                concurrent / audioSeconds);
    // A short recording is cut into shorter stretches when recognised at once, so that
    // every thread has work; its words may then differ a little from one recognizer's.
    const bool sameCuts
        = ParallelRecognizer::boundaries(samples, threads) == stretchBoundaries(samples);
    if (!sameCuts) {
        std::printf("words: %zu in turn, %zu at once (shorter stretches at once)\n", inTurn.size(),
                    atOnce.size());
        return 0;
    }
    std::printf("same words: %s\n", same ? "yes" : "NO");
    return same ? 0 : 1;
}
