#pragma once

#include <QWidget>

class QScrollArea;
class QToolButton;

namespace kavel {
class EditorViewModel;
}

namespace kavel::ui {

class PinchZoomDetector;
class TimelineCanvas;
class TrackHeader;

// The timeline under the editor: zoom buttons, the track headers and the scrolling
// canvas. The scale is the view's own state and is not saved with the project. Every
// zoom gesture ends in applyZoom(); shortly after a zoom, and whenever the play head
// runs out of sight, the view scrolls to keep the play head in view.
class TimelineView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double pixelsPerSecond READ pixelsPerSecond WRITE setPixelsPerSecond NOTIFY
                   pixelsPerSecondChanged)

public:
    static constexpr double initialPixelsPerSecond = 60.0;
    static constexpr int trackHeaderWidth = 120;
    static constexpr int zoomFollowUpMilliseconds = 50;

    explicit TimelineView(EditorViewModel &editor, QWidget *parent = nullptr);

    double pixelsPerSecond() const;
    void setPixelsPerSecond(double pixelsPerSecond);
    // One zoom step of `delta` (positive zooms in), clamped to the scale's limits.
    void applyZoom(double delta);

    TimelineCanvas *canvas() const { return m_canvas; }
    QScrollArea *scrollArea() const { return m_scroll; }
    PinchZoomDetector *zoomDetector() const { return m_detector; }
    QToolButton *zoomOutButton() const { return m_zoomOut; }
    QToolButton *zoomInButton() const { return m_zoomIn; }
    TrackHeader *videoHeader() const { return m_videoHeader; }
    TrackHeader *audioHeader() const { return m_audioHeader; }

Q_SIGNALS:
    void pixelsPerSecondChanged();

protected:
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void fitCanvasHeight();
    void keepPlayheadInView();
    void followPlayhead();

    EditorViewModel &m_editor;
    TimelineCanvas *m_canvas;
    QScrollArea *m_scroll;
    PinchZoomDetector *m_detector;
    QToolButton *m_zoomOut;
    QToolButton *m_zoomIn;
    TrackHeader *m_videoHeader;
    TrackHeader *m_audioHeader;
    // Where on screen the play head stood when the last zoom began, to put it back there.
    std::optional<double> m_playheadScreenX;
};

} // namespace kavel::ui
