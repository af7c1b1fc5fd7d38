#include "exportsettings.h"

#include "model/errors.h"
#include "model/jsonfields.h"

#include <QCoreApplication>
#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace kavel {

namespace {

template<typename E> struct Case
{
    E value;
    const char16_t *raw;
};

constexpr std::array resolutions {Case<Resolution> {Resolution::p720, u"720p"},
                                  Case<Resolution> {Resolution::p1080, u"1080p"},
                                  Case<Resolution> {Resolution::p4k, u"4k"}};
constexpr std::array bitrates {Case<Bitrate> {Bitrate::low, u"low"},
                               Case<Bitrate> {Bitrate::medium, u"medium"},
                               Case<Bitrate> {Bitrate::high, u"high"}};
constexpr std::array codecs {Case<VideoCodec> {VideoCodec::h264, u"h264"},
                             Case<VideoCodec> {VideoCodec::hevc, u"hevc"}};
constexpr std::array videoFormats {Case<VideoFormat> {VideoFormat::mp4, u"mp4"},
                                   Case<VideoFormat> {VideoFormat::mov, u"mov"}};
constexpr std::array audioFormats {Case<AudioFormat> {AudioFormat::mp3, u"mp3"},
                                   Case<AudioFormat> {AudioFormat::wav, u"wav"},
                                   Case<AudioFormat> {AudioFormat::aac, u"aac"}};
constexpr std::array subtitleFormats {Case<SubtitleFormat> {SubtitleFormat::srt, u"srt"},
                                      Case<SubtitleFormat> {SubtitleFormat::vtt, u"vtt"}};
constexpr std::array subtitleStyles {Case<SubtitleStyle> {SubtitleStyle::words, u"words"},
                                     Case<SubtitleStyle> {SubtitleStyle::phrases, u"phrases"}};
constexpr std::array captionSizes {Case<CaptionSize> {CaptionSize::small, u"small"},
                                   Case<CaptionSize> {CaptionSize::medium, u"medium"},
                                   Case<CaptionSize> {CaptionSize::large, u"large"}};

template<typename E, size_t N> QString rawOf(const std::array<Case<E>, N> &table, E value)
{
    for (const auto &c : table) {
        if (c.value == value)
            return QString::fromUtf16(c.raw);
    }
    return {};
}

template<typename E, size_t N>
std::optional<E> fromRaw(const std::array<Case<E>, N> &table, QStringView raw)
{
    for (const auto &c : table) {
        if (raw == QStringView(c.raw))
            return c.value;
    }
    return std::nullopt;
}

template<typename E, size_t N> QList<E> casesOf(const std::array<Case<E>, N> &table)
{
    QList<E> list;
    for (const auto &c : table)
        list.append(c.value);
    return list;
}

// Reads an enumeration coded by its raw string; an unknown raw value fails like a wrong type.
template<typename E, size_t N>
E readEnum(const QJsonObject &o, QLatin1StringView key, const std::array<Case<E>, N> &table)
{
    const QString raw = json::requiredString(o, key);
    if (auto value = fromRaw(table, raw))
        return *value;
    throw DecodeError(QString(key),
                      QCoreApplication::translate("kavel::export", "“%1”不是键“%2”的有效取值")
                          .arg(raw, QString(key)));
}

template<typename E>
E readOptional(const QJsonObject &o, QLatin1StringView key,
               std::optional<E> (*fromRawValue)(QStringView))
{
    const QString raw = json::requiredString(o, key);
    if (auto value = fromRawValue(raw))
        return *value;
    throw DecodeError(QString(key),
                      QCoreApplication::translate("kavel::export", "“%1”不是键“%2”的有效取值")
                          .arg(raw, QString(key)));
}

} // namespace

QString toRawValue(Resolution value)
{
    return rawOf(resolutions, value);
}
QString toRawValue(Bitrate value)
{
    return rawOf(bitrates, value);
}
QString toRawValue(VideoCodec value)
{
    return rawOf(codecs, value);
}
QString toRawValue(VideoFormat value)
{
    return rawOf(videoFormats, value);
}
int toRawValue(FrameRate value)
{
    return value == FrameRate::fps60 ? 60 : 30;
}
QString toRawValue(AudioFormat value)
{
    return rawOf(audioFormats, value);
}
QString toRawValue(SubtitleFormat value)
{
    return rawOf(subtitleFormats, value);
}
QString toRawValue(SubtitleStyle value)
{
    return rawOf(subtitleStyles, value);
}

