#include "export/exportsettings.h"
#include "model/errors.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace kavel;
using namespace Qt::StringLiterals;

TEST(ExportSettings, RoundTripsEveryChoiceAndRefusesUnknownValues)
{
    const ExportSettings defaults;
    EXPECT_EQ(QJsonDocument(toJson(defaults)).toJson(QJsonDocument::Compact),
              R"({"audioEnabled":false,"audioFormat":"mp3","bitrate":"medium","codec":"h264",)"
              R"("frameRate":30,"interchangeEnabled":false,"interchangeFormat":"mlt",)"
              R"("resolution":"1080p","subtitleEnabled":false,"subtitleFormat":"srt",)"
              R"("subtitleStyle":"words","title":"","videoEnabled":true,"videoFormat":"mp4"})");
    EXPECT_EQ(exportSettingsFromJson(toJson(defaults)), defaults);

    ExportSettings s;
    s.title = u"访谈 终版"_s;
    s.outputPath = QUrl::fromLocalFile(u"/tmp/导出 目录"_s);
    s.resolution = Resolution::p4k;
    s.bitrate = Bitrate::high;
    s.codec = VideoCodec::hevc;
    s.videoFormat = VideoFormat::mov;
    s.frameRate = FrameRate::fps60;
    s.subtitleFormat = SubtitleFormat::vtt;
    s.subtitleStyle = SubtitleStyle::phrases;
    s.interchangeEnabled = true;
    s.interchangeFormat = interchange::Format::fcpxml;
    s.audioEnabled = true;
    s.audioFormat = AudioFormat::wav;
    s.subtitleEnabled = true;
    EXPECT_EQ(exportSettingsFromJson(toJson(s)), s);
    EXPECT_EQ(toJson(s).value("frameRate"_L1), QJsonValue(60));

    const std::pair<const char *, QJsonValue> unknown[] = {{"frameRate", 25},
                                                           {"resolution", u"8k"_s},
                                                           {"resolution", u"1080P"_s},
                                                           {"audioEnabled", QJsonValue::Undefined}};
    for (const auto &[key, value] : unknown) {
        QJsonObject o = toJson(defaults);
        if (value.isUndefined())
            o.remove(QLatin1StringView(key));
        else
            o.insert(QLatin1StringView(key), value);
        EXPECT_THROW(exportSettingsFromJson(o), DecodeError) << key;
    }
}

TEST(ExportSettings, PresetAndFileTypeFollowCodecResolutionAndContainer)
{
    ExportSettings s;
    const QList<QSize> h264 {QSize(1280, 720), QSize(1920, 1080), QSize(3840, 2160)};
    const QList<QSize> hevc {QSize(1920, 1080), QSize(1920, 1080), QSize(3840, 2160)};
    const QList<Resolution> resolutions = allCases<Resolution>();
    ASSERT_EQ(resolutions.size(), 3);
    for (qsizetype i = 0; i < resolutions.size(); ++i) {
        s.resolution = resolutions[i];
        s.codec = VideoCodec::h264;
        EXPECT_EQ(s.preset(), (ExportPreset {VideoCodec::h264, h264[i]}));
        s.codec = VideoCodec::hevc;
        EXPECT_EQ(s.preset(), (ExportPreset {VideoCodec::hevc, hevc[i]}));
    }
    EXPECT_EQ(s.outputFileType(), OutputFileType::mpeg4);
    s.videoFormat = VideoFormat::mov;
    EXPECT_EQ(fileExtension(s.outputFileType()), u"mov"_s);
}
