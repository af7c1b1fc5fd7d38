// Preview responsiveness on the real consumer (sdl2_audio; headless with the dummy
// audio driver), playing 1080p30 H.264 cut into one-second words:
//  - a seek while playing must show the new frame within 150 ms;
//  - dragging the progress bar while paused must show each new position within 150 ms;
//  - playing at 1x across cuts must show every frame (30 fps, none dropped);
//  - deleting a word while playing must keep the play head on the same source moment.
#include "benchmedia.h"
#include "media/mlt/compositionproducer.h"
#include "media/mlt/mltengine.h"
#include "media/mlt/mltplayer.h"
#include "playback/videoplayerviewmodel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>

using namespace kavel;

namespace {

struct Preview
{
    media::mlt::MltMediaEngine engine;
    SystemPlaybackClock clock;
    VideoPlayerViewModel model {engine, clock};
    QUuid source = QUuid::createUuid();
    QList<WordBlock> words;
    // What the view received: composition time of each shown frame and when it came.
    QList<std::pair<double, qint64>> shown;
    QElapsedTimer sinceStart;

    Preview()
    {
        // Twelve words of 0.8 s with 0.2 s cut out between them: a jump cut every word.
        for (int i = 0; i < 12; ++i) {
            WordBlock w;
            w.id = QUuid::createUuid();
            w.sourceFileId = source;
            w.mediaStart = i * 1.0;
            w.mediaEnd = i * 1.0 + 0.8;
            w.sortOrder = i;
            words.append(w);
        }
        model.loadSources({{source, QUrl::fromLocalFile(bench::fullHdSource())}});
        bench::waitFor([&] { return model.tracksLoaded(); }, 30000);
        model.setWordBlocks(words);
        model.scheduleRebuild();
        player().setVideoSize({640, 360}); // what a preview widget asks for
        sinceStart.start();
        QObject::connect(&player(), &media::mlt::MltPlayer::frameShown, &model,
                         [this](const QImage &, double time) {
                             shown.append({time, sinceStart.elapsed()});
                         });
        model.seekToBlock(words.first());
        bench::waitFor([] { return false; }, 300);
    }

