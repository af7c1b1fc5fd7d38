#include "model/jsonfields.h"
#include "videoplayerviewmodel.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel {

// The timeline asks for a picture every half second of source at most: pictures are
// cached by that half second, and one generator per source is kept open for the next.
std::optional<QImage> VideoPlayerViewModel::thumbnail(const QUuid &sourceFileId, double time)
{
    const double r = std::round(2.0 * time) * 0.5;
    const QString key = json::uuidString(sourceFileId) + u':' + QString::asprintf("%.1f", r);
    if (const QImage *cached = m_thumbnailCache.object(key))
        return *cached;

    std::shared_ptr<media::ThumbnailGenerator> generator = m_imageGenerators.value(sourceFileId);
    if (!generator) {
        const auto asset = std::find_if(m_sourceAssets.cbegin(), m_sourceAssets.cend(),
                                        [&](const SourceAsset &a) { return a.id == sourceFileId; });
        if (asset == m_sourceAssets.cend())
            return std::nullopt;
        media::ThumbnailOptions options;
        options.maximumSize = {160, 90};
        options.toleranceBefore = 1.0;
        options.toleranceAfter = 1.0;
        options.applyRotation = true;
        try {
            generator = m_engine.createThumbnailGenerator(asset->path, options);
        } catch (const Error &) {
            return std::nullopt;
        }
        m_imageGenerators.insert(sourceFileId, generator);
    }
    std::optional<QImage> image = generator->imageAt(r);
    if (!image || image->isNull())
        return std::nullopt;
    m_thumbnailCache.insert(key, new QImage(*image), image->sizeInBytes());
    return image;
}

} // namespace kavel
