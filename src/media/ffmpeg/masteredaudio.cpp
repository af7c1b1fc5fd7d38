#include "masteredaudio.h"

#include <QStringList>

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

constexpr std::int64_t block = 8192;

double toDecibels(double amplitude)
{
    return amplitude > 0.0 ? 20.0 * std::log10(amplitude) : -144.0;
}

// Below this the gated loudness of EBU R128 has nothing to measure: digital silence.
constexpr double silentLoudness = -69.0;

// The most the limiter may take off the loudest peak (dB).
constexpr double maxReduction = 12.0;

} // namespace

// EBU R128 by FFmpeg's own meter: integrated loudness and true peak of what is added.
class MasteredAudio::Meter
{
public:
    explicit Meter(int rate)
        : m_chain(rate, u"ebur128=peak=true:metadata=1"_s)
    { }

    void add(const float *left, const float *right, std::int64_t count)
    {
        m_chain.push(left, right, count);
        drain();
    }

    Loudness finish()
    {
        m_chain.finish();
        drain();
        return {m_integrated, toDecibels(m_peak)};
    }

private:
    void drain()
    {
        m_chain.pull(m_scratchLeft, m_scratchRight, [this](const AVDictionary *metadata) {
            // Every frame carries the loudness integrated so far; the last one's is the
            // whole result's.
            if (const AVDictionaryEntry *e = av_dict_get(metadata, "lavfi.r128.I", nullptr, 0))
                m_integrated = std::atof(e->value);
            for (const char *key : {"lavfi.r128.true_peaks_ch0", "lavfi.r128.true_peaks_ch1"})
                if (const AVDictionaryEntry *e = av_dict_get(metadata, key, nullptr, 0))
                    m_peak = std::max(m_peak, std::atof(e->value));
        });
        m_scratchLeft.clear();
        m_scratchRight.clear();
    }

    FilterChain m_chain;
    double m_integrated = -70.0;
    double m_peak = 0.0;
    std::vector<float> m_scratchLeft, m_scratchRight;
};

MasteredAudio::MasteredAudio(EditList editList, int rate, SoundFinish finish,
                             double truePeakCeiling)
    : m_editList(std::move(editList))
    , m_rate(rate)
    , m_finish(finish)
    , m_ceiling(truePeakCeiling)
    , m_total(timing::sampleAt(m_editList.duration(), rate))
    , m_audio(m_editList, rate)
{
    if (m_finish.loudnessTarget)
        m_after = std::make_unique<Meter>(rate);
}

MasteredAudio::~MasteredAudio() = default;

bool MasteredAudio::needsPreparing() const
{
    return m_finish.loudnessTarget || m_finish.denoise != Denoise::off;
}

SoundSurvey MasteredAudio::survey(const QString &chain,
                                  const std::function<void(double)> &progress) const
{
    EditAudio audio(m_editList, m_rate);
    std::optional<FilterChain> filters;
    if (!chain.isEmpty())
        filters.emplace(m_rate, chain);
    SoundSurvey survey(m_rate);
    std::vector<float> left(block), right(block), outLeft, outRight;
    const double total = std::max<double>(double(audio.totalSamples()), 1.0);
    while (audio.position() < audio.totalSamples()) {
        const std::int64_t n = audio.render(left.data(), right.data(), block);
        if (filters) {
            filters->push(left.data(), right.data(), n);
            if (audio.position() == audio.totalSamples())
                filters->finish();
            filters->pull(outLeft, outRight);
            survey.add(outLeft.data(), outRight.data(), std::int64_t(outLeft.size()));
            outLeft.clear();
            outRight.clear();
        } else {
            survey.add(left.data(), right.data(), n);
        }
        if (progress)
            progress(double(audio.position()) / total);
    }
    return survey;
}

QString MasteredAudio::notchChain() const
{
    // Narrow enough to leave a voice's own harmonics that pass close by, wide enough for
    // the mains' slow drift of a tenth of a hertz.
    QStringList notches;
    if (m_hum)
        for (const double frequency : m_hum->frequencies)
            notches.append(u"bandreject=f=%1:width_type=h:width=4"_s.arg(frequency));
    return notches.join(u',');
}

QString MasteredAudio::denoiseChain() const
{
    // The FFT denoiser removes what lies under its noise level and leaves what stands
    // above it; set just above the measured floor it takes the hiss between words and
    // leaves the voice.
    const double level = std::clamp(m_noiseFloor + 4.0, -80.0, -20.0);
    const int reduction = m_finish.denoise == Denoise::strong ? 24 : 12;
    const QString notches = notchChain();
    return (notches.isEmpty() ? QString() : notches + u',')
        + u"afftdn=nr=%1:nf=%2"_s.arg(reduction).arg(level, 0, 'f', 1);
}

