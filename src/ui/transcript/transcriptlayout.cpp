#include "transcriptlayout.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kavel::ui {

WordMeasurer::WordMeasurer(const QFont &font, qreal paddingX, qreal paddingY)
    : m_metrics(font)
    , m_paddingX(paddingX)
    , m_height(std::ceil(m_metrics.height()) + 2.0 * paddingY)
{ }

namespace {

// Characters whose advances simply add up: no shaping, no combining marks, and (for
// Latin) kerning that only ever narrows a pair, so the sum never undershoots the drawn
// text by more than the token padding.
bool isAdditive(char16_t c)
{
    return (c >= 0x20 && c < 0x7f) || (c >= 0xa0 && c <= 0xff) || (c >= 0x3000 && c <= 0x30ff)
        || (c >= 0x4e00 && c <= 0x9fff) || (c >= 0xff00 && c <= 0xffef);
}

} // namespace

qreal WordMeasurer::textWidth(const QString &text)
{
    // Shaping a whole string costs microseconds; a transcript with many distinct words
    // would spend most of its layout there. Where advances add up, sum cached ones.
    qreal sum = 0.0;
    for (const QChar c : text) {
        if (!isAdditive(c.unicode()))
            return m_metrics.horizontalAdvance(text);
        auto it = m_charAdvances.constFind(c.unicode());
        if (it == m_charAdvances.cend())
            it = m_charAdvances.insert(c.unicode(), m_metrics.horizontalAdvance(c));
        sum += it.value();
    }
    return sum;
}

QSizeF WordMeasurer::measure(const QString &text)
{
    auto it = m_widths.constFind(text);
    if (it == m_widths.cend())
        it = m_widths.insert(text, std::ceil(textWidth(text)) + 2.0 * m_paddingX);
    return {it.value(), m_height};
}

TranscriptLayout::TranscriptLayout(const QFont &wordFont, const SectionMetrics &metrics)
    : m_font(wordFont)
    , m_metrics(metrics)
    , m_measurer(wordFont, metrics.wordPaddingX, metrics.wordPaddingY)
{ }

namespace {

bool sameWords(const QList<WordBlock> &a, const QList<WordBlock> &b)
{
    if (a.isSharedWith(b))
        return true;
    if (a.size() != b.size())
        return false;
    for (qsizetype i = 0; i < a.size(); ++i) {
        if (a.at(i).text != b.at(i).text)
            return false;
    }
    return true;
}

} // namespace

qreal TranscriptLayout::textWidth() const
{
    return std::max<qreal>(m_width - 2.0 * m_metrics.paddingX, 1.0);
}

void TranscriptLayout::layOutWords(ParagraphGeometry &geometry)
{
    QList<QSizeF> sizes;
    sizes.reserve(geometry.words.size());
    for (const WordBlock &word : std::as_const(geometry.words))
        sizes.append(m_measurer.measure(word.text));
    const FlowLayout &flow = m_metrics.flow;
    geometry.wordFrames = flow.place(sizes, QPointF(0.0, 0.0), textWidth());
    const qreal wordsHeight = flow.sizeThatFits(sizes, textWidth()).height();
    geometry.height = m_metrics.paddingTop + m_metrics.headerHeight + m_metrics.headerGap
        + wordsHeight + m_metrics.paddingBottom;
}

qsizetype TranscriptLayout::update(const QList<Paragraph> &paragraphs, qreal width)
{
    const bool widthChanged = width != m_width;
    m_width = width;

    QList<ParagraphGeometry> next;
    next.reserve(paragraphs.size());
    QHash<QUuid, qsizetype> nextIndex;
    nextIndex.reserve(paragraphs.size());
    qsizetype laidOut = 0;
    qreal top = 0.0;
    for (const Paragraph &paragraph : paragraphs) {
        const auto old = m_indexById.constFind(paragraph.id);
        if (!widthChanged && old != m_indexById.cend()
            && sameWords(m_paragraphs.at(old.value()).words, paragraph.wordBlocks)) {
            next.append(m_paragraphs.at(old.value()));
            next.last().words = paragraph.wordBlocks;
        } else {
            next.append(ParagraphGeometry {paragraph.id, paragraph.wordBlocks, 0.0, 0.0, {}});
            layOutWords(next.last());
            ++laidOut;
        }
        next.last().top = top;
        top += next.last().height + m_metrics.sectionSpacing;
        nextIndex.insert(paragraph.id, next.size() - 1);
    }
    m_paragraphs = std::move(next);
    m_indexById = std::move(nextIndex);
    return laidOut;
}

