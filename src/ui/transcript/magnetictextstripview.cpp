#include "magnetictextstripview.h"

#include "editor/editorviewmodel.h"
#include "editor/paragraphedits.h"

#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

namespace {

QFont wordFont(const QFont &base)
{
    QFont font(base);
    font.setPixelSize(15);
    return font;
}

QFont headerFont(const QFont &base)
{
    QFont font(base);
    font.setPixelSize(11);
    return font;
}

} // namespace

MagneticTextStripView::MagneticTextStripView(EditorViewModel &editor, QWidget *parent)
    : QAbstractScrollArea(parent)
    , m_editor(editor)
    , m_layout(wordFont(font()))
    , m_headerFont(headerFont(font()))
    , m_colors(TranscriptColors::fromPalette(palette()))
{
    setFocusPolicy(Qt::StrongFocus);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    verticalScrollBar()->setSingleStep(24);

    m_moveAnimation.setStartValue(0.0);
    m_moveAnimation.setEndValue(1.0);
    m_moveAnimation.setDuration(moveAnimationMilliseconds);
    m_moveAnimation.setEasingCurve(QEasingCurve::InOutQuad);
    connect(&m_moveAnimation, &QVariantAnimation::valueChanged, viewport(),
            qOverload<>(&QWidget::update));
    connect(&m_moveAnimation, &QVariantAnimation::finished, this, [this] {
        m_topsBeforeMove.clear();
        viewport()->update();
    });

    connect(&m_editor, &EditorViewModel::paragraphsChanged, this, &MagneticTextStripView::relayout);
    connect(&m_editor.playerVM(), &VideoPlayerViewModel::compositionMapChanged, this,
            &MagneticTextStripView::refreshParagraphStarts);
    for (auto signal :
         {&EditorViewModel::selectedBlockIdsChanged, &EditorViewModel::selectedParagraphIdChanged,
          &EditorViewModel::playingSentenceIdChanged})
        connect(&m_editor, signal, viewport(), qOverload<>(&QWidget::update));
    connect(&m_editor, &EditorViewModel::cursorParagraphIdChanged, this,
            &MagneticTextStripView::onCursorMoved);
    connect(&m_editor, &EditorViewModel::cursorPositionChanged, this,
            &MagneticTextStripView::onCursorMoved);
    connect(&m_editor, &EditorViewModel::searchResultsChanged, this,
            &MagneticTextStripView::refreshSearchHits);
    connect(&m_editor, &EditorViewModel::searchQueryChanged, this,
            &MagneticTextStripView::refreshSearchHits);
    connect(&m_editor, &EditorViewModel::currentSearchIndexChanged, this,
            &MagneticTextStripView::showCurrentSearchHit);
    connect(&m_editor, &EditorViewModel::playerStateChanged, this,
            &MagneticTextStripView::onPlayerChanged);
    connect(&m_cursor, &BlinkingCursor::opacityChanged, this,
            &MagneticTextStripView::updateCursorBar);
    connect(&m_editor, &EditorViewModel::wordCorrectionRequested, this,
            &MagneticTextStripView::beginWordCorrection);
    // Another project opens at its top.
    connect(&m_editor, &EditorViewModel::projectChanged, this, [this] {
        m_shiftAnchor.reset();
        verticalScrollBar()->setValue(0);
    });

    relayout();
    refreshSearchHits();
    onCursorMoved();
}

MagneticTextStripView::~MagneticTextStripView() = default;

QSize MagneticTextStripView::sizeHint() const
{
    return {520, 600};
}

qreal MagneticTextStripView::scrollY() const
{
    return verticalScrollBar()->value();
}

QPointF MagneticTextStripView::toContent(QPointF viewportPoint) const
{
    return viewportPoint + QPointF(0.0, scrollY());
}

QRectF MagneticTextStripView::wordRectInViewport(qsizetype paragraph, qsizetype word) const
{
    return m_layout.wordRect(paragraph, word).translated(0.0, -scrollY());
}

QRectF MagneticTextStripView::headerRectInViewport(qsizetype paragraph) const
{
    return m_layout.headerRect(paragraph).translated(0.0, -scrollY());
}

std::optional<QRectF> MagneticTextStripView::cursorBarInViewport() const
{
    const auto id = m_editor.cursorParagraphId();
    if (!id)
        return std::nullopt;
    const qsizetype index = m_layout.indexOf(*id);
    if (index < 0)
        return std::nullopt;
    const QRectF bar
        = BlinkingCursor::barRect(m_editor.cursorPosition(), m_layout.paragraph(index).wordFrames);
    return bar.translated(m_layout.textOrigin(index)).translated(0.0, -scrollY());
}

