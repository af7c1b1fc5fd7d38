#include "editor/editorundomanager.h"
#include "editor/paragraphedits.h"
#include "model/timeline.h"
#include "support/transcriptbuilder.h"

#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

// Records what the commands do to the document and what reaches the player.
class FakeEditor : public EditTarget
{
public:
    QList<Paragraph> document;
    QList<QList<WordBlock>> pushed;

    const QList<Paragraph> &paragraphs() const override { return document; }
    void setParagraphs(const QList<Paragraph> &p) override { document = p; }
    void pushToPlayer() override { pushed.append(flattenParagraphs(document)); }
    void syncPlayer() override { pushToPlayer(); }
};

class Undo : public ::testing::Test
{
protected:
    FakeEditor editor;
    EditorUndoManager manager;

    void SetUp() override
    {
        editor.document = transcript({{u"a"_s, u"b"_s}, {u"c"_s}, {u"d"_s, u"e"_s}});
    }
};

} // namespace

TEST_F(Undo, NewEditDiscardsRedoAndEmptyHistoryIsHarmless)
{
    manager.undo();
    manager.redo();
    EXPECT_FALSE(manager.canUndo());
    EXPECT_FALSE(manager.canRedo());
    EXPECT_TRUE(editor.pushed.isEmpty());

    const QList<Paragraph> before = editor.document;
    const QList<Paragraph> after = edits::moveParagraphs(before, {0}, 3);
    editor.document = after;
    manager.record(std::make_unique<ParagraphSnapshotCommand>(editor, before, after));
    EXPECT_TRUE(editor.pushed.isEmpty()) << "record does not run the command";
    manager.undo();
    EXPECT_EQ(editor.document, before);
    EXPECT_TRUE(manager.canRedo());

    manager.execute(std::make_unique<DeleteParagraphCommand>(editor, editor.document[0].id));
    EXPECT_FALSE(manager.canRedo());
    EXPECT_EQ(manager.redoCount(), 0);

}

// The history keeps only what each step changed, yet undo gives back whole states: an
// unrecorded paragraph move in between is undone with the step before it, and redo of a
// batch delete runs again on the document as it is.
TEST_F(Undo, UndoAndRedoRestoreWholeStatesAcrossUnrecordedMoves)
{
    const QList<Paragraph> start = editor.document;
    const auto idOf = [&](const QString &text) {
        for (const Paragraph &p : editor.document)
            for (const WordBlock &b : p.wordBlocks)
                if (b.text == text)
                    return b.id;
        return QUuid();
    };
    manager.execute(std::make_unique<BatchDeleteWordsCommand>(editor, QSet {idOf(u"b"_s)}));
    const QList<Paragraph> deleted = editor.document;
    editor.document = edits::moveParagraphs(deleted, {0}, 3);
    const QList<Paragraph> moved = editor.document;
    const QList<Paragraph> edited = edits::removeWords(moved, {idOf(u"c"_s), idOf(u"e"_s)});
    editor.document = edited;
    manager.record(std::make_unique<ParagraphSnapshotCommand>(editor, moved, edited));
    ASSERT_EQ(test::documentText(edited), u"d | a"_s);

    for (int round = 0; round < 2; ++round) {
        manager.undo();
        EXPECT_EQ(editor.document, moved);
        manager.undo();
        EXPECT_EQ(editor.document, start);
        manager.redo();
        EXPECT_EQ(editor.document, deleted);
        manager.redo();
        EXPECT_EQ(editor.document, edited);
    }
    EXPECT_EQ(editor.pushed.last(), flattenParagraphs(edited));
}