std::optional<Resolution> resolutionFromRaw(QStringView raw)
{
    return fromRaw(resolutions, raw);
}
std::optional<Bitrate> bitrateFromRaw(QStringView raw)
{
    return fromRaw(bitrates, raw);
}
std::optional<VideoCodec> videoCodecFromRaw(QStringView raw)
{
    return fromRaw(codecs, raw);
}
std::optional<VideoFormat> videoFormatFromRaw(QStringView raw)
{
    return fromRaw(videoFormats, raw);
}
std::optional<AudioFormat> audioFormatFromRaw(QStringView raw)
{
    return fromRaw(audioFormats, raw);
}
std::optional<SubtitleFormat> subtitleFormatFromRaw(QStringView raw)
{
    return fromRaw(subtitleFormats, raw);
}
std::optional<SubtitleStyle> subtitleStyleFromRaw(QStringView raw)
{
    return fromRaw(subtitleStyles, raw);
}

QString toRawValue(CaptionSize value)
{
    return rawOf(captionSizes, value);
}

std::optional<CaptionSize> captionSizeFromRaw(QStringView raw)
{
    return fromRaw(captionSizes, raw);
}

std::optional<FrameRate> frameRateFromRaw(int raw)
{
    if (raw == 30)
        return FrameRate::fps30;
    if (raw == 60)
        return FrameRate::fps60;
    return std::nullopt;
}

QString label(Resolution value)
{
    switch (value) {
    case Resolution::p720:
        return u"720P"_s;
    case Resolution::p1080:
        return u"1080P"_s;
    case Resolution::p4k:
        return u"4K"_s;
    }
    return {};
}

QString label(VideoCodec value)
{
    return value == VideoCodec::hevc ? u"HEVC"_s : u"H.264"_s;
}

template<> QList<Resolution> allCases<Resolution>()
{
    return casesOf(resolutions);
}
template<> QList<Bitrate> allCases<Bitrate>()
{
    return casesOf(bitrates);
}
template<> QList<VideoCodec> allCases<VideoCodec>()
{
    return casesOf(codecs);
}
template<> QList<VideoFormat> allCases<VideoFormat>()
{
    return casesOf(videoFormats);
}
template<> QList<FrameRate> allCases<FrameRate>()
{
    return {FrameRate::fps30, FrameRate::fps60};
}
template<> QList<AudioFormat> allCases<AudioFormat>()
{
    return casesOf(audioFormats);
}
template<> QList<SubtitleFormat> allCases<SubtitleFormat>()
{
    return casesOf(subtitleFormats);
}
template<> QList<SubtitleStyle> allCases<SubtitleStyle>()
{
    return casesOf(subtitleStyles);
}
template<> QList<CaptionSize> allCases<CaptionSize>()
{
    return casesOf(captionSizes);
}

QString fileExtension(OutputFileType type)
{
    return type == OutputFileType::quickTimeMovie ? u"mov"_s : u"mp4"_s;
}

ExportPreset ExportSettings::preset() const
{
    return {codec, frameSize(resolution)};
}

QSize frameSize(Resolution resolution)
{
    switch (resolution) {
    case Resolution::p720:
        return {1280, 720};
    case Resolution::p1080:
        return {1920, 1080};
    case Resolution::p4k:
        return {3840, 2160};
    }
    return {1920, 1080};
}

double captionHeight(CaptionSize size)
{
    // 49, 59 and 76 pixels of text in a 1080p picture.
    switch (size) {
    case CaptionSize::small:
        return 0.045;
    case CaptionSize::medium:
        return 0.055;
    case CaptionSize::large:
        return 0.07;
    }
    return 0.055;
}

Resolution resolutionOfFrame(QSize source)
{
    // The short side decides, so an upright phone recording is classed like a wide one.
    const int side = std::min(source.width(), source.height());
    if (side >= 2160)
        return Resolution::p4k;
    if (side >= 1080)
        return Resolution::p1080;
    return Resolution::p720;
}

OutputFileType ExportSettings::outputFileType() const
{
    return videoFormat == VideoFormat::mov ? OutputFileType::quickTimeMovie : OutputFileType::mpeg4;
}

