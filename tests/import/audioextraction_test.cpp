#include "editor/audioextraction.h"
#include "generatedmedia.h"
#include "importfakes.h"
#include "media/mlt/mediaprobe.h"
#include "media/mlt/mltaudioconverter.h"
#include "media/mlt/mltengine.h"
#include "model/errors.h"
#include "model/kavelproject.h"
#include "playback/playbackclock.h"
#include "support/fakeclock.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

std::optional<KavelProjectError::Code> errorCode(const TaskOutcome<QUrl> &outcome)
{
    const auto error = outcome.errorAs<KavelProjectError>();
    return error ? std::optional(error->code()) : std::nullopt;
}

class AudioExtraction : public ::testing::Test
{
protected:
    QString file(const QString &name)
    {
        const QString path = dir.filePath(name);
        writeFile(path, "media bytes");
        return path;
    }

    QTemporaryDir dir;
    FakeAudioConverter converter;
    FakeClock clock;
    LogRecorder log;
    AudioExtractor extractor {converter, clock, log.sink()};
};

// The engine's own conversions are followed below and in the import's end-to-end test;
// here, the ways a conversion can end that a real engine rarely shows.
TEST_F(AudioExtraction, AudioThatCannotBeConvertedGoesUpAsItIsAndVideoFails)
{
    enum class End { refused, failedHalfWay, cancelled };
    const struct
    {
        QString name;
        End end;
        QString logLine; // empty when the conversion is an error
    } cases[] = {
        {u"Talk.WAV"_s, End::refused,
         u"[AudioExtract] No compatible preset for .wav, using source directly"_s},
        {u"voice.ogg"_s, End::failedHalfWay,
         u"[AudioExtract] M4A conversion failed for .ogg, using source directly"_s},
        {u"broken.mov"_s, End::refused, {}},
        {u"speech.wav"_s, End::cancelled, {}},
    };
    for (const auto &c : cases) {
        const QString source = file(c.name);
        converter.refused = c.end == End::refused ? QStringList {source} : QStringList {};
        converter.completeAtOnce = c.end == End::refused;
        log.lines->clear();
        auto task = extractor.convertToM4A(QUrl::fromLocalFile(source), dir.path());
        QString partial;
        if (c.end != End::refused) {
            partial = converter.current().output();
            writeFile(partial, "partial");
            converter.current().finish(c.end == End::cancelled ? media::ConversionStatus::cancelled
                                                               : media::ConversionStatus::failed);
        }
        auto outcome = runTask(std::move(task));
        if (c.logLine.isEmpty()) {
            EXPECT_EQ(errorCode(outcome), KavelProjectError::Code::audioExtractionFailed)
                << c.name.toStdString();
        } else {
            EXPECT_EQ(std::move(outcome).get(), QUrl::fromLocalFile(source));
            EXPECT_EQ(*log.lines, QStringList {c.logLine});
        }
        EXPECT_FALSE(!partial.isEmpty() && QFileInfo::exists(partial)) << "the partial output goes";
        EXPECT_EQ(clock.pendingCalls(), 0) << "progress reports end with the conversion";
    }
}

// The sources a project lists are followed through the import in importpipeline_test.
TEST_F(AudioExtraction, UnlistedMediaIsFoundAndOneFailureLeavesNothingBehind)
{
    // A bundle whose metadata lists nothing: the folder is listed, and only the media
    // extensions count (ogg is audio, but not one of them).
    auto bare = KavelProject::create(u"Bare"_s, dir.path());
    const QString id = u"6C1D2E3F-0000-4000-8000-0000000000E2"_s;
    for (const QString &name : {QString(id + u".MP4"), u"voice.ogg"_s, u"notes.txt"_s})
        writeFile(QDir(bare->mediaDirectory()).filePath(name), "v");
    const QList<ExtractedAudio> audio = runTask(extractor.extractAudio(*bare)).get();
    ASSERT_EQ(audio.size(), 1);
    EXPECT_EQ(audio[0].sourceFileId, QUuid::fromString(id));

    // One failure ends it, and nothing converted before it is left behind.
    auto failing = KavelProject::create(u"F"_s, dir.path());
    failing->addSourceFile(QUrl::fromLocalFile(file(u"ok.mp4"_s)));
    const SourceFile bad = failing->addSourceFile(QUrl::fromLocalFile(file(u"bad.mkv"_s)));
    converter.refused = {failing->sourceFileURL(bad.id)->toLocalFile()};
    EXPECT_TRUE(runTask(extractor.extractAudio(*failing)).error);
    EXPECT_TRUE(QDir(failing->cacheDirectory()).isEmpty());
}

