#include "filterchain.h"

#include "avsupport.h"

#include <QCoreApplication>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

struct InOutFreer
{
    void operator()(AVFilterInOut *io) const { avfilter_inout_free(&io); }
};
using InOutPtr = std::unique_ptr<AVFilterInOut, InOutFreer>;

[[noreturn]] void fail(const QString &what, int code)
{
    throw MediaError(QCoreApplication::translate("kavel::media", "无法处理声音"),
                     what + u": "_s + avErrorText(code));
}

// Frames of this many samples go in; the filters cut them as they need.
constexpr std::int64_t frameSamples = 4096;

} // namespace

FilterChain::FilterChain(int rate, const QString &chain)
    : m_graph(avfilter_graph_alloc())
    , m_rate(rate)
{
    if (!m_graph)
        throw MediaError(QCoreApplication::translate("kavel::media", "无法处理声音"));
    // One thread: the export already keeps the cores busy with pictures.
    m_graph->nb_threads = 1;
    const QByteArray source = u"time_base=1/%1:sample_rate=%1:sample_fmt=fltp:"
                              "channel_layout=stereo"_s.arg(rate)
                                  .toUtf8();
    int code = avfilter_graph_create_filter(&m_source, avfilter_get_by_name("abuffer"), "in",
                                            source.constData(), nullptr, m_graph);
    if (code < 0)
        fail(u"abuffer"_s, code);
    code = avfilter_graph_create_filter(&m_sink, avfilter_get_by_name("abuffersink"), "out",
                                        nullptr, nullptr, m_graph);
    if (code < 0)
        fail(u"abuffersink"_s, code);
    // Whatever the filters work in, the chain gives back what it was given.
    const QByteArray description
        = (chain + u",aformat=sample_fmts=fltp:channel_layouts=stereo:sample_rates=%1"_s.arg(rate))
              .toUtf8();
    InOutPtr outputs(avfilter_inout_alloc());
    InOutPtr inputs(avfilter_inout_alloc());
    outputs->name = av_strdup("in");
    outputs->filter_ctx = m_source;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = m_sink;
    AVFilterInOut *in = inputs.release();
    AVFilterInOut *out = outputs.release();
    code = avfilter_graph_parse_ptr(m_graph, description.constData(), &in, &out, nullptr);
    avfilter_inout_free(&in);
    avfilter_inout_free(&out);
    if (code < 0)
        fail(chain, code);
    code = avfilter_graph_config(m_graph, nullptr);
    if (code < 0)
        fail(chain, code);
}

FilterChain::~FilterChain()
{
    avfilter_graph_free(&m_graph);
}

void FilterChain::push(const float *left, const float *right, std::int64_t count)
{
    for (std::int64_t done = 0; done < count;) {
        const auto n = int(std::min(frameSamples, count - done));
        FramePtr frame = makeFrame();
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = m_rate;
        av_channel_layout_default(&frame->ch_layout, 2);
        frame->nb_samples = n;
        frame->pts = m_pushed;
        int code = av_frame_get_buffer(frame.get(), 0);
        if (code < 0)
            fail(u"frame"_s, code);
        std::copy_n(left + done, n, reinterpret_cast<float *>(frame->data[0]));
        std::copy_n(right + done, n, reinterpret_cast<float *>(frame->data[1]));
        code = av_buffersrc_add_frame(m_source, frame.get());
        if (code < 0)
            fail(u"push"_s, code);
        done += n;
        m_pushed += n;
    }
}

void FilterChain::finish()
{
    const int code = av_buffersrc_add_frame(m_source, nullptr);
    if (code < 0)
        fail(u"finish"_s, code);
}

void FilterChain::pull(std::vector<float> &left, std::vector<float> &right,
                       const std::function<void(const AVDictionary *)> &metadata)
{
    FramePtr frame = makeFrame();
    while (true) {
        const int code = av_buffersink_get_frame(m_sink, frame.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF)
            return;
        if (code < 0)
            fail(u"pull"_s, code);
        const auto *l = reinterpret_cast<const float *>(frame->data[0]);
        const auto *r = reinterpret_cast<const float *>(frame->data[1]);
        left.insert(left.end(), l, l + frame->nb_samples);
        right.insert(right.end(), r, r + frame->nb_samples);
        if (metadata)
            metadata(frame->metadata);
        av_frame_unref(frame.get());
    }
}

std::int64_t measureDelay(int rate, const QString &chain)
{
    const std::int64_t length = rate, burst = rate / 2, burstEnd = burst + rate / 50;
    std::vector<float> probe(size_t(length + 0));
    for (std::int64_t n = 0; n < length; ++n) {
        const double t = double(n) / rate;
        const bool loud = n >= burst && n < burstEnd;
        probe[size_t(n)] = float(loud ? 0.8 * std::sin(2 * std::numbers::pi * 2000 * t)
                                      : 0.01 * std::sin(2 * std::numbers::pi * 440 * t));
    }
    FilterChain filters(rate, chain);
    filters.push(probe.data(), probe.data(), length);
    filters.finish();
    std::vector<float> left, right;
    filters.pull(left, right);
    const auto loudAt = [](const std::vector<float> &samples) {
        return std::find_if(samples.begin(), samples.end(),
                            [](float v) { return std::abs(v) > 0.2f; })
            - samples.begin();
    };
    const std::int64_t in = loudAt(probe), out = loudAt(left);
    if (out >= std::int64_t(left.size()))
        throw MediaError(QCoreApplication::translate("kavel::media", "无法处理声音"),
                         chain + u": the probe did not come through"_s);
    return std::max<std::int64_t>(out - in, 0);
}

} // namespace kavel::media::ffmpeg
