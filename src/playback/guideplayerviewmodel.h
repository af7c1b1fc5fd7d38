#pragma once

#include "media/mediaengine.h"
#include "service/servicelog.h"

#include <QObject>
#include <QString>
#include <cmath>
#include <memory>
#include <optional>

namespace kavel {

// The guide screen's demonstration video: one shipped clip that plays in a loop. Views
// observe the properties and call the operations; frames come from the player itself.
class GuidePlayerViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)

public:
    static constexpr double periodicInterval = 0.1;
    // How close to the end a play head that stopped moving counts as having reached it.
    static constexpr double endTolerance = 0.25;
    // Where the application keeps the clip among its compiled-in resources.
    static QString defaultResourcePath();

    // Looks the clip up at `resourcePath` (a Qt resource or a plain file) and loads it;
    // without it the player stays empty and only a log line says why.
    explicit GuidePlayerViewModel(media::MediaEngine &engine,
                                  const QString &resourcePath = defaultResourcePath(),
                                  service::LogSink log = service::standardOutputSink(),
                                  QObject *parent = nullptr);
    ~GuidePlayerViewModel() override;

    bool isPlaying() const { return m_isPlaying; }
    float volume() const { return m_volume; }
    double currentTime() const { return m_currentTime; }
    double duration() const { return m_duration; }
    // The file the player reads; empty when there is no clip.
    const QString &videoPath() const { return m_videoPath; }

    // Playing without a clip does nothing.
    void play();
    void pause();
    void togglePlayPause();
    // Clamped to 0…1.
    void setVolume(float volume);

    media::Player &player() { return *m_player; }

Q_SIGNALS:
    void isPlayingChanged();
    void volumeChanged();
    void currentTimeChanged();
    void durationChanged();

private:
    void onItemStatus();
    void onPeriodicTime(double t);
    void watchForTheEnd();
    void restartFromTheBeginning();
    void setIsPlaying(bool playing);
    void setCurrentTime(double t);
    void setDuration(double d);
    void removeEndObserver();

    std::unique_ptr<media::Player> m_player;
    service::LogSink m_log;
    QString m_videoPath;
    bool m_isPlaying = false;
    float m_volume = 1.0f;
    double m_currentTime = 0.0;
    double m_duration = 0.0;
    double m_lastObservedTime = std::nan("");
    // The seek back to the start after the end has not completed yet.
    bool m_restarting = false;
    std::optional<media::Player::ObserverId> m_timeObserver;
    std::optional<media::Player::ObserverId> m_endObserver;
};

} // namespace kavel
