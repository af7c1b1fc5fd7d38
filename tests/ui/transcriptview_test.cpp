#include "ui/transcript/magnetictextstripview.h"
#include "uifixture.h"

#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QVBoxLayout>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;

namespace {

void sendMouse(QWidget *target, QEvent::Type type, QPointF pos, Qt::MouseButtons buttons,
               Qt::KeyboardModifiers modifiers = {})
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, pos, target->mapToGlobal(pos), button, buttons, modifiers);
    QApplication::sendEvent(target, &event);
}

class TranscriptViewTest : public test::UiFixture
{
protected:
    MagneticTextStripView *view = nullptr;

    void SetUp() override
    {
        openTranscript({{u"alpha"_s, u"beta"_s, u"gamma"_s, u"delta"_s},
                        {u"epsilon"_s, u"zeta"_s},
                        {u"eta"_s, u"theta"_s, u"iota"_s}});
        auto *layout = new QVBoxLayout(&window);
        layout->setContentsMargins(0, 0, 0, 0);
        view = new MagneticTextStripView(vm, &window);
        layout->addWidget(view);
        showWindow({520, 640});
    }

    QWidget *surface() const { return view->viewport(); }
    QRectF word(qsizetype p, qsizetype w) const { return view->wordRectInViewport(p, w); }
    // A point inside a word, left or right of its middle.
    QPointF leftOf(qsizetype p, qsizetype w) const
    {
        return {word(p, w).left() + 2.0, word(p, w).center().y()};
    }
    QPointF rightOf(qsizetype p, qsizetype w) const
    {
        return {word(p, w).right() - 2.0, word(p, w).center().y()};
    }
    void click(QPointF pos, Qt::KeyboardModifiers modifiers = {})
    {
        sendMouse(surface(), QEvent::MouseButtonPress, pos, Qt::LeftButton, modifiers);
        sendMouse(surface(), QEvent::MouseButtonRelease, pos, Qt::NoButton, modifiers);
    }
    void drag(const QList<QPointF> &path)
    {
        sendMouse(surface(), QEvent::MouseButtonPress, path.first(), Qt::LeftButton);
        for (qsizetype i = 1; i < path.size(); ++i)
            sendMouse(surface(), QEvent::MouseMove, path.at(i), Qt::LeftButton);
        sendMouse(surface(), QEvent::MouseButtonRelease, path.last(), Qt::NoButton);
    }
};

} // namespace

TEST_F(TranscriptViewTest, ClicksPlaceTheCursorOrSelectTheParagraph)
{
    click(word(0, 1).center());
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_EQ(vm.cursorPosition(), 2) << "a click on a word puts the cursor after it";
    EXPECT_TRUE(vm.selectedBlockIds().isEmpty());

    // Past the last word of a line: the gap at the end of the paragraph.
    click(QPointF(word(0, 3).right() + 40.0, word(0, 3).center().y()));
    EXPECT_EQ(vm.cursorPosition(), 4);

    // The header line selects the paragraph and puts the cursor at its start.
    click(view->headerRectInViewport(2).center());
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(2).id);
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(2).id);
    EXPECT_EQ(vm.cursorPosition(), 0);

    // Shift extends from the cursor; the anchor stays where the first extension put it.
    click(word(0, 0).center()); // cursor after "alpha"
    click(rightOf(0, 2), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"beta"_s, u"gamma"_s}));
    click(leftOf(0, 0), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"alpha"_s}));
}

