#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kavel::server {

class AudioDecodeError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

constexpr int recognitionSampleRate = 16000;

// Decodes the first audio stream of any file FFmpeg can read (M4A/AAC, WAV, MP3, FLAC…)
// into 16 kHz mono signed 16-bit samples, the form speech recognisers take. Throws
// AudioDecodeError with FFmpeg's reason.
std::vector<std::int16_t> decodeAudioForRecognition(const std::string &path);

} // namespace kavel::server
