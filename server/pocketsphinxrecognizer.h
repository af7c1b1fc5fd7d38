#pragma once

#include "speechrecognizer.h"

#include <string>

struct ps_decoder_s;
struct cmd_ln_s;

namespace kavel::server {

// Offline US-English recognition with PocketSphinx. Long recordings are cut at their
// quietest moments into stretches of about half a minute and decoded one utterance
// each: the decoder's search grows with utterance length, and a cut in a pause cannot
// split a word.
class PocketSphinxRecognizer final : public SpeechRecognizer
{
public:
    // `modelDirectory` holds "en-us/" (the acoustic model), "en-us.lm.bin" and
    // "cmudict-en-us.dict". Throws RecognitionError when the model does not load.
    explicit PocketSphinxRecognizer(const std::string &modelDirectory);
    ~PocketSphinxRecognizer() override;

    std::vector<RecognizedWord> recognize(std::span<const std::int16_t> samples,
                                          const std::atomic<bool> &cancel) override;

    // Exposed for tests: a word as the decoder spells it ("read(2)", "<sil>", "[NOISE]")
    // turned into the word to show, or empty when it is not a word at all.
    static std::string cleanWord(const std::string &decoded, bool *isFiller);

    // The word's posterior probability in the decoder's lattice (0 to 1) as the confidence
    // the editor shows.
    static double confidenceFromPosterior(double posterior);

private:
    void decodeStretch(std::span<const std::int16_t> samples, double offset,
                       std::vector<RecognizedWord> &words);

    cmd_ln_s *m_config = nullptr;
    ps_decoder_s *m_decoder = nullptr;
    bool m_dirty = false;
};

} // namespace kavel::server
