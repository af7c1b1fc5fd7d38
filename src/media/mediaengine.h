#pragma once

#include "mediatypes.h"

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>

namespace kavel::media {

enum class ItemStatus { unknown, readyToPlay, failed };

// Plays either one source file as it is or an edit list. All calls and every callback
// happen on the thread that created the player (the main thread).
class Player : public QObject
{
    Q_OBJECT

public:
    using ObserverId = quint64;

    using QObject::QObject;
    ~Player() override = default;

    // Makes `editList` the current item. An engine may reuse what it built for the
    // previous list; the result must be as if built afresh. Returns the segments that
    // could not be laid in. The play head position afterwards is unspecified, and what
    // is shown may still come from the old item until the seek that must follow.
    virtual QList<SegmentFailure> replaceWithComposition(const EditList &editList) = 0;
    // Makes the file itself the current item; its status is reported by
    // itemStatusChanged(), possibly later.
    virtual void replaceWithSource(const QString &path) = 0;
    // A hint that compositions will cut these files, so an engine can open them now
    // rather than on the first replaceWithComposition(). Optional.
    virtual void prepareSources(const QStringList &paths) { Q_UNUSED(paths); }
    virtual ItemStatus itemStatus() const = 0;
    // Seconds; NaN when unknown.
    virtual double itemDuration() const = 0;

    // 0 pauses; 1 plays at normal speed.
    virtual void setRate(double rate) = 0;
    virtual double rate() const = 0;
    // 0 to 1.
    virtual void setVolume(float volume) = 0;
    // Plays compositions at the loudness (LUFS) an export would bring them to; none plays
    // them as they are. Optional.
    virtual void setLoudnessTarget(std::optional<double> lufs) { Q_UNUSED(lufs); }

    // Frame-exact seek on the item's timeline. `completion` runs once, later, on the
    // player's thread, with false when the seek was superseded or failed.
    virtual void seek(double seconds, std::function<void(bool finished)> completion) = 0;
    virtual double currentTime() const = 0;

    // Calls `callback` with the current time every `interval` seconds while the player
    // exists (playing or not).
    virtual ObserverId addPeriodicTimeObserver(double interval,
                                               std::function<void(double)> callback)
        = 0;
    // Calls `callback` when playback crosses one of `times`.
    virtual ObserverId addBoundaryTimeObserver(const QList<double> &times,
                                               std::function<void()> callback)
        = 0;
    virtual void removeTimeObserver(ObserverId id) = 0;
    // Playback ends at `seconds` as if the item ended there: nothing after it is heard,
    // and pausing past it puts the play head back on it. The next seek or pause clears it.
    virtual void setStopTime(std::optional<double> seconds) = 0;

Q_SIGNALS:
    void itemStatusChanged();
};

// Still frames of one source, made with fixed options.
class ThumbnailGenerator
{
public:
    virtual ~ThumbnailGenerator() = default;
    // The frame near `seconds`, scaled to the maximum size and turned upright; nothing
    // when no frame can be decoded there.
    virtual std::optional<QImage> imageAt(double seconds) = 0;
};

// The factory the rest of Kavel sees: one per process, handed in by the composition root.
class MediaEngine
{
public:
    virtual ~MediaEngine() = default;

    // Throws MediaError for a file that is not readable media.
    virtual MediaInfo probe(const QString &path) = 0;
    virtual std::unique_ptr<Player> createPlayer() = 0;
    // Throws MediaError for a file that has no picture or cannot be opened.
    virtual std::unique_ptr<ThumbnailGenerator>
    createThumbnailGenerator(const QString &path, const ThumbnailOptions &options) = 0;
};

} // namespace kavel::media
