#include "picturefeed.h"

#include "videosource.h"

#include <QCoreApplication>

namespace kavel::media::ffmpeg {

namespace {

// Pictures converted ahead of the encoder: enough to ride out a seek or a run of
// pictures that are slow to decode, few enough to keep memory flat (a 1080p picture is
// about 3 MB).
constexpr size_t ahead = 8;

} // namespace

PictureFeed::PictureFeed(const EditList &edit, QSize size, AVPixelFormat format)
{
    bool rated = false;
    for (const EditSegment &segment : edit.segments) {
        if (!segment.withVideo || m_sources.contains(segment.sourcePath))
            continue;
        auto source = std::make_shared<VideoSource>(segment.sourcePath, size, format);
        if (!rated)
            m_rate = source->frameRate();
        rated = true;
        m_sources.insert(segment.sourcePath, std::move(source));
    }
    m_frames = timing::frameCount(edit.duration(), m_rate);
    m_plan.resize(size_t(std::max<std::int64_t>(m_frames, 0)));
    QHash<VideoSource *, std::vector<double>> wanted;
    qsizetype segment = 0;
    for (std::int64_t k = 0; k < m_frames; ++k) {
        // Output frame k shows what the map plays at k / fps.
        while (segment + 1 < edit.segments.size()
               && timing::outputFrames(edit.segments.at(segment + 1), m_rate).begin <= k)
            ++segment;
        const EditSegment &current = edit.segments.at(segment);
        if (!current.withVideo)
            continue;
        Shown &shown = m_plan[size_t(k)];
        shown.source = m_sources.value(current.sourcePath).get();
        shown.seconds = timing::sourceTimeAtFrame(current, k, m_rate);
        wanted[shown.source].push_back(shown.seconds);
    }
    for (auto it = wanted.begin(); it != wanted.end(); ++it)
        it.key()->want(std::move(it.value()));
}

PictureFeed::~PictureFeed()
{
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void PictureFeed::start()
{
    m_thread = std::thread([this] { run(); });
}

void PictureFeed::run()
{
    try {
        for (const Shown &shown : m_plan) {
            FramePtr picture;
            if (shown.source) {
                picture.reset(av_frame_clone(shown.source->frameAt(shown.seconds)));
                if (!picture)
                    throw std::bad_alloc();
            }
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stop || m_ready.size() < ahead; });
            if (m_stop)
                return;
            m_ready.push_back(std::move(picture));
            lock.unlock();
            m_changed.notify_all();
        }
    } catch (...) {
        std::lock_guard lock(m_mutex);
        m_error = std::current_exception();
    }
    {
        std::lock_guard lock(m_mutex);
        m_done = true;
    }
    m_changed.notify_all();
}

FramePtr PictureFeed::next()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_ready.empty() || m_done; });
    if (m_ready.empty()) {
        if (m_error)
            std::rethrow_exception(m_error);
        throw MediaError(QCoreApplication::translate("kavel::media", "视频画面不足"));
    }
    FramePtr picture = std::move(m_ready.front());
    m_ready.pop_front();
    lock.unlock();
    m_changed.notify_all();
    return picture;
}

} // namespace kavel::media::ffmpeg
