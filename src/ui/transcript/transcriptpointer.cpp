// Pointer handling of the transcript view: hit-testing, clicks, drag-selection,
// paragraph drag and drop, hover and the context menu.
#include "editor/editorviewmodel.h"
#include "editor/paragraphedits.h"
#include "magnetictextstripview.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

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
            m_movedInThisDrag = false;
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
        const qsizetype index
            = edits::indexOfParagraph(m_editor.paragraphs(), *m_pressedHeaderParagraphId);
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
        extendTo(hit);
        return;
    }
    // As in a text editor the caret goes before the word clicked, which becomes the
    // current one.
    if (hit.word >= 0 && hit.word < paragraph.wordBlocks.size())
        m_editor.setCursor(paragraph.id, hit.word);
    else if (hit.inText)
        m_editor.setCursor(paragraph.id, hit.gap);
    else
        m_editor.selectParagraph(paragraph);
    m_shiftAnchor
        = {paragraph.id, m_editor.cursorPosition(), paragraph.id, m_editor.cursorPosition()};
}

void MagneticTextStripView::extendTo(const Hit &hit)
{
    // The selection runs from the current word to the word clicked, both included. The
    // current word is the one the last click chose, as long as the caret is where that
    // click (or a Shift+click since) left it; else the word at the caret.
    const QUuid cursorParagraph = *m_editor.cursorParagraphId();
    ShiftAnchor anchor {
        cursorParagraph, m_editor.selectionAnchor().value_or(m_editor.cursorPosition()), {}, 0};
    if (m_shiftAnchor && m_shiftAnchor->cursorParagraphAfter == cursorParagraph
        && m_shiftAnchor->cursorAfter == m_editor.cursorPosition())
        anchor = *m_shiftAnchor;
    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    const qsizetype from = edits::indexOfParagraph(paragraphs, anchor.paragraphId);
    if (from < 0)
        return;
    const Paragraph &target = paragraphs.at(hit.paragraph);
    const qsizetype word = hit.word >= 0 ? hit.word : hit.gap;
    const bool forward = hit.paragraph > from || (hit.paragraph == from && word >= anchor.gap);
    const qsizetype start
        = forward ? anchor.gap : std::min(anchor.gap + 1, paragraphs.at(from).wordBlocks.size());
    const qsizetype end = forward && hit.word >= 0 ? word + 1 : word;
    if (hit.paragraph == from)
        m_editor.selectRange(target.id, start, end);
    else
        m_editor.selectAcross(anchor.paragraphId, start, target.id, end);
    anchor.cursorParagraphAfter = m_editor.cursorParagraphId().value_or(QUuid());
    anchor.cursorAfter = m_editor.cursorPosition();
    m_shiftAnchor = anchor;
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
    const qsizetype from = edits::indexOfParagraph(paragraphs, *m_draggedParagraphId);
    const qsizetype to = targetIndex;
    if (from < 0 || from == to)
        return;

    m_topsBeforeMove.clear();
    for (qsizetype i = 0; i < m_layout.count(); ++i)
        m_topsBeforeMove.insert(m_layout.paragraph(i).id, m_layout.paragraph(i).top);
    m_editor.moveParagraphs({from}, from < to ? to + 1 : to, m_movedInThisDrag);
    m_movedInThisDrag = true;
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
    QAction *play = menu->addAction(tr("播放此句（循环）"));
    play->setCheckable(true);
    play->setChecked(m_editor.playingSentenceId() == paragraphId);
    connect(play, &QAction::triggered, this, [this, paragraphId] {
        const qsizetype index = edits::indexOfParagraph(m_editor.paragraphs(), paragraphId);
        if (index >= 0)
            m_editor.toggleSentencePlayback(m_editor.paragraphs().at(index));
    });
    QAction *remove = menu->addAction(tr("删除段落"));
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

// --- correcting a word -------------------------------------------------------------

void MagneticTextStripView::mouseDoubleClickEvent(QMouseEvent *event)
{
    const Hit hit = hitTest(event->position());
    if (event->button() != Qt::LeftButton || hit.word < 0 || hit.inHeader) {
        QAbstractScrollArea::mouseDoubleClickEvent(event);
        return;
    }
    m_selecting = false;
    m_editor.selectRange(m_layout.paragraph(hit.paragraph).id, hit.word, hit.word + 1);
    beginWordCorrection();
}

void MagneticTextStripView::beginWordCorrection()
{
    const QSet<QUuid> &selected = m_editor.selectedBlockIds();
    QRectF area;
    QList<WordBlock> chosen;
    for (qsizetype p = 0; p < m_editor.paragraphs().size() && area.isNull(); ++p) {
        const QList<WordBlock> &words = m_editor.paragraphs().at(p).wordBlocks;
        for (qsizetype w = 0; w < words.size(); ++w) {
            if (!selected.contains(words.at(w).id))
                continue;
            area = area.isNull() ? wordRectInViewport(p, w) : area.united(wordRectInViewport(p, w));
            chosen.append(words.at(w));
        }
    }
    const QString text = edits::wordsAsText(chosen);
    if (area.isNull())
        return;
    ensureContentVisible(area.translated(0.0, scrollY()));
    endWordCorrection(false);
    m_wordEditor = new QLineEdit(text, viewport());
    m_wordEditor->setObjectName(u"wordEditor"_s);
    m_wordEditor->setFont(font());
    m_wordEditor->setGeometry(area.toAlignedRect()
                                  .adjusted(-4, -3, 4, 3)
                                  .united(QRect(area.toAlignedRect().topLeft(), QSize(120, 1)))
                                  .intersected(viewport()->rect()));
    m_wordEditor->selectAll();
    m_wordEditor->installEventFilter(this);
    connect(m_wordEditor, &QLineEdit::returnPressed, this, [this] { endWordCorrection(true); });
    connect(m_wordEditor, &QLineEdit::editingFinished, this, [this] {
        // Focus leaving the field is a cancel; Enter has committed already.
        if (m_wordEditor && !m_wordEditor->hasFocus())
            endWordCorrection(false);
    });
    m_wordEditor->show();
    m_wordEditor->setFocus(Qt::OtherFocusReason);
}

void MagneticTextStripView::endWordCorrection(bool commit)
{
    if (!m_wordEditor)
        return;
    QLineEdit *field = std::exchange(m_wordEditor, nullptr);
    const QString text = field->text();
    field->hide();
    field->deleteLater();
    setFocus(Qt::OtherFocusReason);
    if (commit)
        m_editor.correctSelectedWords(text);
}

bool MagneticTextStripView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_wordEditor && event->type() == QEvent::KeyPress
        && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        endWordCorrection(false);
        return true;
    }
    return QAbstractScrollArea::eventFilter(watched, event);
}

} // namespace kavel::ui
