#include "soundfilter.h"

#include "media/ffmpeg/editaudio.h"

#include <Mlt.h>
#include <algorithm>
#include <cmath>

namespace kavel::media::mlt {

namespace {

constexpr char positionKey[] = "kavel.sound.position";

int getAudio(mlt_frame frame, void **buffer, mlt_audio_format *format, int *frequency,
             int *channels, int *samples)
{
    auto *self = static_cast<SoundFilter *>(mlt_frame_pop_audio(frame));
    // The source's own sound is not asked for at all: nothing below this decodes it.
    *format = mlt_audio_float;
    if (*frequency <= 0)
        *frequency = 48000;
    if (*channels <= 0)
        *channels = 2;
    const int position = mlt_properties_get_int(MLT_FRAME_PROPERTIES(frame), positionKey);
    const int size = *samples * *channels * int(sizeof(float));
    auto *planes = static_cast<float *>(mlt_pool_alloc(size));
    if (self)
        self->render(position, planes, *channels, *samples, *frequency);
    else
        std::fill_n(planes, *samples * *channels, 0.0f);
    mlt_frame_set_audio(frame, planes, *format, size, mlt_pool_release);
    *buffer = planes;
    return 0;
}

mlt_frame process(mlt_filter filter, mlt_frame frame)
{
    // The frame's own position is the composition's, taken here because the audio is pulled
    // later, when the position may have moved on.
    mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
    mlt_properties_set_int(properties, positionKey,
                           static_cast<int>(mlt_frame_get_position(frame)));
    // MLT marks the frame of a one-frame cut as having no sound, which would silence a
    // one-frame word; the sound here does not come from the cut anyway.
    mlt_properties_set_int(properties, "test_audio", 0);
    mlt_frame_push_audio(frame, filter->child);
    mlt_frame_push_audio(frame, reinterpret_cast<void *>(getAudio));
    return frame;
}

} // namespace

SoundFilter::SoundFilter()
    : m_edit(std::make_shared<EditList>())
    , m_sources(std::make_shared<ffmpeg::EditAudio::SourceCache>())
{
    mlt_filter filter = mlt_filter_new();
    filter->process = process;
    filter->child = this;
    m_filter = std::make_unique<Mlt::Filter>(filter);
    mlt_filter_close(filter);
}

SoundFilter::~SoundFilter()
{
    m_filter->get_filter()->child = nullptr;
}

void SoundFilter::setEdit(const EditList &edit, double fps)
{
    auto shared = std::make_shared<const EditList>(edit);
    std::lock_guard lock(m_mutex);
    m_edit = std::move(shared);
    m_fps = fps;
}

void SoundFilter::setStopAt(std::optional<double> seconds)
{
    std::lock_guard lock(m_mutex);
    m_stopAt = seconds;
}

void SoundFilter::setGain(double decibels)
{
    std::lock_guard lock(m_mutex);
    m_gain = float(std::pow(10.0, decibels / 20.0));
}

void SoundFilter::render(int position, float *planes, int channels, int samples, int frequency)
{
    // The edit is taken under its own short lock, so an editor handing over the next one
    // never waits for a frame's sound to be made.
    std::shared_ptr<const EditList> edit;
    double fps = 30.0;
    std::optional<double> stopAt;
    float gain = 1.0f;
    {
        std::lock_guard lock(m_mutex);
        edit = m_edit;
        fps = m_fps;
        stopAt = m_stopAt;
        gain = m_gain;
    }
    std::lock_guard lock(m_renderMutex);
    if (!m_audio || m_audioEdit != edit || m_audio->rate() != frequency) {
        m_audio = std::make_shared<ffmpeg::EditAudio>(
            *edit, frequency, ffmpeg::EditAudio::Unreadable::silence, m_sources);
        m_audioEdit = edit;
    }
    // MLT hands out sound frame by frame; the frame's first sample is where its count of
    // samples so far says, on the same grid the composition was laid on.
    const std::int64_t first
        = mlt_audio_calculate_samples_to_position(float(fps), frequency, position);
    m_left.assign(size_t(samples), 0.0f);
    m_right.assign(size_t(samples), 0.0f);
    if (first != m_audio->position())
        m_audio->seek(first);
    if (first < m_audio->totalSamples())
        m_audio->render(m_left.data(), m_right.data(), samples);
    if (gain != 1.0f)
        for (std::vector<float> *side : {&m_left, &m_right})
            for (float &v : *side)
                v = std::clamp(v * gain, -1.0f, 1.0f);
    if (stopAt) {
        const std::int64_t stop = timing::sampleAt(*stopAt, frequency);
        for (std::int64_t i = std::max<std::int64_t>(stop - first, 0); i < samples; ++i)
            m_left[size_t(i)] = m_right[size_t(i)] = 0.0f;
    }
    for (int c = 0; c < channels; ++c) {
        float *plane = planes + std::ptrdiff_t(c) * samples;
        if (channels == 1)
            for (int i = 0; i < samples; ++i)
                plane[i] = 0.5f * (m_left[size_t(i)] + m_right[size_t(i)]);
        else if (c < 2)
            std::copy_n(c == 0 ? m_left.data() : m_right.data(), samples, plane);
        else
            std::fill_n(plane, samples, 0.0f);
    }
}

} // namespace kavel::media::mlt
