#include "ui/transcript/flowlayout.h"
#include "ui/transcript/magnetictextstripview.h"
#include "ui/transcript/transcriptlayout.h"
#include "uifixture.h"

#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;
using kavel::test::sendMouse;

namespace {

// Three short paragraphs on top, then enough two-word ones ("word3a word3b" and on, each
// in the paragraph of its number) that the view has to scroll.
class TranscriptViewTest : public test::UiFixture
{
protected:
    MagneticTextStripView *view = nullptr;

    void SetUp() override
    {
        QList<QStringList> words {{u"alpha"_s, u"beta"_s, u"gamma"_s, u"delta"_s},
                                  {u"epsilon"_s, u"zeta"_s},
                                  {u"eta"_s, u"theta"_s, u"iota"_s}};
        for (int i = 3; i < 60; ++i)
            words.append({u"word%1a"_s.arg(i), u"word%1b"_s.arg(i)});
        openTranscript(words);
        view = showAlone(new MagneticTextStripView(vm, &window), {520, 640});
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
    // A press at the path's start, moves along it and a release at its end.
    void drag(const QList<QPointF> &path, Qt::KeyboardModifiers modifiers = {})
    {
        sendMouse(surface(), QEvent::MouseButtonPress, path.first(), Qt::LeftButton, modifiers);
        for (qsizetype i = 1; i < path.size(); ++i)
            sendMouse(surface(), QEvent::MouseMove, path.at(i), Qt::LeftButton, modifiers);
        sendMouse(surface(), QEvent::MouseButtonRelease, path.last(), Qt::NoButton, modifiers);
    }
    void click(QPointF pos, Qt::KeyboardModifiers modifiers = {}) { drag({pos}, modifiers); }
};

} // namespace

TEST_F(TranscriptViewTest, ClicksAndDragsPlaceTheCursorSelectWordsAndMoveParagraphs)
{
    click(word(0, 1).center());
    expectCursor(0, 1, {}); // before the word clicked, which is the current one
    EXPECT_EQ(vm.playerVM().activeWordBlockId(), id(u"beta"_s));
    // Past the last word of a line: the gap at the end of the paragraph.
    click(QPointF(word(0, 3).right() + 40.0, word(0, 3).center().y()));
    expectCursor(0, 4, {});
    // The header line selects the paragraph and puts the cursor at its start.
    click(view->headerRectInViewport(2).center());
    EXPECT_EQ(vm.selectedParagraphId(), paragraph(2).id);
    expectCursor(2, 0, {});

    // Shift+click selects from the word clicked before to the one clicked now, both
    // included, either way and into other paragraphs; the first word stays the anchor.
    click(word(0, 1).center());
    click(leftOf(0, 3), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"beta"_s, u"gamma"_s, u"delta"_s}));
    click(rightOf(0, 0), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"alpha"_s, u"beta"_s}));
    click(word(1, 0).center(), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"beta"_s, u"gamma"_s, u"delta"_s, u"epsilon"_s}));
    click(word(1, 1).center());
    click(word(0, 3).center(), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"delta"_s, u"epsilon"_s, u"zeta"_s}));
    vm.deleteAtCursor();
    EXPECT_EQ(text().section(u" | "_s, 0, 1), u"alpha beta gamma | eta theta iota"_s);
    vm.undoManager().undo();
    // Moved by the keyboard, the caret's word is the anchor.
    vm.setCursor(paragraph(0).id, 2);
    click(rightOf(0, 0), Qt::ShiftModifier);
    EXPECT_EQ(vm.selectedBlockIds(), ids({u"alpha"_s, u"beta"_s, u"gamma"_s}));

    // Dragging selects within a paragraph, and across them downwards or upwards.
    drag({leftOf(0, 1), word(0, 2).center(), rightOf(0, 2)});
    expectCursor(0, 3, {u"beta"_s, u"gamma"_s});
    drag({leftOf(0, 1), word(1, 0).center(), rightOf(2, 1)});
    expectCursor(
        2, 2, {u"beta"_s, u"gamma"_s, u"delta"_s, u"epsilon"_s, u"zeta"_s, u"eta"_s, u"theta"_s});
    drag({leftOf(2, 1), word(1, 1).center(), rightOf(0, 2)});
    expectCursor(0, 3, {u"delta"_s, u"epsilon"_s, u"zeta"_s, u"eta"_s});
    EXPECT_FALSE(vm.isDragging());

    // Dragging a paragraph by its header reorders live; the drop ends the drag.
    const QUuid first = paragraph(0).id;
    const QPointF grip = view->headerRectInViewport(0).center();
    const auto centreOf = [&](qsizetype i) {
        return view->transcriptLayout().sectionRect(i).center()
            - QPointF(0, view->verticalScrollBar()->value());
    };
    const auto topThree = [&] { return text().section(u" | "_s, 0, 2); };

    sendMouse(surface(), QEvent::MouseButtonPress, grip, Qt::LeftButton);
    // Wobbling over itself moves nothing.
    sendMouse(surface(), QEvent::MouseMove, grip + QPointF(0, 12), Qt::LeftButton);
    EXPECT_EQ(view->draggedParagraphId(), first);
    EXPECT_EQ(topThree(), u"alpha beta gamma delta | epsilon zeta | eta theta iota"_s);
    // Reordered while the pointer passes.
    sendMouse(surface(), QEvent::MouseMove, centreOf(1), Qt::LeftButton);
    EXPECT_EQ(topThree(), u"epsilon zeta | alpha beta gamma delta | eta theta iota"_s);
    sendMouse(surface(), QEvent::MouseMove, centreOf(2), Qt::LeftButton);
    EXPECT_EQ(topThree(), u"epsilon zeta | eta theta iota | alpha beta gamma delta"_s);
    sendMouse(surface(), QEvent::MouseButtonRelease, centreOf(2), Qt::NoButton);
    EXPECT_EQ(view->draggedParagraphId(), std::nullopt);
    // One undo puts it back, one redo moves it again.
    const qsizetype steps = vm.undoManager().undoCount();
    vm.undoManager().undo();
    EXPECT_EQ(topThree(), u"alpha beta gamma delta | epsilon zeta | eta theta iota"_s);
    EXPECT_EQ(vm.undoManager().undoCount(), steps - 1);
    vm.undoManager().redo();
    EXPECT_EQ(topThree(), u"epsilon zeta | eta theta iota | alpha beta gamma delta"_s);
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
    EXPECT_EQ(test::wordTexts(paragraph(0))[1], u"beta"_s);

    // F2 on a selection of two words; Enter commits them as one corrected word.
    vm.selectRange(paragraph(0).id, 2, 4);
    vm.requestWordCorrection();
    field = view->wordEditor();
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->text(), u"gamma delta"_s);
    field->setText(u"gamma-delta"_s);
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(view->wordEditor(), nullptr);
    EXPECT_EQ(test::wordTexts(paragraph(0)),
              (QStringList {u"alpha"_s, u"beta"_s, u"gamma-delta"_s}));

    // The context menu plays the sentence, or stops it when it is playing.
    for (const bool playing : {true, false}) {
        std::unique_ptr<QMenu> menu(view->createContextMenu(paragraph(1).id));
        ASSERT_FALSE(menu->actions().isEmpty());
        EXPECT_EQ(menu->actions().first()->isChecked(), !playing);
        menu->actions().first()->trigger();
        EXPECT_EQ(vm.playingSentenceId(), playing ? std::optional(paragraph(1).id) : std::nullopt);
    }
}

