#pragma once

#include <QWidget>
#include <functional>

namespace kavel::ui {

// An invisible layer over the timeline that turns zoom gestures inside its bounds into
// zoom deltas: trackpad pinches (native zoom gestures or Qt's pinch gesture) and the
// wheel with Ctrl held. Positive deltas zoom in. Pinches are passed on to the rest of
// the application; Ctrl+wheel is consumed, other wheel events pass untouched. The
// application filter lives while the layer is shown.
class PinchZoomDetector : public QWidget
{
    Q_OBJECT

public:
    explicit PinchZoomDetector(QWidget *parent = nullptr);
    ~PinchZoomDetector() override;

    void setOnZoom(std::function<void(double)> onZoom) { m_onZoom = std::move(onZoom); }
    bool isMonitoring() const { return m_monitoring; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    bool containsGlobal(QPointF globalPosition) const;
    void pinch(double magnification);
    void installMonitor();
    void removeMonitor();

    std::function<void(double)> m_onZoom;
    bool m_monitoring = false;
};

} // namespace kavel::ui