void MagneticTextStripView::ensureContentVisible(const QRectF &content)
{
    const qreal margin = 24.0;
    const qreal top = scrollY();
    const qreal height = viewport()->height();
    QScrollBar *bar = verticalScrollBar();
    if (content.top() - margin < top)
        bar->setValue(static_cast<int>(std::floor(content.top() - margin)));
    else if (content.bottom() + margin > top + height)
        bar->setValue(static_cast<int>(std::ceil(content.bottom() + margin - height)));
}

// --- layout ------------------------------------------------------------------------

void MagneticTextStripView::refreshParagraphStarts()
{
    m_paragraphStarts.clear();
    for (const ParagraphSpan &span :
         paragraphSpans(m_editor.paragraphs(), m_editor.playerVM().compositionMap()))
        m_paragraphStarts.append(span.start);
    viewport()->update();
}

void MagneticTextStripView::relayout()
{
    m_lastRelayoutCount = m_layout.update(m_editor.paragraphs(), viewport()->width());
    m_activeParagraph = -1;
    if (!m_activeWordId.isNull()) {
        for (qsizetype i = 0; i < m_layout.count() && m_activeParagraph < 0; ++i) {
            for (const WordBlock &word : m_layout.paragraph(i).words) {
                if (word.id == m_activeWordId) {
                    m_activeParagraph = i;
                    break;
                }
            }
        }
    }
    updateScrollRange();
    refreshParagraphStarts();
}

void MagneticTextStripView::updateScrollRange()
{
    QScrollBar *bar = verticalScrollBar();
    const int total = static_cast<int>(std::ceil(m_layout.totalHeight()));
    bar->setPageStep(viewport()->height());
    bar->setRange(0, std::max(0, total - viewport()->height()));
}

void MagneticTextStripView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    if (viewport()->width() != m_layout.width())
        relayout();
    else
        updateScrollRange();
}

void MagneticTextStripView::changeEvent(QEvent *event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        m_layout = TranscriptLayout(wordFont(font()), m_layout.metrics());
        m_headerFont = headerFont(font());
        relayout();
    } else if (event->type() == QEvent::PaletteChange) {
        m_colors = TranscriptColors::fromPalette(palette());
        viewport()->update();
    }
}

void MagneticTextStripView::scrollContentsBy(int, int)
{
    viewport()->update();
}

// --- editor state ------------------------------------------------------------------

void MagneticTextStripView::refreshSearchHits()
{
    // Exactly the words isSearchMatch() accepts, gathered once instead of asking for
    // every painted word.
    m_searchHits.clear();
    if (!m_editor.searchQuery().isEmpty()) {
        for (const SearchHit &hit : m_editor.searchResults()) {
            for (const QUuid &id : hit.blockIds)
                m_searchHits.insert(id);
        }
    }
    viewport()->update();
    showCurrentSearchHit();
}

void MagneticTextStripView::showCurrentSearchHit()
{
    const QList<SearchHit> &results = m_editor.searchResults();
    const qsizetype current = m_editor.currentSearchIndex();
    if (current < 0 || current >= results.size() || results.at(current).blockIds.isEmpty())
        return;
    const SearchHit &hit = results.at(current);
    const qsizetype index = m_layout.indexOf(hit.paragraphId);
    if (index < 0)
        return;
    const QList<WordBlock> &words = m_layout.paragraph(index).words;
    for (qsizetype w = 0; w < words.size(); ++w) {
        if (words.at(w).id == hit.blockIds.first()) {
            ensureContentVisible(m_layout.wordRect(index, w));
            return;
        }
    }
}

void MagneticTextStripView::onPlayerChanged()
{
    VideoPlayerViewModel &player = m_editor.playerVM();
    const QUuid active = player.activeWordBlockId();
    if (active == m_activeWordId)
        return;
    m_activeWordId = active;
    m_activeParagraph = -1;
    qsizetype activeWord = -1;
    for (qsizetype i = 0; i < m_layout.count() && m_activeParagraph < 0; ++i) {
        const QList<WordBlock> &words = m_layout.paragraph(i).words;
        for (qsizetype w = 0; w < words.size(); ++w) {
            if (words.at(w).id == active) {
                m_activeParagraph = i;
                activeWord = w;
                break;
            }
        }
    }
    // Follow playback, but never pull the text away from under a mouse gesture.
    const bool gesture = m_selecting || m_draggedParagraphId.has_value();
    if (player.isPlaying() && !gesture && m_activeParagraph >= 0)
        ensureContentVisible(m_layout.wordRect(m_activeParagraph, activeWord));
    viewport()->update();
}

void MagneticTextStripView::onCursorMoved()
{
    if (const auto bar = cursorBarInViewport()) {
        // The fade repaints many times a second: only while anyone can see it.
        if (isVisible())
            m_cursor.start();
        if (!m_selecting)
            ensureContentVisible(bar->translated(0.0, scrollY()));
    } else {
        m_cursor.stop();
    }
    viewport()->update();
}

