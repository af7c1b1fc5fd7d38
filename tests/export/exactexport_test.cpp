// Exports of media that encode their own position, cut a thousand times and more, read back
// and compared with the composition map at every cut.
#include "export/interchange.h"
#include "export/subtitlewriter.h"
#include "generatedmedia.h"
#include "media/ffmpeg/ffmpegrenderer.h"
#include "positionmedia.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDebug>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <gtest/gtest.h>
#include <iostream>

using namespace kavel;
using namespace Qt::StringLiterals;

namespace {

constexpr double sourceSeconds = 60.0;

class ExactExport : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_dir = new QTemporaryDir; }
    static void TearDownTestSuite() { delete s_dir; }

    static CompositionPlan plan(const QList<WordBlock> &blocks, const QString &path, bool video,
                                double pauseLimit = 0.0)
    {
        return planComposition(blocks, {{{}, path, video, sourceSeconds}}, pauseLimit);
    }

    // Renders synchronously; the job runs on its own thread.
    static QString render(const EditList &edit, media::RenderFormat format, const QString &name,
                          QSize frameSize = {160, 90}, media::SoundFinish sound = {},
                          std::optional<media::LoudnessReport> *loudness = nullptr,
                          const QList<media::Caption> &captions = {})
    {
        media::RenderRequest request;
        request.captions = captions;
        request.editList = edit;
        request.format = format;
        request.frameSize = frameSize;
        request.sound = sound;
        request.outputPath = QDir(s_dir->path()).filePath(name);
        media::ffmpeg::FfmpegRenderer renderer;
        const auto job = renderer.start(request);
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return job->poll() != media::RenderState::running; }, 300'000));
        EXPECT_EQ(job->poll(), media::RenderState::completed) << qPrintable(job->errorText());
        if (loudness)
            *loudness = job->loudness();
        return request.outputPath;
    }

    static inline QTemporaryDir *s_dir = nullptr;
};

struct SoundCase
{
    int rate;
    int channels;
    int runs;
    media::RenderFormat format;
    // With pauses kept, most joins stretch into the recording's gaps.
    double pauseLimit = 0.0;
    // Denoised, the sound is timed like a lossy one, against the plain render.
    media::Denoise denoise = media::Denoise::off;
};

class ExactSound : public ExactExport, public ::testing::WithParamInterface<SoundCase>
{
};

TEST_P(ExactSound, EveryWordAndEveryCueIsWhereTheMapPutsIt)
{
    const SoundCase c = GetParam();
    const bool lossy = c.format != media::RenderFormat::wav || c.denoise != media::Denoise::off;
    const QString name
        = u"%1-%2-%3"_s.arg(lossy ? u"noise"_s : u"ramp"_s).arg(c.rate).arg(c.channels);
    const QString source = (lossy ? test::makeNoiseSound : test::makeRampSound)(
        s_dir->path(), name + u".wav"_s, sourceSeconds, c.rate, c.channels);
    std::mt19937 random(c.rate + c.runs);
    QList<WordBlock> blocks = test::randomEdit(sourceSeconds, c.runs, random);
    for (qsizetype i = 0; i + 1 < blocks.size(); ++i) {
        const double gap = blocks[i + 1].mediaStart - blocks[i].mediaEnd;
        blocks[i].pauseAfter = gap > 0 && gap < 0.3 ? gap : 0.0;
    }
    const CompositionPlan map = plan(blocks, source, false, c.pauseLimit);
    const test::Sound sound = test::decodeSound(
        render(map.editList, media::RenderFormat::wav, name + u"-out.wav"_s), 44100);
    EXPECT_EQ(sound.size(), timing::sampleAt(map.duration, 44100));

    double worst = 0.0;
    if (c.denoise != media::Denoise::off) {
        const test::Sound denoised = test::decodeSound(
            render(map.editList, c.format, name + u"-denoised.wav"_s, {}, {{}, c.denoise}), 44100);
        worst = test::worstLag(denoised, sound, map.editList);
        EXPECT_EQ(denoised.size(), sound.size());
    } else if (lossy) {
        const test::Sound coded
            = test::decodeSound(render(map.editList, c.format, name + u"-out.m4a"_s), 44100);
        worst = test::worstLag(coded, sound, map.editList);
        EXPECT_LT(std::abs(coded.size() - sound.size()), 0.005 * 44100);
    } else {
        const test::SoundOffsets offsets = test::measureSoundOffsets(sound, map.editList);
        EXPECT_GT(offsets.segmentsChecked, c.runs);
        worst = offsets.worstSample;
    }
    EXPECT_LT(worst, 0.001) << map.editList.segments.size() << " cuts";

    // Every cue starts where its word's sound starts; the last ends with the file.
    const QList<SubtitleCue> cues = subtitleCues(blocks, map);
    double worstCue = 0.0;
    for (qsizetype i = 0; i < std::min(cues.size(), map.editList.segments.size()); ++i)
        worstCue = std::max(worstCue,
                            std::abs(cues[i].start - map.editList.segments[i].compositionStart));
    EXPECT_LT(worstCue, 0.001);
    EXPECT_LT(std::abs(cues.last().end - double(sound.size()) / sound.rate), 0.005);
}

