// The editor's hot paths on a 10,000-word transcript: a keyboard delete (with its undo
// record and the hand-off to the preview; the media engine is a fake and costs nothing),
// a search, and the memory that a long undo history holds.
#include "editor/editorviewmodel.h"
#include "editor/textcorrections.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "synthetictranscript.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

using namespace kavel;

namespace {

struct Editor
{
    QTemporaryDir dir;
    test::FakeMediaEngine engine;
    test::FakeClock clock;
    EditorViewModel vm {engine, clock};

    Editor()
    {
        auto project = KavelProject::create(QStringLiteral("Bench"), dir.path());
        const QString media = QDir(dir.path()).filePath(QStringLiteral("talk.mp4"));
        QFile file(media);
        file.open(QIODevice::WriteOnly);
        file.write("x");
        file.close();
        const SourceFile source = project->addSourceFile(QUrl::fromLocalFile(media));
        engine.addMedia(project->sourceFileURL(source.id)->toLocalFile(),
                        test::FakeMediaEngine::videoWithAudio(3600.0));
        QList<Paragraph> paragraphs = bench::syntheticTranscript(200, 50);
        for (Paragraph &p : paragraphs) {
            for (WordBlock &b : p.wordBlocks)
                b.sourceFileId = source.id;
        }
        project->setParagraphs(paragraphs);
        project->saveTimeline();
        vm.openProject(project->bundleURL());
        clock.advance(0.0);
    }

    // The fake player keeps every edit list it is given; drop them between steps.
    void forgetCompositions() { engine.lastPlayer->compositions.clear(); }
};

double residentMegabytes()
{
    malloc_trim(0);
    QFile statm(QStringLiteral("/proc/self/statm"));
    statm.open(QIODevice::ReadOnly);
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toDouble() * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

void BM_DeleteAtCursor(benchmark::State &state)
{
    Editor editor;
    qsizetype p = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const Paragraph &paragraph = editor.vm.paragraphs().at(p++ % editor.vm.paragraphs().size());
        editor.vm.setCursor(paragraph.id, paragraph.wordBlocks.size() / 2 + 1);
        state.ResumeTiming();

        editor.vm.deleteAtCursor();

        state.PauseTiming();
        editor.vm.undoManager().undo();
        editor.clock.advance(0.2);
        editor.forgetCompositions();
        state.ResumeTiming();
    }
}

void BM_PerformSearch(benchmark::State &state)
{
    Editor editor;
    editor.vm.setSearchQuery(QStringLiteral("讨论一下"));
    for (auto _ : state)
        editor.vm.performSearch();
    state.counters["hits"] = static_cast<double>(editor.vm.searchResults().size());
}

// Growth of the resident set over 1,000 keyboard deletes and their undo steps (target:
// 5 MB; each step keeps only the words it removed).
void BM_UndoHistoryMemory(benchmark::State &state)
{
    for (auto _ : state) {
        Editor editor;
        const double before = residentMegabytes();
        for (int step = 0; step < 1000; ++step) {
            const Paragraph &paragraph
                = editor.vm.paragraphs().at(step % editor.vm.paragraphs().size());
            editor.vm.setCursor(paragraph.id, paragraph.wordBlocks.size());
            editor.vm.deleteAtCursor();
            editor.clock.advance(0.2);
            editor.forgetCompositions();
        }
        state.counters["growth_MB"] = residentMegabytes() - before;
        state.counters["undo_steps"] = static_cast<double>(editor.vm.undoManager().undoCount());
    }
}

} // namespace

// The command line's --replace-text on a 30,000-word transcript: every word reads
// differently, and each correction (a run of one or two whole words) matches one place.
void BM_ReplaceWholeWords(benchmark::State &state)
{
    QList<Paragraph> transcript = bench::syntheticTranscript(600, 50);
    qsizetype n = 0;
    for (Paragraph &p : transcript) {
        for (WordBlock &b : p.wordBlocks)
            b.text = QStringLiteral("w%1").arg(n++);
    }
    const qsizetype count = state.range(0);
    QList<edits::TextCorrection> corrections;
    for (qsizetype i = 0; i < count; ++i) {
        const qsizetype word = i * 3 % n;
        // Every other one spans two words; none crosses a paragraph's end.
        const QString from = i % 2 || word % 50 == 49
            ? QStringLiteral("w%1").arg(word)
            : QStringLiteral("W%1 w%2").arg(word).arg(word + 1);
        corrections.append({from, QStringLiteral("fixed%1").arg(i)});
    }
    qsizetype replaced = 0;
    for (auto _ : state) {
        state.PauseTiming();
        QList<Paragraph> paragraphs = transcript;
        paragraphs.detach();
        state.ResumeTiming();
        replaced = edits::correctWholeWords(paragraphs, corrections).replaced;
        benchmark::DoNotOptimize(paragraphs);
    }
    if (replaced != count)
        state.SkipWithError("a correction did not match its place");
    state.counters["words"] = double(n);
    state.counters["replaced"] = double(replaced);
}

BENCHMARK(BM_DeleteAtCursor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PerformSearch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReplaceWholeWords)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UndoHistoryMemory)->Unit(benchmark::kMillisecond)->Iterations(1);
