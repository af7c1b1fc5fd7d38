#include "gainfilter.h"

#include <Mlt.h>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace kavel::media::mlt {

namespace {

constexpr char positionKey[] = "kavel.gain.position";

// Gain of the sample at `elapsed` seconds into an entry that plays for `span` seconds,
// with `t` its source time; `segment` is advanced monotonically by the caller.
double wordGain(const GainMap::Segment &segment, double t)
{
    const SegmentAudio &audio = segment.audio;
    if (audio.muted)
        return 0.0;
    double gain = audio.volume;
    if (audio.fadeIn > 0) {
        const double into = t - segment.sourceStart;
        if (into < audio.fadeIn)
            gain *= std::clamp(into / audio.fadeIn, 0.0, 1.0);
    }
    if (audio.fadeOut > 0) {
        const double left = segment.sourceEnd - t;
        if (left < audio.fadeOut)
            gain *= std::clamp(left / audio.fadeOut, 0.0, 1.0);
    }
    return gain;
}

double joinGain(double elapsed, double span)
{
    const double edge = std::min(elapsed, span - elapsed);
    if (edge >= GainFilter::joinRamp)
        return 1.0;
    if (edge <= 0)
        return 0.0;
    return 0.5 - 0.5 * std::cos(std::numbers::pi * edge / GainFilter::joinRamp);
}

// Calls write(sampleIndex, gain) for every sample whose gain is not 1.
template<typename Write>
void forEachGain(const GainMap &map, int frame, int samples, int frequency, Write write)
{
    const auto entry
        = std::upper_bound(map.entries.cbegin(), map.entries.cend(), frame,
                           [](int f, const GainMap::Entry &e) { return f < e.playlistFrame; });
    if (entry == map.entries.cbegin() || samples <= 0 || frequency <= 0)
        return;
    const GainMap::Entry &e = *(entry - 1);
    if (frame >= e.playlistFrame + e.frames)
        return;
    const double frameInEntry = frame - e.playlistFrame;
    const double span = e.frames / map.fps;
    const double start = frameInEntry / map.fps;
    const bool nearJoin = start < GainFilter::joinRamp
        || span - (start + double(samples) / frequency) < GainFilter::joinRamp;
    if (map.unityGain && !nearJoin)
        return;

    const auto segmentsBegin = map.segments.cbegin() + e.firstSegment;
    const auto segmentsEnd = segmentsBegin + e.segmentCount;
    const double sourceAtFrame = (e.inFrame + frameInEntry) / map.fps;
    auto segment
        = std::upper_bound(segmentsBegin, segmentsEnd, sourceAtFrame,
                           [](double t, const GainMap::Segment &s) { return t < s.sourceStart; });
    if (segment != segmentsBegin)
        --segment;
    for (int i = 0; i < samples; ++i) {
        const double offset = double(i) / frequency;
        const double t = sourceAtFrame + offset;
        while (segment + 1 != segmentsEnd && t >= (segment + 1)->sourceStart)
            ++segment;
        double gain = joinGain(start + offset, span);
        if (!map.unityGain && segment != segmentsEnd)
            gain *= wordGain(*segment, t);
        if (gain != 1.0)
            write(i, static_cast<float>(gain));
    }
}

int getAudio(mlt_frame frame, void **buffer, mlt_audio_format *format, int *frequency,
             int *channels, int *samples)
{
    auto *self = static_cast<GainFilter *>(mlt_frame_pop_audio(frame));
    if (*format != mlt_audio_s16 && *format != mlt_audio_f32le)
        *format = mlt_audio_float;
    const int error = mlt_frame_get_audio(frame, buffer, format, frequency, channels, samples);
    if (error || !*buffer)
        return error;
    const std::shared_ptr<const GainMap> map = self ? self->map() : nullptr;
    if (!map)
        return 0;
    const int position = mlt_properties_get_int(MLT_FRAME_PROPERTIES(frame), positionKey);
    switch (*format) {
    case mlt_audio_float:
        GainFilter::apply(*map, position, static_cast<float *>(*buffer), *channels, *samples,
                          *frequency, true);
        break;
    case mlt_audio_f32le:
        GainFilter::apply(*map, position, static_cast<float *>(*buffer), *channels, *samples,
                          *frequency, false);
        break;
    case mlt_audio_s16:
        GainFilter::apply(*map, position, static_cast<std::int16_t *>(*buffer), *channels, *samples,
                          *frequency);
        break;
    default:
        break;
    }
    return 0;
}

mlt_frame process(mlt_filter filter, mlt_frame frame)
{
    // The frame's own position is the playlist's, taken here because the audio is pulled
    // later, when the position may have moved on.
    mlt_properties_set_int(MLT_FRAME_PROPERTIES(frame), positionKey,
                           static_cast<int>(mlt_frame_get_position(frame)));
    mlt_frame_push_audio(frame, filter->child);
    mlt_frame_push_audio(frame, reinterpret_cast<void *>(getAudio));
    return frame;
}

} // namespace

GainFilter::GainFilter()
{
    mlt_filter filter = mlt_filter_new();
    filter->process = process;
    filter->child = this;
    m_filter = std::make_unique<Mlt::Filter>(filter);
    mlt_filter_close(filter);
}

GainFilter::~GainFilter()
{
    m_filter->get_filter()->child = nullptr;
}

void GainFilter::setMap(std::shared_ptr<const GainMap> map)
{
    std::lock_guard lock(m_mutex);
    m_map = std::move(map);
}

std::shared_ptr<const GainMap> GainFilter::map() const
{
    std::lock_guard lock(m_mutex);
    return m_map;
}

void GainFilter::apply(const GainMap &map, int frame, float *audio, int channels, int samples,
                       int frequency, bool planar)
{
    forEachGain(map, frame, samples, frequency, [&](int i, float gain) {
        for (int c = 0; c < channels; ++c)
            audio[planar ? c * samples + i : i * channels + c] *= gain;
    });
}

void GainFilter::apply(const GainMap &map, int frame, std::int16_t *audio, int channels,
                       int samples, int frequency)
{
    forEachGain(map, frame, samples, frequency, [&](int i, float gain) {
        for (int c = 0; c < channels; ++c) {
            std::int16_t &s = audio[i * channels + c];
            s = static_cast<std::int16_t>(std::lround(s * gain));
        }
    });
}

} // namespace kavel::media::mlt
