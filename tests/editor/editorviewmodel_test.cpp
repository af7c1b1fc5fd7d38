#include "support/editorfixture.h"

#include <QSignalSpy>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {
using Editor = EditorFixture;
}

TEST_F(Editor, CursorAndSelectionMoveThePlayHeadAndStayInTheParagraph)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}, {}});
    const QUuid p = paragraph(0).id;
    // The caret stands before the current word; at the end the last word is the current one.
    for (const auto &[position, word] :
         {std::pair {1, u"b"_s}, {0, u"a"_s}, {2, u"c"_s}, {99, u"c"_s}}) {
        vm.setCursor(p, position);
        EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(word)) << position;
    }
    const qsizetype seeks = engine.lastPlayer->seeks.size();
    vm.setCursor(paragraph(1).id, 0);
    EXPECT_EQ(engine.lastPlayer->seeks.size(), seeks) << "an empty paragraph has nothing to seek";
    vm.placeCursorAfterWord(id(u"b"_s));
    EXPECT_EQ(vm.cursorParagraphId(), p);
    EXPECT_EQ(vm.cursorPosition(), 2);

    vm.selectRange(p, 5, 2);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"c"_s)});
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"c"_s));
    vm.selectRange(p, 4, 5);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"c"_s)}) << "out of range keeps it";
}

// Each hit reads "paragraph:word+word", so that a hit with a word too many or too few, or
// in the wrong paragraph, shows in the failure.
TEST_F(Editor, SearchMatchesJoinedWordsOfOneParagraphIgnoringCaseAndStepsRound)
{
    openTranscript({{u"x"_s, u"a"_s, u"B"_s, u"y"_s},
                    {u"Ab"_s},
                    {u"aa"_s, u"aa"_s},
                    {u"我们"_s, u"今天"_s, u"讨论"_s},
                    {u"ab"_s, u""_s, u"cd"_s}});
    const auto found = [&](const QString &query) {
        vm.setSearchQuery(query);
        vm.performSearch();
        QStringList hits;
        for (const SearchHit &hit : vm.searchResults()) {
            QStringList words;
            for (const WordBlock &w : flattenParagraphs(vm.paragraphs())) {
                if (hit.blockIds.contains(w.id))
                    words.append(w.text);
            }
            qsizetype at = 0;
            while (at < vm.paragraphs().size() && paragraph(at).id != hit.paragraphId)
                ++at;
            hits.append(QString::number(at) + u':' + words.join(u'+'));
        }
        return hits;
    };
    EXPECT_EQ(found(u"XAB"_s), QStringList {u"0:x+a+B"_s}) << "from the very first letter";
    EXPECT_EQ(found(u"yab"_s), QStringList {}) << "never from one paragraph into the next";
    EXPECT_EQ(found(u"   "_s), QStringList {});
    EXPECT_EQ(found(u"aa"_s), (QStringList {u"2:aa"_s, u"2:aa"_s}));
    EXPECT_EQ(found(u"aaa"_s), QStringList {u"2:aa+aa"_s}) << "occurrences do not overlap";
    EXPECT_EQ(found(u"们今天讨"_s), QStringList {u"3:我们+今天+讨论"_s});
    EXPECT_EQ(found(u"bc"_s), QStringList {u"4:ab+cd"_s}) << "an empty word is never in a hit";

    // The first hit is selected and played; the others step round in both directions.
    EXPECT_EQ(found(u"  ab \n"_s), (QStringList {u"0:a+B"_s, u"1:Ab"_s, u"4:ab"_s}));
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"a"_s, u"B"_s}));
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"a"_s));
    EXPECT_TRUE(vm.isSearchMatch(id(u"Ab"_s)));
    EXPECT_FALSE(vm.isSearchMatch(id(u"x"_s)));
    vm.previousSearchResult();
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"ab"_s}));
    vm.nextSearchResult();
    EXPECT_EQ(vm.currentSearchIndex(), 0);

    // Edits do not refresh the hits: one whose words are gone selects nothing real.
    vm.goToSearchResult(2);
    vm.deleteSelectedWords();
    vm.goToSearchResult(2);
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(4).id);
    vm.setSearchQuery(QString());
    vm.performSearch();
    EXPECT_FALSE(vm.isSearchMatch(id(u"Ab"_s)));
    vm.nextSearchResult();

    // Another project starts with nothing of this one's search, caret or selection.
    found(u"ab"_s);
    vm.setShowSearchBar(true);
    vm.extendSelection(1);
    const QUuid current = vm.playerVM().activeWordBlockId();
    ASSERT_FALSE(current.isNull());
    openTranscript({{u"ab"_s}});
    EXPECT_NE(vm.playerVM().activeWordBlockId(), current);
    EXPECT_EQ(std::tuple(vm.searchQuery(), vm.searchResults().size(), vm.showSearchBar()),
              std::tuple(QString(), 0, false));
    EXPECT_EQ(std::tuple(vm.cursorParagraphId(), vm.cursorPosition(), vm.selectionAnchor()),
              std::tuple(std::optional<QUuid>(), 0, std::optional<qsizetype>()));
    EXPECT_TRUE(vm.selectedBlockIds().isEmpty());
}

