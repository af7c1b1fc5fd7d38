#include "media/mlt/compositionplaylist.h"
#include "mediafixture.h"
#include "positionmedia.h"

#include <Mlt.h>
#include <cmath>
#include <random>
#include <tuple>

using namespace Qt::StringLiterals;
using namespace kavel;
using namespace kavel::media;
using kavel::media::mlt::CompositionPlaylist;

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

    // Segments laid end to end as the composition plan lays them.
    static EditList editList(const QString &path, const QList<std::pair<double, double>> &ranges,
                             const QList<SegmentAudio> &audio = {})
    {
        EditList list;
        list.hasVideo = true;
        double at = 0.0;
        for (qsizetype i = 0; i < ranges.size(); ++i) {
            EditSegment segment;
            segment.blockId = QUuid::createUuid();
            segment.sourcePath = path;
            segment.sourceStart = ranges[i].first;
            segment.sourceEnd = ranges[i].second;
            segment.compositionStart = at;
            if (i < audio.size())
                segment.audio = audio[i];
            at += segment.length();
            list.segments.append(segment);
        }
        return list;
    }

    // What MLT will actually play: every clip of every chunk, in order.
    static std::vector<std::tuple<std::string, int, int>> flatten(CompositionPlaylist &composition)
    {
        std::vector<std::tuple<std::string, int, int>> clips;
        Mlt::Playlist &top = composition.playlist();
        for (int c = 0; c < top.count(); ++c) {
            std::unique_ptr<Mlt::Producer> cut(top.get_clip(c));
            Mlt::Playlist chunk(cut->parent());
            EXPECT_EQ(cut->get_playtime(), chunk.get_playtime()) << "chunk " << c;
            for (int i = 0; i < chunk.count(); ++i) {
                std::unique_ptr<Mlt::ClipInfo> info(chunk.clip_info(i));
                clips.emplace_back(info->resource, info->frame_in, info->frame_out);
            }
        }
        return clips;
    }

    // Pulls the whole composition's sound as one channel at 48 kHz.
    std::vector<float> render(CompositionPlaylist &composition)
    {
        std::vector<float> pcm;
        Mlt::Playlist &top = composition.playlist();
        for (int f = 0; f < top.get_playtime(); ++f) {
            top.seek(f);
            std::unique_ptr<Mlt::Frame> frame(top.get_frame());
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

    CompositionPlaylist composition(profile);
    EXPECT_TRUE(composition.apply(list).isEmpty());
    // Pictures are laid on the profile's frame grid from the running times...
    const timing::Rate rate {30, 1};
    ASSERT_EQ(composition.frameCount(), timing::frameCount(list.duration(), rate));
    EXPECT_EQ(composition.playlist().get_playtime(), composition.frameCount());
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
        = composition.apply(editList(s_notMedia, {{0.0, 1.0}, {2.0, 2.5}}));
    ASSERT_EQ(failures.size(), 2);
    EXPECT_EQ(failures.first().index, 0);
    EXPECT_TRUE(composition.lastStats().rebuilt) << "a thousand removals cost more than a build";
    EXPECT_EQ(composition.playlist().get_playtime(), 45);
}

// The diff keeps most entries; whatever it makes of an edit must play as a fresh build.
TEST_F(Composition, EditsAreAppliedInPlaceAndPlayLikeAFreshBuild)
{
    using Ranges = QList<std::pair<double, double>>;
    CompositionPlaylist live(profile);
    const auto apply = [&](const Ranges &ranges) {
        live.apply(editList(s_video, ranges));
        CompositionPlaylist fresh(profile);
        fresh.apply(editList(s_video, ranges));
        EXPECT_EQ(flatten(live), flatten(fresh));
        EXPECT_EQ(live.playlist().get_playtime(), live.frameCount());
        return live.lastStats();
    };
    // 40 words with gaps between them: one entry each.
    Ranges spread;
    for (int i = 0; i < 40; ++i)
        spread.append({i * 0.1, i * 0.1 + 0.0667});
    EXPECT_TRUE(apply(spread).rebuilt);

    Ranges deleted = spread;
    deleted.removeAt(20);
    auto stats = apply(deleted);
    EXPECT_FALSE(stats.rebuilt);
    EXPECT_EQ(stats.removed, 1);
    EXPECT_EQ(stats.inserted, 0);

    Ranges moved = deleted;
    const auto run = moved.mid(30, 3);
    moved.remove(30, 3);
    for (qsizetype i = 0; i < run.size(); ++i)
        moved.insert(2 + i, run[i]);
    stats = apply(moved);
    EXPECT_FALSE(stats.rebuilt);
    EXPECT_EQ(stats.removed + stats.inserted, 6);

    // Joining two neighbours by restoring the word between them merges their entries.
    Ranges joined = moved;
    joined[10].second = joined[11].first;
    apply(joined);
    apply({});
    EXPECT_EQ(live.playlist().get_playtime(), 0);
    // A word added before the only one lengthens what plays.
    apply({spread[7]});
    apply({spread[10], spread[7]});

    // Random deletions and insertions, repeats included, as pasting makes them.
    apply({});
    std::mt19937 random(7);
    Ranges ranges = spread;
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        for (auto edits = random() % 6; edits > 0; --edits) {
            if (!ranges.isEmpty() && random() % 2)
                ranges.removeAt(qsizetype(random() % ranges.size()));
            else
                ranges.insert(qsizetype(random() % (ranges.size() + 1)),
                              spread[qsizetype(random() % spread.size())]);
        }
        apply(ranges);
    }
}

TEST_F(Composition, JumpCutsDoNotClickAndMutedWordsAreSilent)
{
    CompositionPlaylist composition(profile);
    const SegmentAudio normal;
    const SegmentAudio muted {1.0f, true, 0.0, 0.0};
    const SegmentAudio quiet {0.25f, false, 0.0, 0.0};
    // Cut points chosen so the sine's phase jumps at every non-contiguous join.
    const EditList list = editList(
        s_tone, {{0.5, 1.0}, {1.0, 1.3}, {2.0113, 2.6}, {2.6, 3.0}, {0.2117, 0.45}, {3.3, 3.7}},
        {normal, normal, normal, muted, normal, quiet});
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

} // namespace
