#pragma once

#include <QString>
#include <cstdint>
#include <functional>
#include <vector>

struct AVFilterGraph;
struct AVFilterContext;
struct AVDictionary;

namespace kavel::media::ffmpeg {

// A chain of FFmpeg's audio filters ("afftdn=nr=12", "ebur128=peak=true"), fed with planar
// stereo float at one rate and giving the same back. Output appears as the filters release
// it, which may be late: finish() flushes what they hold. Throws MediaError when the chain
// cannot be built or run.
class FilterChain
{
public:
    FilterChain(int rate, const QString &chain);
    ~FilterChain();
    FilterChain(const FilterChain &) = delete;
    FilterChain &operator=(const FilterChain &) = delete;

    void push(const float *left, const float *right, std::int64_t count);
    // No more input: what the filters still hold comes out with the next pulls.
    void finish();
    // Appends every sample that is ready. Each output frame's metadata (the values a
    // measuring filter attaches) is shown to `metadata` when one is given.
    void pull(std::vector<float> &left, std::vector<float> &right,
              const std::function<void(const AVDictionary *)> &metadata = {});

private:
    AVFilterGraph *m_graph = nullptr;
    AVFilterContext *m_source = nullptr;
    AVFilterContext *m_sink = nullptr;
    int m_rate;
    std::int64_t m_pushed = 0;
};

// How many samples late `chain` gives its sound back at `rate`. The denoisers work on
// overlapping windows and hand each sample out half a window after it went in; FFmpeg does
// not say how long that is, and it differs between its versions, so it is measured: a
// short loud burst over a quiet tone goes through the chain and is looked for on the way
// out.
std::int64_t measureDelay(int rate, const QString &chain);

} // namespace kavel::media::ffmpeg