// Backspace takes the word before the caret and Delete the one after it, or the selection
// as a whole, each one undo step; at a paragraph's edge they join it to its neighbour, and
// an emptied paragraph hands the caret to the end of the one before it.
TEST_F(Editor, DeletingWordsKeepsTheCursorJoinsAtTheEdgesAndIsUndoneStepByStep)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s, u"f"_s}});
    const QList<Paragraph> original = vm.paragraphs();
    vm.selectAcross(paragraph(0).id, 1, paragraph(1).id, 1);
    vm.deleteSelectedWords();
    EXPECT_EQ(text(), u"a | d e f"_s);
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs()) << "the project copy follows";
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);
    vm.undoManager().redo();
    vm.deleteSelectedWords(); // nothing selected

    const WordBlock a = paragraph(0).wordBlocks[0], f = paragraph(1).wordBlocks[2];
    vm.setCursor(paragraph(1).id, 2);
    const struct
    {
        bool forward;
        QString text;
        qsizetype paragraph, position;
    } keys[] = {{false, u"a | d f"_s, 1, 1},
                {false, u"a | f"_s, 1, 0},
                {false, u"a f"_s, 0, 1}, // joined, the caret where the two met
                {true, u"a"_s, 0, 1},
                {true, u"a"_s, 0, 1}}; // nothing after the last word
    for (const auto &key : keys) {
        vm.deleteAtCursor(key.forward);
        EXPECT_EQ(text(), key.text);
        EXPECT_EQ(std::pair(vm.cursorParagraphId(), vm.cursorPosition()),
                  std::pair(std::optional(paragraph(key.paragraph).id), key.position))
            << key.text.toStdString();
        if (key.text == u"a f"_s) {
            EXPECT_EQ(paragraph(0).wordBlocks, (QList<WordBlock> {a, f})) << "times kept";
        }
    }
    vm.deleteAtCursor();
    EXPECT_TRUE(vm.paragraphs().isEmpty());
    EXPECT_FALSE(vm.cursorParagraphId().has_value());
    EXPECT_EQ(vm.undoManager().undoCount(), 6);
    vm.undoManager().undo();
    EXPECT_EQ(text(), u"a"_s);
}

// Enter splits at the caret, Backspace at a paragraph's start or Delete at its end joins
// it back; every word keeps its id and times, and each is one undo step.
TEST_F(Editor, SplittingAndJoiningParagraphsKeepEveryWordAndAreUndoable)
{
    QList<Paragraph> doc = transcript({{u"a"_s, u"b"_s, u"c"_s}, {u"d"_s}});
    doc[0].speakerLabel = u"甲"_s;
    openParagraphs(doc);
    const QList<Paragraph> original = vm.paragraphs();
    for (const qsizetype edge : {0, 3}) {
        vm.setCursor(paragraph(0).id, edge);
        vm.splitParagraphAtCursor();
    }
    EXPECT_FALSE(vm.undoManager().canUndo()) << "no empty paragraph at either end";

    vm.setCursor(paragraph(0).id, 1);
    vm.splitParagraphAtCursor();
    EXPECT_EQ(text(), u"a | b c | d"_s);
    const QList<Paragraph> split = vm.paragraphs();
    EXPECT_EQ(flattenParagraphs(split), flattenParagraphs(original));
    EXPECT_NE(paragraph(1).id, original[0].id);
    EXPECT_EQ(paragraph(1).speakerLabel, u"甲"_s);
    EXPECT_EQ(std::pair(vm.cursorParagraphId(), vm.cursorPosition()),
              std::pair(std::optional(paragraph(1).id), qsizetype(0)));
    expectPlayerHasDocument();
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs());

    vm.deleteAtCursor(); // Backspace at the start of "b c"
    EXPECT_EQ(vm.paragraphs(), original);
    EXPECT_EQ(vm.cursorPosition(), 1);
    vm.setCursor(paragraph(0).id, 3);
    vm.deleteAtCursor(true); // Delete at the end of "a b c"
    EXPECT_EQ(text(), u"a b c d"_s);
    EXPECT_EQ(flattenParagraphs(vm.paragraphs()), flattenParagraphs(original));

    for (const QList<Paragraph> &expected : {original, split, original}) {
        vm.undoManager().undo();
        EXPECT_EQ(vm.paragraphs(), expected);
    }
    vm.undoManager().redo();
    EXPECT_EQ(vm.paragraphs(), split);
    expectPlayerHasDocument();
}

