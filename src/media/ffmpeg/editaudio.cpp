#include "editaudio.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kavel::media::ffmpeg {

EditAudio::EditAudio(EditList editList, int rate, bool muteAll)
    : m_editList(std::move(editList))
    , m_rate(rate)
    , m_muteAll(muteAll)
    , m_total(timing::sampleAt(m_editList.duration(), rate))
{ }

EditAudio::~EditAudio() = default;

AudioSource &EditAudio::source(const QString &path)
{
    auto it = m_sources.find(path);
    if (it == m_sources.end())
        it = m_sources.insert(path, std::make_shared<AudioSource>(path, m_rate));
    return **it;
}

double EditAudio::gainAt(qsizetype index, double t) const
{
    const EditSegment &segment = m_editList.segments.at(index);
    const double into = t - segment.compositionStart;
    const double left = segment.compositionEnd() - t;
    double gain = segment.audio.gainAt(into, segment.length());
    const bool jumpIn = !m_editList.continuesPrevious(index);
    const bool jumpOut = !m_editList.continuesPrevious(index + 1);
    const double edge = std::min(jumpIn ? into : joinRamp, jumpOut ? left : joinRamp);
    if (edge < joinRamp)
        gain *= edge <= 0 ? 0.0 : 0.5 - 0.5 * std::cos(std::numbers::pi * edge / joinRamp);
    return gain;
}

std::int64_t EditAudio::render(float *left, float *right, std::int64_t count)
{
    count = std::min(count, m_total - m_position);
    std::int64_t done = 0;
    while (done < count) {
        // Past every segment's last sample, only the end's rounding is left: silence.
        while (m_segment < m_editList.segments.size()
               && timing::outputSamples(m_editList.segments.at(m_segment), m_rate).end
                   <= m_position)
            ++m_segment;
        if (m_segment >= m_editList.segments.size()) {
            std::fill(left + done, left + count, 0.0f);
            std::fill(right + done, right + count, 0.0f);
            m_position += count - done;
            return count;
        }
        const EditSegment &segment = m_editList.segments.at(m_segment);
        const timing::Span span = timing::outputSamples(segment, m_rate);
        if (m_position <= span.begin && !m_editList.continuesPrevious(m_segment)) {
            // A new stretch of a source: its first output sample reads the sample nearest
            // the segment's exact start, and the stretch then reads on sample by sample, so
            // contiguous words share their boundary without a repeated or lost sample.
            m_runOutput = span.begin;
            m_runSource = timing::sampleAt(segment.sourceStart, m_rate);
        }
        const std::int64_t n = std::min(count - done, span.end - m_position);
        float *l = left + done;
        float *r = right + done;
        const bool silent = m_muteAll || segment.audio.muted;
        if (silent) {
            std::fill(l, l + n, 0.0f);
            std::fill(r, r + n, 0.0f);
        } else {
            source(segment.sourcePath).read(m_runSource + (m_position - m_runOutput), n, l, r);
            const bool unity = segment.audio == SegmentAudio {};
            const std::int64_t rampSamples = std::int64_t(std::ceil(joinRamp * m_rate)) + 1;
            for (std::int64_t i = 0; i < n; ++i) {
                const std::int64_t at = m_position + i;
                // Away from the ends a plain word needs no work.
                if (unity && at - span.begin > rampSamples && span.end - at > rampSamples)
                    continue;
                const auto gain = float(gainAt(m_segment, double(at) / m_rate));
                l[i] *= gain;
                r[i] *= gain;
            }
        }
        done += n;
        m_position += n;
    }
    return count;
}

} // namespace kavel::media::ffmpeg
