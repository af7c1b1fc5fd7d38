#pragma once

#include "flowlayout.h"
#include "model/paragraph.h"

#include <QFont>
#include <QFontMetricsF>
#include <QHash>
#include <QList>
#include <QRectF>

namespace kavel::ui {

// The fixed measures of a paragraph section: a header line (speaker, time) above the
// flowing words, padded on all sides.
struct SectionMetrics
{
    qreal paddingX = 18.0;
    qreal paddingTop = 10.0;
    qreal paddingBottom = 12.0;
    qreal headerHeight = 18.0;
    qreal headerGap = 6.0;
    qreal sectionSpacing = 4.0;
    qreal wordPaddingX = 2.0;
    qreal wordPaddingY = 1.0;
    FlowLayout flow {3.0, 6.0};
};

// Natural sizes of word tokens. Transcripts repeat their words a lot, so widths are
// remembered per text; shaping a string is the expensive part of laying out.
class WordMeasurer
{
public:
    WordMeasurer(const QFont &font, qreal paddingX, qreal paddingY);

    QSizeF measure(const QString &text);
    const QFontMetricsF &metrics() const { return m_metrics; }
    void clearCache()
    {
        m_widths.clear();
        m_charAdvances.clear();
    }

private:
    qreal textWidth(const QString &text);

    QFontMetricsF m_metrics;
    qreal m_paddingX;
    qreal m_height;
    QHash<QString, qreal> m_widths;
    QHash<char16_t, qreal> m_charAdvances;
};

// Where one paragraph sits and where its words are. Word frames are in the paragraph's
// text space (origin at the top-left of its word area), the space the cursor and the
// hit-testing work in.
struct ParagraphGeometry
{
    QUuid id;
    // The words the frames were made from; shares the document's storage, so an
    // unchanged paragraph is recognised without comparing its words.
    QList<WordBlock> words;
    qreal top = 0.0;
    qreal height = 0.0;
    QList<QRectF> wordFrames;
};

// The vertical stack of paragraph sections at one width. Updating after an edit lays
// out again only the paragraphs whose words changed; the others only move.
class TranscriptLayout
{
public:
    explicit TranscriptLayout(const QFont &wordFont, const SectionMetrics &metrics = {});

    // Returns how many paragraphs had their words laid out afresh.
    qsizetype update(const QList<Paragraph> &paragraphs, qreal width);
    // Forgets everything, measured widths included (after a font change).
    void invalidate();

    qsizetype count() const { return m_paragraphs.size(); }
    const ParagraphGeometry &paragraph(qsizetype index) const { return m_paragraphs.at(index); }
    qsizetype indexOf(const QUuid &paragraphId) const;
    qreal width() const { return m_width; }
    qreal totalHeight() const;
    const SectionMetrics &metrics() const { return m_metrics; }
    const QFont &font() const { return m_font; }
    const QFontMetricsF &fontMetrics() const { return m_measurer.metrics(); }
    WordMeasurer &measurer() { return m_measurer; }

    // Content coordinates (the whole transcript, top at 0).
    QRectF sectionRect(qsizetype index) const;
    QRectF headerRect(qsizetype index) const;
    QPointF textOrigin(qsizetype index) const;
    QRectF textRect(qsizetype index) const;
    QRectF wordRect(qsizetype index, qsizetype word) const;

    // The section at content height y, or -1 in a gap between sections or outside them.
    qsizetype paragraphAt(qreal y) const;
    // The nearest section to y (clamped to the first and the last); -1 when empty.
    qsizetype nearestParagraph(qreal y) const;
    // Sections that intersect [top, bottom): indices [first, last).
    std::pair<qsizetype, qsizetype> visibleRange(qreal top, qreal bottom) const;

    // In text space. wordAt gives -1 off the words; gapAt gives the gap nearest to the
    // point: the line nearest in height, then before the first word whose middle lies
    // right of the point.
    static qsizetype wordAt(const QList<QRectF> &frames, QPointF point);
    static qsizetype gapAt(const QList<QRectF> &frames, QPointF point);

private:
    qreal textWidth() const;
    void layOutWords(ParagraphGeometry &geometry);

    QFont m_font;
    SectionMetrics m_metrics;
    WordMeasurer m_measurer;
    qreal m_width = -1.0;
    QList<ParagraphGeometry> m_paragraphs;
    QHash<QUuid, qsizetype> m_indexById;
};

} // namespace kavel::ui
