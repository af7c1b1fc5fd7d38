#include "videoplayerviewmodel.h"

#include "model/jsonfields.h"

#include <QPointer>
#include <QTextStream>
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

void log(const QString &line)
{
    QTextStream(stdout) << u"[PlayerVM] "_s << line << Qt::endl;
}

// The shortest decimal that reads back to the same double, always with a fraction or an
// exponent ("1.0", "2.35", "1e-05").
QString shortestDecimal(double value)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    QString text = QString::fromLatin1(buffer, result.ptr - buffer);
    if (std::isfinite(value) && !text.contains(u'.') && !text.contains(u'e'))
        text += u".0"_s;
    return text;
}

// Seconds as the log prints them.
QString number(double value)
{
    return shortestDecimal(value);
}

} // namespace

bool samePreviewIdentity(const QList<WordBlock> &a, const QList<WordBlock> &b)
{
    if (a.size() != b.size())
        return false;
    if (a.constData() == b.constData())
        return true;
    // Times compare by their bits, so that any change a written-out time would show (even
    // 0 against -0) counts, and a time that is not a number still equals itself.
    const auto sameBits
        = [](double x, double y) { return std::bit_cast<quint64>(x) == std::bit_cast<quint64>(y); };
    for (qsizetype i = 0; i < a.size(); ++i) {
        const WordBlock &x = a[i];
        const WordBlock &y = b[i];
        if (x.id != y.id || !sameBits(x.mediaStart, y.mediaStart)
            || !sameBits(x.mediaEnd, y.mediaEnd))
            return false;
    }
    return true;
}