MasteredAudio::Loudness MasteredAudio::measure(const std::function<void(double)> &progress,
                                               float gain, bool limited)
{
    // The same path as the output takes, on another reading of the edit.
    MasteredAudio plain(m_editList, m_rate, {std::nullopt, m_finish.denoise}, m_ceiling);
    plain.m_noiseFloor = m_noiseFloor;
    if (m_finish.denoise != Denoise::off) {
        plain.m_denoiser = std::make_unique<FilterChain>(m_rate, denoiseChain());
        plain.m_toDrop = measureDelay(m_rate, denoiseChain());
    }
    plain.m_gain = gain;
    if (limited)
        plain.m_limiter = std::make_unique<PeakLimiter>(m_rate, m_ceiling);
    Meter meter(m_rate);
    std::vector<float> left(block), right(block);
    const double total = std::max<double>(double(m_total), 1.0);
    while (plain.position() < plain.totalSamples()) {
        const std::int64_t n = plain.render(left.data(), right.data(), block);
        meter.add(left.data(), right.data(), n);
        if (progress)
            progress(double(plain.position()) / total);
    }
    return meter.finish();
}

void MasteredAudio::prepare(const std::function<void(double)> &progress)
{
    const bool denoise = m_finish.denoise != Denoise::off;
    const bool level = m_finish.loudnessTarget.has_value();
    const double floorShare = denoise ? (level ? 0.3 : 1.0) : 0.0;
    if (denoise) {
        const auto part = [&](double from, double to) {
            return [&progress, from, to, floorShare](double done) {
                if (progress)
                    progress((from + done * (to - from)) * floorShare);
            };
        };
        const SoundSurvey plain = survey({}, part(0.0, 0.5));
        m_hum = plain.hum();
        // Taken out first, the hum no longer counts as the hiss under the speech.
        m_noiseFloor
            = m_hum ? survey(notchChain(), part(0.5, 1.0)).noiseFloor() : plain.noiseFloor();
        m_denoiser = std::make_unique<FilterChain>(m_rate, denoiseChain());
        m_toDrop = measureDelay(m_rate, denoiseChain());
    }
    if (level) {
        const auto part = [&](double from, double to) {
            return [&progress, from, to, floorShare](double done) {
                if (progress)
                    progress(floorShare + (from + done * (to - from)) * (1.0 - floorShare));
            };
        };
        const Loudness before = measure(part(0.0, 0.5));
        m_before = before;
        const double target = *m_finish.loudnessTarget;
        Gain gain = gainFor(before, target, m_ceiling);
        m_peakLimited = gain.peakLimited;
        const auto linear = [](double decibels) { return float(std::pow(10.0, decibels / 20.0)); };
        if (before.truePeak + gain.decibels > m_ceiling) {
            m_limiter = std::make_unique<PeakLimiter>(m_rate, m_ceiling);
            // Speech whose own peaks stand high loses a few tenths with them. One more
            // reading, through the gain and the limiter as they will be, says how much,
            // and the gain makes it up, as far as the limiter may go. A larger loss means
            // the loudness is in the peaks themselves, which more gain would only squash
            // further.
            const double reached = measure(part(0.5, 1.0), linear(gain.decibels), true).integrated;
            const double most = maxReduction + m_ceiling - before.truePeak;
            const double shortfall = target - reached;
            if (shortfall > 0.1 && shortfall < 2.0)
                gain.decibels = std::min(gain.decibels + shortfall, most);
        }
        m_gain = linear(gain.decibels);
    }
}

MasteredAudio::Gain MasteredAudio::gainFor(const Loudness &before, double target, double ceiling)
{
    Gain gain;
    if (before.integrated <= silentLoudness)
        return gain;
    gain.decibels = target - before.integrated;
    // The few peaks the gain lifts over the ceiling are the limiter's. Beyond 12 dB it
    // would no longer be trimming a click here and there but flattening every syllable's
    // attack, and holding the speech down for a release after each one; such a recording
    // (a murmur under loud knocks) stays under its target, and the report says so,
    // rather than being squashed to reach it.
    const double reduction = before.truePeak + gain.decibels - ceiling;
    if (reduction > maxReduction) {
        gain.decibels -= reduction - maxReduction;
        gain.peakLimited = true;
    }
    return gain;
}

