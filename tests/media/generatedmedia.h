#pragma once

#include <QString>
#include <QStringList>
#include <utility>

// Small media files made with ffmpeg for the integration tests, a few seconds long and
// tiny in size so whole test programs stay fast.
namespace kavel::test {

// Runs ffmpeg with `arguments` (after "-v error -y"); fails the test when it fails.
void runFfmpeg(const QStringList &arguments);

// 160x90 test pattern at 30 fps with a 440 Hz sine at half scale, H.264/AAC in MP4.
QString makeVideoWithAudio(const QString &dir, const QString &name, double seconds);
// The sine alone as 48 kHz stereo WAV.
QString makeTone(const QString &dir, const QString &name, double seconds, double frequency = 440.0);
QString makeVideoWithoutAudio(const QString &dir, const QString &name, double seconds);
// Red over blue, 160x90, stored with a display rotation of 90 degrees like a phone's.
QString makeRotatedVideo(const QString &dir, const QString &name, double seconds);
// The first half of a valid MP4's bytes.
QString makeTruncated(const QString &dir, const QString &name, const QString &from);
QString makeNotMedia(const QString &dir, const QString &name);

// Integrated loudness (LUFS) and true peak (dBTP) of a file's sound as the ffmpeg program's
// own meter gives them: a measurement independent of the export's.
std::pair<double, double> measureLoudness(const QString &path);

} // namespace kavel::test
