#include "editor/audioextraction.h"
#include "generatedmedia.h"
#include "media/mlt/mediaprobe.h"
#include "media/mlt/mltaudioconverter.h"
#include "media/mlt/mltengine.h"
#include "model/errors.h"
#include "playback/playbackclock.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"

#include <QDir>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

class MltAudioConversion : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_engine = new media::mlt::MltMediaEngine; }

    QTemporaryDir dir;
    media::mlt::MltAudioConverter converter {*s_engine};
    SystemPlaybackClock clock;
    LogRecorder log;
    AudioExtractor extractor {converter, clock, log.sink()};

    static inline media::mlt::MltMediaEngine *s_engine = nullptr;
};

// That speech survives the conversion is shown by recognising it, in importendtoend_test.
TEST_F(MltAudioConversion, SoundOfVideoAndAudioBecomesAacOfTheSameLength)
{
    const QString video = makeVideoWithAudio(dir.path(), u"clip.mov"_s, 3.0);
    const QString wav = makeTone(dir.path(), u"tone.WAV"_s, 2.0);
    // Each conversion gets a fresh name in the output folder, so two never collide.
    const QRegularExpression name(u"^audio_[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.m4a$"_s);
    QSet<QUrl> outputs;
    for (const QString &source : {video, wav, video}) {
        const QUrl out = runTask(extractor.convertToM4A(QUrl::fromLocalFile(source), dir.path()),
                                 std::chrono::seconds(60))
                             .get();
        ASSERT_NE(out, QUrl::fromLocalFile(source)) << "converted, not handed on";
        const QFileInfo file(out.toLocalFile());
        EXPECT_TRUE(name.match(file.fileName()).hasMatch()) << file.fileName().toStdString();
        EXPECT_EQ(file.absolutePath(), QFileInfo(dir.path()).absoluteFilePath());
        EXPECT_TRUE(log.lines->contains(u"[AudioExtract] Completed: "_s + file.fileName()));
        outputs.insert(out);
        const media::MediaInfo info = media::mlt::probeMedia(out.toLocalFile()).info;
        EXPECT_TRUE(info.hasAudio);
        EXPECT_FALSE(info.hasVideo);
        const double expected = source == video ? 3.0 : 2.0;
        EXPECT_NEAR(info.audioDuration, expected, 0.15) << source.toStdString();
    }
    EXPECT_EQ(outputs.size(), 3);
}

TEST_F(MltAudioConversion, VideoWithoutSoundOrNotMediaAtAll)
{
    const QString silent = makeVideoWithoutAudio(dir.path(), u"silent.mp4"_s, 1.0);
    auto outcome = runTask(extractor.convertToM4A(QUrl::fromLocalFile(silent), dir.path()));
    ASSERT_TRUE(outcome.errorAs<KavelProjectError>());
    EXPECT_EQ(outcome.errorAs<KavelProjectError>()->code(), KavelProjectError::Code::noAudioTrack);
    EXPECT_TRUE(log.lines->contains(u"[AudioExtract] Failed: 视频中没有音频轨道"_s));

    EXPECT_EQ(converter.startM4AConversion(makeNotMedia(dir.path(), u"notes.mp4"_s),
                                           dir.filePath(u"out.m4a"_s)),
              nullptr);
    // Only the two sources are left: no half-written output.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 2);
}

} // namespace
