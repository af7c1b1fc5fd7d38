// The transcript view on a 10,000-word transcript (200 paragraphs of 50 words): laying it
// out, painting one screenful, and the work a word deletion causes.
#include "editor/editorviewmodel.h"
#include "model/kavelproject.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "synthetictranscript.h"
#include "ui/transcript/magnetictextstripview.h"
#include "ui/transcript/transcriptlayout.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QScrollBar>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <optional>

using namespace kavel;
using namespace kavel::ui;

namespace {

constexpr int paragraphCount = 200;
constexpr int wordsPerParagraph = 50;
constexpr qreal viewWidth = 800.0;

const QList<Paragraph> &transcript()
{
    static const QList<Paragraph> doc
        = bench::syntheticTranscript(paragraphCount, wordsPerParagraph);
    return doc;
}

// Every word measured afresh, as on opening a project.
void BM_LayoutCold(benchmark::State &state)
{
    for (auto _ : state) {
        TranscriptLayout layout(QApplication::font());
        benchmark::DoNotOptimize(layout.update(transcript(), viewWidth));
    }
    state.counters["words"] = paragraphCount * wordsPerParagraph;
}

// The worst case for measuring: no two words alike, so nothing is remembered.
void BM_LayoutColdAllWordsDistinct(benchmark::State &state)
{
    QList<Paragraph> doc = transcript();
    int n = 0;
    for (Paragraph &p : doc) {
        for (WordBlock &w : p.wordBlocks)
            w.text += QString::number(n++);
    }
    for (auto _ : state) {
        TranscriptLayout layout(QApplication::font());
        benchmark::DoNotOptimize(layout.update(doc, viewWidth));
    }
}

// A window resize: every paragraph wrapped again, word widths already known.
void BM_LayoutNewWidth(benchmark::State &state)
{
    TranscriptLayout layout(QApplication::font());
    layout.update(transcript(), viewWidth);
    qreal width = viewWidth;
    for (auto _ : state) {
        width = width == viewWidth ? viewWidth + 1.0 : viewWidth;
        benchmark::DoNotOptimize(layout.update(transcript(), width));
    }
}

// One word removed from a paragraph in the middle, as the editor hands over the list.
void BM_LayoutAfterWordDeletion(benchmark::State &state)
{
    TranscriptLayout layout(QApplication::font());
    const QList<Paragraph> &before = transcript();
    QList<Paragraph> after = before;
    after[paragraphCount / 2].wordBlocks.removeAt(10);
    layout.update(before, viewWidth);
    qsizetype relaid = 0;
    bool flip = false;
    for (auto _ : state) {
        flip = !flip;
        relaid = layout.update(flip ? after : before, viewWidth);
    }
    state.counters["paragraphs_laid_out"] = static_cast<double>(relaid);
}

struct Editor
{
    QTemporaryDir dir;
    test::FakeMediaEngine engine;
    test::FakeClock clock;
    EditorViewModel vm {engine, clock};

    Editor()
    {
        auto project = KavelProject::create(QStringLiteral("Bench"), dir.path());
        project->setParagraphs(transcript());
        project->saveTimeline();
        vm.openProject(project->bundleURL());
    }
};

Editor &editor()
{
    static Editor instance;
    return instance;
}

// One full screenful (800 x 900) in the middle of the transcript, with a selection and
// search hits on screen.
void BM_PaintVisibleArea(benchmark::State &state)
{
    EditorViewModel &vm = editor().vm;
    MagneticTextStripView view(vm);
    view.resize(static_cast<int>(viewWidth), 900);
    view.show();
    view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum() / 2);
    const Paragraph &middle = vm.paragraphs().at(paragraphCount / 2);
    vm.selectRange(middle.id, 5, 25);
    vm.setSearchQuery(QStringLiteral("the"));
    vm.performSearch();
    view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum() / 2);
    QImage image(view.viewport()->size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        view.viewport()->render(&image);
        benchmark::ClobberMemory();
    }
    vm.setSearchQuery(QString());
    vm.performSearch();
}

// The keyboard delete of one word and its undo, through the editor, with the view
// attached: edit, undo record, preview hand-over and the view's re-layout.
void deleteAndUndo(benchmark::State &state, bool withView)
{
    EditorViewModel &vm = editor().vm;
    std::optional<MagneticTextStripView> view;
    if (withView) {
        view.emplace(vm);
        view->resize(static_cast<int>(viewWidth), 900);
    }
    const QUuid word = vm.paragraphs().at(paragraphCount / 2).wordBlocks.at(10).id;
    qsizetype relaid = 0;
    for (auto _ : state) {
        vm.placeCursorAfterWord(word);
        vm.deleteAtCursor();
        relaid = view ? view->lastRelayoutCount() : 0;
        vm.undoManager().undo();
    }
    if (view)
        state.counters["paragraphs_laid_out"] = static_cast<double>(relaid);
}

// The same edit without any view: what the editor itself costs, for comparison.
void BM_DeleteWordWithoutView(benchmark::State &state)
{
    deleteAndUndo(state, false);
}

void BM_DeleteWordWithViewAttached(benchmark::State &state)
{
    deleteAndUndo(state, true);
}

} // namespace

BENCHMARK(BM_LayoutCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LayoutColdAllWordsDistinct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LayoutNewWidth)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LayoutAfterWordDeletion)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PaintVisibleArea)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeleteWordWithoutView)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeleteWordWithViewAttached)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