void MagneticTextStripView::updateCursorBar()
{
    const auto bar = cursorBarInViewport();
    if (!m_lastCursorBar.isNull())
        viewport()->update(m_lastCursorBar.toAlignedRect().adjusted(-1, -1, 1, 1));
    if (bar) {
        m_lastCursorBar = *bar;
        viewport()->update(bar->toAlignedRect().adjusted(-1, -1, 1, 1));
    } else {
        m_lastCursorBar = {};
    }
}

void MagneticTextStripView::focusInEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusInEvent(event);
    if (cursorBarInViewport())
        m_cursor.start();
}

void MagneticTextStripView::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    if (cursorBarInViewport())
        m_cursor.start();
}

void MagneticTextStripView::hideEvent(QHideEvent *event)
{
    m_cursor.stop();
    QAbstractScrollArea::hideEvent(event);
}

// --- painting ----------------------------------------------------------------------

qreal MagneticTextStripView::animatedOffset(qsizetype index) const
{
    if (m_topsBeforeMove.isEmpty())
        return 0.0;
    const ParagraphGeometry &g = m_layout.paragraph(index);
    const auto old = m_topsBeforeMove.constFind(g.id);
    if (old == m_topsBeforeMove.cend())
        return 0.0;
    const qreal progress = m_moveAnimation.currentValue().toReal();
    return (old.value() - g.top) * (1.0 - progress);
}

void MagneticTextStripView::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    const QRectF exposed = event->rect();
    painter.fillRect(exposed, m_colors.background);
    painter.setRenderHint(QPainter::Antialiasing);

    const qreal offsetY = scrollY();
    const QRectF content = exposed.translated(0.0, offsetY);
    painter.translate(0.0, -offsetY);

    auto [first, last] = m_layout.visibleRange(content.top(), content.bottom());
    if (!m_topsBeforeMove.isEmpty()) {
        // Sliding sections may come from just outside the exposed band.
        first = std::max<qsizetype>(0, first - 3);
        last = std::min(m_layout.count(), last + 3);
    }

    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    const QSet<QUuid> &selected = m_editor.selectedBlockIds();
    const auto selectedParagraph = m_editor.selectedParagraphId();
    const auto playingSentence = m_editor.playingSentenceId();
    const SectionMetrics &metrics = m_layout.metrics();
    const qreal ascent = m_layout.fontMetrics().ascent();

    for (qsizetype i = first; i < last && i < paragraphs.size(); ++i) {
        const ParagraphGeometry &g = m_layout.paragraph(i);
        const qreal shift = animatedOffset(i);
        const QRectF section = m_layout.sectionRect(i).translated(0.0, shift);
        if (!section.intersects(content))
            continue;
        const Paragraph &paragraph = paragraphs.at(i);

        SectionState sectionState;
        sectionState.isSelected = selectedParagraph == paragraph.id;
        sectionState.isActive = i == m_activeParagraph;
        sectionState.isHovering = m_hoverParagraphId == paragraph.id;
        sectionState.isDragged = m_draggedParagraphId == paragraph.id;
        sectionState.isPlayingSentence = playingSentence == paragraph.id;
        sectionState.startTime = m_paragraphStarts.value(i);
        paintSectionFrame(painter, section, m_layout.headerRect(i).translated(0.0, shift),
                          paragraph, sectionState, m_colors, m_headerFont);

        painter.setFont(m_layout.font());
        const QPointF origin = m_layout.textOrigin(i) + QPointF(0.0, shift);
        for (qsizetype w = 0; w < g.wordFrames.size(); ++w) {
            const QRectF frame = g.wordFrames.at(w).translated(origin);
            if (frame.bottom() < content.top())
                continue;
            if (frame.top() > content.bottom())
                break;
            if (!frame.intersects(content))
                continue;
            const WordBlock &word = g.words.at(w);
            WordState state;
            state.isSelected = selected.contains(word.id);
            state.isActive = word.id == m_activeWordId;
            state.isHovering = word.id == m_hoverWordId;
            state.isFiller = word.isFiller;
            state.needsCheck = word.needsCheck();
            state.isSearchHit = m_searchHits.contains(word.id);
            paintWordToken(painter, frame,
                           QPointF(frame.left() + metrics.wordPaddingX,
                                   frame.top() + metrics.wordPaddingY + ascent),
                           word.text, state, m_colors);
        }
    }

    if (const auto bar = cursorBarInViewport(); bar && m_cursor.opacity() > 0.0) {
        painter.setOpacity(m_cursor.opacity());
        painter.fillRect(bar->translated(0.0, offsetY), m_colors.cursor);
        painter.setOpacity(1.0);
    }
}

// --- hit-testing -------------------------------------------------------------------

} // namespace kavel::ui
