#include "fakemediaengine.h"

#include <QColor>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::test {

QList<media::SegmentFailure> FakePlayer::replaceWithComposition(const media::EditList &editList)
{
    compositions.append(editList);
    m_status = media::ItemStatus::readyToPlay;
    m_itemDuration = editList.duration();
    QList<media::SegmentFailure> failures;
    for (qsizetype i = 0; i < editList.segments.size(); ++i) {
        const auto reason = m_failingSources.constFind(editList.segments.at(i).sourcePath);
        if (reason != m_failingSources.cend())
            failures.append({i, *reason});
    }
    return failures;
}

void FakePlayer::replaceWithSource(const QString &path)
{
    rawSources.append(path);
    m_status = media::ItemStatus::unknown;
    m_itemDuration = std::nan("");
}

void FakePlayer::makeSourceReady(double duration)
{
    m_status = media::ItemStatus::readyToPlay;
    m_itemDuration = duration;
    Q_EMIT itemStatusChanged();
}

void FakePlayer::failSegmentsOf(const QString &path, const QString &reason)
{
    m_failingSources.insert(path, reason);
}

void FakePlayer::seek(double seconds, std::function<void(bool)> completion)
{
    seeks.append(seconds);
    m_time = seconds;
    m_pendingSeeks.append(std::move(completion));
}

void FakePlayer::completeSeeks()
{
    const auto pending = std::exchange(m_pendingSeeks, {});
    for (const auto &completion : pending)
        if (completion)
            completion(true);
}

void FakePlayer::playTo(double t)
{
    const double from = m_time;
    m_time = t;
    const auto observers = m_observers;
    for (auto it = observers.cbegin(); it != observers.cend(); ++it) {
        if (!it->boundary || !m_observers.contains(it.key()))
            continue;
        for (double boundary : it->times)
            if (from < boundary && boundary <= t) {
                it->boundary();
                break;
            }
    }
    reportTime(t);
}

void FakePlayer::reportTime(double t)
{
    const auto observers = m_observers;
    for (const Observer &observer : observers)
        if (observer.periodic)
            observer.periodic(t);
}

media::Player::ObserverId FakePlayer::addPeriodicTimeObserver(double interval,
                                                              std::function<void(double)> callback)
{
    const ObserverId id = m_nextObserver++;
    m_observers.insert(id, {interval, {}, std::move(callback), {}});
    return id;
}

media::Player::ObserverId FakePlayer::addBoundaryTimeObserver(const QList<double> &times,
                                                              std::function<void()> callback)
{
    const ObserverId id = m_nextObserver++;
    m_observers.insert(id, {0.0, times, {}, std::move(callback)});
    return id;
}

void FakePlayer::removeTimeObserver(ObserverId id)
{
    m_observers.remove(id);
}

qsizetype FakePlayer::boundaryObserverCount() const
{
    return std::count_if(m_observers.cbegin(), m_observers.cend(),
                         [](const Observer &o) { return bool(o.boundary); });
}

class FakeThumbnailGenerator final : public media::ThumbnailGenerator
{
public:
    FakeThumbnailGenerator(FakeMediaEngine &engine, QSize size, double duration)
        : m_engine(engine)
        , m_size(size)
        , m_duration(duration)
    { }

    std::optional<QImage> imageAt(double seconds) override
    {
        m_engine.framesRequested.append(seconds);
        if (seconds < 0 || seconds > m_duration)
            return std::nullopt;
        QImage image(m_size, QImage::Format_RGB32);
        image.fill(QColor::fromHsv(static_cast<int>(seconds * 10) % 360, 200, 200));
        return image;
    }

private:
    FakeMediaEngine &m_engine;
    QSize m_size;
    double m_duration;
};

media::MediaInfo FakeMediaEngine::probe(const QString &path)
{
    const auto it = m_media.constFind(path);
    if (it == m_media.cend())
        throw media::MediaError(u"cannot open "_s + path);
    return *it;
}

std::unique_ptr<media::Player> FakeMediaEngine::createPlayer()
{
    auto player = std::make_unique<FakePlayer>();
    lastPlayer = player.get();
    return player;
}

std::unique_ptr<media::ThumbnailGenerator>
FakeMediaEngine::createThumbnailGenerator(const QString &path,
                                          const media::ThumbnailOptions &options)
{
    const media::MediaInfo info = probe(path);
    if (!info.hasVideo)
        throw media::MediaError(u"no picture in "_s + path);
    ++generatorsMade;
    return std::make_unique<FakeThumbnailGenerator>(*this, options.maximumSize, info.duration);
}

media::MediaInfo FakeMediaEngine::videoWithAudio(double duration)
{
    media::MediaInfo info;
    info.duration = duration;
    info.hasVideo = info.hasAudio = true;
    info.videoDuration = info.audioDuration = duration;
    info.frameRate = 30.0;
    info.videoSize = {640, 360};
    return info;
}

media::MediaInfo FakeMediaEngine::audioOnly(double duration)
{
    media::MediaInfo info;
    info.duration = duration;
    info.hasAudio = true;
    info.audioDuration = duration;
    return info;
}

} // namespace kavel::test