void TranscriptLayout::invalidate()
{
    m_paragraphs.clear();
    m_indexById.clear();
    m_measurer = WordMeasurer(m_font, m_metrics.wordPaddingX, m_metrics.wordPaddingY);
    m_width = -1.0;
}

qsizetype TranscriptLayout::indexOf(const QUuid &paragraphId) const
{
    return m_indexById.value(paragraphId, -1);
}

qreal TranscriptLayout::totalHeight() const
{
    if (m_paragraphs.isEmpty())
        return 0.0;
    const ParagraphGeometry &last = m_paragraphs.last();
    return last.top + last.height;
}

QRectF TranscriptLayout::sectionRect(qsizetype index) const
{
    const ParagraphGeometry &g = m_paragraphs.at(index);
    return {0.0, g.top, m_width, g.height};
}

QRectF TranscriptLayout::headerRect(qsizetype index) const
{
    const ParagraphGeometry &g = m_paragraphs.at(index);
    return {m_metrics.paddingX, g.top + m_metrics.paddingTop, textWidth(), m_metrics.headerHeight};
}

QPointF TranscriptLayout::textOrigin(qsizetype index) const
{
    const ParagraphGeometry &g = m_paragraphs.at(index);
    return {m_metrics.paddingX,
            g.top + m_metrics.paddingTop + m_metrics.headerHeight + m_metrics.headerGap};
}

QRectF TranscriptLayout::textRect(qsizetype index) const
{
    const QPointF origin = textOrigin(index);
    const ParagraphGeometry &g = m_paragraphs.at(index);
    return {origin, QPointF(origin.x() + textWidth(), g.top + g.height - m_metrics.paddingBottom)};
}

QRectF TranscriptLayout::wordRect(qsizetype index, qsizetype word) const
{
    return m_paragraphs.at(index).wordFrames.at(word).translated(textOrigin(index));
}

qsizetype TranscriptLayout::nearestParagraph(qreal y) const
{
    if (m_paragraphs.isEmpty())
        return -1;
    // The first section whose bottom lies below y.
    const auto it
        = std::partition_point(m_paragraphs.cbegin(), m_paragraphs.cend(),
                               [y](const ParagraphGeometry &g) { return g.top + g.height <= y; });
    if (it == m_paragraphs.cend())
        return m_paragraphs.size() - 1;
    return it - m_paragraphs.cbegin();
}

qsizetype TranscriptLayout::paragraphAt(qreal y) const
{
    const qsizetype i = nearestParagraph(y);
    if (i < 0)
        return -1;
    return sectionRect(i).contains(QPointF(0.0, y)) ? i : -1;
}

std::pair<qsizetype, qsizetype> TranscriptLayout::visibleRange(qreal top, qreal bottom) const
{
    const auto first = std::partition_point(
        m_paragraphs.cbegin(), m_paragraphs.cend(),
        [top](const ParagraphGeometry &g) { return g.top + g.height <= top; });
    const auto last
        = std::partition_point(first, m_paragraphs.cend(),
                               [bottom](const ParagraphGeometry &g) { return g.top < bottom; });
    return {first - m_paragraphs.cbegin(), last - m_paragraphs.cbegin()};
}

qsizetype TranscriptLayout::wordAt(const QList<QRectF> &frames, QPointF point)
{
    for (qsizetype i = 0; i < frames.size(); ++i) {
        if (frames.at(i).contains(point))
            return i;
    }
    return -1;
}

qsizetype TranscriptLayout::gapAt(const QList<QRectF> &frames, QPointF point)
{
    if (frames.isEmpty())
        return 0;
    // Rows share their top edge; pick the row nearest to the point in height.
    qreal bestDistance = std::numeric_limits<qreal>::infinity();
    qreal rowTop = frames.first().top();
    for (const QRectF &frame : frames) {
        const qreal distance = point.y() < frame.top() ? frame.top() - point.y()
            : point.y() > frame.bottom()               ? point.y() - frame.bottom()
                                                       : 0.0;
        if (distance < bestDistance) {
            bestDistance = distance;
            rowTop = frame.top();
        }
    }
    qsizetype lastInRow = -1;
    for (qsizetype i = 0; i < frames.size(); ++i) {
        const QRectF &frame = frames.at(i);
        if (frame.top() != rowTop)
            continue;
        if (point.x() < frame.center().x())
            return i;
        lastInRow = i;
    }
    return lastInRow + 1;
}

} // namespace kavel::ui
