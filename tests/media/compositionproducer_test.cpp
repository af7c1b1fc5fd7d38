#include "media/mlt/compositionproducer.h"
#include "media/mlt/previewloudness.h"
#include "mediafixture.h"
#include "model/projectmetadata.h"
#include "positionmedia.h"
#include "support/transcriptbuilder.h"
#include "timing/pauses.h"

#include <Mlt.h>
#include <QDir>
#include <QFile>
#include <QTest>
#include <cmath>
#include <random>
#include <tuple>

using namespace Qt::StringLiterals;
using namespace kavel;
using namespace kavel::media;
using kavel::media::mlt::CompositionProducer;

namespace {

class Composition : public kavel::test::MediaFixture
{
protected:
    Composition()
    {
        profile.set_explicit(1);
        profile.set_frame_rate(30, 1);
        profile.set_width(160);
        profile.set_height(90);
        profile.set_progressive(1);
    }

    // Words laid end to end as the editor lays them: (start, end, level, muted) each.
    static EditList lay(const QString &path,
                        std::initializer_list<std::tuple<double, double, float, bool>> cuts)
    {
        QList<WordBlock> words;
        for (const auto &[start, end, level, muted] : cuts) {
            words.append(test::timedWord(start, end, words.size()));
            words.last().volumeLevel = level;
            words.last().isMuted = muted;
        }
        return planComposition(words, {{{}, path, true, 60.0}}).editList;
    }

    // The frame number each picture of the composition carries, read from its 16 columns.
    static std::vector<int> pictures(CompositionProducer &composition)
    {
        std::vector<int> numbers;
        Mlt::Producer &producer = composition.producer();
        for (int f = 0; f < producer.get_playtime(); ++f) {
            producer.seek(f);
            std::unique_ptr<Mlt::Frame> frame(producer.get_frame());
            mlt_image_format format = mlt_image_rgba;
            int width = 160, height = 90;
            const uint8_t *pixels = frame->get_image(format, width, height);
            int n = 0;
            for (int bit = 0; pixels && bit < 16; ++bit)
                if (pixels[4 * ((height / 2) * width + (2 * bit + 1) * width / 32)] > 128)
                    n |= 1 << bit;
            numbers.push_back(frame->get_int("test_image") ? -1 : n);
        }
        return numbers;
    }

    // Pulls the whole composition's sound as one channel at 48 kHz.
    std::vector<float> render(CompositionProducer &composition)
    {
        std::vector<float> pcm;
        Mlt::Producer &producer = composition.producer();
        for (int f = 0; f < producer.get_playtime(); ++f) {
            producer.seek(f);
            std::unique_ptr<Mlt::Frame> frame(producer.get_frame());
            mlt_audio_format format = mlt_audio_float;
            int frequency = 48000, channels = 2;
            int samples = mlt_audio_calculate_frame_samples(float(profile.fps()), frequency, f);
            const auto *data = static_cast<const float *>(
                frame->get_audio(format, frequency, channels, samples));
            EXPECT_EQ(format, mlt_audio_float);
            if (!data)
                continue;
            pcm.insert(pcm.end(), data, data + samples);
        }
        return pcm;
    }

    Mlt::Profile profile;
};

TEST_F(Composition, EveryCutIsHeardWhereTheMapPutsIt)
{
    const QString ramp = test::makeRampSound(s_dir->path(), u"ramp.wav"_s, 60.0, 48000, 1);
    std::mt19937 random(3);
    const QList<WordBlock> blocks = test::randomEdit(60.0, 1000, random);
    const EditList list = planComposition(blocks, {{{}, ramp, false, 60.0}}).editList;

    CompositionProducer composition(profile);
    EXPECT_TRUE(composition.apply(list).isEmpty());
    // Pictures are laid on the profile's frame grid from the running times...
    const timing::Rate rate {30, 1};
    ASSERT_EQ(composition.frameCount(), timing::frameCount(list.duration(), rate));
    EXPECT_EQ(composition.producer().get_playtime(), composition.frameCount());
    EXPECT_EQ(composition.frameAtSeconds(list.segments[500].compositionStart),
              timing::nearestIndex(list.segments[500].compositionStart, rate));
    EXPECT_DOUBLE_EQ(composition.secondsAtFrame(4321), rate.secondsAt(4321));
    // ...and the sound is the export's, sample-exact, however the frames fall.
    std::vector<float> pcm = render(composition);
    const test::SoundOffsets offsets = test::measureSoundOffsets({48000, pcm, pcm}, list);
    EXPECT_GT(offsets.segmentsChecked, 1000);
    EXPECT_LT(offsets.worstSample, 0.0002) << list.segments.size() << " cuts";

    // A source that cannot be opened is reported and keeps its time, blank.
    const QList<SegmentFailure> failures
        = composition.apply(lay(s_notMedia, {{0.0, 1.0, 1, false}, {2.0, 2.5, 1, false}}));
    ASSERT_EQ(failures.size(), 2);
    EXPECT_EQ(failures.first().index, 0);
    EXPECT_EQ(composition.producer().get_playtime(), 45);
    EXPECT_EQ(pictures(composition), std::vector<int>(45, -1));
}

// Every picture is the source frame nearest to where the map puts the source at that
// frame's time, through edit after edit of the same producer.
TEST_F(Composition, EveryPictureIsTheSourceFrameTheMapPutsThere)
{
    const QString counting = test::makeCountingVideo(s_dir->path(), u"count.mp4"_s, 20.0, 30);
    CompositionProducer composition(profile);
    std::mt19937 random(11);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const EditList list = planComposition(test::randomEdit(20.0, 40 + 30 * round, random),
                                              {{{}, counting, true, 20.0}})
                                  .editList;
        composition.apply(list);
        const std::vector<int> shown = pictures(composition);
        ASSERT_EQ(int(shown.size()), timing::frameCount(list.duration(), {30, 1}));
        qsizetype s = 0;
        for (size_t k = 0; k < shown.size(); ++k) {
            const double t = double(k) / 30.0;
            while (s + 1 < list.segments.size() && list.segments[s + 1].compositionStart <= t)
                ++s;
            const EditSegment &segment = list.segments[s];
            const double source = segment.sourceStart + (t - segment.compositionStart);
            ASSERT_LE(std::abs(shown[k] / 30.0 - source), 0.5 / 30 + 1e-6)
                << "frame " << k << " of " << list.segments.size() << " cuts";
        }
    }
    composition.apply({});
    EXPECT_EQ(composition.frameCount(), 0);
}