INSTANTIATE_TEST_SUITE_P(RatesAndFormats, ExactSound,
                         ::testing::Values(SoundCase {8000, 1, 1000, media::RenderFormat::wav},
                                           SoundCase {22050, 1, 1000, media::RenderFormat::wav},
                                           SoundCase {22050, 2, 1000, media::RenderFormat::m4a},
                                           SoundCase {44100, 2, 2000, media::RenderFormat::wav},
                                           SoundCase {96000, 2, 1000, media::RenderFormat::wav},
                                           SoundCase {44100, 1, 1000, media::RenderFormat::wav,
                                                      0.15},
                                           SoundCase {44100, 2, 1000, media::RenderFormat::wav, 0.0,
                                                      media::Denoise::strong},
                                           SoundCase {48000, 1, 500, media::RenderFormat::wav, 0.0,
                                                      media::Denoise::light}));

class ExactPicture : public ExactExport, public ::testing::WithParamInterface<int>
{
};

TEST_P(ExactPicture, FramesFollowTheGridAndStayWithTheirSound)
{
    const int fps = GetParam();
    const QString source = test::makeCountingVideo(s_dir->path(), u"count-%1.mp4"_s.arg(fps),
                                                   sourceSeconds, fps, true);
    std::mt19937 random(fps);
    const CompositionPlan map = plan(test::randomEdit(sourceSeconds, 1000, random), source, true);
    const QString out
        = render(map.editList, media::RenderFormat::mp4, u"count-%1-out.mp4"_s.arg(fps));

    const timing::Rate rate {fps, 1};
    const std::vector<int> numbers = test::decodeFrameNumbers(out);
    const test::Sound sound = test::decodeSound(out, 48000);
    ASSERT_EQ(std::int64_t(numbers.size()), timing::frameCount(map.duration, rate));
    // The picture ends within a frame of the sound.
    EXPECT_LT(std::abs(double(numbers.size()) / fps - double(sound.size()) / sound.rate),
              1.0 / fps);

    const EditList &edit = map.editList;
    int wrongFrames = 0, checked = 0;
    double worstAv = 0.0;
    for (std::int64_t k = 0; k < std::int64_t(numbers.size()); ++k) {
        const qsizetype s = edit.segmentAt(rate.secondsAt(k));
        ASSERT_GE(s, 0);
        const EditSegment &segment = edit.segments[s];
        if (numbers[size_t(k)]
            != timing::nearestIndex(timing::sourceTimeAtFrame(segment, k, rate), rate))
            ++wrongFrames;
        // Where a whole frame's time lies inside one word, its sound is measurable.
        const double from = rate.secondsAt(k), to = rate.secondsAt(k + 1);
        if (from - segment.compositionStart < 0.008 || segment.compositionEnd() - to < 0.008)
            continue;
        const double heard = test::rampTimeAround(sound, from + 0.5 / fps) - 0.5 / fps;
        worstAv = std::max(worstAv,
                           std::abs(test::rampDifference(heard, double(numbers[size_t(k)]) / fps)));
        ++checked;
    }
    EXPECT_EQ(wrongFrames, 0) << "of " << numbers.size();
    EXPECT_GT(checked, 1000);
    // Half a frame, and the AAC sound's own millisecond of noise.
    EXPECT_LT(worstAv, 0.5 / fps + 0.002);
}

