#pragma once

#include <cstdint>
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
};

class RecognitionError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A speech-to-text engine. Takes 16 kHz mono samples and returns the spoken words in
// order with their times; silences and noises are not words and are left out, while
// hesitations ("um", "uh") are kept and marked as fillers so the editor can offer to
// cut them. One recognizer is used by one thread at a time.
class SpeechRecognizer
{
public:
    virtual ~SpeechRecognizer() = default;
    virtual std::vector<RecognizedWord> recognize(std::span<const std::int16_t> samples) = 0;
};

} // namespace kavel::server
