#pragma once

#include "speechrecognizer.h"

#include <functional>
#include <memory>
#include <vector>

namespace kavel::server {

// Recognises the stretches of one recording on several threads at once, each with a
// recognizer of its own, and puts the words back together in order. Stretches are cut
// at silences and every recognizer decodes each stretch on its own, so the words are the
// same as one recognizer's working through the same stretches in turn; only sooner.
class ParallelRecognizer final : public SpeechRecognizer
{
public:
    using Factory = std::function<std::unique_ptr<SpeechRecognizer>()>;

    // Builds `threads` recognizers now, so a model that does not load fails here.
    ParallelRecognizer(const Factory &makeRecognizer, int threads);

    std::vector<RecognizedWord> recognize(std::span<const std::int16_t> samples,
                                          const std::atomic<bool> &cancel) override;
    void setLanguage(std::string language) override;

    // Where a recording is cut for `threads` recognizers: every half minute, or shorter
    // for a short recording, so that it still keeps every thread busy (a stretch each, none
    // shorter than a few seconds: each stretch costs a fresh start of the decoder).
    static std::vector<size_t> boundaries(std::span<const std::int16_t> samples, int threads);

private:
    std::vector<std::unique_ptr<SpeechRecognizer>> m_recognizers;
};

} // namespace kavel::server