INSTANTIATE_TEST_SUITE_P(FrameRates, ExactPicture, ::testing::Values(30, 25));

// Captions are burned on the output's frame grid: a cue shows from the first frame at or
// after its start to the last one before its end, whatever the cuts, and its Chinese text is
// drawn in real glyphs.
TEST_F(ExactExport, BurnedCaptionsShowOnExactlyTheFramesTheirCuesCover)
{
    const QSize size(640, 360);
    const QString source = test::makeBlackVideo(s_dir->path(), u"black.mp4"_s, 10.0, size);
    // Three stretches of the recording, so the captions cross two cuts.
    QList<WordBlock> blocks;
    for (const auto &[from, to] : {std::pair {0.0, 2.2}, {3.0, 5.0}, {7.1, 8.9}})
        blocks.append(test::timedWord(from, to, blocks.size(), {}, u"词"_s));
    const CompositionPlan map = plan(blocks, source, true);
    ASSERT_NEAR(map.duration, 6.0, 1e-9);
    const QList<media::Caption> captions {
        {0.51, 1.0, u"你好"_s},
        // Touching the one before: no frame between them is left bare.
        {1.0, 1.77, u"世界你好"_s},
        // Over no frame's start: never shown.
        {2.01, 2.03, u"短"_s},
        // On the grid at both ends, across a cut.
        {2.0 + 1.0 / 3.0, 3.0, u"Hello world"_s},
        {4.5, 5.5, u"  "_s},
        // Over the last frame's start only.
        {5.95, 6.0, u"完"_s},
    };
    const QString out = render(map.editList, media::RenderFormat::mp4, u"captions.mp4"_s, size, {},
                               nullptr, captions);
    const std::vector<int> bright
        = test::brightPixelsPerFrame(out, QRect(0, 240, size.width(), 120));
    ASSERT_EQ(bright.size(), 180u);
    const auto shown = [](int k) { return (k >= 16 && k < 54) || (k >= 70 && k < 90) || k == 179; };
    QList<int> wrong;
    for (int k = 0; k < int(bright.size()); ++k)
        if (shown(k) ? bright[size_t(k)] < 30 : bright[size_t(k)] > 4)
            wrong.append(k);
    EXPECT_TRUE(wrong.isEmpty()) << "frames " << qPrintable(QDebug::toString(wrong));

    // Four different characters are four different shapes, not four missing-glyph boxes
    // (whose rows match within 1 %); side by side in the middle of the picture, near its
    // bottom.
    const QImage frame = test::grayFrame(out, 40);
    int left = size.width(), right = -1, top = size.height(), bottom = -1;
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            if (qGray(frame.pixel(x, y)) > 128) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
    ASSERT_GT(right - left, 40);
    EXPECT_NEAR((left + right) / 2.0, size.width() / 2.0, 4.0);
    EXPECT_GT(top, size.height() * 3 / 4);
    EXPECT_LT(bottom, size.height() - size.height() / 40);
    // How much light each row of a character's cell holds: alike for alike shapes at any
    // sideways offset.
    const int cell = (right - left + 1) / 4;
    const auto rows = [&](int which) {
        std::vector<int> light;
        for (int y = top; y <= bottom; ++y) {
            int sum = 0;
            for (int x = 0; x < cell; ++x)
                sum += qGray(frame.pixel(left + which * cell + x, y));
            light.push_back(sum);
        }
        return light;
    };
    for (int a = 0; a < 4; ++a)
        for (int b = a + 1; b < 4; ++b) {
            const std::vector<int> p = rows(a), q = rows(b);
            double apart = 0, total = 0;
            for (size_t y = 0; y < p.size(); ++y) {
                apart += std::abs(p[y] - q[y]);
                total += p[y] + q[y];
            }
            EXPECT_GT(apart / total, 0.06) << a << " and " << b;
        }
}

