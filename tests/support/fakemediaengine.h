#pragma once

#include "media/mediaengine.h"

#include <QHash>
#include <memory>

namespace kavel::test {

// A player that only records what it is told; the test plays the clock and the media.
class FakePlayer final : public media::Player
{
public:
    QList<media::SegmentFailure> replaceWithComposition(const media::EditList &editList) override;
    void replaceWithSource(const QString &path) override;
    media::ItemStatus itemStatus() const override { return m_status; }
    double itemDuration() const override { return m_itemDuration; }
    void setRate(double rate) override { m_rate = rate; }
    double rate() const override { return m_rate; }
    void setVolume(float volume) override { m_volume = volume; }
    void seek(double seconds, std::function<void(bool)> completion) override;
    double currentTime() const override { return m_time; }
    ObserverId addPeriodicTimeObserver(double interval,
                                       std::function<void(double)> callback) override;
    ObserverId addBoundaryTimeObserver(const QList<double> &times,
                                       std::function<void()> callback) override;
    void removeTimeObserver(ObserverId id) override;
    void setStopTime(std::optional<double>) override { }

    // Test controls.
    void completeSeeks();
    // Moves the play head to `t` as playback would: boundary observers between the old
    // and the new time fire, then the periodic observers get `t`.
    void playTo(double t);
    void reportTime(double t);
    void makeSourceReady(double duration);
    void failSegmentsOf(const QString &path, const QString &reason);

    QList<media::EditList> compositions;
    QStringList rawSources;
    QList<double> seeks;
    float volume() const { return m_volume; }
    qsizetype boundaryObserverCount() const;

private:
    struct Observer
    {
        double interval = 0.0;
        QList<double> times;
        std::function<void(double)> periodic;
        std::function<void()> boundary;
    };
    media::ItemStatus m_status = media::ItemStatus::unknown;
    double m_itemDuration = 0.0;
    double m_time = 0.0;
    double m_rate = 0.0;
    float m_volume = 1.0f;
    QList<std::function<void(bool)>> m_pendingSeeks;
    QHash<ObserverId, Observer> m_observers;
    ObserverId m_nextObserver = 1;
    QHash<QString, QString> m_failingSources;
};

class FakeThumbnailGenerator;

// Media files are whatever the test declares; anything else fails to open.
class FakeMediaEngine final : public media::MediaEngine
{
public:
    media::MediaInfo probe(const QString &path) override;
    std::unique_ptr<media::Player> createPlayer() override;
    std::unique_ptr<media::ThumbnailGenerator>
    createThumbnailGenerator(const QString &path, const media::ThumbnailOptions &options) override;

    void addMedia(const QString &path, const media::MediaInfo &info) { m_media.insert(path, info); }
    // Files of `duration` seconds: video with sound, or sound alone.
    static media::MediaInfo videoWithAudio(double duration);
    static media::MediaInfo audioOnly(double duration);

    FakePlayer *lastPlayer = nullptr;
    int generatorsMade = 0;
    QList<double> framesRequested;

private:
    QHash<QString, media::MediaInfo> m_media;
};

} // namespace kavel::test
