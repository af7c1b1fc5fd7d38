#include "support/transcriptbuilder.h"
#include "ui/transcript/flowlayout.h"
#include "ui/transcript/transcriptlayout.h"

#include <QApplication>
#include <gtest/gtest.h>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;

namespace {

QList<QSizeF> widths(std::initializer_list<qreal> ws, qreal height = 10.0)
{
    QList<QSizeF> sizes;
    for (qreal w : ws)
        sizes.append(QSizeF(w, height));
    return sizes;
}

QList<qsizetype> rowLengths(const QList<FlowRow> &rows)
{
    QList<qsizetype> counts;
    for (const FlowRow &row : rows)
        counts.append(row.count);
    return counts;
}

} // namespace

TEST(FlowLayout, BreaksRowsWhenTheNextWordWouldPassTheWidthAndAWideWordSitsAlone)
{
    const FlowLayout flow {4.0, 2.0};
    const QList<FlowRow> rows = flow.breakRows(widths({60, 30, 20}), 100.0);
    EXPECT_EQ(rowLengths(rows), (QList<qsizetype> {2, 1}));
    EXPECT_EQ(rows.at(0).width, 94.0);
    EXPECT_EQ(rows.at(1).first, 2);

    // Exactly filling the line still fits; one point more wraps.
    EXPECT_EQ(rowLengths(flow.breakRows(widths({60, 36}), 100.0)), (QList<qsizetype> {2}));
    EXPECT_EQ(rowLengths(flow.breakRows(widths({60, 37}), 100.0)), (QList<qsizetype> {1, 1}));
    // Without a proposed width everything stays on one row.
    EXPECT_EQ(rowLengths(flow.breakRows(widths({60, 30, 20, 500}), std::nullopt)),
              (QList<qsizetype> {4}));
    // A word wider than the line sits alone on its row.
    EXPECT_EQ(rowLengths(flow.breakRows(widths({10, 150, 10}), 100.0)),
              (QList<qsizetype> {1, 1, 1}));
    EXPECT_EQ(flow.sizeThatFits(widths({150}), 100.0), QSizeF(100.0, 10.0));
    EXPECT_EQ(flow.sizeThatFits(widths({150}), std::nullopt), QSizeF(150.0, 10.0));
}

TEST(FlowLayout, RowsAreAsTallAsTheirTallestWordAndStackWithLineSpacing)
{
    const FlowLayout flow {4.0, 3.0};
    QList<QSizeF> sizes {{60, 10}, {30, 14}, {20, 8}};
    EXPECT_EQ(flow.sizeThatFits(sizes, 100.0), QSizeF(100.0, 14.0 + 3.0 + 8.0));
    // Unbounded: the widest row, words plus the gaps between them.
    EXPECT_EQ(flow.sizeThatFits(sizes, std::nullopt), QSizeF(60 + 30 + 20 + 2 * 4.0, 14.0));
    // An empty paragraph is one empty row: no height, and the proposed width.
    EXPECT_EQ(flow.sizeThatFits({}, 100.0), QSizeF(100.0, 0.0));
    EXPECT_EQ(flow.sizeThatFits({}, std::nullopt), QSizeF(0.0, 0.0));

    EXPECT_EQ(flow.place(sizes, QPointF(5.0, 7.0), 100.0),
              (QList<QRectF> {QRectF(5, 7, 60, 10), QRectF(5 + 64, 7, 30, 14),
                              QRectF(5, 7 + 14 + 3, 20, 8)}));
}

TEST(TranscriptLayout, GapUnderThePointerFollowsWordMiddlesAndNearestRow)
{
    // Two rows: words 0 and 1 on the first, word 2 on the second.
    const QList<QRectF> frames {QRectF(0, 0, 40, 20), QRectF(44, 0, 40, 20), QRectF(0, 26, 40, 20)};
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {5, 10}), 0);
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {25, 10}), 1);
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {70, 10}), 2);
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {300, 10}), 2); // past the end of the line
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {30, 40}), 3);
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {30, 500}), 3); // below: the last row
    EXPECT_EQ(TranscriptLayout::gapAt(frames, {5, -50}), 0); // above: the first row
    EXPECT_EQ(TranscriptLayout::gapAt({}, {5, 5}), 0);

    EXPECT_EQ(TranscriptLayout::wordAt(frames, {50, 5}), 1);
    EXPECT_EQ(TranscriptLayout::wordAt(frames, {42, 5}), -1); // between two words
}

TEST(TranscriptLayout, EditsLayOutOnlyTheParagraphsWhoseWordsChanged)
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

    // Sections stack without overlap and are found by height.
    for (qsizetype i = 0; i < layout.count(); ++i) {
        const QRectF section = layout.sectionRect(i);
        EXPECT_EQ(layout.paragraphAt(section.center().y()), i);
    }
    EXPECT_EQ(layout.paragraphAt(layout.totalHeight() + 10.0), -1);
    EXPECT_EQ(layout.nearestParagraph(layout.totalHeight() + 10.0), 2);
}

TEST(TranscriptLayout, MeasuredWordsAreNeverNarrowerThanTheirDrawnText)
{
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