    media::mlt::MltPlayer &player() { return static_cast<media::mlt::MltPlayer &>(model.player()); }
    int frameOf(double time) { return player().composition()->frameAtSeconds(time); }
};

Preview &preview()
{
    static Preview instance;
    return instance;
}

void BM_SeekWhilePlaying(benchmark::State &state)
{
    Preview &p = preview();
    p.model.seekToBlock(p.words.first());
    if (!p.model.isPlaying())
        p.model.togglePlayPause();
    bench::waitFor([] { return false; }, 500);
    std::vector<double> latencies;
    int round = 0;
    for (auto _ : state) {
        // Alternate between far-apart words so the target is never already buffered.
        const WordBlock &target = p.words[round % 2 ? 2 : 9];
        const double targetTime = p.model.compositionMap()[round % 2 ? 2 : 9].compositionStart;
        p.shown.clear();
        const qint64 start = p.sinceStart.elapsed();
        p.model.seekToBlock(target);
        const bool seen = bench::waitFor(
            [&] {
                return std::any_of(p.shown.cbegin(), p.shown.cend(), [&](const auto &f) {
                    return std::abs(f.first - targetTime) < 0.1;
                });
            },
            3000);
        const auto hit = std::find_if(p.shown.cbegin(), p.shown.cend(), [&](const auto &f) {
            return std::abs(f.first - targetTime) < 0.1;
        });
        const double latency = seen ? double(hit->second - start) / 1000.0 : 3.0;
        latencies.push_back(latency);
        state.SetIterationTime(latency);
        bench::waitFor([] { return false; }, 400); // let it play on before the next seek
        ++round;
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[latencies.size() / 2] * 1000.0;
    state.counters["max_ms"] = latencies.back() * 1000.0;
    p.model.pause();
}
BENCHMARK(BM_SeekWhilePlaying)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(12);

// Dragging the progress bar while paused. The pointer crosses the whole result in a
// second; as the player view does, the next seek goes out once the last one's frame has
// shown (or after 250 ms), to wherever the pointer is by then. Each seek's frame should
// show within 150 ms, and the picture should follow at many frames a second.
void BM_DragProgressBar(benchmark::State &state)
{
    Preview &p = preview();
    p.model.pause();
    bench::waitFor([] { return false; }, 300);
    std::vector<double> latencies;
    double framesPerSecond = 0.0;
    for (auto _ : state) {
        const double duration = p.model.duration();
        QElapsedTimer drag;
        drag.start();
        int seeks = 0;
        while (drag.elapsed() < 1000) {
            const double t = duration * double(drag.elapsed()) / 1000.0;
            const int frame = p.frameOf(t);
            p.shown.clear();
            const qint64 at = p.sinceStart.elapsed();
            p.model.seek(t);
            ++seeks;
            const auto hit = [&] {
                return std::find_if(p.shown.cbegin(), p.shown.cend(),
                                    [&](const auto &f) { return p.frameOf(f.first) == frame; });
            };
            const bool seen = bench::waitFor([&] { return hit() != p.shown.cend(); }, 250);
            latencies.push_back(seen ? double(hit()->second - at) / 1000.0 : 0.25);
        }
        state.SetIterationTime(drag.nsecsElapsed() / 1e9);
        framesPerSecond += seeks / (drag.nsecsElapsed() / 1e9);
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["frames_per_s"] = framesPerSecond / double(state.iterations());
    state.counters["median_ms"] = latencies[latencies.size() / 2] * 1e3;
    state.counters["max_ms"] = latencies.back() * 1e3;
}
BENCHMARK(BM_DragProgressBar)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_PlayAcrossCuts(benchmark::State &state)
{
    Preview &p = preview();
    for (auto _ : state) {
        p.model.pause();
        p.model.seekToBlock(p.words.first());
        bench::waitFor([] { return false; }, 300);
        p.shown.clear();
        p.model.togglePlayPause();
        QElapsedTimer timer;
        timer.start();
        bench::waitFor([&] { return p.model.currentTime() > 8.5; }, 15000);
        const double seconds = timer.nsecsElapsed() / 1e9;
        p.model.pause();
        state.SetIterationTime(seconds);

        // Count frames skipped between consecutive shown frames, after the first second
        // (which includes starting from pause).
        int dropped = 0, repeated = 0, frames = 0;
        int previous = -1;
        for (const auto &[time, at] : std::as_const(p.shown)) {
            const int frame = p.frameOf(time);
            if (previous >= 0 && time > 1.0) {
                ++frames;
                if (frame > previous + 1)
                    dropped += frame - previous - 1;
                if (frame == previous)
                    ++repeated;
            }
            previous = frame;
        }
        const double span = (p.shown.last().second - p.shown.first().second) / 1000.0;
        state.counters["fps"] = double(p.shown.size() - 1) / span;
        state.counters["dropped"] = dropped;
        state.counters["repeated"] = repeated;
        state.counters["frames_checked"] = frames;
    }
}
BENCHMARK(BM_PlayAcrossCuts)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(1);

void BM_DeleteWhilePlaying(benchmark::State &state)
{
    Preview &p = preview();
    std::vector<double> drift, anchorError;
    for (auto _ : state) {
        p.model.setWordBlocks(p.words);
        p.model.scheduleRebuild();
        p.model.seekToBlock(p.words[3]);
        if (!p.model.isPlaying())
            p.model.togglePlayPause();
        bench::waitFor([] { return false; }, 400);

        // Delete the word before the one playing. The model anchors on its published
        // time, which lags the engine by up to its 0.1 s publish interval; both are kept.
        const double before = p.model.compositionTimeToSourceTime(p.player().currentTime());
        const double published = p.model.compositionTimeToSourceTime(p.model.currentTime());
        QList<WordBlock> edited = p.words;
        edited.removeAt(2);
        QElapsedTimer timer;
        timer.start();
        p.model.setWordBlocks(edited);
        p.model.scheduleRebuild();
        state.SetIterationTime(timer.nsecsElapsed() / 1e9);
        const double after = p.model.compositionTimeToSourceTime(p.player().currentTime());
        drift.push_back(std::abs(after - before));
        anchorError.push_back(std::abs(after - published));
        bench::waitFor([] { return false; }, 300);
        state.counters["still_playing"] = p.model.isPlaying();
    }
    std::sort(drift.begin(), drift.end());
    std::sort(anchorError.begin(), anchorError.end());
    state.counters["max_drift_vs_engine_ms"] = drift.back() * 1000.0;
    state.counters["max_drift_vs_published_ms"] = anchorError.back() * 1000.0;
    p.model.pause();
}
BENCHMARK(BM_DeleteWhilePlaying)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(8);

} // namespace
