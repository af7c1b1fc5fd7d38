#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace kavel::server {

struct RecognizedWord
{
    std::string text;
    double start = 0.0; // seconds from the start of the audio
    double end = 0.0;
    bool isFiller = false;
    // How sure the recogniser is of the word (0 to 1); 1 when it cannot tell, so a word
    // is only flagged for checking on the recogniser's own evidence.
    double confidence = 1.0;
};

class RecognitionError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Thrown when recognition gave up because it was asked to stop.
class RecognitionCancelled : public RecognitionError
{
public:
    RecognitionCancelled()
        : RecognitionError("recognition was cancelled")
    { }
};

// A speech-to-text engine. Takes 16 kHz mono samples and returns the spoken words in
// order with their times; silences and noises are not words and are left out, while
// hesitations ("um", "uh") are kept and marked as fillers so the editor can offer to
// cut them. One recognizer is used by one thread at a time.
class SpeechRecognizer
{
public:
    virtual ~SpeechRecognizer() = default;
    // Looks at `cancel` now and then (PocketSphinx: between stretches, every few seconds
    // of work) and throws RecognitionCancelled once it is set, so that a server can stop
    // without finishing an hour of speech first.
    virtual std::vector<RecognizedWord> recognize(std::span<const std::int16_t> samples,
                                                  const std::atomic<bool> &cancel)
        = 0;

    // Told the share of the recording done so far (0 to 1) while recognize() runs, from
    // whichever thread did the work; a recognizer that cannot tell says nothing until
    // it returns.
    using ProgressSink = std::function<void(double)>;
    void setProgressSink(ProgressSink sink) { m_progress = std::move(sink); }

    // The language of the recordings recognised next (a BCP 47 tag such as "zh"), for
    // recognisers that hear more than one; one that hears a single language ignores it.
    virtual void setLanguage(std::string language) { m_language = std::move(language); }
    const std::string &language() const { return m_language; }

protected:
    void reportProgress(double done) const
    {
        if (m_progress)
            m_progress(done);
    }

private:
    ProgressSink m_progress;
    std::string m_language;
};

// Where long audio is cut into stretches that are recognised one at a time: 0, the cut
// points, the end. Cuts fall at the quietest moment near every `targetSeconds` (half a
// minute unless asked otherwise), so that no word is split and a recogniser's work per
// stretch stays bounded.
std::vector<size_t> stretchBoundaries(std::span<const std::int16_t> samples,
                                      double targetSeconds = 30.0);

// "um", "uh" and the like, which the editor offers to cut.
bool isHesitation(const std::string &word);

} // namespace kavel::server