QJsonObject toJson(const ExportSettings &s)
{
    QJsonObject o;
    o.insert("title"_L1, s.title);
    if (s.outputPath)
        o.insert("outputPath"_L1, s.outputPath->toString(QUrl::FullyEncoded));
    o.insert("videoEnabled"_L1, s.videoEnabled);
    o.insert("resolution"_L1, toRawValue(s.resolution));
    o.insert("bitrate"_L1, toRawValue(s.bitrate));
    o.insert("codec"_L1, toRawValue(s.codec));
    o.insert("videoFormat"_L1, toRawValue(s.videoFormat));
    o.insert("frameRate"_L1, toRawValue(s.frameRate));
    o.insert("audioEnabled"_L1, s.audioEnabled);
    o.insert("audioFormat"_L1, toRawValue(s.audioFormat));
    o.insert("subtitleEnabled"_L1, s.subtitleEnabled);
    o.insert("subtitleFormat"_L1, toRawValue(s.subtitleFormat));
    o.insert("subtitleStyle"_L1, toRawValue(s.subtitleStyle));
    o.insert("interchangeEnabled"_L1, s.interchangeEnabled);
    o.insert("interchangeFormat"_L1, interchange::toRawValue(s.interchangeFormat));
    o.insert("burnSubtitles"_L1, s.burnSubtitles);
    o.insert("captionSize"_L1, toRawValue(s.captionSize));
    o.insert("loudness"_L1, toRawValue(s.loudness));
    o.insert("denoise"_L1, toRawValue(s.denoise));
    return o;
}

ExportSettings exportSettingsFromJson(const QJsonObject &o)
{
    ExportSettings s;
    s.title = json::requiredString(o, "title"_L1);
    if (auto path = json::optionalString(o, "outputPath"_L1)) {
        const QUrl url(*path, QUrl::StrictMode);
        if (!url.isValid())
            throw json::wrongTypeError(u"outputPath", "URL");
        s.outputPath = url;
    }
    s.videoEnabled = json::requiredBool(o, "videoEnabled"_L1);
    s.resolution = readEnum(o, "resolution"_L1, resolutions);
    s.bitrate = readEnum(o, "bitrate"_L1, bitrates);
    s.codec = readEnum(o, "codec"_L1, codecs);
    s.videoFormat = readEnum(o, "videoFormat"_L1, videoFormats);
    const qint64 rate = json::requiredInt64(o, "frameRate"_L1);
    const auto frameRate = frameRateFromRaw(rate == 30 || rate == 60 ? static_cast<int>(rate) : 0);
    if (!frameRate)
        throw DecodeError(
            u"frameRate"_s,
            QCoreApplication::translate("kavel::export", "“%1”不是键“frameRate”的有效取值")
                .arg(rate));
    s.frameRate = *frameRate;
    s.audioEnabled = json::requiredBool(o, "audioEnabled"_L1);
    s.audioFormat = readEnum(o, "audioFormat"_L1, audioFormats);
    s.subtitleEnabled = json::requiredBool(o, "subtitleEnabled"_L1);
    s.subtitleFormat = readEnum(o, "subtitleFormat"_L1, subtitleFormats);
    // Settings stored before phrase cues existed meant one cue per word.
    if (o.contains("subtitleStyle"_L1))
        s.subtitleStyle = readEnum(o, "subtitleStyle"_L1, subtitleStyles);
    if (o.contains("interchangeEnabled"_L1))
        s.interchangeEnabled = json::requiredBool(o, "interchangeEnabled"_L1);
    if (o.contains("interchangeFormat"_L1)) {
        const QString raw = json::requiredString(o, "interchangeFormat"_L1);
        const auto format = interchange::formatFromRaw(raw);
        if (!format)
            throw DecodeError(u"interchangeFormat"_s,
                              QCoreApplication::translate("kavel::export",
                                                          "“%1”不是键“interchangeFormat”的有效取值")
                                  .arg(raw));
        s.interchangeFormat = *format;
    }
    // Settings stored before captions could be burned in had none.
    if (o.contains("burnSubtitles"_L1))
        s.burnSubtitles = json::requiredBool(o, "burnSubtitles"_L1);
    if (o.contains("captionSize"_L1))
        s.captionSize = readEnum(o, "captionSize"_L1, captionSizes);
    // Choices kept before the sound could be finished leave it as it was.
    if (o.contains("loudness"_L1))
        s.loudness = readOptional(o, "loudness"_L1, loudnessTargetFromRaw);
    if (o.contains("denoise"_L1))
        s.denoise = readOptional(o, "denoise"_L1, noiseReductionFromRaw);
    return s;
}

} // namespace kavel
