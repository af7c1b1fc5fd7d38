#pragma once

#include "media/mediaengine.h"

#include <QHash>
#include <QImage>
#include <QTimer>
#include <atomic>
#include <memory>
#include <mutex>

namespace Mlt {
class Consumer;
class Playlist;
class Producer;
class Profile;
} // namespace Mlt

namespace kavel::media::mlt {

class CompositionProducer;
class PreviewLoudness;

// Plays through MLT's sdl2_audio consumer, which keeps real time by the sound card and
// hands each due frame to a listener. The consumer runs from the first item on; pausing
// is speed 0, so the shown frame stays and a seek while paused shows the new one. Without
// a sound card that can be opened, or with one that stops taking sound, it plays on
// silently, timed by the clock.
class MltPlayer final : public Player
{
    Q_OBJECT

public:
    explicit MltPlayer(QObject *parent = nullptr);
    ~MltPlayer() override;

    QList<SegmentFailure> replaceWithComposition(const EditList &editList) override;
    void replaceWithSource(const QString &path) override;
    void prepareSources(const QStringList &paths) override;
    ItemStatus itemStatus() const override { return m_status; }
    double itemDuration() const override;
    void setRate(double rate) override;
    double rate() const override { return m_rate; }
    void setVolume(float volume) override;
    void setLoudnessTarget(std::optional<double> lufs) override;
    void seek(double seconds, std::function<void(bool)> completion) override;
    double currentTime() const override;
    ObserverId addPeriodicTimeObserver(double interval,
                                       std::function<void(double)> callback) override;
    ObserverId addBoundaryTimeObserver(const QList<double> &times,
                                       std::function<void()> callback) override;
    void removeTimeObserver(ObserverId id) override;
    void setStopTime(std::optional<double> seconds) override;

    // Shown frames as images that fit `size` (device pixels) with the picture's own
    // proportions but never larger than the picture itself, delivered on the player's
    // thread; a frame without a picture (sound alone) comes as a null image. An empty size
    // stops the delivery (frames are then not converted). A new size takes effect without
    // a pause: the paused frame is shown again at it, playback goes on where it was.
    void setVideoSize(const QSize &size);
    // Frames the consumer has shown since the player was made.
    qint64 framesShown() const { return m_framesShown.load(); }
    // The composition frame last shown.
    int shownFrame() const { return m_shownFrame.load(); }
    double frameRate() const;
    CompositionProducer *composition() { return m_composition.get(); }
    // Null before the first composition.
    PreviewLoudness *loudness() { return m_loudness.get(); }

Q_SIGNALS:
    void frameShown(const QImage &image, double time);

private:
    struct Observer
    {
        QList<double> times;
        std::function<void()> boundary;
        std::function<void(double)> periodic;
        std::unique_ptr<QTimer> timer;
    };

    static void onFrameShow(void *owner, void *frame);
    void ensureProfile(const QString &firstVideoPath);
    void ensureComposition();
    void ensureConsumer();
    void renderFor(const QSize &size);
    void play(Mlt::Producer *producer);
    void syncRootLength();
    void checkBoundaries();
    void resumeAfterSeek();
    void startConsumer();
    void checkSoundOutput();
    void playSilently(const QString &reason);
    double timeAtFrame(int frame) const;
    Mlt::Producer *currentProducer() const;

    std::unique_ptr<Mlt::Profile> m_profile;
    bool m_profileSet = false;
    // The picture's own size, even: the most a frame is rendered at.
    QSize m_pictureSize {640, 360};
    std::unique_ptr<CompositionProducer> m_composition;
    // After the composition, whose sound it sets: it goes first.
    std::unique_ptr<PreviewLoudness> m_loudness;
    std::optional<double> m_loudnessTarget;
    std::unique_ptr<Mlt::Producer> m_raw;
    bool m_playingComposition = false;
    std::unique_ptr<Mlt::Playlist> m_root;
    std::unique_ptr<Mlt::Consumer> m_consumer;
    ItemStatus m_status = ItemStatus::unknown;
    double m_rate = 0.0;
    float m_volume = 1.0f;

    std::atomic<int> m_shownFrame {0};
    // The frame the last seek waits to show; -1 once it has (or when there is none).
    std::atomic<int> m_awaitedFrame {-1};
    // A seek while playing paused the consumer to show its frame at once.
    bool m_resumePending = false;
    std::atomic<qint64> m_framesShown {0};
    std::mutex m_sizeMutex;
    QSize m_videoSize;
    // m_videoSize narrowed to the picture's proportions: the size frames come in.
    QSize m_frameSize;
    // Watches that frames keep coming while playing: a sound card that stops taking
    // sound holds every frame back.
    QTimer m_soundWatch;
    qint64 m_framesAtLastWatch = 0;
    int m_stillWatches = 0;
    bool m_silent = false;

    QHash<ObserverId, std::shared_ptr<Observer>> m_observers;
    ObserverId m_nextObserver = 1;
    QTimer m_boundaryTimer;
    double m_lastBoundaryCheck = 0.0;
    quint64 m_seekGeneration = 0;
    std::optional<double> m_stopTime;
};

} // namespace kavel::media::mlt
