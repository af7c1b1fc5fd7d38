#pragma once

#include "blinkingcursor.h"
#include "paragraphsection.h"
#include "transcriptlayout.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QSet>
#include <QVariantAnimation>
#include <optional>

class QLineEdit;
class QMenu;

namespace kavel {
class EditorViewModel;
}

namespace kavel::ui {

// The transcript: a scrolling stack of paragraph sections whose words wrap like text.
// Everything is drawn from one layout of word frames, and only what is exposed is
// painted, so a transcript of ten thousand words scrolls and blinks as cheaply as a
// short one. The view reads and edits the shared editor and keeps no document of its
// own.
//
// Mouse: a click on a word puts the cursor before it, a click between words puts it in
// that gap, a click on a section's margin or header selects the paragraph; dragging
// over words selects them, across paragraphs too; Shift-click selects from the current
// word to the one clicked.
// Dragging a section by its header moves the paragraph, live, wherever the pointer
// passes over another paragraph.
class MagneticTextStripView : public QAbstractScrollArea
{
    Q_OBJECT

public:
    static constexpr int moveAnimationMilliseconds = 200;

    explicit MagneticTextStripView(EditorViewModel &editor, QWidget *parent = nullptr);
    ~MagneticTextStripView() override;

    const TranscriptLayout &transcriptLayout() const { return m_layout; }
    // How many paragraphs the last document change laid out afresh.
    qsizetype lastRelayoutCount() const { return m_lastRelayoutCount; }
    std::optional<QUuid> draggedParagraphId() const { return m_draggedParagraphId; }
    const BlinkingCursor &blinkingCursor() const { return m_cursor; }

    // Viewport coordinates of a word and of the cursor bar (nullopt without a cursor).
    QRectF wordRectInViewport(qsizetype paragraph, qsizetype word) const;
    QRectF headerRectInViewport(qsizetype paragraph) const;
    std::optional<QRectF> cursorBarInViewport() const;
    // Scrolls as little as possible to show a rectangle of the content.
    void ensureContentVisible(const QRectF &content);

    // The in-place editor over the selected words while a correction is typed.
    QLineEdit *wordEditor() const { return m_wordEditor; }

    // The section's context menu; the caller owns it.
    QMenu *createContextMenu(const QUuid &paragraphId);

    QSize sizeHint() const override;

Q_SIGNALS:
    void draggedParagraphIdChanged();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void changeEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    struct Hit
    {
        qsizetype paragraph = -1;
        qsizetype word = -1;
        qsizetype gap = 0;
        bool inHeader = false;
        bool inText = false;
    };

    EditorViewModel &editor() const { return m_editor; }
    qreal scrollY() const;
    QPointF toContent(QPointF viewportPoint) const;
    Hit hitTest(QPointF viewportPoint) const;
    // The gap nearest to a point, in whichever paragraph is nearest.
    Hit gapNear(QPointF viewportPoint) const;

    void relayout();
    void refreshParagraphStarts();
    void updateScrollRange();
    void refreshSearchHits();
    void onPlayerChanged();
    void onCursorMoved();
    void showCurrentSearchHit();
    void updateHover(QPointF viewportPoint);
    void updatePointerShape(const Hit &hit);
    void updateCursorBar();

    void clickAt(const Hit &hit, Qt::KeyboardModifiers modifiers);
    // Shift+click: selects from the current word to the one under `hit`.
    void extendTo(const Hit &hit);
    // Opens the in-place editor over the selection; Enter commits, Esc or leaving it
    // cancels.
    void beginWordCorrection();
    void endWordCorrection(bool commit);
    void selectTo(const Hit &hit);
    // The drop delegate: reorder when the pointer enters another paragraph, clear the
    // drag state on drop.
    void dropEntered(qsizetype targetIndex);
    void performDrop();
    void setDraggedParagraphId(std::optional<QUuid> id);
    qreal animatedOffset(qsizetype index) const;

    EditorViewModel &m_editor;
    TranscriptLayout m_layout;
    // Where each paragraph starts in the edited result, from the preview's map.
    QList<double> m_paragraphStarts;
    QFont m_headerFont;
    TranscriptColors m_colors;
    BlinkingCursor m_cursor;
    qsizetype m_lastRelayoutCount = 0;
    QSet<QUuid> m_searchHits;
    QUuid m_activeWordId;
    qsizetype m_activeParagraph = -1;

    QUuid m_hoverParagraphId;
    QUuid m_hoverWordId;
    QRectF m_lastCursorBar;

    // Mouse gesture state.
    QPointF m_pressPos;
    std::optional<QUuid> m_dragStartParagraphId;
    std::optional<qsizetype> m_dragStartPos;
    qsizetype m_pressWord = -1;
    bool m_selecting = false;
    std::optional<QUuid> m_pressedHeaderParagraphId;
    std::optional<QUuid> m_draggedParagraphId;
    QUuid m_dropTargetId;
    // Later moves of one drag join the first one's undo step.
    bool m_movedInThisDrag = false;
    // Where the last click put the caret (the current word's gap), and where the caret
    // stood after that click or the Shift+clicks that extended from it.
    struct ShiftAnchor
    {
        QUuid paragraphId;
        qsizetype gap = 0;
        QUuid cursorParagraphAfter;
        qsizetype cursorAfter = 0;
    };
    std::optional<ShiftAnchor> m_shiftAnchor;

    QLineEdit *m_wordEditor = nullptr;

    // Sections slide to their new places after a move.
    QVariantAnimation m_moveAnimation;
    QHash<QUuid, qreal> m_topsBeforeMove;
};

} // namespace kavel::ui
