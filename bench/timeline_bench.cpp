// Load, save and flatten of a 10,000-word timeline (200 paragraphs of 50 words):
// the work done on every project open, every save and every edit.
#include "model/fileio.h"
#include "model/kavelproject.h"
#include "model/timeline.h"
#include "synthetictranscript.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

using namespace kavel;

namespace {

constexpr int paragraphCount = 200;
constexpr int wordsPerParagraph = 50;

struct Fixture
{
    QTemporaryDir dir;
    std::unique_ptr<KavelProject> project;

    Fixture()
    {
        project = KavelProject::create(QStringLiteral("Bench"), dir.path());
        project->setParagraphs(bench::syntheticTranscript(paragraphCount, wordsPerParagraph));
        project->saveTimeline();
    }
};

Fixture &fixture()
{
    static Fixture instance;
    return instance;
}

void BM_LoadProject(benchmark::State &state)
{
    const QUrl url = fixture().project->bundleURL();
    for (auto _ : state) {
        auto loaded = KavelProject::load(url);
        benchmark::DoNotOptimize(loaded->paragraphs().size());
    }
    state.counters["words"] = paragraphCount * wordsPerParagraph;
}

void BM_SaveTimeline(benchmark::State &state)
{
    KavelProject &project = *fixture().project;
    for (auto _ : state)
        project.saveTimeline();
    state.counters["bytes"] = static_cast<double>(
        QFileInfo(QDir(project.bundlePath()).filePath(QStringLiteral("timeline.json"))).size());
}

void BM_EncodeTimeline(benchmark::State &state)
{
    TimelineV2 timeline;
    timeline.paragraphs = fixture().project->paragraphs();
    for (auto _ : state)
        benchmark::DoNotOptimize(encodeTimelineDocument(timeline));
}

void BM_DecodeTimeline(benchmark::State &state)
{
    const QByteArray bytes = fileio::readFile(
        QDir(fixture().project->bundlePath()).filePath(QStringLiteral("timeline.json")));
    for (auto _ : state)
        benchmark::DoNotOptimize(decodeTimelineDocument(bytes));
}

void BM_Flatten(benchmark::State &state)
{
    const QList<Paragraph> paragraphs = fixture().project->paragraphs();
    for (auto _ : state)
        benchmark::DoNotOptimize(flattenParagraphs(paragraphs));
}

} // namespace

BENCHMARK(BM_LoadProject)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveTimeline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeTimeline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeTimeline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Flatten)->Unit(benchmark::kMicrosecond);
