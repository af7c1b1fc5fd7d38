#pragma once

#include "compositionplan.h"
#include "media/mediaengine.h"
#include "playbackclock.h"

#include <QCache>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

namespace kavel {

// The editor's preview: plays the surviving word blocks end to end and keeps the play
// head, the active word and the deleted stretches in step with edits. The editor is the
// only writer of wordBlocks(); views observe the properties and call the operations.
class VideoPlayerViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(
        float playbackSpeed READ playbackSpeed WRITE setPlaybackSpeed NOTIFY playbackSpeedChanged)
    Q_PROPERTY(double videoRotationDegrees READ videoRotationDegrees WRITE setVideoRotationDegrees
                   NOTIFY videoRotationDegreesChanged)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(QUuid activeWordBlockId READ activeWordBlockId NOTIFY activeWordBlockIdChanged)
    Q_PROPERTY(QList<kavel::DeletedTimeRange> deletedTimeRanges READ deletedTimeRanges NOTIFY
                   deletedTimeRangesChanged)

public:
    static constexpr double periodicInterval = 0.05;
    static constexpr double uiPublishInterval = 0.1;
    static constexpr double rebuildDelay = 0.15;
    // How close to the end "at the end" is: the engine stops a frame short of it.
    static constexpr double endTolerance = 0.05;
    // A play head that stands still this long, this close to the end, has played out: an
    // engine that drops the last frames under load never crosses the end itself.
    static constexpr double stalledEndWindow = 0.25;
    // Engines show whole frames: a report this close to where a word placed the play head
    // is that placement's frame, a little before or after it, and keeps the word current.
    static constexpr double placementTolerance = 0.05;

    VideoPlayerViewModel(media::MediaEngine &engine, PlaybackClock &clock,
                         QObject *parent = nullptr);
    ~VideoPlayerViewModel() override;

    double currentTime() const { return m_currentTime; }
    // Sets the published play-head time without seeking (for a freshly opened project).
    // A rebuild still under way then leaves the play head where this put it.
    void setCurrentTime(double t);
    double duration() const { return m_duration; }
    bool isPlaying() const { return m_isPlaying; }
    float playbackSpeed() const { return m_playbackSpeed; }
    double videoRotationDegrees() const { return m_videoRotationDegrees; }
    void setVideoRotationDegrees(double degrees);
    float volume() const { return m_volume; }
    // Null when no word is under the play head.
    QUuid activeWordBlockId() const { return m_activeWordBlockId; }
    const QList<DeletedTimeRange> &deletedTimeRanges() const { return m_deletedTimeRanges; }

    const QList<WordBlock> &wordBlocks() const { return m_wordBlocks; }
    // The editor's edit: blocks in paragraph order, sortOrder renumbered. Call
    // scheduleRebuild() afterwards.
    void setWordBlocks(QList<WordBlock> blocks);
    // The project's pause setting; a change takes effect at the next scheduleRebuild().
    void setPauseLimit(double seconds);
    double pauseLimit() const { return m_pauseLimit; }
    void scheduleRebuild();
    void rebuildComposition();
    // The map `blocks` would play as, laid by the same rules as the preview's own (the
    // loaded sources, the pause setting), at once: views that must follow an edit before
    // the debounced rebuild has run lay their clips from this.
    CompositionPlan planFor(const QList<WordBlock> &blocks) const;

    // Another project's recordings (or the open one's first): the play head starts at the
    // beginning. The same recordings moved elsewhere keep it.
    void loadSources(const QList<PlaybackSource> &sources, bool keepPlayHead = false);
    bool tracksLoaded() const { return m_tracksLoaded; }
    double sourceDuration() const { return m_sourceDuration; }
    const QList<CompositionEntry> &compositionMap() const { return m_plan.map; }

    std::optional<QUuid> pendingSeekBlockId() const { return m_pendingSeekBlockId; }
    void setPendingSeekBlockId(std::optional<QUuid> id) { m_pendingSeekBlockId = id; }

    void togglePlayPause();
    void pause();
    void stop();
    void setPlaybackSpeed(float speed);
    void setVolume(float volume);
    void seekToBlock(const WordBlock &block);
    // Moves the play head to `t` on the edited timeline, clamped to it; playback that is
    // running goes on from there.
    void seek(double t);
    // Plays from the start of one block to the end of another, then pauses and calls
    // `onFinish`; with `loop` it starts the range over instead, until a pause or a stop.
    void playRange(const QUuid &fromBlockId, const QUuid &toBlockId, std::function<void()> onFinish,
                   bool loop = false);

