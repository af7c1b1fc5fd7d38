#include "pocketsphinxrecognizer.h"

#include <algorithm>
#include <cmath>
#include <pocketsphinx.h>
#include <sphinxbase/logmath.h>

namespace kavel::server {

namespace {

constexpr double framesPerSecond = 100.0;
constexpr size_t samplesPerSecond = 16000;

} // namespace

PocketSphinxRecognizer::PocketSphinxRecognizer(const std::string &modelDirectory)
{
    const std::string acousticModel = modelDirectory + "/en-us";
    const std::string languageModel = modelDirectory + "/en-us.lm.bin";
    const std::string dictionary = modelDirectory + "/cmudict-en-us.dict";
    m_config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", acousticModel.c_str(), "-lm",
                           languageModel.c_str(), "-dict", dictionary.c_str(), "-logfn",
                           "/dev/null", "-remove_silence", "no", nullptr);
    if (!m_config)
        throw RecognitionError("PocketSphinx rejected its configuration");
    m_decoder = ps_init(m_config);
    if (!m_decoder) {
        cmd_ln_free_r(m_config);
        throw RecognitionError("cannot load the speech model from " + modelDirectory);
    }
}

PocketSphinxRecognizer::~PocketSphinxRecognizer()
{
    ps_free(m_decoder);
    cmd_ln_free_r(m_config);
}

std::string PocketSphinxRecognizer::cleanWord(const std::string &decoded, bool *isFiller)
{
    *isFiller = false;
    // Sentence markers, silences and noise classes: <s>, </s>, <sil>, [NOISE], [SPEECH],
    // and the ++UM++ style fillers of older models.
    if (decoded.empty() || decoded.front() == '<' || decoded.front() == '['
        || decoded.front() == '+')
        return {};
    // Alternative pronunciations come back numbered: "read(2)".
    std::string word = decoded.substr(0, decoded.find('('));
    *isFiller = isHesitation(word);
    return word;
}

double PocketSphinxRecognizer::confidenceFromPosterior(double posterior)
{
    if (!std::isfinite(posterior) || posterior <= 0.0)
        return 0.0;
    // The lattice is generous with doubt: on read speech with known text, a third of the
    // right words had a posterior below 0.6, and marking them all buried the wrong ones in
    // false marks. Below 0.3 the marks were mostly on wrong words, so the scale is bent to
    // put a posterior of 0.3 at the editor's threshold of 0.6 (bench/confidence_bench.cpp).
    static const double exponent = std::log(0.6) / std::log(0.3);
    return std::clamp(std::pow(posterior, exponent), 0.0, 1.0);
}

std::vector<RecognizedWord> PocketSphinxRecognizer::recognize(std::span<const std::int16_t> samples,
                                                              const std::atomic<bool> &cancel)
{
    std::vector<RecognizedWord> words;
    const std::vector<size_t> boundaries = stretchBoundaries(samples);
    for (size_t i = 0; i + 1 < boundaries.size(); ++i) {
        if (cancel.load())
            throw RecognitionCancelled();
        const auto stretch = samples.subspan(boundaries[i], boundaries[i + 1] - boundaries[i]);
        decodeStretch(stretch, static_cast<double>(boundaries[i]) / samplesPerSecond, words);
        reportProgress(static_cast<double>(boundaries[i + 1])
                       / static_cast<double>(samples.size()));
    }
    return words;
}

void PocketSphinxRecognizer::decodeStretch(std::span<const std::int16_t> samples, double offset,
                                           std::vector<RecognizedWord> &words)
{
    if (samples.empty())
        return;
    // The decoder keeps state from one utterance to the next (its choice of Gaussians
    // starts from the frames it saw last), so the words of a stretch would depend on what
    // this decoder heard before: another task, or another split between threads. A fresh
    // start makes every stretch decode alike wherever and whenever it is decoded.
    if (m_dirty && ps_reinit(m_decoder, nullptr) < 0)
        throw RecognitionError("PocketSphinx could not reset its decoder");
    m_dirty = true;
    if (ps_start_utt(m_decoder) < 0)
        throw RecognitionError("PocketSphinx could not start an utterance");
    // Whole stretches, not a stream of small blocks: told that it has the whole
    // utterance, the decoder normalises the audio over all of it. Fed a second at a time
    // instead, it got about half the words of a test sentence right; whole, most of them.
    if (ps_process_raw(m_decoder, samples.data(), samples.size(), FALSE, TRUE) < 0) {
        ps_end_utt(m_decoder);
        throw RecognitionError("PocketSphinx could not process the audio");
    }
    if (ps_end_utt(m_decoder) < 0)
        throw RecognitionError("PocketSphinx could not finish an utterance");

    logmath_t *logMath = ps_get_logmath(m_decoder);
    for (ps_seg_t *segment = ps_seg_iter(m_decoder); segment; segment = ps_seg_next(segment)) {
        bool isFiller = false;
        std::string text = cleanWord(ps_seg_word(segment), &isFiller);
        if (text.empty())
            continue;
        int startFrame = 0;
        int endFrame = 0;
        ps_seg_frames(segment, &startFrame, &endFrame);
        int32 acoustic = 0;
        int32 language = 0;
        int32 backoff = 0;
        const int32 logPosterior = ps_seg_prob(segment, &acoustic, &language, &backoff);
        // The end frame is the word's last frame, so the word lasts until that frame ends.
        words.push_back({std::move(text), offset + startFrame / framesPerSecond,
                         offset + (endFrame + 1) / framesPerSecond, isFiller,
                         confidenceFromPosterior(logmath_exp(logMath, logPosterior))});
    }
}

} // namespace kavel::server