// Cut keeps the words for pasting as well as removing them: cut and paste moves words,
// with their recording times, in two undo steps.
TEST_F(Editor, CutAndPasteMoveWordsWithTheirTimes)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}, {u"d"_s, u"e"_s}});
    const QList<Paragraph> original = vm.paragraphs();
    vm.cutSelectedWords();
    EXPECT_TRUE(vm.copiedWords().isEmpty()) << "nothing selected, nothing cut";
    vm.selectRange(paragraph(0).id, 1, 3);
    vm.cutSelectedWords();
    EXPECT_EQ(text(), u"a | d e"_s);
    EXPECT_EQ(std::pair(vm.cursorParagraphId(), vm.cursorPosition()),
              std::pair(std::optional(paragraph(0).id), qsizetype(1)));
    vm.setCursor(paragraph(1).id, 1);
    vm.pasteWords();
    EXPECT_EQ(text(), u"a | d b c e"_s);
    for (qsizetype i : {0, 1}) {
        WordBlock pasted = paragraph(1).wordBlocks[1 + i];
        EXPECT_NE(pasted.id, original[0].wordBlocks[1 + i].id);
        pasted.id = original[0].wordBlocks[1 + i].id;
        EXPECT_EQ(pasted, original[0].wordBlocks[1 + i]);
    }
    vm.undoManager().undo();
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);

    // Another project has not their recording: they are not pasted there.
    vm.selectRange(paragraph(0).id, 0, 2);
    vm.copySelectedWords();
    openTranscript({{u"x"_s, u"y"_s}});
    vm.setCursor(paragraph(0).id, 1);
    vm.pasteWords();
    EXPECT_EQ(text(), u"x y"_s);
    EXPECT_FALSE(vm.undoManager().canUndo());
}

TEST_F(Editor, MovingParagraphsFollowsTheListMoveRuleAndIsUndoneOneDragAtATime)
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
    }
    EXPECT_EQ(vm.undoManager().undoCount(), 4) << "a move that changes nothing is no step";
    EXPECT_EQ(vm.project()->paragraphs(), vm.paragraphs());

    // A drag that passes two paragraphs is one step: undo puts the paragraph back, redo
    // moves it again. The next drag is a step of its own.
    const QList<Paragraph> beforeDrag = vm.paragraphs();
    vm.moveParagraphs({0}, 2);
    vm.moveParagraphs({1}, 3, true);
    EXPECT_EQ(text(), u"2 | 1 | 0 | 3"_s);
    const QList<Paragraph> dragged = vm.paragraphs();
    vm.moveParagraphs({2}, 0);
    EXPECT_EQ(vm.undoManager().undoCount(), 6);
    for (const QList<Paragraph> &expected : {dragged, beforeDrag}) {
        vm.undoManager().undo();
        EXPECT_EQ(vm.paragraphs(), expected);
        expectPlayerHasDocument();
    }
    vm.undoManager().redo();
    EXPECT_EQ(vm.paragraphs(), dragged);
}