    double compositionTimeToSourceTime(double t) const;
    double sourceTimeToCompositionTime(double s) const;

    std::optional<QImage> thumbnail(const QUuid &sourceFileId, double time);

    media::Player &player() { return *m_player; }

Q_SIGNALS:
    void currentTimeChanged();
    void durationChanged();
    void isPlayingChanged();
    void playbackSpeedChanged();
    void videoRotationDegreesChanged();
    void volumeChanged();
    void activeWordBlockIdChanged();
    void deletedTimeRangesChanged();
    // A rebuild laid a new map (after an edit, a change of the pause setting, a load).
    void compositionMapChanged();

private:
    struct SourceAsset
    {
        QUuid id;
        QString path;
    };

    void finishLoadingSources();
    void forgetPlan();
    void playRawSource();
    void onPeriodicTime(double t);
    void publishCurrentTime(double t);
    void recomputeDeletedTimeRanges();
    void setDuration(double d);
    void setIsPlaying(bool playing);
    void setActiveWordBlockId(const QUuid &id);
    void startPlayback();
    void removeBoundaryObserver();
    void watchForTheEnd();
    void removeEndObserver();
    void reachedTheEnd();
    const CompositionEntry *entryOfBlock(const QUuid &id) const;
    // The block playing at composition time `t`; null between and after the blocks.
    QUuid blockAt(double t) const;

    media::MediaEngine &m_engine;
    PlaybackClock &m_clock;
    std::unique_ptr<media::Player> m_player;

    double m_currentTime = 0.0;
    double m_duration = 0.0;
    bool m_isPlaying = false;
    float m_playbackSpeed = 1.0f;
    double m_videoRotationDegrees = 0.0;
    float m_volume = 1.0f;
    QUuid m_activeWordBlockId;
    QList<DeletedTimeRange> m_deletedTimeRanges;

    double m_sourceDuration = 0.0;
    std::optional<media::Player::ObserverId> m_timeObserver;
    std::optional<media::Player::ObserverId> m_boundaryObserver;
    // Ends playback at the end of the edited result; armed only while playing.
    std::optional<media::Player::ObserverId> m_endObserver;
    // Counts the placements of the play head (rebuilds, seeks): a rebuild's seek that
    // completes after a newer placement leaves the play head alone.
    quint64 m_placement = 0;
    double m_lastReportedTime = -1.0;
    std::optional<double> m_placedAt;
    double m_reportedTimeSince = 0.0;
    QMetaObject::Connection m_statusObservation;
    // Insertion order matters: "the first source" is the first one loaded.
    QList<SourceAsset> m_sourceAssets;
    QList<SourceTrackInfo> m_sourceTracks;
    bool m_tracksLoaded = false;
    bool m_opensAtStart = false;
    std::optional<PlaybackClock::CallId> m_loadCall;
    QHash<QUuid, std::shared_ptr<media::ThumbnailGenerator>> m_imageGenerators;
    // Thumbnails by source and half second, weighed in bytes: an hour's timeline holds
    // 7,200 of them, far more than are ever on screen at once.
    static constexpr qsizetype thumbnailCacheBytes = 24 * 1024 * 1024;
    QCache<QString, QImage> m_thumbnailCache {thumbnailCacheBytes};
    // The map and edit list playing now, and the blocks they were laid from: the next
    // rebuild lays again only what an edit changed. Empty blocks with an empty plan when
    // the next one must be laid afresh (new sources, another pause setting).
    CompositionPlan m_plan;
    QList<WordBlock> m_plannedBlocks;
    std::optional<PlaybackClock::CallId> m_rebuildWorkItem;
    // The list the preview was last asked to show (shared, not copied), to recognise
    // pushes that change nothing it plays.
    QList<WordBlock> m_lastRebuiltBlocks;
    std::optional<QUuid> m_pendingSeekBlockId;
    double m_pauseLimit = 0.0;
    QList<WordBlock> m_wordBlocks;
    double m_lastUIPublishTime = 0.0;
};

// Whether two block lists play alike: the same words (by id) in the same order with the
// same source times. Text, speaker and flags do not matter to the preview.
bool samePreviewIdentity(const QList<WordBlock> &a, const QList<WordBlock> &b);

} // namespace kavel
