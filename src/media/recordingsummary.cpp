#include "recordingsummary.h"

#include <cmath>

namespace kavel::media {

RecordingSummarizer recordingSummarizer(MediaEngine &engine)
{
    return [&engine](const QString &path) {
        RecordingSummary summary;
        try {
            const double duration = engine.probe(path).duration;
            summary.duration = std::isfinite(duration) ? duration : 0.0;
        } catch (const Error &) { }
        try {
            ThumbnailOptions options;
            options.maximumSize = ProjectStore::thumbnailSize;
            options.toleranceBefore = ProjectStore::thumbnailTolerance;
            options.toleranceAfter = ProjectStore::thumbnailTolerance;
            options.applyRotation = true;
            summary.thumbnail = engine.createThumbnailGenerator(path, options)
                                    ->imageAt(ProjectStore::thumbnailTime);
        } catch (const Error &) {
            // No picture (sound alone, or unreadable): the card shows its placeholder.
        }
        return summary;
    };
}

} // namespace kavel::media