VideoPlayerViewModel::VideoPlayerViewModel(media::MediaEngine &engine, PlaybackClock &clock,
                                           QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_clock(clock)
    , m_player(engine.createPlayer())
{
    m_timeObserver = m_player->addPeriodicTimeObserver(periodicInterval,
                                                       [this](double t) { onPeriodicTime(t); });
}

VideoPlayerViewModel::~VideoPlayerViewModel()
{
    if (m_timeObserver)
        m_player->removeTimeObserver(*m_timeObserver);
    removeBoundaryObserver();
    removeEndObserver();
    QObject::disconnect(m_statusObservation);
    if (m_rebuildWorkItem)
        m_clock.cancel(*m_rebuildWorkItem);
    if (m_loadCall)
        m_clock.cancel(*m_loadCall);
}

void VideoPlayerViewModel::setWordBlocks(QList<WordBlock> blocks)
{
    m_wordBlocks = std::move(blocks);
}

void VideoPlayerViewModel::setPauseLimit(double seconds)
{
    if (seconds == m_pauseLimit)
        return;
    m_pauseLimit = seconds;
    // Every stretch may change length while the words stay the same.
    m_lastRebuiltBlocks.clear();
    forgetPlan();
}

void VideoPlayerViewModel::scheduleRebuild()
{
    if (samePreviewIdentity(m_wordBlocks, m_lastRebuiltBlocks))
        return;
    m_lastRebuiltBlocks = m_wordBlocks;
    if (m_rebuildWorkItem) {
        m_clock.cancel(*m_rebuildWorkItem);
        m_rebuildWorkItem.reset();
    }

    // Deletions and restorations must never let the preview play a deleted word, so
    // they take effect at once; reorders and time edits come in bursts while dragging.
    if (m_plan.map.size() != m_wordBlocks.size()) {
        rebuildComposition();
        return;
    }
    QPointer<VideoPlayerViewModel> self(this);
    m_rebuildWorkItem = m_clock.callAfter(rebuildDelay, [this, self] {
        if (!self)
            return;
        m_rebuildWorkItem.reset();
        rebuildComposition();
    });
}

void VideoPlayerViewModel::loadSources(const QList<PlaybackSource> &sources, bool keepPlayHead)
{
    m_sourceAssets.clear();
    for (const PlaybackSource &source : sources)
        m_sourceAssets.append({source.id, source.url.toLocalFile()});
    m_imageGenerators.clear();
    m_thumbnailCache.clear();
    // Nothing of the last sources' play head stays current; until the new ones are probed
    // no word is laid on the old tracks, nor placed where the engine last played.
    if (!keepPlayHead) {
        m_tracksLoaded = false;
        forgetPlan();
        m_opensAtStart = true;
    }
    m_placedAt.reset();
    setActiveWordBlockId({});

    if (m_loadCall)
        m_clock.cancel(*m_loadCall);
    QPointer<VideoPlayerViewModel> self(this);
    m_loadCall = m_clock.callAfter(0.0, [this, self] {
        if (!self)
            return;
        m_loadCall.reset();
        finishLoadingSources();
    });
}

void VideoPlayerViewModel::finishLoadingSources()
{
    QList<PlaybackSource> sources;
    for (const SourceAsset &asset : std::as_const(m_sourceAssets))
        sources.append({asset.id, QUrl::fromLocalFile(asset.path)});
    LoadedSources loaded = loadSourceTracks(m_engine, sources, log);
    m_sourceTracks = std::move(loaded.tracks);
    m_sourceDuration = loaded.totalDuration;
    forgetPlan();
    QStringList paths;
    for (const SourceTrackInfo &tracks : std::as_const(m_sourceTracks))
        paths.append(tracks.path);
    m_player->prepareSources(paths);
    m_tracksLoaded = true;
    rebuildComposition();
}

void VideoPlayerViewModel::rebuildComposition()
{
    if (!m_tracksLoaded)
        return;
    // No recording (an import still waiting to bring it in): nothing of the last one's
    // picture, length or play head stays.
    if (m_sourceTracks.isEmpty()) {
        removeEndObserver();
        playRawSource();
        publishCurrentTime(0.0);
        return;
    }

    const bool wasPlaying = m_isPlaying;
    const bool fromStart = std::exchange(m_opensAtStart, false);
    const double anchor = compositionTimeToSourceTime(m_currentTime);
    // The end moves with the edit; playing that resumes below watches the new one.
    removeEndObserver();

    if (m_wordBlocks.isEmpty()) {
        playRawSource();
        return;
    }

    if (!updateComposition(m_plan, m_plannedBlocks, m_wordBlocks, m_sourceTracks, m_pauseLimit))
        m_plan = planComposition(m_wordBlocks, m_sourceTracks, m_pauseLimit);
    m_plannedBlocks = m_wordBlocks;
    const QList<media::SegmentFailure> failures = m_player->replaceWithComposition(m_plan.editList);
    for (const media::SegmentFailure &failure : failures) {
        const media::EditSegment &segment = m_plan.editList.segments.at(failure.index);
        const auto tracks
            = std::find_if(m_sourceTracks.cbegin(), m_sourceTracks.cend(),
                           [&](const SourceTrackInfo &s) { return s.path == segment.sourcePath; });
        const double trackDur = tracks != m_sourceTracks.cend() ? tracks->trackDuration : 0.0;
        const double start = segment.sourceStart, end = segment.sourceEnd;
        log(u"Failed to insert segment for "_s + json::uuidString(segment.blockId) + u" ["_s
            + number(start) + u'-' + number(end) + u"] trackDur="_s + number(trackDur) + u": "_s
            + failure.reason);
    }
    QObject::disconnect(m_statusObservation);
    setDuration(std::isfinite(m_plan.duration) ? m_plan.duration : 0.0);
    Q_EMIT compositionMapChanged();

    double target = fromStart ? 0.0 : sourceTimeToCompositionTime(anchor);
    if (m_pendingSeekBlockId) {
        if (const CompositionEntry *entry = entryOfBlock(*m_pendingSeekBlockId)) {
            target = entry->compositionStart;
        } else if (m_plan.map.isEmpty()) {
            target = 0.0;
        } else {
            const auto nearest
                = std::min_element(m_plan.map.cbegin(), m_plan.map.cend(),
                                   [anchor](const CompositionEntry &a, const CompositionEntry &b) {
                                       return std::abs(a.block.mediaStart - anchor)
                                           < std::abs(b.block.mediaStart - anchor);
                                   });
            target = nearest->compositionStart;
        }
        m_pendingSeekBlockId.reset();
    }
    target = std::max(std::min(target, m_duration), 0.0);
    // A word placed under the play head stays current at its new place.
    if (m_placedAt)
        m_placedAt = target;

    QPointer<VideoPlayerViewModel> self(this);
    const quint64 placement = ++m_placement;
    m_player->seek(target, [this, self, target, wasPlaying, placement](bool) {
        if (!self)
            return;
        if (placement == m_placement)
            publishCurrentTime(target);
        // Only playback that is still wanted resumes: a pause, or the end of the result,
        // that came in the meantime stands.
        if (wasPlaying && m_isPlaying)
            startPlayback();
    });
    recomputeDeletedTimeRanges();
}

void VideoPlayerViewModel::playRawSource()
{
    const QString path = m_sourceAssets.isEmpty() ? QString() : m_sourceAssets.first().path;
    m_player->replaceWithSource(path);
    QObject::disconnect(m_statusObservation);
    m_statusObservation = connect(
        m_player.get(), &media::Player::itemStatusChanged, this,
        [this] {
            if (m_player->itemStatus() != media::ItemStatus::readyToPlay)
                return;
            const double d = m_player->itemDuration();
            setDuration(std::isfinite(d) ? d : 0.0);
        },
        Qt::QueuedConnection);
    forgetPlan();
    Q_EMIT compositionMapChanged();
    if (!m_deletedTimeRanges.isEmpty()) {
        m_deletedTimeRanges.clear();
        Q_EMIT deletedTimeRangesChanged();
    }
    setDuration(m_sourceDuration);
}

void VideoPlayerViewModel::forgetPlan()
{
    m_plan = {};
    m_plannedBlocks.clear();
}

CompositionPlan VideoPlayerViewModel::planFor(const QList<WordBlock> &blocks) const
{
    // Before the sources are known nothing is clamped to a track.
    static const QList<SourceTrackInfo> unknownSources {SourceTrackInfo {}};
    return planComposition(blocks, m_sourceTracks.isEmpty() ? unknownSources : m_sourceTracks,
                           m_pauseLimit);
}

double VideoPlayerViewModel::compositionTimeToSourceTime(double t) const
{
    if (m_plan.map.isEmpty())
        return t;
    // The last entry starting at or before `t`; the map is in composition order.
    const auto after = std::upper_bound(
        m_plan.map.cbegin(), m_plan.map.cend(), t,
        [](double time, const CompositionEntry &e) { return time < e.compositionStart; });
    if (after == m_plan.map.cbegin() || std::isnan(t))
        return m_plan.map.first().block.mediaStart;
    const CompositionEntry &entry = *std::prev(after);
    return entry.block.mediaStart + (t - entry.compositionStart);
}

// A moment that no kept word plays (a pause, a deleted word, the silence before the first
// word) stands for the word that follows it in the recording: opening a project whose
// speech starts late then starts at its first word, and an edit beside the play head
// moves it on to the next word rather than to the end.
double VideoPlayerViewModel::sourceTimeToCompositionTime(double s) const
{
    if (m_plan.map.isEmpty())
        return s;
    const CompositionEntry *next = nullptr;
    for (const CompositionEntry &entry : m_plan.map) {
        if (entry.block.mediaStart <= s && s < entry.block.mediaEnd)
            return entry.compositionStart + (s - entry.block.mediaStart);
        if (entry.block.mediaStart > s
            && (!next || entry.block.mediaStart < next->block.mediaStart))
            next = &entry;
    }
    return next ? next->compositionStart : m_plan.map.last().compositionEnd();
}

void VideoPlayerViewModel::onPeriodicTime(double t)
{
    if (!std::isfinite(t))
        return;
    const double now = m_clock.now();
    if (t != m_lastReportedTime) {
        m_lastReportedTime = t;
        m_reportedTimeSince = now;
    } else if (m_isPlaying && m_duration > 0.0 && t >= m_duration - stalledEndWindow
               && now - m_reportedTimeSince >= stalledEndWindow) {
        reachedTheEnd();
    }

    if (m_placedAt) {
        if (std::abs(t - *m_placedAt) < placementTolerance)
            return;
        m_placedAt.reset();
    }
    if (now - m_lastUIPublishTime < uiPublishInterval)
        return;
    m_lastUIPublishTime = now;

    if (std::abs(m_currentTime - t) > 0.001)
        publishCurrentTime(t);
    setActiveWordBlockId(blockAt(t));
}

QUuid VideoPlayerViewModel::blockAt(double t) const
{
    for (const CompositionEntry &entry : m_plan.map) {
        if (entry.compositionStart <= t && t < entry.compositionEnd())
            return entry.block.id;
    }
    return {};
}

void VideoPlayerViewModel::recomputeDeletedTimeRanges()
{
    QList<DeletedTimeRange> ranges = kavel::deletedTimeRanges(m_plan.map);
    if (ranges != m_deletedTimeRanges) {
        m_deletedTimeRanges = std::move(ranges);
        Q_EMIT deletedTimeRangesChanged();
    }
}

void VideoPlayerViewModel::togglePlayPause()
{
    if (m_isPlaying) {
        pause();
        return;
    }
    // Play at the very end (where an edit that removed the moment under the play head
    // leaves it) starts the edited result over, as any player does.
    if (m_duration > 0.0 && m_currentTime >= m_duration - endTolerance) {
        ++m_placement;
        m_player->seek(0.0, [](bool) {});
        publishCurrentTime(0.0);
    }
    startPlayback();
}

void VideoPlayerViewModel::startPlayback()
{
    m_player->setRate(m_playbackSpeed);
    setIsPlaying(true);
    // A range that is playing ends through its own observer, which reports it.
    if (!m_boundaryObserver)
        watchForTheEnd();
}

void VideoPlayerViewModel::pause()
{
    m_player->setRate(0.0);
    setIsPlaying(false);
    removeBoundaryObserver();
    removeEndObserver();
}

// Engines hold the last frame at the end and may keep their rate; the model stops there,
// so the play button shows play and the next edit does not set the preview going again.
void VideoPlayerViewModel::watchForTheEnd()
{
    removeEndObserver();
    if (m_duration <= 0.0)
        return;
    QPointer<VideoPlayerViewModel> self(this);
    m_endObserver = m_player->addBoundaryTimeObserver({m_duration}, [this, self] {
        if (self)
            reachedTheEnd();
    });
}

void VideoPlayerViewModel::removeEndObserver()
{
    if (m_endObserver) {
        m_player->removeTimeObserver(*m_endObserver);
        m_endObserver.reset();
    }
}

void VideoPlayerViewModel::reachedTheEnd()
{
    if (m_isPlaying && !m_boundaryObserver)
        pause();
}

void VideoPlayerViewModel::stop()
{
    removeBoundaryObserver();
    pause();
}

void VideoPlayerViewModel::removeBoundaryObserver()
{
    if (m_boundaryObserver) {
        m_player->removeTimeObserver(*m_boundaryObserver);
        m_boundaryObserver.reset();
    }
}

void VideoPlayerViewModel::setPlaybackSpeed(float speed)
{
    if (m_playbackSpeed != speed) {
        m_playbackSpeed = speed;
        Q_EMIT playbackSpeedChanged();
    }
    if (m_isPlaying)
        m_player->setRate(m_playbackSpeed);
}

void VideoPlayerViewModel::setVolume(float volume)
{
    if (m_volume != volume) {
        m_volume = volume;
        Q_EMIT volumeChanged();
    }
    m_player->setVolume(m_volume);
}

void VideoPlayerViewModel::setVideoRotationDegrees(double degrees)
{
    if (m_videoRotationDegrees == degrees)
        return;
    m_videoRotationDegrees = degrees;
    Q_EMIT videoRotationDegreesChanged();
}

const CompositionEntry *VideoPlayerViewModel::entryOfBlock(const QUuid &id) const
{
    const auto it = std::find_if(m_plan.map.cbegin(), m_plan.map.cend(),
                                 [&id](const CompositionEntry &e) { return e.block.id == id; });
    return it == m_plan.map.cend() ? nullptr : &*it;
}

void VideoPlayerViewModel::seekToBlock(const WordBlock &block)
{
    const CompositionEntry *entry = entryOfBlock(block.id);
    const double t
        = entry ? entry->compositionStart : sourceTimeToCompositionTime(block.mediaStart);
    ++m_placement;
    m_player->seek(t, [](bool) {});
    publishCurrentTime(t);
    setActiveWordBlockId(block.id);
    m_placedAt = t;
}

void VideoPlayerViewModel::seek(double t)
{
    if (!std::isfinite(t))
        return;
    t = std::clamp(t, 0.0, std::max(m_duration, 0.0));
    ++m_placement;
    m_player->seek(t, [](bool) {});
    publishCurrentTime(t);
    setActiveWordBlockId(blockAt(t));
}

void VideoPlayerViewModel::playRange(const QUuid &fromBlockId, const QUuid &toBlockId,
                                     std::function<void()> onFinish, bool loop)
{
    const CompositionEntry *from = entryOfBlock(fromBlockId);
    if (!from)
        return;
    const CompositionEntry *to = entryOfBlock(toBlockId);
    if (!to)
        return;
    const double start = from->compositionStart;
    const double end = to->compositionEnd();

    removeBoundaryObserver();
    ++m_placement;
    m_player->seek(start, [](bool) {});
    m_player->setStopTime(end);
    publishCurrentTime(start);
    QPointer<VideoPlayerViewModel> self(this);
    m_boundaryObserver = m_player->addBoundaryTimeObserver(
        {end}, [this, self, start, end, loop, onFinish = std::move(onFinish)] {
            if (!self)
                return;
            if (loop) {
                ++m_placement;
                m_player->seek(start, [](bool) {});
                m_player->setStopTime(end);
                publishCurrentTime(start);
                return;
            }
            pause();
            if (onFinish)
                onFinish();
        });
    startPlayback();
}

void VideoPlayerViewModel::setCurrentTime(double t)
{
    ++m_placement;
    publishCurrentTime(t);
}

void VideoPlayerViewModel::publishCurrentTime(double t)
{
    if (m_currentTime == t)
        return;
    m_currentTime = t;
    Q_EMIT currentTimeChanged();
}

void VideoPlayerViewModel::setDuration(double d)
{
    if (m_duration == d)
        return;
    m_duration = d;
    if (m_endObserver)
        watchForTheEnd();
    Q_EMIT durationChanged();
}

void VideoPlayerViewModel::setIsPlaying(bool playing)
{
    if (m_isPlaying == playing)
        return;
    m_isPlaying = playing;
    Q_EMIT isPlayingChanged();
}

void VideoPlayerViewModel::setActiveWordBlockId(const QUuid &id)
{
    if (m_activeWordBlockId == id)
        return;
    m_activeWordBlockId = id;
    Q_EMIT activeWordBlockIdChanged();
}

} // namespace kavel
