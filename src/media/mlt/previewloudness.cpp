#include "previewloudness.h"

#include "media/ffmpeg/masteredaudio.h"
#include "soundfilter.h"

#include <QDebug>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// The preview's own rate; the loudness hardly depends on it.
constexpr int measuringRate = 48000;
// The ceiling of the export's sound file.
constexpr double ceiling = -1.0;

struct Stopped
{
};

} // namespace

PreviewLoudness::PreviewLoudness(SoundFilter &sound, QObject *parent)
    : QObject(parent)
    , m_sound(sound)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleMilliseconds);
    connect(&m_settle, &QTimer::timeout, this, &PreviewLoudness::measure);
}

PreviewLoudness::~PreviewLoudness()
{
    stopMeasuring();
}

void PreviewLoudness::setTarget(std::optional<double> lufs)
{
    m_target = lufs;
    if (m_target && m_measuredEdit != m_editNumber)
        measure();
    apply();
}

void PreviewLoudness::setEdit(const EditList &edit)
{
    m_edit = edit;
    ++m_editNumber;
    if (m_target)
        m_settle.start();
}

void PreviewLoudness::stopMeasuring()
{
    if (m_worker.joinable()) {
        m_stop = true;
        m_worker.join();
    }
    m_stop = false;
}

void PreviewLoudness::measure()
{
    m_settle.stop();
    stopMeasuring();
    const quint64 number = m_editNumber;
    // The worker is joined before this object goes, so it may post to it; Qt drops what
    // is posted to an object already gone.
    m_worker = std::thread([this, edit = m_edit, number] {
        try {
            const auto loudness
                = ffmpeg::MasteredAudio::measure(edit, measuringRate, [this](double) {
                      if (m_stop.load())
                          throw Stopped {};
                  });
            QMetaObject::invokeMethod(
                this,
                [this, number, loudness] {
                    if (m_editNumber != number)
                        return;
                    m_measuredEdit = number;
                    m_integrated = loudness.integrated;
                    m_truePeak = loudness.truePeak;
                    apply();
                },
                Qt::QueuedConnection);
        } catch (const Stopped &) {
        } catch (const MediaError &error) {
            // The preview then plays as it is; the export will say what is wrong.
            qInfo().noquote() << u"[Preview] Loudness not measured: "_s + error.description();
        }
    });
}

void PreviewLoudness::apply()
{
    std::optional<double> gain;
    if (m_target && m_measuredEdit)
        gain = ffmpeg::MasteredAudio::gainFor({m_integrated, m_truePeak}, *m_target, ceiling)
                   .decibels;
    m_sound.setGain(gain.value_or(0.0));
    if (gain != m_gain) {
        m_gain = gain;
        Q_EMIT gainChanged();
    }
}

} // namespace kavel::media::mlt