TEST_F(TranscriptViewTest, PaintsSearchHitsSelectionDoubtAndTheCursorBarAtTheWordFrames)
{
    // "delta" was doubted by the recogniser, "gamma" only just not.
    QList<Paragraph> doubted = vm.paragraphs();
    doubted[0].wordBlocks[2].confidence = 0.6;
    doubted[0].wordBlocks[3].confidence = 0.2;
    openParagraphs(doubted);
    vm.setCursor(paragraph(0).id, 0);
    auto bar = view->cursorBarInViewport();
    ASSERT_TRUE(bar);
    EXPECT_EQ(bar->topLeft(), QPointF(word(0, 0).left() - 1.0, word(0, 0).top()));

    vm.setSearchQuery(u"beta"_s);
    vm.performSearch(); // selects the hit too
    vm.selectRange(paragraph(2).id, 0, 1);
    vm.setCursor(paragraph(1).id, 1);
    vm.selectRange(paragraph(1).id, 1, 2);
    bar = view->cursorBarInViewport();
    ASSERT_TRUE(bar);
    EXPECT_EQ(bar->topLeft(), QPointF(word(1, 1).right(), word(1, 1).top()));
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
    // Red dots under the doubted word, with gaps between them; nothing red under the other.
    const auto underline = [&](qsizetype p, qsizetype w) {
        const QRect frame = word(p, w).toAlignedRect();
        int red = 0, plain = 0;
        for (int x = frame.left() + 3; x < frame.right() - 3; ++x) {
            bool anyRed = false;
            for (int y = frame.bottom() - 3; y <= frame.bottom(); ++y) {
                const QColor c = image.pixelColor(x, y);
                anyRed = anyRed || (c.red() > 120 && c.green() < c.red() - 80);
            }
            (anyRed ? red : plain) += 1;
        }
        return std::pair {red, plain};
    };
    const auto [dots, gaps] = underline(0, 3);
    EXPECT_GT(dots, 4);
    EXPECT_GT(gaps, 4) << "dotted, not a solid line";
    EXPECT_EQ(underline(0, 2).first, 0);
    const QColor ink = image.pixelColor(bar->center().toPoint());
    EXPECT_GT(ink.blue(), ink.red() + 100) << "the cursor bar is drawn where it stands";

    // With the words deleted from under it the cursor has no paragraph to stand in.
    vm.selectAllInParagraph();
    vm.deleteSelectedWords();
    EXPECT_FALSE(view->cursorBarInViewport());
}

