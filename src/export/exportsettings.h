#pragma once

#include "interchange.h"
#include "soundfinish.h"

#include <QJsonObject>
#include <QList>
#include <QSize>
#include <QString>
#include <QUrl>
#include <optional>

namespace kavel {

enum class Resolution { p720, p1080, p4k };
enum class Bitrate { low, medium, high };
enum class VideoCodec { h264, hevc };
enum class VideoFormat { mp4, mov };
enum class FrameRate { fps30, fps60 };
enum class AudioFormat { mp3, wav, aac };
enum class SubtitleFormat { srt, vtt };
// One cue per word, or whole phrases (see subtitlewriter.h).
enum class SubtitleStyle { words, phrases };
// How large captions burned into the movie are.
enum class CaptionSize { small, medium, large };

// Raw values as stored in JSON ("1080p", "hevc", …; FrameRate's are the integers 30 and
// 60), the labels the export dialog shows (empty where it shows none), and every case
// in order.
QString toRawValue(Resolution value);
QString toRawValue(Bitrate value);
QString toRawValue(VideoCodec value);
QString toRawValue(VideoFormat value);
int toRawValue(FrameRate value);
QString toRawValue(AudioFormat value);
QString toRawValue(SubtitleFormat value);
QString toRawValue(SubtitleStyle value);
QString toRawValue(CaptionSize value);

std::optional<Resolution> resolutionFromRaw(QStringView raw);
std::optional<Bitrate> bitrateFromRaw(QStringView raw);
std::optional<VideoCodec> videoCodecFromRaw(QStringView raw);
std::optional<VideoFormat> videoFormatFromRaw(QStringView raw);
std::optional<FrameRate> frameRateFromRaw(int raw);
std::optional<AudioFormat> audioFormatFromRaw(QStringView raw);
std::optional<SubtitleFormat> subtitleFormatFromRaw(QStringView raw);
std::optional<SubtitleStyle> subtitleStyleFromRaw(QStringView raw);
std::optional<CaptionSize> captionSizeFromRaw(QStringView raw);

QString label(Resolution value);
QString label(VideoCodec value);

template<typename E> QList<E> allCases();

// The encoder set-up a settings record asks for: codec and frame size. The size chosen is
// the size written, whatever the codec.
struct ExportPreset
{
    VideoCodec codec = VideoCodec::h264;
    QSize frameSize;

    friend bool operator==(const ExportPreset &, const ExportPreset &) = default;
};

// 1280x720, 1920x1080 or 3840x2160.
QSize frameSize(Resolution resolution);
// The height of a caption's text as a share of the picture's, so a caption takes the same
// room at every resolution.
double captionHeight(CaptionSize size);
// The class a recording of this size belongs to: the largest not above it, 720p below
// that. What the dialog starts from, so a recording is not enlarged unless asked.
Resolution resolutionOfFrame(QSize source);

enum class OutputFileType { mpeg4, quickTimeMovie };
QString fileExtension(OutputFileType type);

// What the export dialog fills in. Not stored between runs; each dialog starts from
// these defaults.
struct ExportSettings
{
    QString title;
    std::optional<QUrl> outputPath;
    bool videoEnabled = true;
    Resolution resolution = Resolution::p1080;
    // Kept and stored, but the encoder's rate follows the preset alone.
    Bitrate bitrate = Bitrate::medium;
    VideoCodec codec = VideoCodec::h264;
    VideoFormat videoFormat = VideoFormat::mp4;
    // Kept and stored, but the output's rate follows the preset alone.
    FrameRate frameRate = FrameRate::fps30;
    bool audioEnabled = false;
    AudioFormat audioFormat = AudioFormat::mp3;
    bool subtitleEnabled = false;
    SubtitleFormat subtitleFormat = SubtitleFormat::srt;
    SubtitleStyle subtitleStyle = SubtitleStyle::phrases;
    // "项目交换文件": the edit for another editor.
    bool interchangeEnabled = false;
    interchange::Format interchangeFormat = interchange::Format::mlt;
    // "字幕烧录": the movie carries the cues (in subtitleStyle) drawn into its pictures.
    bool burnSubtitles = false;
    CaptionSize captionSize = CaptionSize::medium;
    // What is done to the sound of the movie and of the sound file alike.
    LoudnessTarget loudness = LoudnessTarget::off;
    NoiseReduction denoise = NoiseReduction::off;

    ExportPreset preset() const;
    OutputFileType outputFileType() const;

    friend bool operator==(const ExportSettings &, const ExportSettings &) = default;
};

QJsonObject toJson(const ExportSettings &settings);
// Throws DecodeError for a missing key, a wrong type or a raw value that names no case.
ExportSettings exportSettingsFromJson(const QJsonObject &object);

} // namespace kavel
