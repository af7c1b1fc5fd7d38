#pragma once

#include "model/timeline.h"

#include <QWidget>
#include <optional>

namespace kavel {
class EditorViewModel;
}

namespace kavel::ui {

// The scrolling part of the timeline: the ruler, the video and audio rows with one clip
// per paragraph laid end to end (each as wide as its paragraph's duration), and the play
// head. Clicking or dragging on the ruler moves the play head; dragging a clip over
// another reorders the paragraphs, live, as the transcript does.
class TimelineCanvas : public QWidget
{
    Q_OBJECT

public:
    static constexpr int rulerHeight = 24;
    static constexpr int videoTrackHeight = 54;
    static constexpr int audioTrackHeight = 46;
    static constexpr int trackGap = 4;
    static constexpr int trailingSpace = 80;
    // Room left of time 0, so the play head standing there shows whole.
    static constexpr int leadingSpace = 10;
    static constexpr double playheadKnobHalfWidth = 4.0;

    explicit TimelineCanvas(EditorViewModel &editor, QWidget *parent = nullptr);

    double pixelsPerSecond() const { return m_pixelsPerSecond; }
    void setPixelsPerSecond(double pixelsPerSecond);

    // Length of the ruler: the preview's duration, or the paragraphs' when that is longer.
    double contentDuration() const;
    double timeToX(double seconds) const { return leadingSpace + seconds * m_pixelsPerSecond; }
    double xToTime(double x) const { return (x - leadingSpace) / m_pixelsPerSecond; }
    // At least as wide as `width`, so the ruler and the tracks run to the view's edge.
    void setMinimumContentWidth(int width);
    QRectF trackRect(TrackType track) const;
    QRectF clipRect(TrackType track, qsizetype paragraphIndex) const;
    // The paragraph whose clip spans x, or -1.
    qsizetype paragraphAtX(double x) const;
    double playheadX() const;
    bool isDraggingPlayhead() const { return m_isDraggingPlayhead; }
    std::optional<QUuid> draggedParagraphId() const { return m_draggedParagraphId; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

Q_SIGNALS:
    void contentWidthChanged();
    void draggedParagraphIdChanged();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void rebuildClips();
    void updateSize();
    void seekTo(double x);
    bool isLocked(TrackType track) const;
    void paintRuler(QPainter &painter, const QRectF &exposed);
    void paintClips(QPainter &painter, const QRectF &exposed);

    EditorViewModel &m_editor;
    double m_pixelsPerSecond = 60.0;
    int m_minimumContentWidth = 0;
    // Start of each paragraph's clip on the edited timeline, plus the end as last entry.
    QList<double> m_clipStarts;
    bool m_isDraggingPlayhead = false;
    std::optional<QUuid> m_pressedParagraphId;
    std::optional<QUuid> m_draggedParagraphId;
    QPointF m_pressPos;
    qsizetype m_dropTarget = -1;
    // Later moves of one drag join the first one's undo step.
    bool m_movedInThisDrag = false;
};

} // namespace kavel::ui
