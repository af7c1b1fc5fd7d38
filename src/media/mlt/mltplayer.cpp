#include "mltplayer.h"

#include "compositionproducer.h"
#include "mediaprobe.h"
#include "previewloudness.h"

#include <Mlt.h>
#include <QMetaObject>
#include <QPointer>
#include <QTextStream>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// Sound-only projects are laid on a grid this fine: their sound is exact whatever the grid,
// which only sets how finely the play head steps and a seek lands.
constexpr FrameRate audioOnlyRate {100, 1};

// A sound card that holds the consumer makes it wait a second per frame; this many
// watches in a row without a new frame while playing means that is happening.
constexpr int soundWatchMilliseconds = 500;
constexpr int stalledWatches = 4;

void log(const QString &line)
{
    QTextStream(stdout) << u"[Player] "_s << line << Qt::endl;
}

} // namespace

MltPlayer::MltPlayer(QObject *parent)
    : Player(parent)
    , m_profile(std::make_unique<Mlt::Profile>())
{
    m_boundaryTimer.setInterval(10);
    m_boundaryTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_boundaryTimer, &QTimer::timeout, this, &MltPlayer::checkBoundaries);
    m_soundWatch.setInterval(soundWatchMilliseconds);
    connect(&m_soundWatch, &QTimer::timeout, this, &MltPlayer::checkSoundOutput);
}

MltPlayer::~MltPlayer()
{
    if (m_consumer) {
        m_consumer->stop();
        m_consumer.reset();
    }
    m_root.reset();
}

void MltPlayer::ensureProfile(const QString &firstVideoPath)
{
    if (m_profileSet)
        return;
    m_profileSet = true;
    FrameRate rate = audioOnlyRate;
    QSize size(640, 360);
    if (!firstVideoPath.isEmpty()) {
        try {
            const ProbedMedia probed = probeMedia(firstVideoPath);
            if (probed.info.hasVideo) {
                rate = probed.frameRate;
                size = probed.info.videoSize;
                if (probed.info.rotationDegrees % 180 != 0)
                    size.transpose();
            }
        } catch (const MediaError &) {
            // Unreadable: the composition will report its segments; keep the defaults.
        }
    }
    // The profile is the picture at its own size: frames are rendered smaller for a
    // small view, but never larger than this, so a full screen gets all the detail the
    // recording has and no more.
    size = size.boundedTo({3840, 3840});
    m_pictureSize = QSize(std::max(2, size.width() & ~1), std::max(2, size.height() & ~1));
    m_profile->set_explicit(1);
    m_profile->set_frame_rate(rate.num, rate.den);
    m_profile->set_width(m_pictureSize.width());
    m_profile->set_height(m_pictureSize.height());
    m_profile->set_sample_aspect(1, 1);
    m_profile->set_display_aspect(size.width(), size.height());
    m_profile->set_progressive(1);
    m_profile->set_colorspace(709);
}

double MltPlayer::frameRate() const
{
    return m_profile->fps();
}

Mlt::Producer *MltPlayer::currentProducer() const
{
    return m_root.get();
}