double rms(const test::Sound &sound, const std::vector<float> &channel, double from, double to)
{
    double sum = 0;
    const auto first = std::int64_t(from * sound.rate), last = std::int64_t(to * sound.rate);
    for (std::int64_t n = first; n < last; ++n)
        sum += double(channel[size_t(n)]) * channel[size_t(n)];
    return std::sqrt(sum / double(last - first));
}

TEST_F(ExactExport, LevelsFadesAndJoinsFollowEachWord)
{
    // A mono 440 Hz sine at half scale, recorded at 22.05 kHz.
    const QString tone = QDir(s_dir->path()).filePath(u"mono.wav"_s);
    test::runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s, u"aevalsrc=0.5*sin(2*PI*440*t):s=22050:d=6"_s,
                     u"-c:a"_s, u"pcm_s16le"_s, tone});
    const auto segment = [](double start, int order) {
        return test::timedWord(start, start + 0.5, order, {}, u"词"_s);
    };
    QList<WordBlock> blocks {segment(0.0, 0), segment(1.0, 1), segment(2.0, 2), segment(3.0, 3),
                             segment(4.013, 4)};
    blocks[1].isMuted = true;
    blocks[2].volumeLevel = 0.5f;
    // Fades longer than the word ramp over the whole word and still reach its volume.
    blocks[3].fadeInDuration = 2.0;
    blocks[4].fadeOutDuration = 2.0;
    const CompositionPlan map = plan(blocks, tone, false);
    const test::Sound out
        = test::decodeSound(render(map.editList, media::RenderFormat::wav, u"levels.wav"_s), 44100);

    // (from, to, level as a share of the full one): full, muted, half, then the fade-in's
    // middle and end and the fade-out's start and middle.
    const double full = 0.5 / std::sqrt(2.0);
    const std::array<double, 3> levels[]
        = {{0.05, 0.45, 1.0},   {0.51, 0.99, 0.0},   {1.05, 1.45, 0.5}, {1.72, 1.78, 0.5},
           {1.97, 1.995, 0.97}, {2.005, 2.03, 0.97}, {2.22, 2.28, 0.5}};
    for (const auto &[from, to, level] : levels)
        EXPECT_NEAR(rms(out, out.left, from, to) / full, level, 0.03) << from;
    EXPECT_NEAR(rms(out, out.right, 0.05, 0.45) / full, 1.0, 0.03) << "mono plays on both sides";

    // The jump between the last two words (at a different phase of the sine) is smoothed:
    // no step between neighbouring samples larger than the sine's own.
    double steepest = 0.0;
    for (auto n = std::int64_t(1.99 * out.rate); n < std::int64_t(2.01 * out.rate); ++n)
        steepest
            = std::max(steepest, double(std::abs(out.left[size_t(n)] - out.left[size_t(n - 1)])));
    EXPECT_LT(steepest, 0.5 * 2 * M_PI * 440 / out.rate * 1.1);
}