TEST_F(Composition, JumpCutsDoNotClickAndMutedWordsAreSilent)
{
    CompositionProducer composition(profile);
    // Cut points chosen so the sine's phase jumps at every non-contiguous join.
    const EditList list = lay(s_tone,
                              {{0.5, 1.0, 1, false},
                               {1.0, 1.3, 1, false},
                               {2.0113, 2.6, 1, false},
                               {2.6, 3.0, 1, true},
                               {0.2117, 0.45, 1, false},
                               {3.3, 3.7, 0.25f, false}});
    composition.apply(list);
    const std::vector<float> pcm = render(composition);
    ASSERT_GT(pcm.size(), 48000u * 2);

    // A 0.5-amplitude 440 Hz sine moves at most 0.5 * 2π * 440 / 48000 = 0.029 per
    // sample; the 5 ms ramps add under 0.004. A jump cut without a ramp steps by up to
    // 1.0 and a muted word's edges by up to 0.5, so 0.04 catches any click.
    float worst = 0.0f;
    size_t worstAt = 0;
    for (size_t i = 1; i < pcm.size(); ++i) {
        const float step = std::abs(pcm[i] - pcm[i - 1]);
        if (step > worst) {
            worst = step;
            worstAt = i;
        }
    }
    EXPECT_LT(worst, 0.04f) << "at sample " << worstAt << " (" << worstAt / 48000.0 << " s)";

    auto peak = [&](double from, double to) {
        float p = 0.0f;
        for (size_t i = size_t(from * 48000); i < size_t(to * 48000) && i < pcm.size(); ++i)
            p = std::max(p, std::abs(pcm[i]));
        return p;
    };
    const double mutedStart = list.segments[3].compositionStart;
    EXPECT_GT(peak(0.1, 0.7), 0.45f); // the tone plays at full scale elsewhere
    EXPECT_LT(peak(mutedStart + 0.035, mutedStart + 0.4 - 0.035), 1e-4f);
    const double quietStart = list.segments[5].compositionStart;
    EXPECT_NEAR(peak(quietStart + 0.05, quietStart + 0.35), 0.125f, 0.01f);

    // A range that ends early is not heard past its end.
    composition.sound().setStopAt(1.0);
    const std::vector<float> stopped = render(composition);
    EXPECT_EQ(stopped[47999], pcm[47999]);
    EXPECT_EQ(*std::max_element(stopped.begin() + 48000, stopped.end()), 0.0f);
}

