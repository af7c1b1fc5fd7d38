#include "guideplayerviewmodel.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSaveFile>
#include <QStandardPaths>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

constexpr qint64 copyChunk = 1 << 20;

// Whether the file at `path` holds exactly the bytes of `source`, read in pieces: the clip
// may be tens of megabytes.
bool sameContent(const QString &resourcePath, const QString &path)
{
    QFile a(resourcePath);
    QFile b(path);
    if (a.size() != b.size() || !a.open(QIODevice::ReadOnly) || !b.open(QIODevice::ReadOnly))
        return false;
    while (!a.atEnd()) {
        if (a.read(copyChunk) != b.read(copyChunk))
            return false;
    }
    return true;
}

// The media engine opens only real files, so the clip is copied out of the resources once
// and read from the cache from then on. A copy that differs from the shipped clip (another
// version, or one cut short) is rewritten whole, atomically. Returns the copy's path, or an
// empty string with `error` set.
QString cachedCopy(const QString &resourcePath, QString &error)
{
    const QString directory
        = QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + u"/guide"_s;
    const QString target = directory + u'/' + QFileInfo(resourcePath).fileName();
    QFile source(resourcePath);
    if (sameContent(resourcePath, target))
        return target;
    if (!QDir().mkpath(directory)) {
        error = u"cannot create "_s + directory;
        return {};
    }
    if (!source.open(QIODevice::ReadOnly)) {
        error = source.errorString();
        return {};
    }
    QSaveFile copy(target);
    if (!copy.open(QIODevice::WriteOnly)) {
        error = copy.errorString();
        return {};
    }
    while (!source.atEnd()) {
        const QByteArray bytes = source.read(copyChunk);
        if (bytes.isEmpty() || copy.write(bytes) != bytes.size()) {
            error = source.error() != QFileDevice::NoError ? source.errorString()
                                                           : copy.errorString();
            copy.cancelWriting();
            return {};
        }
    }
    if (!copy.commit()) {
        error = copy.errorString();
        return {};
    }
    return target;
}

} // namespace

QString GuidePlayerViewModel::defaultResourcePath()
{
    return u":/guide/demo.MOV"_s;
}

GuidePlayerViewModel::GuidePlayerViewModel(media::MediaEngine &engine, const QString &resourcePath,
                                           service::LogSink log, QObject *parent)
    : QObject(parent)
    , m_player(engine.createPlayer())
    , m_log(std::move(log))
{
    m_timeObserver = m_player->addPeriodicTimeObserver(periodicInterval,
                                                       [this](double t) { onPeriodicTime(t); });
    const QString name = QFileInfo(resourcePath).fileName();
    if (!QFileInfo(resourcePath).isFile()) {
        m_log(u"[Guide] "_s + name + u" not found in bundle"_s);
        return;
    }
    QString error;
    m_videoPath = cachedCopy(resourcePath, error);
    if (m_videoPath.isEmpty()) {
        m_log(u"[Guide] Cannot copy "_s + name + u" to the cache: "_s + error);
        return;
    }
    connect(m_player.get(), &media::Player::itemStatusChanged, this,
            &GuidePlayerViewModel::onItemStatus);
    m_player->replaceWithSource(m_videoPath);
    m_player->setVolume(m_volume);
}

GuidePlayerViewModel::~GuidePlayerViewModel()
{
    removeEndObserver();
    if (m_timeObserver)
        m_player->removeTimeObserver(*m_timeObserver);
}

void GuidePlayerViewModel::onItemStatus()
{
    switch (m_player->itemStatus()) {
    case media::ItemStatus::readyToPlay:
        break;
    case media::ItemStatus::failed:
        m_log(u"[Guide] Cannot play "_s + m_videoPath);
        m_videoPath.clear();
        pause();
        return;
    case media::ItemStatus::unknown:
        return;
    }
    const double d = m_player->itemDuration();
    setDuration(std::isfinite(d) && d > 0.0 ? d : 0.0);
    watchForTheEnd();
}

// The end is a boundary like any other time. Engines report crossing it when the last
// frame shows, whatever they do afterwards (the MLT player holds that frame and keeps its
// rate). The observer exists only while playing: an engine may poll for boundaries.
void GuidePlayerViewModel::watchForTheEnd()
{
    removeEndObserver();
    if (!m_isPlaying || m_duration <= 0.0)
        return;
    QPointer<GuidePlayerViewModel> self(this);
    m_endObserver = m_player->addBoundaryTimeObserver({m_duration}, [this, self] {
        if (self)
            restartFromTheBeginning();
    });
}

void GuidePlayerViewModel::restartFromTheBeginning()
{
    if (!m_isPlaying || m_restarting)
        return;
    m_restarting = true;
    QPointer<GuidePlayerViewModel> self(this);
    m_player->seek(0.0, [this, self](bool finished) {
        if (!self)
            return;
        m_restarting = false;
        // A pause or a newer seek in between has the last word.
        if (finished && m_isPlaying)
            m_player->setRate(1.0);
    });
    setCurrentTime(0.0);
}

void GuidePlayerViewModel::onPeriodicTime(double t)
{
    // Until the seek back to the start lands, the player may still report the end.
    if (!std::isfinite(t) || m_restarting)
        return;
    // A player that drops the last frames under load never shows the frame at the end
    // boundary; its time then stands still just short of the end while it is playing.
    const bool stalledAtTheEnd = m_isPlaying && m_duration > 0.0 && t == m_lastObservedTime
        && t >= m_duration - endTolerance;
    m_lastObservedTime = t;
    setCurrentTime(t);
    if (stalledAtTheEnd)
        restartFromTheBeginning();
}

void GuidePlayerViewModel::play()
{
    if (m_videoPath.isEmpty())
        return;
    m_player->setRate(1.0);
    setIsPlaying(true);
    watchForTheEnd();
}

void GuidePlayerViewModel::pause()
{
    m_player->setRate(0.0);
    setIsPlaying(false);
    removeEndObserver();
}

void GuidePlayerViewModel::togglePlayPause()
{
    if (m_isPlaying)
        pause();
    else
        play();
}

void GuidePlayerViewModel::setVolume(float volume)
{
    volume = std::clamp(volume, 0.0f, 1.0f);
    if (m_volume != volume) {
        m_volume = volume;
        Q_EMIT volumeChanged();
    }
    m_player->setVolume(m_volume);
}

void GuidePlayerViewModel::setIsPlaying(bool playing)
{
    if (m_isPlaying == playing)
        return;
    m_isPlaying = playing;
    Q_EMIT isPlayingChanged();
}

void GuidePlayerViewModel::setCurrentTime(double t)
{
    if (m_currentTime == t)
        return;
    m_currentTime = t;
    Q_EMIT currentTimeChanged();
}

void GuidePlayerViewModel::setDuration(double d)
{
    if (m_duration == d)
        return;
    m_duration = d;
    Q_EMIT durationChanged();
}

void GuidePlayerViewModel::removeEndObserver()
{
    if (m_endObserver) {
        m_player->removeTimeObserver(*m_endObserver);
        m_endObserver.reset();
    }
}

} // namespace kavel