// The consumer plays one root playlist for its whole life and the current item is that
// playlist's only entry: switching items or editing the composition then never stops the
// consumer, which would close and reopen the sound device each time.
void MltPlayer::ensureConsumer()
{
    if (m_consumer)
        return;
    m_root = std::make_unique<Mlt::Playlist>(*m_profile);
    m_consumer = std::make_unique<Mlt::Consumer>(*m_profile, "sdl2_audio");
    if (!m_consumer->is_valid())
        m_consumer = std::make_unique<Mlt::Consumer>(*m_profile, "null");
    m_consumer->set("terminate_on_pause", 0);
    m_consumer->set("real_time", 1);
    // A short queue between decoding and the sound card: a seek then shows its frame
    // after a few frames' worth of work instead of after a second of stale audio.
    m_consumer->set("buffer", 2);
    m_consumer->set("prefill", 1);
    // 512 samples (11 ms at 48 kHz): a seek waits for this much old sound to drain.
    m_consumer->set("audio_buffer", 512);
    m_consumer->set("scrub_audio", 0);
    m_consumer->set("volume", double(m_volume));
    m_consumer->set("mlt_image_format", "rgba");
    m_consumer->set("channels", 2);
    m_consumer->set("frequency", 48000);
    m_consumer->listen(
        "consumer-frame-show", this,
        reinterpret_cast<mlt_listener>(+[](mlt_properties, void *owner, mlt_event_data data) {
            onFrameShow(owner, mlt_event_data_to_frame(data));
        }));
    m_consumer->connect(*m_root);
    startConsumer();
    // Starting a consumer sets its producer going at normal speed.
    m_root->set_speed(m_rate);
    // Only now: before it starts, a consumer writes the frame size it is given into the
    // profile it shares with the producers, and would shrink the picture for good.
    if (!m_videoSize.isEmpty())
        renderFor(m_videoSize);
}

void MltPlayer::startConsumer()
{
    if (m_consumer->start() == 0)
        return;
    // No sound system could be set up at all. SDL's dummy driver takes the sound without
    // a card; with the sound switched off the consumer times the frames by the clock.
    playSilently(u"no sound output could be opened"_s);
    m_consumer->set("audio_driver", "dummy");
    if (m_consumer->start() != 0)
        log(u"The preview cannot play: the consumer does not start"_s);
}

void MltPlayer::playSilently(const QString &reason)
{
    if (m_silent)
        return;
    m_silent = true;
    m_soundWatch.stop();
    m_consumer->set("audio_off", 1);
    log(u"Playing without sound: "_s + reason);
}

// The consumer waits up to a second for a sound card that stopped taking sound, then
// opens it again, frame after frame: the picture all but stops. Once that is seen, the
// sound goes and the clock keeps the time.
void MltPlayer::checkSoundOutput()
{
    const qint64 shown = m_framesShown.load();
    const bool waiting = m_rate == 0.0 || m_resumePending || m_awaitedFrame.load() != -1 || !m_root
        || m_shownFrame.load() >= m_root->get_playtime() - 1;
    if (waiting || shown != m_framesAtLastWatch) {
        m_framesAtLastWatch = shown;
        m_stillWatches = 0;
        return;
    }
    if (++m_stillWatches >= stalledWatches)
        playSilently(u"the sound output stopped taking sound"_s);
}

void MltPlayer::play(Mlt::Producer *producer)
{
    ensureConsumer();
    mlt_service_lock(m_root->get_service());
    m_root->clear();
    if (producer && producer->get_playtime() > 0)
        m_root->append(*producer);
    mlt_service_unlock(m_root->get_service());
    m_consumer->purge();
    m_consumer->set("refresh", 1);
}

// After an edit the root's entry still has the composition's old length.
void MltPlayer::syncRootLength()
{
    const int frames = m_composition->producer().get_playtime();
    mlt_service_lock(m_root->get_service());
    if (m_root->count() == 0 && frames > 0)
        m_root->append(m_composition->producer());
    else if (m_root->count() > 0 && frames == 0)
        m_root->remove(0);
    else if (frames > 0) {
        // The root's cut took the composition's length when it was made and clamps any
        // resize to it, so a composition that grew would be cut short there.
        const std::unique_ptr<Mlt::Producer> cut(m_root->get_clip(0));
        if (cut && cut->get_length() < frames)
            cut->set("length", frames);
        m_root->resize_clip(0, 0, frames - 1);
    }
    mlt_service_unlock(m_root->get_service());
}

