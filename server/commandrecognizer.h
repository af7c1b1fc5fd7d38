#pragma once

#include "speechrecognizer.h"

#include <chrono>
#include <string>

namespace kavel::server {

// Any recogniser an operator can run from a shell. For each stretch of the audio the
// command is run with the path of a 16 kHz mono 16-bit WAV file appended, and must print
// one JSON object on its standard output:
//
//   {"words": [{"text": "hello", "start": 0.5, "end": 0.9, "confidence": 0.8}, …]}
//
// with times in seconds from the start of that file; "confidence" (0 to 1) is optional.
// The recording's language is in the environment variable KAVEL_LANGUAGE, and every
// "{language}" in the command is replaced by it. A command that exits with a
// non-zero status, prints anything else or runs past the time limit fails the task,
// with the last line it wrote to its standard error as the reason.
class CommandRecognizer final : public SpeechRecognizer
{
public:
    // The WAV files are written to `scratch` (the system's temporary folder when empty)
    // and removed after use.
    CommandRecognizer(std::string command, std::chrono::milliseconds timeLimit,
                      std::string scratch = {});

    std::vector<RecognizedWord> recognize(std::span<const std::int16_t> samples,
                                          const std::atomic<bool> &cancel) override;

private:
    std::vector<RecognizedWord> recognizeStretch(std::span<const std::int16_t> samples,
                                                 const std::atomic<bool> &cancel);

    std::string m_command;
    std::chrono::milliseconds m_timeLimit;
    std::string m_scratch;
};

} // namespace kavel::server
