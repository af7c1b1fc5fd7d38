#include "support/editorfixture.h"

#include <QSignalSpy>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {
using Editing = EditorFixture;
}

TEST_F(Editing, DeletingSelectedWordsAcrossParagraphsIsOneUndoStep)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s}});
    const QList<Paragraph> original = vm.paragraphs();
    vm.selectAcross(paragraph(0).id, 1, paragraph(2).id, 1);
    vm.deleteSelectedWords();
    EXPECT_EQ(text(), u"a | e"_s);
    EXPECT_EQ(paragraph(1).sortOrder, 1);
    EXPECT_TRUE(vm.selectedBlockIds().isEmpty());
    expectPlayerHasDocument();
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs()) << "the project copy follows";

    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);
    expectPlayerHasDocument();
    vm.undoManager().redo();
    EXPECT_EQ(text(), u"a | e"_s);

    const qsizetype steps = vm.undoManager().undoCount();
    vm.deleteSelectedWords(); // nothing selected
    EXPECT_EQ(vm.undoManager().undoCount(), steps);
}

TEST_F(Editing, RepeatedDeleteKeepsRemovingTheWordBeforeTheCursor)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s, u"d"_s, u"e"_s}});
    vm.setCursor(paragraph(1).id, 2);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b | c e"_s);
    EXPECT_EQ(vm.cursorPosition(), 1);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b | e"_s);
    EXPECT_EQ(vm.cursorPosition(), 0);
    vm.deleteAtCursor(); // at the start of a paragraph: nothing before the cursor
    EXPECT_EQ(text(), u"a b | e"_s);

    // A selection is deleted as a whole; an emptied paragraph hands the cursor to the end
    // of the one before it.
    vm.selectRange(paragraph(1).id, 0, 1);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b"_s);
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 2);
    vm.deleteAtCursor();
    vm.deleteAtCursor();
    EXPECT_TRUE(vm.paragraphs().isEmpty());
    EXPECT_FALSE(vm.cursorParagraphId().has_value());
    EXPECT_EQ(vm.undoManager().undoCount(), 5);
    expectPlayerHasDocument();
}

TEST_F(Editing, KeyboardDeleteHoldsBackPlayerNotificationsBriefly)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}});
    vm.setCursor(paragraph(0).id, 3);
    QSignalSpy forwarded(&vm, &EditorViewModel::playerStateChanged);
    vm.deleteAtCursor();
    EXPECT_TRUE(vm.suppressPlayerForwarding());
    vm.playerVM().togglePlayPause();
    EXPECT_EQ(forwarded.count(), 0);
    clock.advance(EditorViewModel::deleteForwardingPauseSeconds);
    EXPECT_FALSE(vm.suppressPlayerForwarding());
    // What changed meanwhile is announced once at the release.
    EXPECT_EQ(forwarded.count(), 1);
    vm.playerVM().togglePlayPause();
    EXPECT_GT(forwarded.count(), 1);
}

TEST_F(Editing, ADeleteArrivingWhileOneIsAppliedIsDropped)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}});
    vm.setCursor(paragraph(0).id, 3);
    // Something reacting to the edit presses Delete again while the first is running.
    QObject::connect(
        &vm, &EditorViewModel::paragraphsChanged, &vm, [this] { vm.deleteAtCursor(); },
        Qt::SingleShotConnection);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b"_s);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a"_s) << "the guard is released after each delete";
}

TEST_F(Editing, DeletingAParagraphPlacesTheCursorOnItsNeighbour)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s}});
    const QList<Paragraph> original = vm.paragraphs();
    vm.deleteParagraph(paragraph(1).id);
    EXPECT_EQ(text(), u"a b | d e"_s);
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 2);
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);

    vm.deleteParagraph(paragraph(0).id);
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 1) << "after the first word of the new first paragraph";

    vm.deleteParagraph(QUuid::createUuid());
    EXPECT_EQ(vm.undoManager().undoCount(), 1);
}

TEST_F(Editing, MovingParagraphsFollowsTheListMoveRuleAndIsNotUndoable)
{
    openTranscript({{u"0"_s}, {u"1"_s}, {u"2"_s}, {u"3"_s}});
    // Each move starts from the document the one before left. The target is a gap: moving
    // down, the moved rows leave it first, so {0} to 3 lands before "3", not after it.
    const struct
    {
        QList<qsizetype> rows;
        qsizetype to;
        QString result;
    } moves[] = {{{0}, 3, u"1 | 2 | 0 | 3"_s},    {{2}, 0, u"0 | 1 | 2 | 3"_s},
                 {{1, 3}, 0, u"1 | 3 | 0 | 2"_s}, {{0, 1}, 4, u"0 | 2 | 1 | 3"_s},
                 {{1}, 1, u"0 | 2 | 1 | 3"_s},    {{9}, 0, u"0 | 2 | 1 | 3"_s}};
    for (const auto &move : moves) {
        vm.moveParagraphs(move.rows, move.to);
        EXPECT_EQ(text(), move.result) << move.to;
        for (qsizetype i = 0; i < 4; ++i)
            EXPECT_EQ(paragraph(i).sortOrder, i);
    }
    EXPECT_FALSE(vm.undoManager().canUndo());
    expectPlayerHasDocument();
    EXPECT_EQ(documentText(vm.project()->paragraphs()), u"0 | 1 | 2 | 3"_s)
        << "the project copy waits for the next save";
}