void MltPlayer::onFrameShow(void *owner, void *rawFrame)
{
    auto *self = static_cast<MltPlayer *>(owner);
    auto frame = static_cast<mlt_frame>(rawFrame);
    if (!frame)
        return;
    const int position = static_cast<int>(mlt_frame_get_position(frame));
    // Frames decoded before a seek may still come through; until the seek's own frame
    // shows, they are not where the play head is.
    int awaited = self->m_awaitedFrame.load();
    if (awaited != -1) {
        if (awaited != position || !self->m_awaitedFrame.compare_exchange_strong(awaited, -1))
            return;
        // Not from here: this thread holds the consumer's refresh lock.
        QMetaObject::invokeMethod(
            self, [self] { self->resumeAfterSeek(); }, Qt::QueuedConnection);
    }
    self->m_shownFrame.store(position);
    self->m_framesShown.fetch_add(1);

    QSize size;
    {
        std::lock_guard lock(self->m_sizeMutex);
        size = self->m_frameSize;
    }
    if (size.isEmpty())
        return;
    mlt_image_format format = mlt_image_rgba;
    int width = size.width();
    int height = size.height();
    uint8_t *pixels = nullptr;
    if (mlt_frame_get_image(frame, &pixels, &format, &width, &height, 0) || !pixels
        || format != mlt_image_rgba)
        return;
    // MLT makes up a plain picture for a frame that has none: sound alone, or nothing.
    if (mlt_properties_get_int(MLT_FRAME_PROPERTIES(frame), "test_image")) {
        QMetaObject::invokeMethod(
            self, [self, position] { Q_EMIT self->frameShown({}, self->timeAtFrame(position)); },
            Qt::QueuedConnection);
        return;
    }
    // A frame rendered before the view grew comes as it is: the view enlarges it, and
    // enlarging it here would only cost more to hand over.
    QImage image = QImage(pixels, width, height, width * 4, QImage::Format_RGBA8888);
    image = image.width() <= size.width() && image.height() <= size.height()
        ? image.copy()
        : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    QMetaObject::invokeMethod(
        self,
        [self, image, position] { Q_EMIT self->frameShown(image, self->timeAtFrame(position)); },
        Qt::QueuedConnection);
}

// The decoding thread then hands over frames already scaled and converted for the view,
// so the thread that keeps time only copies them. They keep the picture's proportions:
// asked for another shape, MLT would paint black bars into the frame itself, and a view
// that fits the frame to a bigger screen would scale the bars up with it. A view bigger
// than the picture gets the picture at its own size: MLT's enlarging adds no detail, and
// the view does it as well at a fraction of the cost of handing over bigger frames.
void MltPlayer::renderFor(const QSize &size)
{
    QSize fitted = m_pictureSize.scaled(size, Qt::KeepAspectRatio).boundedTo(m_pictureSize);
    fitted = QSize(std::max(2, fitted.width() & ~1), std::max(2, fitted.height() & ~1));
    {
        std::lock_guard lock(m_sizeMutex);
        if (fitted == m_frameSize)
            return;
        m_frameSize = fitted;
    }
    m_consumer->set("width", fitted.width());
    m_consumer->set("height", fitted.height());
    // Playing, the next frames come at the new size anyway. Paused, the frame on show
    // would stay as it was rendered (a small picture blown up to full screen), so it is
    // rendered again where the play head is. That is the frame shown, not where the
    // producer is: it read a frame or two ahead before the pause.
    if (m_rate == 0.0 && m_awaitedFrame.load() == -1 && m_root && m_root->get_playtime() > 0) {
        m_root->seek(m_shownFrame.load());
        m_consumer->purge();
        m_consumer->set("refresh", 1);
    }
}

void MltPlayer::setVideoSize(const QSize &size)
{
    {
        std::lock_guard lock(m_sizeMutex);
        m_videoSize = size;
        if (size.isEmpty())
            m_frameSize = QSize();
    }
    if (m_consumer && !size.isEmpty())
        renderFor(size);
}

