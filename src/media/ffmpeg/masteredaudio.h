#pragma once

#include "editaudio.h"
#include "filterchain.h"
#include "media/renderer.h"
#include "peaklimiter.h"
#include "soundsurvey.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kavel::media::ffmpeg {

// The edited sound as it is written: EditAudio's samples, with steady hiss and hum taken out and
// one gain for the whole result that brings it to a loudness target. Sample n of the result
// is still the sound the composition map puts at n / rate: the denoiser's delay is taken
// back and the length is unchanged.
//
// The gain needs the whole result measured before the first sample is written, so a
// finish that asks for it reads the edit more than once (prepare()). One gain keeps the
// speaker's own dynamics; the rare peaks it would lift over the true-peak ceiling (a click,
// a plosive) are taken down by a look-ahead limiter after it, whose delay is taken back
// too. A recording whose peaks would need more than a light touch stays under the target,
// which the report says.
class MasteredAudio
{
public:
    // `truePeakCeiling` in dBTP: where the gain stops.
    MasteredAudio(EditList editList, int rate, SoundFinish finish, double truePeakCeiling = -1.0);
    ~MasteredAudio();

    // Measures what the finish needs. `progress` is told how far it got (0 to 1) and may
    // throw to stop it. Throws MediaError.
    void prepare(const std::function<void(double)> &progress);
    // Whether prepare() has work to do.
    bool needsPreparing() const;

    int rate() const { return m_rate; }
    std::int64_t totalSamples() const { return m_total; }
    std::int64_t position() const { return m_position; }
    // The next `count` samples (fewer at the end); returns how many. Throws MediaError.
    std::int64_t render(float *left, float *right, std::int64_t count);

    // Before and after, once every sample has been rendered; none without a target.
    std::optional<LoudnessReport> report() const;

    struct Loudness
    {
        double integrated = -70.0;
        double truePeak = -144.0;
    };
    // The edit's sound as it stands, measured (EBU R128). `progress` may throw to stop.
    static Loudness measure(const EditList &editList, int rate,
                            const std::function<void(double)> &progress);
    struct Gain
    {
        double decibels = 0.0;
        // Less than the target asks: the limiter would have had to take off too much.
        bool peakLimited = false;
    };
    // The one gain that brings sound measured as `before` to `target` (LUFS), given a
    // limiter that keeps its peaks under `ceiling` (dBTP).
    static Gain gainFor(const Loudness &before, double target, double ceiling);

private:
    class Meter;
    // Runs the whole edit through the denoiser (if any), `gain` and, when `limited`, the
    // limiter, into the meter.
    Loudness measure(const std::function<void(double)> &progress, float gain = 1.0f,
                     bool limited = false);
    // Reads the whole edit, through `chain` when one is given, into a survey.
    SoundSurvey survey(const QString &chain, const std::function<void(double)> &progress) const;
    // Notches at the hum's frequencies, if any, then the FFT denoiser.
    QString denoiseChain() const;
    QString notchChain() const;
    // Fills the denoised output queue until `count` samples are ready or nothing is left.
    void fill(std::int64_t count);
    // The next `count` samples after the gain, silence past the end.
    void renderGained(float *left, float *right, std::int64_t count);

    EditList m_editList;
    int m_rate;
    SoundFinish m_finish;
    double m_ceiling;
    std::int64_t m_total;
    std::int64_t m_position = 0;
    // Ahead of m_position by the limiter's latency once it runs.
    std::int64_t m_gainedPosition = 0;
    EditAudio m_audio;
    double m_noiseFloor = -60.0;
    std::optional<SoundSurvey::Hum> m_hum;
    float m_gain = 1.0f;
    std::optional<Loudness> m_before;
    bool m_peakLimited = false;
    std::unique_ptr<PeakLimiter> m_limiter;
    std::unique_ptr<Meter> m_after;
    std::optional<Loudness> m_afterResult;

    // The denoiser on the way out: its output, its delay still to drop, and whether the
    // edit has been fed to the end.
    std::unique_ptr<FilterChain> m_denoiser;
    std::int64_t m_toDrop = 0;
    bool m_fedAll = false;
    std::vector<float> m_readyLeft, m_readyRight;
    size_t m_readyFrom = 0;
};

} // namespace kavel::media::ffmpeg
