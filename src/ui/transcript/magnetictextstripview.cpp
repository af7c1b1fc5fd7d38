#include "magnetictextstripview.h"

#include "editor/editorviewmodel.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QMenu>
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

qsizetype paragraphIndex(const QList<Paragraph> &paragraphs, const QUuid &id)
{
    for (qsizetype i = 0; i < paragraphs.size(); ++i) {
        if (paragraphs.at(i).id == id)
            return i;
    }
    return -1;
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
    viewport()->update();
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

MagneticTextStripView::Hit MagneticTextStripView::hitTest(QPointF viewportPoint) const
{
    Hit hit;
    const QPointF point = toContent(viewportPoint);
    hit.paragraph = m_layout.paragraphAt(point.y());
    if (hit.paragraph < 0)
        return hit;
    const QRectF header = m_layout.headerRect(hit.paragraph);
    hit.inHeader = point.y() < header.bottom() + m_layout.metrics().headerGap / 2.0;
    const QRectF text = m_layout.textRect(hit.paragraph);
    hit.inText = !hit.inHeader && point.x() >= text.left() - m_layout.metrics().wordPaddingX
        && point.x() <= text.right() && point.y() <= text.bottom();
    const QList<QRectF> &frames = m_layout.paragraph(hit.paragraph).wordFrames;
    const QPointF local = point - m_layout.textOrigin(hit.paragraph);
    if (hit.inText) {
        hit.word = TranscriptLayout::wordAt(frames, local);
        hit.gap = TranscriptLayout::gapAt(frames, local);
    }
    return hit;
}

MagneticTextStripView::Hit MagneticTextStripView::gapNear(QPointF viewportPoint) const
{
    Hit hit;
    const QPointF point = toContent(viewportPoint);
    hit.paragraph = m_layout.nearestParagraph(point.y());
    if (hit.paragraph < 0)
        return hit;
    const QList<QRectF> &frames = m_layout.paragraph(hit.paragraph).wordFrames;
    hit.gap = TranscriptLayout::gapAt(frames, point - m_layout.textOrigin(hit.paragraph));
    return hit;
}

// --- mouse -------------------------------------------------------------------------

void MagneticTextStripView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mousePressEvent(event);
        return;
    }
    setFocus(Qt::MouseFocusReason);
    m_pressPos = event->position();
    m_selecting = false;
    m_dragStartParagraphId.reset();
    m_dragStartPos.reset();
    m_pressedHeaderParagraphId.reset();
    m_pressWord = -1;

    const Hit hit = hitTest(event->position());
    if (hit.paragraph < 0)
        return;
    const QUuid id = m_layout.paragraph(hit.paragraph).id;
    if (hit.inHeader) {
        m_pressedHeaderParagraphId = id;
        return;
    }
    if (event->modifiers().testFlag(Qt::ShiftModifier) && hit.inText) {
        clickAt(hit, event->modifiers());
        return;
    }
    if (hit.inText) {
        m_dragStartParagraphId = id;
        m_dragStartPos = hit.gap;
        m_pressWord = hit.word;
    } else {
        m_editor.selectParagraph(m_editor.paragraphs().at(hit.paragraph));
    }
}

void MagneticTextStripView::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF pos = event->position();
    if (!event->buttons().testFlag(Qt::LeftButton)) {
        updateHover(pos);
        return;
    }
    const bool farEnough
        = (pos - m_pressPos).manhattanLength() >= QApplication::startDragDistance();

    if (m_pressedHeaderParagraphId && (farEnough || m_draggedParagraphId)) {
        if (!m_draggedParagraphId) {
            setDraggedParagraphId(m_pressedHeaderParagraphId);
            viewport()->setCursor(Qt::ClosedHandCursor);
        }
        const qsizetype target = m_layout.paragraphAt(toContent(pos).y());
        const QUuid targetId = target >= 0 ? m_layout.paragraph(target).id : QUuid();
        if (targetId != m_dropTargetId) {
            m_dropTargetId = targetId;
            if (target >= 0)
                dropEntered(target);
        }
        return;
    }

    if (m_dragStartParagraphId && (farEnough || m_selecting)) {
        if (!m_selecting) {
            m_selecting = true;
            m_editor.setIsDragging(true);
        }
        // Dragging past the edges scrolls the text along.
        if (pos.y() < 0)
            verticalScrollBar()->setValue(verticalScrollBar()->value() + static_cast<int>(pos.y()));
        else if (pos.y() > viewport()->height())
            verticalScrollBar()->setValue(verticalScrollBar()->value()
                                          + static_cast<int>(pos.y() - viewport()->height()));
        selectTo(gapNear(pos));
    }
}

void MagneticTextStripView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mouseReleaseEvent(event);
        return;
    }
    if (m_draggedParagraphId) {
        performDrop();
        viewport()->unsetCursor();
        updateHover(event->position());
    } else if (m_pressedHeaderParagraphId) {
        const qsizetype index = paragraphIndex(m_editor.paragraphs(), *m_pressedHeaderParagraphId);
        if (index >= 0)
            m_editor.selectParagraph(m_editor.paragraphs().at(index));
    } else if (m_selecting) {
        m_selecting = false;
        m_editor.setIsDragging(false);
    } else if (m_dragStartParagraphId) {
        clickAt(hitTest(m_pressPos), event->modifiers());
    }
    m_pressedHeaderParagraphId.reset();
    m_dragStartParagraphId.reset();
    m_dragStartPos.reset();
    m_dropTargetId = QUuid();
}

