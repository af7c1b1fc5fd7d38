#pragma once

#include "media/renderer.h"

namespace kavel::media::mlt {

class MltMediaEngine;

// Renders through MLT's avformat consumer, on the same playlist and gain filter the
// preview plays, so the file sounds and cuts exactly as the preview does.
class MltRenderer final : public Renderer
{
public:
    // The engine must exist first: it is what starts MLT in this process.
    explicit MltRenderer(MltMediaEngine &engine);

    std::unique_ptr<RenderJob> start(const RenderRequest &request) override;
    bool canEncode(RenderFormat format) const override;
};

} // namespace kavel::media::mlt
