#pragma once

#include "avsupport.h"
#include "timing/compositionmap.h"

#include <QHash>
#include <QSize>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace kavel::media::ffmpeg {

class VideoSource;

// The pictures of an edit, one per output frame, decoded and converted on a thread of their
// own a few frames ahead of whoever encodes them, so decoding and encoding run at once.
// Every source is told up front which of its times the edit shows, so it decodes only what
// those pictures need.
class PictureFeed
{
public:
    // Opens the sources (throws MediaError when one cannot be read); starts nothing yet.
    PictureFeed(const EditList &edit, QSize size, AVPixelFormat format);
    ~PictureFeed();
    PictureFeed(const PictureFeed &) = delete;
    PictureFeed &operator=(const PictureFeed &) = delete;

    // The rate of the first source that has a picture; the output runs at it.
    timing::Rate rate() const { return m_rate; }
    std::int64_t frameCount() const { return m_frames; }
    // Starts decoding ahead.
    void start();
    // The picture of the next output frame, or null where the edit shows none. Rethrows
    // what stopped the decoding thread.
    FramePtr next();

private:
    struct Shown
    {
        VideoSource *source = nullptr;
        double seconds = 0.0;
    };
    void run();

    QHash<QString, std::shared_ptr<VideoSource>> m_sources;
    timing::Rate m_rate;
    std::int64_t m_frames = 0;
    // What each output frame shows, in order.
    std::vector<Shown> m_plan;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<FramePtr> m_ready;
    std::exception_ptr m_error;
    bool m_stop = false;
    bool m_done = false;
    std::thread m_thread;
};

} // namespace kavel::media::ffmpeg