TEST_F(Editing, FillerWordsGoInOneStep)
{
    QList<Paragraph> doc = transcript({{u"um"_s, u"so"_s}, {u"uh"_s}, {u"yes"_s}});
    for (Paragraph &p : doc) {
        for (WordBlock &b : p.wordBlocks)
            b.isFiller = b.text.startsWith(u'u');
    }
    openParagraphs(doc);

    EXPECT_EQ(vm.deleteFillerWords(), 2);
    EXPECT_EQ(text(), u"so | yes"_s);
    EXPECT_EQ(vm.undoManager().undoCount(), 1);
    EXPECT_EQ(vm.deleteFillerWords(), 0);
    vm.undoManager().undo();
    EXPECT_EQ(text(), u"um so | uh | yes"_s);
}

TEST_F(Editing, CorrectingWordsChangesTextNotTimingInOneUndoStep)
{
    openTranscript({{u"the"_s, u"quik"_s, u"brow"_s, u"fox"_s}, {u"jumps"_s}});
    const QList<Paragraph> original = vm.paragraphs();
    const WordBlock quick = paragraph(0).wordBlocks[1], brown = paragraph(0).wordBlocks[2];

    // One word: only its text changes.
    const WordBlock fox = paragraph(0).wordBlocks[3];
    vm.selectRange(paragraph(0).id, 3, 4);
    ASSERT_TRUE(vm.correctSelectedWords(u" fax "_s));
    WordBlock expected = fox;
    expected.text = u"fax"_s;
    EXPECT_EQ(paragraph(0).wordBlocks[3], expected);
    ASSERT_TRUE(vm.correctSelectedWords(u"fox"_s));
    // Several words become one word over their whole stretch, selected afterwards.
    vm.selectRange(paragraph(0).id, 1, 3);
    ASSERT_TRUE(vm.correctSelectedWords(u"quick brown"_s));
    EXPECT_EQ(text(), u"the quick brown fox | jumps"_s);
    const WordBlock &merged = paragraph(0).wordBlocks[1];
    EXPECT_EQ(merged.id, quick.id);
    EXPECT_EQ(merged.mediaStart, quick.mediaStart);
    EXPECT_EQ(merged.mediaEnd, brown.mediaEnd);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {quick.id});
    expectPlayerHasDocument();
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs());
    vm.setSearchQuery(u"quick brown"_s);
    vm.performSearch();
    EXPECT_EQ(vm.searchResults().size(), 1);

    for (int step = 0; step < 3; ++step)
        vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);
    vm.undoManager().redo();
    EXPECT_EQ(text(), u"the quik brow fax | jumps"_s);

    // Words of two paragraphs, blank text and an empty selection change nothing.
    const qsizetype steps = vm.undoManager().undoCount();
    vm.selectAcross(paragraph(0).id, 3, paragraph(1).id, 1);
    EXPECT_FALSE(vm.correctSelectedWords(u"x"_s));
    vm.selectRange(paragraph(0).id, 0, 1);
    EXPECT_FALSE(vm.correctSelectedWords(u"  "_s));
    vm.clearSelection();
    EXPECT_FALSE(vm.correctSelectedWords(u"x"_s));
    EXPECT_EQ(vm.undoManager().undoCount(), steps);
}

TEST_F(Editing, F2CorrectsTheWordBeforeTheCursor)
{
    openTranscript({{u"a"_s, u"b"_s}});
    QSignalSpy asked(&vm, &EditorViewModel::wordCorrectionRequested);
    vm.requestWordCorrection(); // no cursor, nothing selected
    EXPECT_EQ(asked.count(), 0);
    vm.setCursor(paragraph(0).id, 2);
    vm.requestWordCorrection();
    EXPECT_EQ(asked.count(), 1);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"b"_s)});
}

TEST_F(Editing, ThePauseSettingIsStoredWithTheProjectAndReachesThePreview)
{
    openTranscript({{u"a"_s, u"b"_s}});
    vm.setPauseLimit(5.0);
    EXPECT_EQ(vm.pauseLimit(), maxPauseLimit);
    EXPECT_EQ(vm.playerVM().pauseLimit(), maxPauseLimit);
    vm.setPauseLimit(0.05);
    EXPECT_EQ(vm.pauseLimit(), minPauseLimit);
    const auto reopened = KavelProject::load(vm.project()->bundleURL());
    EXPECT_EQ(reopened->metadata().pauseLimit, minPauseLimit);
    vm.setPauseLimit(0.0);
    EXPECT_EQ(KavelProject::load(vm.project()->bundleURL())->metadata().pauseLimit, 0.0);
}