TEST_F(TranscriptViewTest, DraggingOverWordsSelectsThemWithinAndAcrossParagraphs)
{
    drag({leftOf(0, 1), word(0, 2).center(), rightOf(0, 2)});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"beta"_s, u"gamma"_s}));
    EXPECT_EQ(vm.cursorPosition(), 3);

    // Downwards into the third paragraph.
    drag({leftOf(0, 1), word(1, 0).center(), rightOf(2, 1)});
    EXPECT_EQ(
        vm.selectedBlockIds(),
        ids({u"beta"_s, u"gamma"_s, u"delta"_s, u"epsilon"_s, u"zeta"_s, u"eta"_s, u"theta"_s}));
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(2).id);
    EXPECT_EQ(vm.cursorPosition(), 2);

    // Upwards: from before "theta" back to after "gamma".
    drag({leftOf(2, 1), word(1, 1).center(), rightOf(0, 2)});
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"delta"_s, u"epsilon"_s, u"zeta"_s, u"eta"_s}));
    EXPECT_EQ(vm.cursorParagraphId(), paragraph(0).id);
    EXPECT_FALSE(vm.isDragging());
}

TEST_F(TranscriptViewTest, DraggingAParagraphReordersLiveAndDropClearsTheDrag)
{
    const QUuid first = paragraph(0).id, second = paragraph(1).id, third = paragraph(2).id;
    const QPointF grip = view->headerRectInViewport(0).center();

    sendMouse(surface(), QEvent::MouseButtonPress, grip, Qt::LeftButton);
    // Wobbling over itself moves nothing.
    sendMouse(surface(), QEvent::MouseMove, grip + QPointF(0, 12), Qt::LeftButton);
    EXPECT_EQ(view->draggedParagraphId(), first);
    EXPECT_EQ(paragraph(0).id, first);

    auto centreOf = [&](qsizetype i) {
        return view->transcriptLayout().sectionRect(i).center()
            - QPointF(0, view->verticalScrollBar()->value());
    };
    sendMouse(surface(), QEvent::MouseMove, centreOf(1), Qt::LeftButton);
    EXPECT_EQ(paragraph(0).id, second);
    EXPECT_EQ(paragraph(1).id, first) << "reordered while the pointer passes";

    sendMouse(surface(), QEvent::MouseMove, centreOf(2), Qt::LeftButton);
    EXPECT_EQ((QList<QUuid> {paragraph(0).id, paragraph(1).id, paragraph(2).id}),
              (QList<QUuid> {second, third, first}));

    sendMouse(surface(), QEvent::MouseButtonRelease, centreOf(2), Qt::NoButton);
    EXPECT_EQ(view->draggedParagraphId(), std::nullopt);
}

TEST_F(TranscriptViewTest, DoubleClickOrF2EditsTheWordInPlace)
{
    // Double-click opens the field over the word; Esc leaves everything as it was.
    sendMouse(surface(), QEvent::MouseButtonDblClick, leftOf(0, 1), Qt::LeftButton);
    QLineEdit *field = view->wordEditor();
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->text(), u"beta"_s);
    EXPECT_TRUE(field->geometry().intersects(word(0, 1).toAlignedRect()));
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_EQ(view->wordEditor(), nullptr);
    EXPECT_EQ(test::wordTexts(vm.paragraphs()[0])[1], u"beta"_s);

    // F2 on a selection of two words; Enter commits them as one corrected word.
    vm.selectRange(vm.paragraphs()[0].id, 2, 4);
    vm.requestWordCorrection();
    field = view->wordEditor();
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->text(), u"gamma delta"_s);
    field->setText(u"gamma-delta"_s);
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(view->wordEditor(), nullptr);
    EXPECT_EQ(test::wordTexts(vm.paragraphs()[0]),
              (QStringList {u"alpha"_s, u"beta"_s, u"gamma-delta"_s}));
}

TEST_F(TranscriptViewTest, ContextMenuTogglesSentencePlayback)
{
    for (const bool playing : {true, false}) {
        std::unique_ptr<QMenu> menu(view->createContextMenu(paragraph(1).id));
        ASSERT_FALSE(menu->actions().isEmpty());
        EXPECT_EQ(menu->actions().first()->isChecked(), !playing);
        menu->actions().first()->trigger();
        EXPECT_EQ(vm.playingSentenceId(), playing ? std::optional(paragraph(1).id) : std::nullopt);
    }
}

