#include "support/editorfixture.h"

#include <random>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {
using RandomEditing = EditorFixture;
}

// Thousands of random edits, undos and redos; after every step the document must be
// well-formed and the preview must hold exactly the flattened document. A shadow history
// checks that each undo gives back the document from before its edit and each redo the
// one after it. A move that goes on with the one before (a drag) is folded into its step.
TEST_F(RandomEditing, InvariantsHoldAfterEveryStep)
{
    std::mt19937 random(20261122);
    QList<QStringList> words(40);
    int next = 0;
    for (QStringList &paragraph : words) {
        for (auto count = 1 + random() % 12; count > 0; --count)
            paragraph << u"w"_s + QString::number(next++);
    }
    openTranscript(words);
    auto pick
        = [&](qsizetype n) { return static_cast<qsizetype>(random() % std::max<qsizetype>(n, 1)); };

    QList<QList<Paragraph>> undoShadow, redoShadow;
    bool lastWasMove = false;
    int checkedUndos = 0, checkedRedos = 0;

    for (int step = 0; step < 3000; ++step) {
        const QList<Paragraph> before = vm.paragraphs();
        const qsizetype undoCountBefore = vm.undoManager().undoCount();
        bool isUndo = false, isRedo = false, isMove = false;
        // Most edits remove paragraphs; undo when the document gets thin so that
        // the walk keeps working on a document with many paragraphs.
        if (vm.paragraphs().size() < 12 && vm.undoManager().canUndo()) {
            vm.undoManager().undo();
            isUndo = true;
        } else if (vm.paragraphs().isEmpty()) {
            continue;
        } else {
            const qsizetype p = pick(vm.paragraphs().size());
            const Paragraph &par = vm.paragraphs().at(p);
            const qsizetype n = par.wordBlocks.size();
            switch (random() % 12) {
            case 0:
                vm.setCursor(par.id, pick(n + 1));
                vm.deleteAtCursor();
                break;
            case 1:
                vm.selectRange(par.id, pick(n + 1), pick(n + 1));
                vm.deleteSelectedWords();
                break;
            case 2: {
                const qsizetype q = pick(vm.paragraphs().size());
                vm.selectAcross(par.id, pick(n + 1), vm.paragraphs().at(q).id,
                                pick(vm.paragraphs().at(q).wordBlocks.size() + 1));
                vm.deleteAtCursor();
                break;
            }
            case 3:
                vm.deleteParagraph(par.id);
                break;
            case 4:
                vm.moveParagraphs({p}, pick(vm.paragraphs().size() + 1), lastWasMove);
                isMove = true;
                break;
            case 9:
                vm.setCursor(par.id, pick(n + 1));
                vm.splitParagraphAtCursor();
                break;
            case 10:
                vm.setCursor(par.id, random() % 2 ? 0 : n);
                vm.deleteAtCursor(vm.cursorPosition() == n);
                break;
            case 5:
            case 6: {
                // A few words at a time, so that the document does not grow without bound.
                const qsizetype from = pick(n);
                vm.selectRange(par.id, from, from + 1 + pick(3));
                vm.copySelectedWords();
                vm.setCursor(vm.paragraphs().at(pick(vm.paragraphs().size())).id, pick(n + 1));
                vm.pasteWords();
                break;
            }
            case 7:
            case 8:
                vm.undoManager().undo();
                isUndo = true;
                break;
            default:
                vm.undoManager().redo();
                isRedo = true;
                break;
            }
        }
        clock.advance(0.2);

        const QList<Paragraph> &doc = vm.paragraphs();
        QList<QList<Paragraph>> &from = isUndo ? undoShadow : redoShadow;
        QList<QList<Paragraph>> &to = isUndo ? redoShadow : undoShadow;
        if ((isUndo || isRedo) && !from.isEmpty()) {
            ASSERT_EQ(doc, from.takeLast()) << (isUndo ? "undo" : "redo") << " at " << step;
            ++(isUndo ? checkedUndos : checkedRedos);
            to.append(before);
        } else if (vm.undoManager().undoCount() > undoCountBefore) {
            undoShadow.append(before);
            redoShadow.clear();
        }
        // A move folded into the one before keeps that step's "before".
        lastWasMove = isMove && (lastWasMove || vm.undoManager().undoCount() > undoCountBefore);
        ASSERT_EQ(undoShadow.size(), vm.undoManager().undoCount()) << "step " << step;
        ASSERT_EQ(redoShadow.size(), vm.undoManager().redoCount()) << "step " << step;

        for (qsizetype i = 0; i < doc.size(); ++i) {
            ASSERT_EQ(doc[i].sortOrder, i) << "step " << step;
            ASSERT_FALSE(doc[i].wordBlocks.isEmpty()) << "step " << step;
        }
        ASSERT_EQ(vm.playerVM().wordBlocks(), flattenParagraphs(doc)) << "step " << step;
    }
    // The walk must really have exercised the history.
    EXPECT_GT(checkedUndos, 200);
    EXPECT_GT(checkedRedos, 50);
}
