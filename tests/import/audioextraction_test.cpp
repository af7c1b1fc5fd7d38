#include "editor/audioextraction.h"
#include "fakeaudioconverter.h"
#include "model/errors.h"
#include "model/kavelproject.h"
#include "support/fakeclock.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

class AudioExtraction : public ::testing::Test
{
protected:
    QString file(const QString &name)
    {
        const QString path = dir.filePath(name);
        writeFile(path, "media bytes");
        return path;
    }

    QStringList lines(const QString &prefix) const
    {
        QStringList found;
        for (const QString &line : *log.lines) {
            if (line.startsWith(prefix))
                found.append(line);
        }
        return found;
    }

    QTemporaryDir dir;
    FakeAudioConverter converter;
    FakeClock clock;
    LogRecorder log;
    AudioExtractor extractor {converter, clock, log.sink()};
};

// The engine's own conversions are followed in mltaudioconverter_test and the import's
// end-to-end test; here, the ways a conversion can end that a real engine rarely shows.
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
            ASSERT_TRUE(outcome.errorAs<KavelProjectError>()) << c.name.toStdString();
            EXPECT_EQ(outcome.errorAs<KavelProjectError>()->code(),
                      KavelProjectError::Code::audioExtractionFailed);
        } else {
            EXPECT_EQ(std::move(outcome).get(), QUrl::fromLocalFile(source));
            EXPECT_EQ(*log.lines, QStringList {c.logLine});
        }
        if (!partial.isEmpty()) {
            EXPECT_FALSE(QFileInfo::exists(partial)) << "the partial output goes";
        }
    }
}

TEST_F(AudioExtraction, ProgressIsLoggedEveryHalfSecondUntilTheEnd)
{
    converter.completeAtOnce = false;
    auto task = extractor.convertToM4A(QUrl::fromLocalFile(file(u"a.mp4"_s)), dir.path());
    converter.current().setProgress(0.379);
    clock.advance(0.4);
    EXPECT_TRUE(lines(u"[AudioExtract] Progress"_s).isEmpty());
    clock.advance(0.6);
    converter.current().setProgress(0.999);
    clock.advance(0.5);
    EXPECT_EQ(lines(u"[AudioExtract] Progress"_s),
              (QStringList {u"[AudioExtract] Progress: 37%"_s, u"[AudioExtract] Progress: 37%"_s,
                            u"[AudioExtract] Progress: 99%"_s}));
    converter.current().finish(media::ConversionStatus::completed);
    runTask(std::move(task)).get();
    EXPECT_EQ(clock.pendingCalls(), 0) << "the reporter must stop with the conversion";
}

// The sources a project lists are followed through the import in importpipeline_test.
TEST_F(AudioExtraction, UnlistedMediaIsFoundAndOneFailureLeavesNothingBehind)
{
    // A bundle whose metadata lists nothing: the folder is listed, and only the media
    // extensions count (ogg is audio, but not one of them).
    auto bare = KavelProject::create(u"Bare"_s, dir.path());
    const QString id = u"6C1D2E3F-0000-4000-8000-0000000000E2"_s;
    writeFile(QDir(bare->mediaDirectory()).filePath(id + u".MP4"_s), "v");
    writeFile(QDir(bare->mediaDirectory()).filePath(u"voice.ogg"_s), "a");
    writeFile(QDir(bare->mediaDirectory()).filePath(u"notes.txt"_s), "t");
    const QList<ExtractedAudio> audio = runTask(extractor.extractAudio(*bare)).get();
    ASSERT_EQ(audio.size(), 1);
    EXPECT_EQ(audio[0].sourceFileId, QUuid::fromString(id));
    EXPECT_TRUE(audio[0].sourceURL.toLocalFile().endsWith(u".MP4"_s));

    // One failure ends it, and nothing converted before it is left behind.
    auto failing = KavelProject::create(u"F"_s, dir.path());
    failing->addSourceFile(QUrl::fromLocalFile(file(u"ok.mp4"_s)));
    const SourceFile bad = failing->addSourceFile(QUrl::fromLocalFile(file(u"bad.mkv"_s)));
    converter.refused = {failing->sourceFileURL(bad.id)->toLocalFile()};
    EXPECT_TRUE(runTask(extractor.extractAudio(*failing)).error);
    EXPECT_TRUE(QDir(failing->cacheDirectory()).isEmpty());
}

} // namespace