void MagneticTextStripView::clickAt(const Hit &hit, Qt::KeyboardModifiers modifiers)
{
    if (hit.paragraph < 0 || hit.paragraph >= m_editor.paragraphs().size())
        return;
    const Paragraph &paragraph = m_editor.paragraphs().at(hit.paragraph);
    if (modifiers.testFlag(Qt::ShiftModifier) && m_editor.cursorParagraphId()) {
        if (*m_editor.cursorParagraphId() == paragraph.id) {
            m_editor.extendSelection(hit.gap);
        } else {
            const qsizetype anchor = m_editor.selectionAnchor().value_or(m_editor.cursorPosition());
            m_editor.selectAcross(*m_editor.cursorParagraphId(), anchor, paragraph.id, hit.gap);
        }
        return;
    }
    if (hit.word >= 0 && hit.word < paragraph.wordBlocks.size())
        m_editor.placeCursorAfterWord(paragraph.wordBlocks.at(hit.word).id);
    else if (hit.inText)
        m_editor.setCursor(paragraph.id, hit.gap);
    else
        m_editor.selectParagraph(paragraph);
}

void MagneticTextStripView::selectTo(const Hit &hit)
{
    if (hit.paragraph < 0 || !m_dragStartParagraphId || !m_dragStartPos)
        return;
    const QUuid id = m_layout.paragraph(hit.paragraph).id;
    if (id == *m_dragStartParagraphId)
        m_editor.selectRange(id, *m_dragStartPos, hit.gap);
    else
        m_editor.selectAcross(*m_dragStartParagraphId, *m_dragStartPos, id, hit.gap);
}

void MagneticTextStripView::updateHover(QPointF viewportPoint)
{
    const Hit hit = hitTest(viewportPoint);
    QUuid paragraphId;
    QUuid wordId;
    if (hit.paragraph >= 0) {
        const ParagraphGeometry &g = m_layout.paragraph(hit.paragraph);
        paragraphId = g.id;
        if (hit.word >= 0)
            wordId = g.words.at(hit.word).id;
    }
    if (paragraphId != m_hoverParagraphId || wordId != m_hoverWordId) {
        m_hoverParagraphId = paragraphId;
        m_hoverWordId = wordId;
        viewport()->update();
    }
    updatePointerShape(hit);
}

void MagneticTextStripView::updatePointerShape(const Hit &hit)
{
    if (m_draggedParagraphId)
        return;
    if (hit.inText)
        viewport()->setCursor(Qt::IBeamCursor);
    else if (hit.inHeader)
        viewport()->setCursor(Qt::OpenHandCursor);
    else
        viewport()->unsetCursor();
}

void MagneticTextStripView::leaveEvent(QEvent *event)
{
    QAbstractScrollArea::leaveEvent(event);
    if (!m_hoverParagraphId.isNull() || !m_hoverWordId.isNull()) {
        m_hoverParagraphId = QUuid();
        m_hoverWordId = QUuid();
        viewport()->update();
    }
}

// --- paragraph drag and drop ---------------------------------------------------------

void MagneticTextStripView::setDraggedParagraphId(std::optional<QUuid> id)
{
    if (m_draggedParagraphId == id)
        return;
    m_draggedParagraphId = id;
    viewport()->update();
    Q_EMIT draggedParagraphIdChanged();
}

void MagneticTextStripView::dropEntered(qsizetype targetIndex)
{
    if (!m_draggedParagraphId)
        return;
    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    if (targetIndex < 0 || targetIndex >= paragraphs.size())
        return;
    const QUuid targetId = paragraphs.at(targetIndex).id;
    if (targetId == *m_draggedParagraphId)
        return;
    const qsizetype from = paragraphIndex(paragraphs, *m_draggedParagraphId);
    const qsizetype to = targetIndex;
    if (from < 0 || from == to)
        return;

    m_topsBeforeMove.clear();
    for (qsizetype i = 0; i < m_layout.count(); ++i)
        m_topsBeforeMove.insert(m_layout.paragraph(i).id, m_layout.paragraph(i).top);
    m_editor.moveParagraphs({from}, from < to ? to + 1 : to);
    m_moveAnimation.stop();
    m_moveAnimation.start();
}

void MagneticTextStripView::performDrop()
{
    setDraggedParagraphId(std::nullopt);
    m_dropTargetId = QUuid();
}

// --- context menu ------------------------------------------------------------------

QMenu *MagneticTextStripView::createContextMenu(const QUuid &paragraphId)
{
    auto *menu = new QMenu(this);
    QAction *play = menu->addAction(u"播放此句（循环）"_s);
    play->setCheckable(true);
    play->setChecked(m_editor.playingSentenceId() == paragraphId);
    connect(play, &QAction::triggered, this, [this, paragraphId] {
        const qsizetype index = paragraphIndex(m_editor.paragraphs(), paragraphId);
        if (index >= 0)
            m_editor.toggleSentencePlayback(m_editor.paragraphs().at(index));
    });
    QAction *remove = menu->addAction(u"删除段落"_s);
    connect(remove, &QAction::triggered, this,
            [this, paragraphId] { m_editor.deleteParagraph(paragraphId); });
    return menu;
}

void MagneticTextStripView::contextMenuEvent(QContextMenuEvent *event)
{
    const qsizetype index = m_layout.paragraphAt(toContent(event->pos()).y());
    if (index < 0)
        return;
    QMenu *menu = createContextMenu(m_layout.paragraph(index).id);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
}

} // namespace kavel::ui