// Cut sounds brought to each target: a quiet one is raised, a loud one lowered, each to
// within half a unit, with the true peak under -1 dBTP. Quiet speech with sharp clicks,
// whose peaks the gain lifts over the ceiling, reaches the target all the same, the
// clicks taken down without moving the sound; clicks over a faint murmur, which would
// have to be squashed by far more, stop short and say so.
TEST_F(ExactExport, LoudnessReachesEachTargetWithOneGainUnderTheTruePeakCeiling)
{
    const struct
    {
        QString name, sound;
        bool reachable;
    } sources[]
        = {{u"quiet"_s, u"0.015*sin(2*PI*440*t)+0.015*sin(2*PI*1000*t)*(0.7+0.3*sin(2*PI*3*t))"_s,
            true},
           {u"loud"_s, u"0.45*sin(2*PI*300*t)+0.45*sin(2*PI*2500*t)"_s, true},
           {u"clicks"_s, u"0.004*sin(2*PI*300*t)+if(lt(mod(t,0.5),0.0005),0.9,0)"_s, false},
           {u"speech-clicks"_s,
            u"(0.05*sin(2*PI*140*t)+0.03*sin(2*PI*280*t)+0.02*sin(2*PI*420*t)"
            "+0.015*sin(2*PI*1100*t)+0.01*(random(0)*2-1))*pow(sin(2*PI*2.2*t),2)"
            "+if(lt(mod(t,0.83),0.0006),0.17,0)"_s,
            true}};
    const QList<WordBlock> blocks {test::timedWord(0.2, 1.2, 0), test::timedWord(1.5, 2.5, 1),
                                   test::timedWord(3.0, 4.5, 2), test::timedWord(5.0, 5.8, 3)};
    for (const auto &source : sources) {
        const QString path = QDir(s_dir->path()).filePath(source.name + u".wav"_s);
        test::runFfmpeg({u"-f"_s, u"lavfi"_s, u"-i"_s,
                         u"aevalsrc='%1':s=44100:d=6"_s.arg(source.sound), u"-ac"_s, u"2"_s,
                         u"-c:a"_s, u"pcm_s16le"_s, path});
        const CompositionPlan map = plan(blocks, path, false);
        const QString plainPath
            = render(map.editList, media::RenderFormat::wav, source.name + u"-plain.wav"_s);
        const double plain = test::measureLoudness(plainPath).first;
        const test::Sound plainSound = test::decodeSound(plainPath, 44100);
        for (const double target : {-14.0, -16.0, -23.0}) {
            SCOPED_TRACE(QString(source.name + u" at "_s + QString::number(target)).toStdString());
            std::optional<media::LoudnessReport> report;
            const QString out
                = render(map.editList, media::RenderFormat::wav,
                         u"%1%2.wav"_s.arg(source.name).arg(target), {}, {target, {}}, &report);
            const auto [loudness, peak] = test::measureLoudness(out);
            ASSERT_TRUE(report);
            std::cout << source.name.toStdString() << " at " << target << ": " << report->before
                      << " LUFS " << report->truePeakBefore << " dBTP -> " << loudness << " LUFS "
                      << peak << " dBTP" << std::endl;
            EXPECT_LE(peak, -1.0);
            EXPECT_NEAR(report->before, plain, 0.2);
            EXPECT_NEAR(report->after, loudness, 0.2);
            EXPECT_NEAR(report->truePeakAfter, peak, 0.3);
            const test::Sound sound = test::decodeSound(out, 44100);
            EXPECT_EQ(sound.size(), plainSound.size());
            EXPECT_LT(test::worstLag(sound, plainSound, map.editList), 0.001);
            if (source.reachable) {
                EXPECT_NEAR(loudness, target, 0.5);
                EXPECT_FALSE(report->peakLimited);
            } else {
                EXPECT_LT(loudness, target - 1.0);
                EXPECT_TRUE(report->peakLimited);
                EXPECT_NEAR(peak, -1.0, 0.3);
            }
        }
    }
    // A stop while the sound is being measured ends the job there, with no file.
    {
        const QString longer
            = test::makeNoiseSound(s_dir->path(), u"long-noise.wav"_s, sourceSeconds, 44100, 2);
        media::RenderRequest request;
        request.editList
            = plan({test::timedWord(0.0, sourceSeconds - 1.0, 0)}, longer, false).editList;
        request.format = media::RenderFormat::wav;
        request.sound = {-16.0, media::Denoise::strong};
        request.outputPath = QDir(s_dir->path()).filePath(u"stopped.wav"_s);
        media::ffmpeg::FfmpegRenderer renderer;
        const auto job = renderer.start(request);
        job->cancel();
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return job->poll() != media::RenderState::running; }, 10'000));
        EXPECT_EQ(job->poll(), media::RenderState::cancelled);
        EXPECT_FALSE(job->loudness());
        EXPECT_FALSE(QFile::exists(request.outputPath));
    }
    // The AAC encoder's overshoot, of limited peaks too, still stays under the ceiling.
    for (const QString &name : {u"loud"_s, u"speech-clicks"_s}) {
        const QString path = QDir(s_dir->path()).filePath(name + u".wav"_s);
        const QString coded = render(plan(blocks, path, false).editList, media::RenderFormat::m4a,
                                     name + u"-14.m4a"_s, {}, {-14.0, {}});
        const auto [loudness, peak] = test::measureLoudness(coded);
        EXPECT_NEAR(loudness, -14.0, 0.5) << name.toStdString();
        EXPECT_LE(peak, -1.0) << name.toStdString();
    }
}