TEST_F(TranscriptViewTest, ScrollsToTheSearchHitAndToTheWordUnderThePlayHeadWhilePlaying)
{
    const auto inView = [this](qsizetype p, qsizetype w) {
        return word(p, w).top() >= 0.0 && word(p, w).bottom() <= surface()->height();
    };
    const auto compositionStart = [this](const QString &text) {
        const QList<CompositionEntry> &map = vm.playerVM().compositionMap();
        return std::ranges::find(map, text, [](auto &entry) { return entry.block.text; })
            ->compositionStart;
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

    // Another project opens at its top, even one as long.
    engine.lastPlayer->playTo(compositionStart(u"word50b"_s) + 0.1);
    vm.playerVM().togglePlayPause();
    clock.advance(0.2);
    engine.lastPlayer->playTo(compositionStart(u"word55b"_s) + 0.1);
    ASSERT_GT(view->verticalScrollBar()->value(), 0);
    openParagraphs(vm.paragraphs());
    EXPECT_EQ(view->verticalScrollBar()->value(), 0);
}

TEST(FlowLayout, WrapsBeforeTheWordThatWouldPassTheWidthAndStacksRowsWithLineSpacing)
{
    const FlowLayout flow {4.0, 3.0};
    const auto tenHigh = [](const QList<qreal> &ws) {
        QList<QSizeF> sizes;
        for (qreal w : ws)
            sizes.append(QSizeF(w, 10.0));
        return sizes;
    };
    // Exactly filling the line still fits; one point more wraps; a word wider than the
    // line sits alone on its row; without a proposed width everything stays on one row.
    const std::tuple<QList<qreal>, std::optional<qreal>, QList<qsizetype>> rowLengths[] = {
        {{60, 30, 20}, 100.0, {2, 1}},     {{60, 36}, 100.0, {2}},       {{60, 37}, 100.0, {1, 1}},
        {{10, 150, 10}, 100.0, {1, 1, 1}}, {{60, 30, 20, 500}, {}, {4}},
    };
    for (const auto &[ws, width, lengths] : rowLengths) {
        QList<qsizetype> counts;
        for (const FlowRow &row : flow.breakRows(tenHigh(ws), width))
            counts.append(row.count);
        EXPECT_EQ(counts, lengths) << ws.size();
    }

    // Rows are as tall as their tallest word; unbounded, the widest row with its gaps. An
    // empty paragraph is one empty row: no height, and the proposed width.
    const QList<QSizeF> sizes {{60, 10}, {30, 14}, {20, 8}};
    EXPECT_EQ(flow.sizeThatFits(sizes, 100.0), QSizeF(100.0, 14.0 + 3.0 + 8.0));
    EXPECT_EQ(flow.sizeThatFits(sizes, std::nullopt), QSizeF(60 + 30 + 20 + 2 * 4.0, 14.0));
    EXPECT_EQ(flow.sizeThatFits(tenHigh({150}), 100.0), QSizeF(100.0, 10.0));
    EXPECT_EQ(flow.sizeThatFits(tenHigh({150}), std::nullopt), QSizeF(150.0, 10.0));
    EXPECT_EQ(flow.sizeThatFits({}, 100.0), QSizeF(100.0, 0.0));
    EXPECT_EQ(flow.sizeThatFits({}, std::nullopt), QSizeF(0.0, 0.0));
    EXPECT_EQ(flow.place(sizes, QPointF(5.0, 7.0), 100.0),
              (QList<QRectF> {QRectF(5, 7, 60, 10), QRectF(5 + 64, 7, 30, 14),
                              QRectF(5, 7 + 14 + 3, 20, 8)}));
}

TEST(TranscriptLayout, EditsLayOutOnlyChangedParagraphsOfWordsAsWideAsTheirText)
{
    TranscriptLayout layout(QApplication::font());
    QList<Paragraph> doc
        = test::transcript({{u"one"_s, u"two"_s, u"three"_s}, {u"four"_s, u"five"_s}, {u"six"_s}});
    EXPECT_EQ(layout.update(doc, 400.0), 3);
    const qreal firstHeight = layout.paragraph(0).height;

    // Deleting a word from the middle paragraph: one paragraph re-laid out, the one
    // below it only moves.
    doc[1].wordBlocks.removeAt(0);
    EXPECT_EQ(layout.update(doc, 400.0), 1);
    EXPECT_EQ(layout.paragraph(1).wordFrames.size(), 1);
    EXPECT_EQ(layout.paragraph(2).top,
              layout.paragraph(1).top + layout.paragraph(1).height
                  + layout.metrics().sectionSpacing);

    // Reordering paragraphs lays out nothing; a new width lays out everything.
    doc.swapItemsAt(0, 2);
    EXPECT_EQ(layout.update(doc, 400.0), 0);
    EXPECT_EQ(layout.indexOf(doc.at(2).id), 2);
    EXPECT_EQ(layout.paragraph(2).height, firstHeight);
    EXPECT_EQ(layout.update(doc, 300.0), 3);
    // Below the last section: no paragraph, but the last is the nearest.
    EXPECT_EQ(layout.paragraphAt(layout.totalHeight() + 10.0), -1);
    EXPECT_EQ(layout.nearestParagraph(layout.totalHeight() + 10.0), 2);

    // Measured words are never narrower than their drawn text.
    QFont font = QApplication::font();
    font.setPixelSize(15);
    WordMeasurer measurer(font, 2.0, 1.0);
    const QFontMetricsF metrics(font);
    for (const QString &word : {u"AVATAR"_s, u"office"_s, u"Tyrannosaurus"_s, u"WAVE,"_s,
                                u"剪辑视频"_s, u"。"_s, u"naïve"_s, u"مرحبا"_s, u"e\u0301"_s}) {
        const qreal textWidth = measurer.measure(word).width() - 4.0;
        EXPECT_GE(textWidth + 0.5, metrics.horizontalAdvance(word)) << word.toStdString();
        EXPECT_LE(textWidth, metrics.horizontalAdvance(word) * 1.15 + 2.0) << word.toStdString();
    }
    EXPECT_EQ(measurer.measure(u"abc"_s).height(), std::ceil(metrics.height()) + 2.0);
}