MasteredAudio::Loudness MasteredAudio::measure(const EditList &editList, int rate,
                                               const std::function<void(double)> &progress)
{
    return MasteredAudio(editList, rate, {}).measure(progress);
}

void MasteredAudio::fill(std::int64_t count)
{
    std::vector<float> left(block), right(block);
    while (std::int64_t(m_readyLeft.size() - m_readyFrom) < count && !m_fedAll) {
        const std::int64_t n = std::min(block, m_audio.totalSamples() - m_audio.position());
        if (n > 0) {
            m_audio.render(left.data(), right.data(), n);
            m_denoiser->push(left.data(), right.data(), n);
        } else {
            // The last samples are still inside the filter: push its delay's worth of
            // silence after them and let it go.
            std::fill(left.begin(), left.end(), 0.0f);
            std::fill(right.begin(), right.end(), 0.0f);
            for (std::int64_t pad = m_toDrop + block; pad > 0; pad -= block)
                m_denoiser->push(left.data(), right.data(), std::min(pad, block));
            m_denoiser->finish();
            m_fedAll = true;
        }
        m_denoiser->pull(m_readyLeft, m_readyRight);
        if (m_toDrop > 0) {
            const auto drop
                = std::min<std::int64_t>(m_toDrop, std::int64_t(m_readyLeft.size() - m_readyFrom));
            m_readyFrom += size_t(drop);
            m_toDrop -= drop;
        }
    }
}

void MasteredAudio::renderGained(float *left, float *right, std::int64_t count)
{
    const std::int64_t n = std::min(count, m_total - m_gainedPosition);
    if (!m_denoiser) {
        m_audio.render(left, right, n);
    } else {
        fill(n);
        const auto ready
            = std::min<std::int64_t>(n, std::int64_t(m_readyLeft.size() - m_readyFrom));
        std::copy_n(m_readyLeft.begin() + qsizetype(m_readyFrom), ready, left);
        std::copy_n(m_readyRight.begin() + qsizetype(m_readyFrom), ready, right);
        // A filter that kept back more than it said: the end is silence rather than short.
        std::fill(left + ready, left + n, 0.0f);
        std::fill(right + ready, right + n, 0.0f);
        m_readyFrom += size_t(ready);
        if (m_readyFrom > m_readyLeft.size() / 2) {
            m_readyLeft.erase(m_readyLeft.begin(), m_readyLeft.begin() + qsizetype(m_readyFrom));
            m_readyRight.erase(m_readyRight.begin(), m_readyRight.begin() + qsizetype(m_readyFrom));
            m_readyFrom = 0;
        }
    }
    if (m_gain != 1.0f) {
        std::transform(left, left + n, left, [this](float v) { return v * m_gain; });
        std::transform(right, right + n, right, [this](float v) { return v * m_gain; });
    }
    // Past the end, silence lets the limiter's look-ahead run out.
    std::fill(left + n, left + count, 0.0f);
    std::fill(right + n, right + count, 0.0f);
    m_gainedPosition += n;
}

std::int64_t MasteredAudio::render(float *left, float *right, std::int64_t count)
{
    count = std::min(count, m_total - m_position);
    if (count <= 0)
        return 0;
    if (m_limiter && m_position == 0) {
        // The limiter's first output is as late as its look-ahead: what it gives for the
        // first samples is dropped, so sample n still leaves as sample n.
        std::vector<float> l(size_t(m_limiter->latency())), r(l.size());
        renderGained(l.data(), r.data(), m_limiter->latency());
        m_limiter->process(l.data(), r.data(), m_limiter->latency());
    }
    renderGained(left, right, count);
    if (m_limiter)
        m_limiter->process(left, right, count);
    if (m_after) {
        m_after->add(left, right, count);
        if (m_position + count == m_total)
            m_afterResult = m_after->finish();
    }
    m_position += count;
    return count;
}

std::optional<LoudnessReport> MasteredAudio::report() const
{
    if (!m_before || !m_afterResult)
        return std::nullopt;
    // Where the loudness lives in the peaks themselves (knocks over near silence), taking
    // them down takes the loudness with them: that too is a target the peaks kept us from.
    const bool limitedAway = m_limiter && m_finish.loudnessTarget
        && m_afterResult->integrated < *m_finish.loudnessTarget - 0.5;
    return LoudnessReport {m_before->integrated, m_before->truePeak, m_afterResult->integrated,
                           m_afterResult->truePeak, m_peakLimited || limitedAway};
}

} // namespace kavel::media::ffmpeg
