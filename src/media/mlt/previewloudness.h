#pragma once

#include "media/mediatypes.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <optional>
#include <thread>

namespace kavel::media::mlt {

class SoundFilter;

// Plays the preview at the loudness the export would give it: the kept sound is measured
// as the export measures it, in the background and again a moment after each edit, and
// the same one gain is set on the preview's sound. Until the first measurement is in, the
// sound plays as it is; after an edit, the last gain stays until the next one is.
class PreviewLoudness : public QObject
{
    Q_OBJECT

public:
    // How long after the last edit the sound is measured again: typing a correction
    // should not start a measurement per key.
    static constexpr int settleMilliseconds = 800;

    explicit PreviewLoudness(SoundFilter &sound, QObject *parent = nullptr);
    ~PreviewLoudness() override;

    // LUFS; none plays the sound as it is.
    void setTarget(std::optional<double> lufs);
    void setEdit(const EditList &edit);
    // The gain the preview plays with (dB); none while off or not measured yet.
    std::optional<double> gain() const { return m_gain; }
    // Whether the gain is that of the edit as it stands.
    bool upToDate() const { return m_measuredEdit == m_editNumber; }

Q_SIGNALS:
    void gainChanged();

private:
    void measure();
    void stopMeasuring();
    void apply();

    SoundFilter &m_sound;
    std::optional<double> m_target;
    EditList m_edit;
    // Counts the edits, so a measurement of an older one is known as such.
    quint64 m_editNumber = 0;
    std::optional<quint64> m_measuredEdit;
    double m_integrated = 0.0;
    double m_truePeak = 0.0;
    std::optional<double> m_gain;
    QTimer m_settle;
    std::thread m_worker;
    std::atomic<bool> m_stop {false};
};

} // namespace kavel::media::mlt