// The history keeps only what each step changed, yet undo gives back whole states: a
// paragraph goes back where it was, and redo runs again on the document as it is.
TEST_F(Editor, UndoRestoresWholeStatesAcrossParagraphDeletesAndMoves)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s}});
    const QList<Paragraph> start = vm.paragraphs();
    vm.deleteParagraph(paragraph(1).id);
    EXPECT_EQ(text(), u"a b | d e"_s);
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 2);
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), start);
    vm.deleteParagraph(paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 1) << "after the first word of the new first paragraph";
    EXPECT_FALSE(vm.undoManager().canRedo()) << "a new edit discards what could be redone";
    vm.deleteParagraph(QUuid::createUuid());
    vm.undoManager().undo();
    EXPECT_FALSE(vm.undoManager().canUndo());

    vm.setCursor(paragraph(0).id, 2);
    vm.deleteAtCursor();
    const QList<Paragraph> deleted = vm.paragraphs();
    vm.moveParagraphs({0}, 3);
    const QList<Paragraph> moved = vm.paragraphs();
    vm.selectAcross(paragraph(0).id, 0, paragraph(1).id, 1);
    vm.deleteSelectedWords();
    const QList<Paragraph> edited = vm.paragraphs();
    ASSERT_EQ(text(), u"e | a"_s);
    for (int round = 0; round < 2; ++round) {
        const QList<Paragraph> *expected[] = {&moved, &deleted, &start, &deleted, &moved, &edited};
        for (int step = 0; step < 6; ++step) {
            step < 3 ? vm.undoManager().undo() : vm.undoManager().redo();
            EXPECT_EQ(vm.paragraphs(), *expected[step]) << round << " " << step;
        }
    }
}

TEST_F(Editor, FillersGoAndCorrectionsChangeTextNotTimingAndClearDoubtEachInOneUndoStep)
{
    QList<Paragraph> doc
        = transcript({{u"a"_s, u"the"_s, u"quik"_s, u"brow"_s, u"fox"_s}, {u"um"_s}});
    doc[1].wordBlocks[0].isFiller = true;
    // The recogniser doubted "quik", "fox", "um" and "a", which is cut from the edit; 0.6
    // is sure enough.
    for (const auto &[p, w, confidence] :
         {std::tuple {0, 0, 0.0}, {0, 2, 0.3}, {0, 3, 0.6}, {0, 4, 0.5}, {1, 0, 0.1}})
        doc[p].wordBlocks[w].confidence = confidence;
    doc[0].wordBlocks[0].isDeleted = true;
    openParagraphs(doc);

    // F8 and Shift+F8 select the doubted words in turn from the caret or the selection,
    // going round the ends and passing over the deleted word.
    const auto step = [&](bool forward) {
        vm.goToWordToCheck(forward);
        return vm.selectedBlockIds();
    };
    EXPECT_EQ(step(true), ids({u"quik"_s})) << "from the start with no caret";
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"quik"_s));
    EXPECT_EQ(step(true), ids({u"fox"_s}));
    EXPECT_EQ(step(true), ids({u"um"_s}));
    EXPECT_EQ(step(true), ids({u"quik"_s}));
    EXPECT_EQ(step(false), ids({u"um"_s}));
    EXPECT_EQ(step(false), ids({u"fox"_s}));
    vm.setCursor(paragraph(0).id, 3);
    EXPECT_EQ(step(false), ids({u"quik"_s}));
    vm.setCursor(paragraph(0).id, 3);
    EXPECT_EQ(step(true), ids({u"fox"_s}));
    doc[0].wordBlocks.removeFirst();
    openParagraphs(doc);
    EXPECT_EQ(vm.deleteFillerWords(), 1);
    EXPECT_EQ(vm.deleteFillerWords(), 0);
    EXPECT_EQ(text(), u"the quik brow fox"_s);
    vm.undoManager().undo();
    const QList<Paragraph> original = vm.paragraphs();
    EXPECT_EQ(text(), u"the quik brow fox | um"_s);
    const WordBlock quick = paragraph(0).wordBlocks[1], brown = paragraph(0).wordBlocks[2];

    // F2 picks the word at the caret; one word changes only its text.
    QSignalSpy asked(&vm, &EditorViewModel::wordCorrectionRequested);
    vm.setCursor(paragraph(0).id, 3);
    vm.requestWordCorrection();
    EXPECT_EQ(asked.count(), 1);
    WordBlock fax = paragraph(0).wordBlocks[3];
    fax.text = u"fax"_s;
    fax.confidence = 1.0;
    ASSERT_TRUE(vm.correctSelectedWords(u" fax "_s));
    EXPECT_EQ(paragraph(0).wordBlocks[3], fax);
    // Several words become one word over their whole stretch, selected afterwards.
    vm.selectRange(paragraph(0).id, 1, 3);
    ASSERT_TRUE(vm.correctSelectedWords(u"quick brown"_s));
    EXPECT_EQ(text(), u"the quick brown fax | um"_s);
    WordBlock merged = quick;
    merged.text = u"quick brown"_s;
    merged.mediaEnd = brown.mediaEnd;
    merged.confidence = 1.0; // the user has said what "quik" was: no longer in doubt
    EXPECT_EQ(paragraph(0).wordBlocks[1], merged);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {quick.id});
    expectPlayerHasDocument();
    EXPECT_EQ(step(true), ids({u"um"_s})) << "the only word still to check";

    vm.undoManager().undo();
    vm.undoManager().undo();
    EXPECT_EQ(vm.paragraphs(), original);

    // Words of two paragraphs, blank text and an empty selection change nothing.
    vm.selectAcross(paragraph(0).id, 3, paragraph(1).id, 1);
    EXPECT_FALSE(vm.correctSelectedWords(u"x"_s));
    vm.selectRange(paragraph(0).id, 0, 1);
    EXPECT_FALSE(vm.correctSelectedWords(u"  "_s));
    vm.clearSelection();
    EXPECT_FALSE(vm.correctSelectedWords(u"x"_s));
    EXPECT_FALSE(vm.undoManager().canUndo());
}

