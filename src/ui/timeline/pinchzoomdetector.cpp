#include "pinchzoomdetector.h"

#include <QApplication>
#include <QGestureEvent>
#include <QNativeGestureEvent>
#include <QPinchGesture>
#include <QWheelEvent>
#include <cmath>

namespace kavel::ui {

PinchZoomDetector::PinchZoomDetector(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    if (parent)
        parent->grabGesture(Qt::PinchGesture);
}

PinchZoomDetector::~PinchZoomDetector()
{
    removeMonitor();
}

void PinchZoomDetector::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    installMonitor();
}

void PinchZoomDetector::hideEvent(QHideEvent *event)
{
    removeMonitor();
    QWidget::hideEvent(event);
}

void PinchZoomDetector::installMonitor()
{
    removeMonitor();
    if (qApp) {
        qApp->installEventFilter(this);
        m_monitoring = true;
    }
}

void PinchZoomDetector::removeMonitor()
{
    if (m_monitoring && qApp)
        qApp->removeEventFilter(this);
    m_monitoring = false;
}

bool PinchZoomDetector::containsGlobal(QPointF globalPosition) const
{
    return isVisible() && rect().contains(mapFromGlobal(globalPosition).toPoint());
}

void PinchZoomDetector::pinch(double magnification)
{
    const double delta = magnification * 8.0;
    if (std::abs(delta) > 0.01 && m_onZoom)
        m_onZoom(delta);
}

bool PinchZoomDetector::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::NativeGesture: {
        // Seen first by the window, then by each widget it propagates to: count it once.
        if (!watched->isWindowType())
            return false;
        const auto *gesture = static_cast<QNativeGestureEvent *>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture
            && containsGlobal(gesture->globalPosition()))
            pinch(gesture->value());
        return false;
    }
    case QEvent::Gesture: {
        // Delivered to the widget that grabbed the pinch, and to its parents if ignored.
        if (watched != parentWidget())
            return false;
        auto *gestures = static_cast<QGestureEvent *>(event);
        auto *pinchGesture = static_cast<QPinchGesture *>(gestures->gesture(Qt::PinchGesture));
        if (pinchGesture && pinchGesture->changeFlags().testFlag(QPinchGesture::ScaleFactorChanged)
            && containsGlobal(pinchGesture->hotSpot()))
            pinch(pinchGesture->scaleFactor() - 1.0);
        return false;
    }
    case QEvent::Wheel: {
        const auto *wheel = static_cast<QWheelEvent *>(event);
        if (!wheel->modifiers().testFlag(Qt::ControlModifier)
            || !containsGlobal(wheel->globalPosition()))
            return false;
        // Precise devices report points; a mouse wheel reports eighths of a degree,
        // 120 to a notch, which counts here as one point.
        const double dy = wheel->pixelDelta().isNull() ? wheel->angleDelta().y() / 120.0
                                                       : wheel->pixelDelta().y();
        if (std::abs(dy) > 0.5 && m_onZoom)
            m_onZoom(dy > 0.0 ? 1.0 : -1.0);
        return true;
    }
    default:
        return QWidget::eventFilter(watched, event);
    }
}

} // namespace kavel::ui