// That speech survives the conversion is shown by recognising it, in importendtoend_test.
TEST(MltAudioConversion, SoundBecomesAacOfTheSameLengthOrSaysWhyNot)
{
    // Never destroyed, as in the application: the engine lives as long as the process.
    static auto *engine = new media::mlt::MltMediaEngine;
    media::mlt::MltAudioConverter converter {*engine};
    SystemPlaybackClock clock;
    LogRecorder log;
    AudioExtractor extractor {converter, clock, log.sink()};
    QTemporaryDir dir;
    const QString video = makeVideoWithAudio(dir.path(), u"clip.mov"_s, 3.0);
    const QString wav = makeTone(dir.path(), u"tone.WAV"_s, 2.0);
    // Each conversion gets a fresh name in the output folder, so two never collide.
    const QRegularExpression name(u"^audio_[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.m4a$"_s);
    QSet<QUrl> outputs;
    for (const QString &source : {video, wav, video}) {
        const QUrl out = runTask(extractor.convertToM4A(QUrl::fromLocalFile(source), dir.path()),
                                 std::chrono::seconds(60))
                             .get();
        const QFileInfo file(out.toLocalFile());
        EXPECT_TRUE(name.match(file.fileName()).hasMatch()) << file.fileName().toStdString();
        EXPECT_EQ(file.absolutePath(), QFileInfo(dir.path()).absoluteFilePath());
        EXPECT_TRUE(log.lines->contains(u"[AudioExtract] Completed: "_s + file.fileName()));
        outputs.insert(out);
        const media::MediaInfo info = media::mlt::probeMedia(out.toLocalFile()).info;
        EXPECT_TRUE(info.hasAudio && !info.hasVideo) << source.toStdString();
        EXPECT_NEAR(info.audioDuration, source == video ? 3.0 : 2.0, 0.15) << source.toStdString();
        // Recognition hears 16 kHz mono; more would only make the upload longer.
        QProcess probe;
        probe.start(u"ffprobe"_s,
                    {u"-v"_s, u"error"_s, u"-select_streams"_s, u"a:0"_s, u"-show_entries"_s,
                     u"stream=sample_rate,channels"_s, u"-of"_s, u"csv=p=0"_s, out.toLocalFile()});
        ASSERT_TRUE(probe.waitForFinished(30000));
        EXPECT_EQ(probe.readAllStandardOutput().trimmed(), "16000,1") << source.toStdString();
    }
    EXPECT_EQ(outputs.size(), 3);

    const QString silent = makeVideoWithoutAudio(dir.path(), u"silent.mp4"_s, 1.0);
    EXPECT_EQ(errorCode(runTask(extractor.convertToM4A(QUrl::fromLocalFile(silent), dir.path()))),
              KavelProjectError::Code::noAudioTrack);
    EXPECT_TRUE(log.lines->contains(u"[AudioExtract] Failed: 视频中没有音频轨道"_s));
    const QString notMedia = makeNotMedia(dir.path(), u"notes.mp4"_s);
    EXPECT_EQ(converter.startM4AConversion(notMedia, dir.filePath(u"out.m4a"_s)), nullptr);
    for (const QString &half : QDir(dir.path()).entryList({u"*.m4a"_s}, QDir::Files))
        EXPECT_TRUE(outputs.contains(QUrl::fromLocalFile(dir.filePath(half)))) << "half-written";
}

} // namespace