// With the loudness setting on, the preview plays at the export's one gain: the target
// less the cut's loudness as the ffmpeg program measures it. An edit that changes the
// loudness is measured again; turned off, the sound plays as it is.
TEST_F(Composition, ThePreviewPlaysAtTheLoudnessTheExportGivesIt)
{
    CompositionProducer composition(profile);
    const EditList loud = lay(s_tone, {{0.5, 2.0, 1, false}, {2.5, 3.5, 1, false}});
    const EditList quieter = lay(s_tone, {{0.5, 2.0, 0.25f, false}, {2.5, 3.5, 0.25f, false}});
    const auto level = [](const std::vector<float> &pcm) {
        double sum = 0.0;
        for (size_t i = 4800; i < 48000; ++i)
            sum += double(pcm[i]) * pcm[i];
        return 10.0 * std::log10(sum / (48000 - 4800));
    };
    // The sound as it plays, played both sides alike, through the ffmpeg program's meter.
    const auto measured = [&](const std::vector<float> &pcm, const QString &name) {
        const QString raw = QDir(s_dir->path()).filePath(name + u".f32"_s);
        QFile file(raw);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char *>(pcm.data()), qint64(pcm.size() * sizeof(float)));
        file.close();
        const QString wav = QDir(s_dir->path()).filePath(name + u".wav"_s);
        test::runFfmpeg({u"-f"_s, u"f32le"_s, u"-ar"_s, u"48000"_s, u"-ac"_s, u"1"_s, u"-i"_s, raw,
                         u"-af"_s, u"pan=stereo|c0=c0|c1=c0"_s, wav});
        return test::measureLoudness(wav).first;
    };

    mlt::PreviewLoudness loudness(composition.sound());
    for (const EditList &edit : {loud, quieter}) {
        composition.apply(edit);
        loudness.setEdit(edit);
        loudness.setTarget(std::nullopt);
        const std::vector<float> plain = render(composition);
        const double before = measured(plain, u"preview-plain"_s);
        for (const double target : {-16.0, -23.0}) {
            SCOPED_TRACE(testing::Message() << before << " LUFS to " << target);
            loudness.setTarget(target);
            ASSERT_TRUE(
                QTest::qWaitFor([&] { return loudness.gain() && loudness.upToDate(); }, 30'000));
            EXPECT_NEAR(*loudness.gain(), target - before, 0.3);
            const std::vector<float> played = render(composition);
            EXPECT_NEAR(level(played) - level(plain), *loudness.gain(), 0.05);
            EXPECT_NEAR(measured(played, u"preview-gained"_s), target, 0.5);
        }
        loudness.setTarget(std::nullopt);
        EXPECT_FALSE(loudness.gain());
        EXPECT_EQ(render(composition), plain);
    }
}

} // namespace

// Edit after edit, the map and the table are brought up to date from the first change on;
// what they hold is what a plan and a producer laid afresh hold, to the last bit.
TEST_F(Composition, AnEditLaysTheMapAndTheTableAsFreshOnesWould)
{
    const QString ramp = test::makeRampSound(s_dir->path(), u"ramp.wav"_s, 60.0, 48000, 1);
    const QList<SourceTrackInfo> sources {{{}, ramp, false, 60.0}};
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    // 180 words with pauses of up to 0.3 s, the last ones past the end of the sound.
    QList<Paragraph> spoken(1);
    for (int i = 0; i < 180; ++i)
        spoken[0].wordBlocks.append(
            test::timedWord(i * 0.34, i * 0.34 + 0.04 + 0.3 * unit(random), i));
    recordPauses(spoken);
    QList<WordBlock> words = spoken[0].wordBlocks;
    words.resize(150);
    const auto pick = [&](qsizetype size) {
        return qsizetype(unit(random) * double(size)) % std::max<qsizetype>(size, 1);
    };

    for (const double limit : {wholePauses, 0.1, 0.0}) {
        CompositionPlan plan = planComposition(words, sources, limit);
        CompositionProducer edited(profile);
        edited.apply(plan.editList);
        for (int round = 0; round < 40; ++round) {
            SCOPED_TRACE(testing::Message() << limit << " round " << round);
            const QList<WordBlock> before = words;
            switch (round % 5) {
            case 0: // delete a word or a run
                words.remove(pick(words.size()), 1 + pick(4));
                break;
            case 1: // put back a word of the recording, where it was or elsewhere
                words.insert(pick(words.size()), spoken[0].wordBlocks.at(pick(180)));
                break;
            case 2: // move a run
                words.move(pick(words.size()), pick(words.size()));
                break;
            case 3: // a word's edge
                words[pick(words.size())].mediaEnd += 0.05;
                break;
            default: // the last word, or nothing at all
                if (round % 10 == 4)
                    words.removeLast();
                break;
            }
            for (qsizetype i = 0; i < words.size(); ++i)
                words[i].sortOrder = i;
            if (!updateComposition(plan, before, words, sources, limit))
                plan = planComposition(words, sources, limit);
            const CompositionPlan fresh = planComposition(words, sources, limit);
            ASSERT_EQ(plan.map.size(), fresh.map.size());
            ASSERT_EQ(plan.editList.segments.size(), plan.map.size());
            for (qsizetype i = 0; i < plan.map.size(); ++i) {
                ASSERT_TRUE(plan.editList.segments[i] == fresh.editList.segments[i]) << i;
                ASSERT_EQ(std::tuple(plan.map[i].compositionStart, plan.map[i].block),
                          std::tuple(fresh.map[i].compositionStart, fresh.map[i].block))
                    << i;
            }
            EXPECT_EQ(plan.duration, fresh.duration);

            edited.apply(plan.editList);
            CompositionProducer afresh(profile);
            afresh.apply(fresh.editList);
            const auto cuts = [](const CompositionProducer &c) {
                std::vector<std::tuple<int, bool, int, int, int, int, int>> table;
                for (const mlt::CompositionCut &e : c.entries())
                    table.emplace_back(e.source, e.playable, e.inFrame, e.outFrame,
                                       e.compositionFrame, e.firstSegment, e.lastSegment);
                return table;
            };
            ASSERT_EQ(cuts(edited), cuts(afresh));
            EXPECT_EQ(edited.producer().get_playtime(), afresh.producer().get_playtime());
        }
    }
}