// One session: a sentence played round until chosen again or the player stops; a keyboard
// delete that briefly
// holds back player notifications and drops a delete arriving meanwhile; the pause limit,
// clamped and stored with the project; and a save whose confirmation shows for two
// seconds, even when the write fails.
TEST_F(Editor, PlayDeleteAndSaveInOneSession)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s, u"d"_s}, {u"e"_s}});
    const CompositionEntry sentence = vm.playerVM().compositionMap().at(4);
    for (const bool stopByPause : {false, true}) {
        vm.toggleSentencePlayback(paragraph(1));
        for (int round = 0; round < 3; ++round) {
            engine.lastPlayer->playTo(sentence.compositionEnd() + 0.01);
            EXPECT_DOUBLE_EQ(engine.lastPlayer->currentTime(), sentence.compositionStart);
            EXPECT_TRUE(vm.playerVM().isPlaying()) << round;
        }
        EXPECT_EQ(vm.playingSentenceId(), paragraph(1).id);
        stopByPause ? vm.playerVM().togglePlayPause() : vm.toggleSentencePlayback(paragraph(1));
        EXPECT_FALSE(vm.playerVM().isPlaying());
        EXPECT_FALSE(vm.playingSentenceId().has_value());
    }

    vm.setCursor(paragraph(0).id, 4);
    QObject::connect(
        &vm, &EditorViewModel::paragraphsChanged, &vm, [this] { vm.deleteAtCursor(); },
        Qt::SingleShotConnection);
    QSignalSpy forwarded(&vm, &EditorViewModel::playerStateChanged);
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b c | e"_s);
    vm.playerVM().togglePlayPause();
    EXPECT_EQ(forwarded.count(), 0);
    clock.advance(EditorViewModel::deleteForwardingPauseSeconds);
    EXPECT_EQ(forwarded.count(), 1) << "what changed meanwhile is announced once";
    vm.deleteAtCursor();
    EXPECT_EQ(text(), u"a b | e"_s) << "the guard is released after each delete";

    // A new project keeps pauses whole; above the range is whole, below it the least limit.
    EXPECT_EQ(vm.pauseLimit(), wholePauses);
    EXPECT_EQ(vm.playerVM().pauseLimit(), wholePauses);
    for (const auto &[limit, kept] : {std::pair {5.0, wholePauses},
                                      {maxPauseLimit, maxPauseLimit},
                                      {0.05, minPauseLimit},
                                      {0.0, 0.0},
                                      {wholePauses, wholePauses}}) {
        vm.setPauseLimit(limit);
        EXPECT_EQ(vm.playerVM().pauseLimit(), kept);
        EXPECT_EQ(KavelProject::load(vm.project()->bundleURL())->metadata().pauseLimit, kept);
    }

    vm.save();
    EXPECT_TRUE(vm.showSaveConfirmation());
    clock.advance(1.5);
    vm.save(); // the first save's timer still hides it
    clock.advance(0.6);
    EXPECT_FALSE(vm.showSaveConfirmation());
    // A save that cannot write confirms nothing: it says why and the edit stays unsaved.
    vm.deleteParagraph(paragraph(0).id);
    QDir(vm.project()->bundlePath()).removeRecursively();
    EXPECT_FALSE(vm.save());
    EXPECT_FALSE(vm.showSaveConfirmation());
    EXPECT_TRUE(vm.processingStatus().startsWith(u"保存失败：未能存储文件“timeline.json”"_s))
        << vm.processingStatus().toStdString();
    EXPECT_TRUE(vm.hasUnsavedChanges());
}
