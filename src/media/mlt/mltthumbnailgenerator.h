#pragma once

#include "media/mediaengine.h"

#include <memory>

namespace Mlt {
class Producer;
class Profile;
} // namespace Mlt

namespace kavel::media::mlt {

// Keeps one producer open on the source: decoding the next frame of an open file is an
// order of magnitude cheaper than opening it again.
class MltThumbnailGenerator final : public ThumbnailGenerator
{
public:
    // Throws MediaError for a file without a picture.
    MltThumbnailGenerator(const QString &path, const ThumbnailOptions &options);
    ~MltThumbnailGenerator() override;

    std::optional<QImage> imageAt(double seconds) override;

private:
    ThumbnailOptions m_options;
    MediaInfo m_info;
    QSize m_outputSize;
    std::unique_ptr<Mlt::Profile> m_profile;
    std::unique_ptr<Mlt::Producer> m_producer;
};

} // namespace kavel::media::mlt