QList<SegmentFailure> MltPlayer::replaceWithComposition(const EditList &editList)
{
    QString firstVideo;
    for (const EditSegment &segment : editList.segments)
        if (segment.withVideo) {
            firstVideo = segment.sourcePath;
            break;
        }
    ensureProfile(firstVideo);
    ensureComposition();
    const QList<SegmentFailure> failures = m_composition->apply(editList);
    m_loudness->setEdit(editList);
    if (!m_playingComposition) {
        m_playingComposition = true;
        play(&m_composition->producer());
        m_raw.reset();
    } else {
        syncRootLength();
        // Frames decoded from the old list must not be shown: the seek every new item
        // needs purges them. Purging here as well would wake the consumer twice per edit,
        // and on a busy machine each wake costs the editor its turn on the processor.
    }
    m_status = ItemStatus::readyToPlay;
    QMetaObject::invokeMethod(this, &Player::itemStatusChanged, Qt::QueuedConnection);
    return failures;
}

void MltPlayer::ensureComposition()
{
    if (!m_composition) {
        m_composition = std::make_unique<CompositionProducer>(*m_profile);
        m_loudness = std::make_unique<PreviewLoudness>(m_composition->sound());
        m_loudness->setTarget(m_loudnessTarget);
    }
}

void MltPlayer::setLoudnessTarget(std::optional<double> lufs)
{
    m_loudnessTarget = lufs;
    if (m_loudness)
        m_loudness->setTarget(lufs);
}

void MltPlayer::prepareSources(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (!m_profileSet) {
            try {
                if (!probeMedia(path).info.hasVideo)
                    continue;
            } catch (const MediaError &) {
                continue;
            }
            ensureProfile(path);
        }
    }
    // An audio-only project gets the fixed rate.
    ensureProfile(QString());
    ensureComposition();
    for (const QString &path : paths)
        m_composition->prepare(path);
    ensureConsumer();
}

void MltPlayer::replaceWithSource(const QString &path)
{
    ensureProfile(path);
    auto producer = std::make_unique<Mlt::Producer>(*m_profile, path.toUtf8().constData());
    m_playingComposition = false;
    if (producer->is_valid()) {
        m_raw = std::move(producer);
        play(m_raw.get());
        m_status = ItemStatus::readyToPlay;
    } else {
        play(nullptr);
        m_raw.reset();
        m_status = ItemStatus::failed;
    }
    m_shownFrame.store(0);
    QMetaObject::invokeMethod(this, &Player::itemStatusChanged, Qt::QueuedConnection);
}

double MltPlayer::itemDuration() const
{
    if (m_playingComposition && m_composition)
        return m_composition->duration();
    if (m_raw)
        return m_raw->get_length() / m_profile->fps();
    return std::nan("");
}

void MltPlayer::setRate(double rate)
{
    if (rate == 0.0 && m_stopTime) {
        // Frames already queued ran on silently past the end; the play head goes back to it.
        const double end = *m_stopTime;
        setStopTime(std::nullopt);
        if (currentTime() > end)
            seek(end, {});
    }
    m_resumePending = false;
    m_rate = rate;
    if (rate != 0.0 && !m_silent && !m_soundWatch.isActive()) {
        m_framesAtLastWatch = m_framesShown.load();
        m_stillWatches = 0;
        m_soundWatch.start();
    } else if (rate == 0.0) {
        m_soundWatch.stop();
    }
    if (Mlt::Producer *producer = currentProducer()) {
        producer->set_speed(rate);
        if (m_consumer)
            m_consumer->set("refresh", 1);
    }
    m_lastBoundaryCheck = currentTime();
}

void MltPlayer::setVolume(float volume)
{
    m_volume = volume;
    if (m_consumer)
        m_consumer->set("volume", double(volume));
}

double MltPlayer::timeAtFrame(int frame) const
{
    if (m_playingComposition && m_composition)
        return m_composition->secondsAtFrame(frame);
    return frame / m_profile->fps();
}

void MltPlayer::setStopTime(std::optional<double> seconds)
{
    m_stopTime = seconds;
    if (m_composition)
        m_composition->sound().setStopAt(m_playingComposition ? seconds : std::nullopt);
}

