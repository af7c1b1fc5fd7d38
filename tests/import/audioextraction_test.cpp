#include "editor/audioextraction.h"
#include "fakeaudioconverter.h"
#include "model/errors.h"
#include "model/kavelproject.h"
#include "support/fakeclock.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QRegularExpression>
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

TEST_F(AudioExtraction, ConvertedFileIsNamedFreshlyInTheOutputFolder)
{
    const QString source = file(u"talk.mp4"_s);
    const QUrl first
        = runTask(extractor.convertToM4A(QUrl::fromLocalFile(source), dir.path())).get();
    const QUrl second
        = runTask(extractor.convertToM4A(QUrl::fromLocalFile(source), dir.path())).get();

    const QRegularExpression name(u"^audio_[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.m4a$"_s);
    const QFileInfo info(first.toLocalFile());
    EXPECT_TRUE(name.match(info.fileName()).hasMatch()) << info.fileName().toStdString();
    EXPECT_EQ(info.absolutePath(), QFileInfo(dir.path()).absoluteFilePath());
    EXPECT_TRUE(info.isFile());
    EXPECT_NE(first, second);
    EXPECT_EQ(lines(u"[AudioExtract] Completed: "_s).first(),
              u"[AudioExtract] Completed: "_s + info.fileName());
}

TEST_F(AudioExtraction, AudioTheEngineCannotTakeIsUploadedAsItIs)
{
    // Refused outright, named in upper case: the log names the extension in lower case.
    const QString refusedWav = file(u"Talk.WAV"_s);
    converter.refused = {refusedWav};
    EXPECT_EQ(runTask(extractor.convertToM4A(QUrl::fromLocalFile(refusedWav), dir.path())).get(),
              QUrl::fromLocalFile(refusedWav));
    EXPECT_EQ(
        lines(u"[AudioExtract] No"_s),
        QStringList {u"[AudioExtract] No compatible preset for .wav, using source directly"_s});

    // Failed half-way: the partial output goes, the source is used.
    converter.completeAtOnce = false;
    const QString ogg = file(u"voice.ogg"_s);
    auto task = extractor.convertToM4A(QUrl::fromLocalFile(ogg), dir.path());
    writeFile(converter.current().output(), "partial");
    converter.current().finish(media::ConversionStatus::failed);
    const QString output = converter.current().output();
    EXPECT_EQ(runTask(std::move(task)).get(), QUrl::fromLocalFile(ogg));
    EXPECT_FALSE(QFileInfo::exists(output));
    EXPECT_EQ(
        lines(u"[AudioExtract] M4A"_s),
        QStringList {u"[AudioExtract] M4A conversion failed for .ogg, using source directly"_s});
}

TEST_F(AudioExtraction, VideoThatCannotBeConvertedIsAnError)
{
    const QString refused = file(u"broken.mov"_s);
    converter.refused = {refused};
    auto outcome = runTask(extractor.convertToM4A(QUrl::fromLocalFile(refused), dir.path()));
    ASSERT_TRUE(outcome.errorAs<KavelProjectError>());
    EXPECT_EQ(outcome.errorAs<KavelProjectError>()->code(),
              KavelProjectError::Code::audioExtractionFailed);

    // The engine's own error for a video reaches the caller: mltaudioconverter_test.
    // A cancelled conversion is an error whatever the source.
    converter.completeAtOnce = false;
    const QString wav = file(u"speech.wav"_s);
    auto task = extractor.convertToM4A(QUrl::fromLocalFile(wav), dir.path());
    converter.current().cancel();
    outcome = runTask(std::move(task));
    ASSERT_TRUE(outcome.errorAs<KavelProjectError>());
    EXPECT_EQ(outcome.errorAs<KavelProjectError>()->code(),
              KavelProjectError::Code::audioExtractionFailed);
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

TEST_F(AudioExtraction, ProjectMediaIsFoundFromSourcesOrElseFromTheMediaFolder)
{
    auto project = KavelProject::create(u"P"_s, dir.path());
    const SourceFile first = project->addSourceFile(QUrl::fromLocalFile(file(u"one.mov"_s)));
    const SourceFile second = project->addSourceFile(QUrl::fromLocalFile(file(u"two.wav"_s)));
    QList<ExtractedAudio> audio = runTask(extractor.extractAudio(*project)).get();
    ASSERT_EQ(audio.size(), 2);
    EXPECT_EQ(audio[0].sourceFileId, first.id);
    EXPECT_EQ(audio[1].sourceFileId, second.id);
    EXPECT_EQ(audio[0].sourceURL, project->sourceFileURL(first.id));
    for (const ExtractedAudio &entry : audio) {
        EXPECT_TRUE(entry.isConvertedCopy());
        EXPECT_EQ(QFileInfo(entry.audioURL.toLocalFile()).absolutePath(),
                  QFileInfo(project->cacheDirectory()).absoluteFilePath());
    }

    // A bundle whose metadata lists nothing: the folder is listed, and only the media
    // extensions count (ogg is audio, but not one of them).
    auto bare = KavelProject::create(u"Bare"_s, dir.path());
    const QString id = u"6C1D2E3F-0000-4000-8000-0000000000E2"_s;
    writeFile(QDir(bare->mediaDirectory()).filePath(id + u".MP4"_s), "v");
    writeFile(QDir(bare->mediaDirectory()).filePath(u"voice.ogg"_s), "a");
    writeFile(QDir(bare->mediaDirectory()).filePath(u"notes.txt"_s), "t");
    audio = runTask(extractor.extractAudio(*bare)).get();
    ASSERT_EQ(audio.size(), 1);
    EXPECT_EQ(audio[0].sourceFileId, QUuid::fromString(id));
    EXPECT_TRUE(audio[0].sourceURL.toLocalFile().endsWith(u".MP4"_s));

    // One failure ends it, and nothing converted before it is left behind.
    converter.refused = {project->sourceFileURL(second.id)->toLocalFile()};
    auto reordered = KavelProject::create(u"R"_s, dir.path());
    reordered->addSourceFile(QUrl::fromLocalFile(file(u"ok.mp4"_s)));
    const SourceFile bad = reordered->addSourceFile(QUrl::fromLocalFile(file(u"bad.mkv"_s)));
    converter.refused = {reordered->sourceFileURL(bad.id)->toLocalFile()};
    EXPECT_TRUE(runTask(extractor.extractAudio(*reordered)).error);
    EXPECT_TRUE(QDir(reordered->cacheDirectory()).isEmpty());
}

} // namespace
