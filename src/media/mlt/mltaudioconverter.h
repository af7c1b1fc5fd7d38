#pragma once

#include "media/audioconverter.h"

namespace kavel::media::mlt {

class MltMediaEngine;

// Audio-only export through MLT's avformat consumer. The engine is asked for only to make
// sure MLT has been started (it is started once per process, by the engine).
class MltAudioConverter final : public AudioConverter
{
public:
    explicit MltAudioConverter(MltMediaEngine &engine);

    std::unique_ptr<AudioConversion> startM4AConversion(const QString &sourcePath,
                                                        const QString &outputPath) override;

    // How long the render may go without moving before it is given up.
    static constexpr int stallTimeoutMs = 8000;
};

} // namespace kavel::media::mlt