void MltPlayer::seek(double seconds, std::function<void(bool)> completion)
{
    if (m_stopTime)
        setStopTime(std::nullopt);
    Mlt::Producer *producer = currentProducer();
    const quint64 generation = ++m_seekGeneration;
    bool done = false;
    if (producer && std::isfinite(seconds)) {
        const int frame = m_playingComposition && m_composition
            ? m_composition->frameAtSeconds(seconds)
            : static_cast<int>(std::lround(seconds * m_profile->fps()));
        // While playing, the consumer shows a frame only when the sound queued before it
        // has played (up to a fifth of a second). Paused, it shows a frame at once; so
        // pause for the one frame at the target and resume as soon as it is shown.
        producer->seek(frame);
        if (m_consumer) {
            // MLT clamps the position to the item; wait for the frame it will show.
            m_awaitedFrame.store(producer->position());
            if (m_rate != 0.0) {
                producer->set_speed(0.0);
                m_resumePending = true;
            }
            // Should that frame never show (another seek, an edit), carry on regardless.
            QTimer::singleShot(250, this, [this, generation] {
                if (generation != m_seekGeneration)
                    return;
                m_awaitedFrame.store(-1);
                resumeAfterSeek();
            });
            m_consumer->purge();
            m_consumer->set("refresh", 1);
        }
        m_shownFrame.store(frame);
        m_lastBoundaryCheck = timeAtFrame(frame);
        done = true;
    }
    QPointer<MltPlayer> self(this);
    QMetaObject::invokeMethod(
        this,
        [this, self, generation, done, completion = std::move(completion)] {
            if (!self || !completion)
                return;
            completion(done && generation == m_seekGeneration);
        },
        Qt::QueuedConnection);
}

void MltPlayer::resumeAfterSeek()
{
    if (!m_resumePending || m_rate == 0.0 || !m_root)
        return;
    m_resumePending = false;
    m_root->set_speed(m_rate);
    m_consumer->set("refresh", 1);
}

double MltPlayer::currentTime() const
{
    return timeAtFrame(m_shownFrame.load());
}

Player::ObserverId MltPlayer::addPeriodicTimeObserver(double interval,
                                                      std::function<void(double)> callback)
{
    const ObserverId id = m_nextObserver++;
    auto observer = std::make_shared<Observer>();
    observer->periodic = std::move(callback);
    observer->timer = std::make_unique<QTimer>();
    observer->timer->setInterval(static_cast<int>(std::lround(interval * 1000)));
    std::weak_ptr<Observer> weak = observer;
    connect(observer->timer.get(), &QTimer::timeout, this, [this, weak] {
        if (const auto o = weak.lock())
            o->periodic(currentTime());
    });
    observer->timer->start();
    m_observers.insert(id, observer);
    return id;
}

Player::ObserverId MltPlayer::addBoundaryTimeObserver(const QList<double> &times,
                                                      std::function<void()> callback)
{
    const ObserverId id = m_nextObserver++;
    auto observer = std::make_shared<Observer>();
    observer->times = times;
    observer->boundary = std::move(callback);
    m_observers.insert(id, observer);
    m_lastBoundaryCheck = currentTime();
    m_boundaryTimer.start();
    return id;
}

void MltPlayer::removeTimeObserver(ObserverId id)
{
    m_observers.remove(id);
    const bool anyBoundary = std::any_of(m_observers.cbegin(), m_observers.cend(),
                                         [](const auto &o) { return bool(o->boundary); });
    if (!anyBoundary)
        m_boundaryTimer.stop();
}

void MltPlayer::checkBoundaries()
{
    const double now = currentTime();
    const double before = m_lastBoundaryCheck;
    m_lastBoundaryCheck = now;
    if (!(now > before))
        return;
    const auto observers = m_observers;
    for (auto it = observers.cbegin(); it != observers.cend(); ++it) {
        if (!(*it)->boundary || !m_observers.contains(it.key()))
            continue;
        for (double t : std::as_const((*it)->times)) {
            // A boundary at the very end is reached when the last frame shows.
            const double reach = std::min(t, itemDuration() - 1.0 / m_profile->fps());
            if (before < reach && reach <= now) {
                (*it)->boundary();
                break;
            }
        }
    }
}

} // namespace kavel::media::mlt
