#pragma once

#include "avsupport.h"

#include <cstdint>
#include <vector>

struct SwrContext;

namespace kavel::media::ffmpeg {

// The sound of one file as stereo float at the output rate, addressed by sample index on
// the file's own clock (index n is the sound at n / rate seconds). Reading forward decodes
// on; a jump back or far ahead seeks. Mono plays at full level on both channels.
class AudioSource
{
public:
    // Throws MediaError when the file cannot be read or has no sound.
    AudioSource(const QString &path, int rate);
    ~AudioSource();
    AudioSource(const AudioSource &) = delete;
    AudioSource &operator=(const AudioSource &) = delete;

    // Fills `count` samples from index `first`; silence where the file has no sound.
    // Throws MediaError when decoding fails for good.
    void read(std::int64_t first, std::int64_t count, float *left, float *right);

private:
    void seekTo(std::int64_t index);
    // Decodes one more packet's worth into the buffer; false at the end of the stream.
    bool decodeMore();
    void resetResampler();
    void append(const AVFrame *frame);
    void appendConverted(const uint8_t **input, int inputSamples);
    void dropBefore(std::int64_t index);

    QString m_path;
    int m_rate;
    InputPtr m_input;
    CodecPtr m_decoder;
    int m_stream = -1;
    double m_origin = 0.0;
    SwrContext *m_resampler = nullptr;
    PacketPtr m_packet;
    FramePtr m_frame;
    // Samples decoded and not yet consumed, starting at index m_bufferStart.
    std::vector<float> m_left, m_right;
    std::int64_t m_bufferStart = 0;
    bool m_synced = false;
    bool m_eof = false;
    // The buffer starts at the file's first sound: nothing exists before it.
    bool m_fromStart = true;
    int m_failures = 0;
};

} // namespace kavel::media::ffmpeg