// The power (dB) of a few exact frequencies over the whole of a sound's left side.
double toneLevel(const test::Sound &sound, const std::vector<double> &frequencies)
{
    double power = 0.0;
    const double length = double(sound.size());
    for (const double frequency : frequencies) {
        const double c = 2.0 * std::cos(2.0 * M_PI * frequency / sound.rate);
        double s1 = 0.0, s2 = 0.0;
        for (std::int64_t n = 0; n < sound.size(); ++n) {
            const double hann = 0.5 - 0.5 * std::cos(2.0 * M_PI * double(n) / length);
            const double v = hann * sound.left[size_t(n)] + c * s1 - s2;
            s2 = s1;
            s1 = v;
        }
        power += s1 * s1 + s2 * s2 - c * s1 * s2;
    }
    return 10.0 * std::log10(power);
}

// Speech over a steady hiss: the quietest stretches lose at least 6 dB of it. Speech over
// a mains hum (50 or 60 Hz with its harmonics): the hum loses at least 20 dB. Either way
// the speech keeps its level, and every word stays where it was to the millisecond.
TEST_F(ExactExport, DenoisingLowersTheHissAndTheHumAndKeepsTheSpeechInPlace)
{
    const QString speech = QDir(s_dir->path()).filePath(u"speech.wav"_s);
    QProcess espeak;
    espeak.start(u"espeak-ng"_s,
                 {u"-w"_s, speech,
                  u"The quick brown fox jumps over the lazy "
                  "dog. Then it rests a while, and runs again."_s});
    ASSERT_TRUE(espeak.waitForFinished(60'000) && espeak.exitCode() == 0);
    const QString padded = QDir(s_dir->path()).filePath(u"speech-alone.wav"_s);
    test::runFfmpeg(
        {u"-i"_s, speech, u"-af"_s, u"apad=whole_dur=7"_s, u"-c:a"_s, u"pcm_s16le"_s, padded});
    const QList<WordBlock> blocks {test::timedWord(0.0, 1.3, 0), test::timedWord(1.6, 2.9, 1),
                                   test::timedWord(3.1, 4.4, 2), test::timedWord(4.5, 6.9, 3)};
    // The words' timing is read against the speech cut alone: in the pauses of the noisy
    // cut there is only the noise that was taken out.
    const test::Sound voice = test::decodeSound(
        render(plan(blocks, padded, false).editList, media::RenderFormat::wav, u"voice.wav"_s),
        44100);
    const auto worstWordLag = [&voice](const test::Sound &sound, const EditList &edit) {
        const auto maxLag = std::int64_t(0.003 * sound.rate);
        std::int64_t worst = 0;
        for (const EditSegment &segment : edit.segments) {
            const auto from = std::int64_t(segment.compositionStart * sound.rate) + maxLag;
            const auto to = std::int64_t(segment.compositionEnd() * sound.rate) - maxLag;
            worst = std::max(worst, std::abs(test::bestLag(sound, voice, from, to, maxLag)));
        }
        return double(worst) / sound.rate;
    };
    const auto levels = [](const test::Sound &sound) {
        const std::int64_t window = sound.rate / 10;
        double quietest = 1e9, loudest = -1e9;
        for (std::int64_t from = 0; from + window <= sound.size(); from += window / 2) {
            const double level = 20
                * std::log10(rms(sound, sound.left, double(from) / sound.rate,
                                 double(from + window) / sound.rate));
            quietest = std::min(quietest, level);
            loudest = std::max(loudest, level);
        }
        return std::pair {quietest, loudest};
    };
    const struct
    {
        QString name, noise;
        std::vector<double> hum;
    } noises[] = {{u"hiss"_s, u"anoisesrc=d=7:c=white:a=0.02:r=22050:seed=3"_s, {}},
                  {u"hum50"_s,
                   u"aevalsrc='0.03*sin(2*PI*50*t)+0.02*sin(2*PI*100*t)+0.012*sin(2*PI*150*t)"
                   "+0.008*sin(2*PI*200*t)':s=22050:d=7"_s,
                   {50.0, 100.0, 150.0, 200.0}},
                  {u"hum60"_s,
                   u"aevalsrc='0.02*sin(2*PI*60*t)+0.02*sin(2*PI*120*t)':s=22050:d=7"_s,
                   {60.0, 120.0}}};
    for (const auto &noise : noises) {
        const QString noisy = QDir(s_dir->path()).filePath(noise.name + u".wav"_s);
        test::runFfmpeg({u"-i"_s, speech, u"-f"_s, u"lavfi"_s, u"-i"_s, noise.noise,
                         u"-filter_complex"_s,
                         u"[0]apad=whole_dur=7[s];[s][1]amix=inputs=2:normalize=0:duration=first"_s,
                         u"-c:a"_s, u"pcm_s16le"_s, noisy});
        const CompositionPlan map = plan(blocks, noisy, false);
        const test::Sound plain = test::decodeSound(
            render(map.editList, media::RenderFormat::wav, noise.name + u"-plain.wav"_s), 44100);
        const auto [floorBefore, speechBefore] = levels(plain);
        double lastFloor = floorBefore;
        for (const media::Denoise denoise : {media::Denoise::light, media::Denoise::strong}) {
            SCOPED_TRACE(noise.name.toStdString() + std::to_string(int(denoise)));
            const test::Sound cleaned = test::decodeSound(
                render(map.editList, media::RenderFormat::wav,
                       u"%1-%2.wav"_s.arg(noise.name).arg(int(denoise)), {}, {{}, denoise}),
                44100);
            ASSERT_EQ(cleaned.size(), plain.size());
            ASSERT_EQ(cleaned.size(), voice.size());
            const auto [floorAfter, speechAfter] = levels(cleaned);
            std::cout << noise.name.toStdString() << ": noise floor " << floorBefore << " dB -> "
                      << floorAfter << " dB, speech " << speechBefore << " -> " << speechAfter;
            if (noise.hum.empty()) {
                EXPECT_LE(floorAfter, floorBefore - 6.0);
                EXPECT_LE(floorAfter, lastFloor);
            } else {
                const double humBefore = toneLevel(plain, noise.hum),
                             humAfter = toneLevel(cleaned, noise.hum);
                std::cout << ", hum " << humBefore << " dB -> " << humAfter << " dB";
                EXPECT_LE(humAfter, humBefore - 20.0);
            }
            std::cout << std::endl;
            EXPECT_NEAR(speechAfter, speechBefore, 1.0);
            EXPECT_LT(worstWordLag(cleaned, map.editList), 0.001);
            lastFloor = floorAfter;
        }
    }
}

} // namespace

// The hand-off project, played by the media framework's own player, shows the same frames
// as our movie: the same count, and every frame from the same place in the source.
TEST_F(ExactExport, MeltPlaysTheHandOffProjectAsWeExportIt)
{
    const int fps = 25;
    const QString source
        = test::makeCountingVideo(s_dir->path(), u"handoff.mp4"_s, sourceSeconds, fps, true);
    std::mt19937 random(7);
    const CompositionPlan map = plan(test::randomEdit(sourceSeconds, 300, random), source, true);
    const QString ours = render(map.editList, media::RenderFormat::mp4, u"handoff-out.mp4"_s);

    const QString project = QDir(s_dir->path()).filePath(u"handoff.mlt"_s);
    test::writeFile(project,
                    interchange::document(
                        interchange::Format::mlt, map.editList,
                        {{source, true, true, {fps, 1}, {160, 90}, sourceSeconds}}, u"handoff"_s));
    const QString played = QDir(s_dir->path()).filePath(u"handoff-melt.mp4"_s);
    QProcess melt;
    melt.start(u"melt"_s,
               {u"-quiet"_s, project, u"-consumer"_s, u"avformat:"_s + played, u"vcodec=libx264"_s,
                u"an=1"_s, u"crf=10"_s});
    ASSERT_TRUE(melt.waitForFinished(300'000));
    ASSERT_EQ(melt.exitCode(), 0) << melt.readAllStandardError().toStdString();

    EXPECT_EQ(test::decodeFrameNumbers(played), test::decodeFrameNumbers(ours));
}
