#include "editaudio.h"

#include <algorithm>

using namespace Qt::StringLiterals;
#include <cmath>
#include <numbers>

namespace kavel::media::ffmpeg {

EditAudio::EditAudio(EditList editList, int rate, Unreadable unreadable,
                     std::shared_ptr<SourceCache> sources)
    : m_editList(std::move(editList))
    , m_rate(rate)
    , m_unreadable(unreadable)
    , m_total(timing::sampleAt(m_editList.duration(), rate))
    , m_sources(sources ? std::move(sources) : std::make_shared<SourceCache>())
{ }

EditAudio::~EditAudio() = default;

AudioSource *EditAudio::source(const QString &path)
{
    // Sources are keyed by rate too: a cache may outlive a change of output rate.
    const QString key = QString::number(m_rate) + u'|' + path;
    auto it = m_sources->find(key);
    if (it == m_sources->end()) {
        std::shared_ptr<AudioSource> opened;
        try {
            opened = std::make_shared<AudioSource>(path, m_rate);
        } catch (const MediaError &) {
            if (m_unreadable == Unreadable::fail)
                throw;
        }
        it = m_sources->insert(key, opened);
    }
    return it->get();
}

void EditAudio::seek(std::int64_t sample)
{
    m_position = std::clamp<std::int64_t>(sample, 0, m_total);
    const QList<EditSegment> &segments = m_editList.segments;
    // The segment that owns the sample, and the start of the stretch it is read in.
    const auto owner = std::upper_bound(segments.cbegin(), segments.cend(), m_position,
                                        [this](std::int64_t n, const EditSegment &s) {
                                            return n < timing::outputSamples(s, m_rate).begin;
                                        });
    m_segment = std::max<qsizetype>((owner - segments.cbegin()) - 1, 0);
    qsizetype run = m_segment;
    while (run > 0 && m_editList.continuesPrevious(run))
        --run;
    if (run < segments.size()) {
        m_runOutput = timing::outputSamples(segments.at(run), m_rate).begin;
        m_runSource = timing::sampleAt(segments.at(run).sourceStart, m_rate);
    }
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
        AudioSource *from = segment.audio.muted ? nullptr : source(segment.sourcePath);
        if (!from) {
            std::fill(l, l + n, 0.0f);
            std::fill(r, r + n, 0.0f);
        } else {
            from->read(m_runSource + (m_position - m_runOutput), n, l, r);
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
