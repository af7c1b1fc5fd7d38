#include "soundfinish.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

struct LoudnessCase
{
    LoudnessTarget value;
    const char16_t *raw;
    double lufs;
};

// Video platforms play at -14, podcasts at -16, broadcasters measure to -23 (EBU R128).
constexpr LoudnessCase loudnessCases[] = {{LoudnessTarget::off, u"off", 0.0},
                                          {LoudnessTarget::platform, u"-14", -14.0},
                                          {LoudnessTarget::podcast, u"-16", -16.0},
                                          {LoudnessTarget::broadcast, u"-23", -23.0}};

struct DenoiseCase
{
    NoiseReduction value;
    const char16_t *raw;
};

constexpr DenoiseCase denoiseCases[] = {{NoiseReduction::off, u"off"},
                                        {NoiseReduction::light, u"light"},
                                        {NoiseReduction::strong, u"strong"}};

} // namespace

QString toRawValue(LoudnessTarget value)
{
    for (const auto &c : loudnessCases)
        if (c.value == value)
            return QString::fromUtf16(c.raw);
    return {};
}

QString toRawValue(NoiseReduction value)
{
    for (const auto &c : denoiseCases)
        if (c.value == value)
            return QString::fromUtf16(c.raw);
    return {};
}

std::optional<LoudnessTarget> loudnessTargetFromRaw(QStringView raw)
{
    for (const auto &c : loudnessCases)
        if (raw == QStringView(c.raw))
            return c.value;
    return std::nullopt;
}

std::optional<NoiseReduction> noiseReductionFromRaw(QStringView raw)
{
    for (const auto &c : denoiseCases)
        if (raw == QStringView(c.raw))
            return c.value;
    return std::nullopt;
}

QString label(LoudnessTarget value)
{
    switch (value) {
    case LoudnessTarget::off:
        return QCoreApplication::translate("kavel::export", "关");
    case LoudnessTarget::platform:
        return QCoreApplication::translate("kavel::export", "-14 LUFS（视频平台）");
    case LoudnessTarget::podcast:
        return QCoreApplication::translate("kavel::export", "-16 LUFS（播客）");
    case LoudnessTarget::broadcast:
        return QCoreApplication::translate("kavel::export", "-23 LUFS（广播）");
    }
    return {};
}

QString label(NoiseReduction value)
{
    switch (value) {
    case NoiseReduction::off:
        return QCoreApplication::translate("kavel::export", "关");
    case NoiseReduction::light:
        return QCoreApplication::translate("kavel::export", "轻");
    case NoiseReduction::strong:
        return QCoreApplication::translate("kavel::export", "强");
    }
    return {};
}

template<> QList<LoudnessTarget> allCases<LoudnessTarget>()
{
    QList<LoudnessTarget> all;
    for (const auto &c : loudnessCases)
        all.append(c.value);
    return all;
}

template<> QList<NoiseReduction> allCases<NoiseReduction>()
{
    QList<NoiseReduction> all;
    for (const auto &c : denoiseCases)
        all.append(c.value);
    return all;
}

std::optional<double> lufsOf(LoudnessTarget target)
{
    for (const auto &c : loudnessCases)
        if (c.value == target && target != LoudnessTarget::off)
            return c.lufs;
    return std::nullopt;
}

media::SoundFinish soundFinish(LoudnessTarget target, NoiseReduction denoise)
{
    media::SoundFinish finish;
    finish.loudnessTarget = lufsOf(target);
    finish.denoise = denoise == NoiseReduction::strong ? media::Denoise::strong
        : denoise == NoiseReduction::light             ? media::Denoise::light
                                                       : media::Denoise::off;
    return finish;
}

QString loudnessSummary(const media::LoudnessReport &report)
{
    const auto number = [](double value) { return QString::number(value, 'f', 1); };
    QString text
        = QCoreApplication::translate("kavel::export", "响度：%1 LUFS → %2 LUFS，真峰值 %3 dBTP")
              .arg(number(report.before), number(report.after), number(report.truePeakAfter));
    if (report.peakLimited)
        text += QCoreApplication::translate("kavel::export", "（峰值已到上限，未能再提高）");
    return text;
}

} // namespace kavel