TEST_F(TranscriptViewTest, PaintsSearchHitsSelectionAndTheCursorBarAtTheWordFrames)
{
    vm.setCursor(paragraph(0).id, 0);
    auto bar = view->cursorBarInViewport();
    ASSERT_TRUE(bar);
    EXPECT_EQ(bar->left(), word(0, 0).left() - 1.0);
    EXPECT_EQ(bar->top(), word(0, 0).top());

    vm.setSearchQuery(u"beta"_s);
    vm.performSearch(); // selects the hit too
    vm.selectRange(paragraph(2).id, 0, 1);
    vm.setCursor(paragraph(1).id, 1);
    vm.selectRange(paragraph(1).id, 1, 2);
    bar = view->cursorBarInViewport();
    ASSERT_TRUE(bar);
    EXPECT_EQ(bar->left(), word(1, 1).right());
    EXPECT_EQ(bar->top(), word(1, 1).top());
    EXPECT_TRUE(view->blinkingCursor().isBlinking());
    const QImage image = surface()->grab().toImage();

    // Sample the token's left padding, where only its background is painted.
    auto background = [&](qsizetype p, qsizetype w) {
        const QRectF frame = word(p, w);
        return image.pixelColor(QPointF(frame.left() + 1.0, frame.center().y()).toPoint());
    };
    const QColor hit = background(0, 1);
    EXPECT_GT(hit.red(), 200);
    EXPECT_LT(hit.blue(), hit.green() - 40) << "search hits are yellow";
    const QColor selected = background(1, 1);
    EXPECT_GT(selected.blue(), selected.red() + 40) << "selected words are blue";
    EXPECT_EQ(background(0, 2), image.pixelColor(2, 2))
        << "other words lie on the plain background";
    const QColor ink = image.pixelColor(bar->center().toPoint());
    EXPECT_GT(ink.blue(), ink.red() + 100) << "the cursor bar is drawn where it stands";

    // With the words deleted from under it the cursor has no paragraph to stand in.
    vm.selectAllInParagraph();
    vm.deleteSelectedWords();
    EXPECT_FALSE(view->cursorBarInViewport());
}

// Sixty two-word paragraphs in a window that shows only a few of them.
class LongTranscriptTest : public test::UiFixture
{
protected:
    MagneticTextStripView *view = nullptr;

    void SetUp() override
    {
        QList<QStringList> words;
        for (int i = 0; i < 60; ++i)
            words.append({u"word%1a"_s.arg(i), u"word%1b"_s.arg(i)});
        openTranscript(words);
        view = new MagneticTextStripView(vm, &window);
        view->resize(400, 300);
        showWindow({400, 300});
    }
};

TEST_F(LongTranscriptTest, ScrollsToTheSearchHitAndToTheWordUnderThePlayHeadWhilePlaying)
{
    const auto inView = [this](qsizetype p, qsizetype w) {
        const QRectF frame = view->wordRectInViewport(p, w);
        return frame.top() >= 0.0 && frame.bottom() <= view->viewport()->height();
    };
    const auto compositionStart = [this](const QString &word) {
        for (const CompositionEntry &entry : vm.playerVM().compositionMap()) {
            if (entry.block.text == word)
                return entry.compositionStart;
        }
        return -1.0;
    };
    // Paused, the play head may move without dragging the text along.
    engine.lastPlayer->playTo(compositionStart(u"word40a"_s) + 0.1);
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"word40a"_s));
    EXPECT_EQ(view->verticalScrollBar()->value(), 0);

    vm.playerVM().togglePlayPause();
    clock.advance(0.2);
    engine.lastPlayer->playTo(compositionStart(u"word50b"_s) + 0.1);
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"word50b"_s));
    EXPECT_TRUE(inView(50, 1));
    vm.playerVM().togglePlayPause();

    vm.setSearchQuery(u"word5b"_s);
    vm.performSearch();
    EXPECT_TRUE(inView(5, 1));
}
