#include "model/fileio.h"
#include "support/editorfixture.h"

#include <QSignalSpy>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {
using Editor = EditorFixture;
}

TEST_F(Editor, OpeningAProjectReplacesTheDocumentAndClearsHistory)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}});
    EXPECT_EQ(text(), u"a b | c"_s);
    EXPECT_TRUE(vm.navigateToEditor());
    EXPECT_FALSE(vm.undoManager().canUndo());
    expectPlayerHasDocument();
    EXPECT_TRUE(vm.playerVM().tracksLoaded());

    vm.selectRange(paragraph(0).id, 0, 1);
    vm.deleteSelectedWords();
    ASSERT_TRUE(vm.undoManager().canUndo());

    // A bundle that cannot be opened leaves everything as it was and says why.
    vm.openProject(QUrl::fromLocalFile(QDir(dir.path()).filePath(u"missing.kavel"_s)));
    EXPECT_EQ(vm.processingStatus(), u"打开项目失败: 项目文件不存在"_s);
    EXPECT_EQ(text(), u"b | c"_s);
    EXPECT_TRUE(vm.undoManager().canUndo());
}

TEST_F(Editor, CursorPlacementMovesThePlayHeadToTheWordBeforeIt)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}, {}});
    vm.setCursor(paragraph(0).id, 2);
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"b"_s));
    vm.setCursor(paragraph(0).id, 0);
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"a"_s));
    vm.setCursor(paragraph(0).id, 99);
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"c"_s));

    const qsizetype seeksBefore = engine.lastPlayer->seeks.size();
    vm.setCursor(paragraph(1).id, 0);
    EXPECT_EQ(engine.lastPlayer->seeks.size(), seeksBefore)
        << "an empty paragraph has nothing to seek to";
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(1).id);

    vm.placeCursorAfterWord(id(u"b"_s));
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 2);

    vm.selectParagraph(paragraph(0));
    EXPECT_EQ(vm.cursorPosition(), 0);
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(0).id);
}

TEST_F(Editor, SelectRangeClampsToTheParagraph)
{
    openTranscript({{u"a"_s, u"b"_s, u"c"_s}});
    const QUuid p = paragraph(0).id;
    vm.selectRange(p, 5, 2);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"c"_s)});
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"c"_s));

    vm.selectRange(p, 4, 5);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"c"_s)})
        << "out of range keeps the old selection";
    EXPECT_EQ(vm.selectionAnchor(), 4);
    EXPECT_EQ(vm.cursorPosition(), 5);

    vm.clearSelection();
    EXPECT_TRUE(vm.selectedBlockIds().isEmpty());
    EXPECT_EQ(vm.cursorParagraphId(), p) << "clearing the selection keeps the cursor";
}

TEST_F(Editor, SentencePlaybackTogglesAndEndsWhenThePlayerStops)
{
    openTranscript({{u"a"_s, u"b"_s}, {u"c"_s}});
    vm.toggleSentencePlayback(paragraph(0));
    EXPECT_EQ(vm.playingSentenceId(), paragraph(0).id);
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(0).id);
    EXPECT_TRUE(vm.playerVM().isPlaying());

    vm.toggleSentencePlayback(paragraph(0));
    EXPECT_FALSE(vm.playingSentenceId().has_value());
    EXPECT_FALSE(vm.playerVM().isPlaying());

    vm.toggleSentencePlayback(paragraph(1));
    EXPECT_EQ(vm.playingSentenceId(), paragraph(1).id);
    vm.playerVM().pause();
    EXPECT_FALSE(vm.playingSentenceId().has_value());
}

TEST_F(Editor, SaveWritesTheTimelineAndShowsTheConfirmationForTwoSeconds)
{
    openTranscript({{u"a"_s, u"b"_s}});
    vm.selectRange(paragraph(0).id, 0, 1);
    vm.deleteSelectedWords();
    vm.save();
    EXPECT_TRUE(vm.showSaveConfirmation());
    ASSERT_TRUE(vm.lastSavedAt().has_value());
    const QString timeline = QDir(vm.project()->bundlePath()).filePath(u"timeline.json"_s);
    EXPECT_EQ(documentText(decodeTimelineDocument(fileio::readFile(timeline)).paragraphs), u"b"_s);

    clock.advance(1.5);
    vm.save(); // a second save within the two seconds: the first timer still hides it
    clock.advance(0.6);
    EXPECT_FALSE(vm.showSaveConfirmation());
    clock.advance(2.0);
    EXPECT_FALSE(vm.showSaveConfirmation());

    // A write that fails is silent, and the confirmation still shows.
    QDir(vm.project()->bundlePath()).removeRecursively();
    vm.save();
    EXPECT_TRUE(vm.showSaveConfirmation());
}

TEST_F(Editor, SearchSelectsHitsAndStepsWithWrapAround)
{
    openTranscript({{u"Hello"_s, u"world"_s}, {u"hello"_s, u"again"_s, u"HEL"_s, u"lo"_s}});
    vm.setSearchQuery(u"hello"_s);
    vm.performSearch();
    ASSERT_EQ(vm.searchResults().size(), 3);
    EXPECT_EQ(vm.currentSearchIndex(), 0);
    EXPECT_EQ(vm.selectedBlockIds(), QSet<QUuid> {id(u"Hello"_s)});
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"Hello"_s));
    EXPECT_TRUE(vm.isSearchMatch(id(u"lo"_s)));
    EXPECT_FALSE(vm.isSearchMatch(id(u"world"_s)));

    vm.previousSearchResult();
    EXPECT_EQ(vm.currentSearchIndex(), 2);
    EXPECT_EQ(vm.selectedBlockIds(), (QSet<QUuid> {id(u"HEL"_s), id(u"lo"_s)}));
    vm.nextSearchResult();
    EXPECT_EQ(vm.currentSearchIndex(), 0);

    // Results are not refreshed by edits: a hit whose words are gone selects nothing real.
    vm.goToSearchResult(1);
    vm.deleteSelectedWords();
    vm.goToSearchResult(1);
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(1).id);

    vm.setSearchQuery(u"  "_s);
    vm.performSearch();
    EXPECT_FALSE(vm.isSearchMatch(id(u"lo"_s)));
    vm.nextSearchResult();
}
