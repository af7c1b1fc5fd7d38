#pragma once

#include "media/renderer.h"

#include <QList>
#include <QString>
#include <optional>

namespace kavel {

// "响度标准化": the integrated loudness every output with sound is brought to.
enum class LoudnessTarget { off, platform, podcast, broadcast };
// "降噪": how much steady hiss is taken out.
enum class NoiseReduction { off, light, strong };

// Raw values as stored in JSON and given on the command line ("-14", "light", …), the
// dialog's labels, and every case in order.
QString toRawValue(LoudnessTarget value);
QString toRawValue(NoiseReduction value);
std::optional<LoudnessTarget> loudnessTargetFromRaw(QStringView raw);
std::optional<NoiseReduction> noiseReductionFromRaw(QStringView raw);
QString label(LoudnessTarget value);
QString label(NoiseReduction value);
template<typename E> QList<E> allCases();

// LUFS; none when off.
std::optional<double> lufsOf(LoudnessTarget target);
media::SoundFinish soundFinish(LoudnessTarget target, NoiseReduction denoise);

// "响度：-27.3 LUFS → -16.0 LUFS，真峰值 -1.4 dBTP", with a note when the peaks kept the
// sound under its target.
QString loudnessSummary(const media::LoudnessReport &report);

} // namespace kavel
