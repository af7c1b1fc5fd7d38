#pragma once

#include "media/renderer.h"

namespace kavel::media::ffmpeg {

// Renders edit lists with FFmpeg's libraries: every source is decoded in the order the
// cuts need it (once, when the cuts run forward), the sound is cut sample-exactly from
// the composition map and the pictures are taken on the output's frame grid from the same
// map, so sound, picture and subtitles agree however many cuts there are.
class FfmpegRenderer final : public Renderer
{
public:
    std::unique_ptr<RenderJob> start(const RenderRequest &request) override;
    bool canEncode(RenderFormat format) const override;

    // Movies carry their sound at this rate; sound-only files at 44.1 kHz.
    static constexpr int movieSampleRate = 48000;
    static constexpr int audioSampleRate = 44100;
};

} // namespace kavel::media::ffmpeg
