#pragma once

#include "media/mediaengine.h"

namespace kavel::media::mlt {

// The MLT backend. MLT is started once per process, from a module folder that holds
// only the modules Kavel uses.
class MltMediaEngine final : public MediaEngine
{
public:
    // Throws MediaError when MLT cannot start from `moduleDirectory`.
    explicit MltMediaEngine(const QString &moduleDirectory = defaultModuleDirectory());

    // KAVEL_MLT_MODULES when set, else "../lib/<program>/mlt-modules" beside the
    // executable when that exists (installed), else "../lib/kavel-mlt-modules" (built).
    static QString defaultModuleDirectory();

    MediaInfo probe(const QString &path) override;
    std::unique_ptr<Player> createPlayer() override;
    std::unique_ptr<ThumbnailGenerator>
    createThumbnailGenerator(const QString &path, const ThumbnailOptions &options) override;

    // Hands the frames and buffers MLT and the allocator keep for reuse back to the
    // system. Cheap enough for a moment the user is not watching anything play, such as
    // the return to the home page.
    static void releaseUnusedMemory();
};

} // namespace kavel::media::mlt
