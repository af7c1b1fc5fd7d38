#pragma once

#include "media/renderer.h"

#include <QByteArray>
#include <QList>

namespace kavel::test {

// Records every request. Each job runs for `pollsToFinish` polls, then writes `bytes` to
// its output and completes, or fails without writing when `failing` is set.
class FakeRenderer final : public media::Renderer
{
public:
    std::unique_ptr<media::RenderJob> start(const media::RenderRequest &request) override;
    bool canEncode(media::RenderFormat format) const override;

    QList<media::RenderRequest> requests;
    int pollsToFinish = 3;
    bool failing = false;
    bool refuseToStart = false;
    QByteArray bytes = QByteArrayLiteral("rendered");
};

} // namespace kavel::test
