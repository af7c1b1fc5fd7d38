#include "timelineview.h"

#include "editor/editorviewmodel.h"
#include "pinchzoomdetector.h"
#include "timelinecanvas.h"
#include "timelinescale.h"
#include "trackheader.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

namespace {

// A magnifying glass with a minus or a plus, drawn so the buttons look the same with
// any icon theme.
QIcon magnifierIcon(bool plus)
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(235, 235, 240), 2.6, Qt::SolidLine, Qt::RoundCap));
    p.drawEllipse(QPointF(13, 13), 8.5, 8.5);
    p.drawLine(QPointF(19.5, 19.5), QPointF(27, 27));
    p.drawLine(QPointF(9, 13), QPointF(17, 13));
    if (plus)
        p.drawLine(QPointF(13, 9), QPointF(13, 17));
    p.end();
    return QIcon(pixmap);
}

QToolButton *zoomButton(bool plus, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setIcon(magnifierIcon(plus));
    button->setIconSize(QSize(16, 16));
    button->setAutoRaise(true);
    button->setToolTip(plus ? QCoreApplication::translate("kavel::ui::TimelineView", "放大")
                            : QCoreApplication::translate("kavel::ui::TimelineView", "缩小"));
    return button;
}

} // namespace

TimelineView::TimelineView(EditorViewModel &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
    , m_canvas(new TimelineCanvas(editor))
    , m_scroll(new QScrollArea(this))
    , m_detector(nullptr)
    , m_zoomOut(zoomButton(false, this))
    , m_zoomIn(zoomButton(true, this))
    , m_videoHeader(new TrackHeader(editor, TrackType::video, this))
    , m_audioHeader(new TrackHeader(editor, TrackType::audio, this))
{
    setAutoFillBackground(false);
    m_canvas->setPixelsPerSecond(initialPixelsPerSecond);

    auto *toolbar = new QHBoxLayout;
    toolbar->setContentsMargins(8, 2, 8, 2);
    toolbar->addStretch();
    toolbar->addWidget(m_zoomOut);
    toolbar->addWidget(m_zoomIn);

    auto *headers = new QVBoxLayout;
    headers->setContentsMargins(0, 0, 0, 0);
    headers->setSpacing(TimelineCanvas::trackGap);
    headers->addSpacing(TimelineCanvas::rulerHeight);
    m_videoHeader->setFixedSize(trackHeaderWidth, TimelineCanvas::videoTrackHeight);
    m_audioHeader->setFixedSize(trackHeaderWidth, TimelineCanvas::audioTrackHeight);
    headers->addWidget(m_videoHeader);
    headers->addWidget(m_audioHeader);
    headers->addStretch();

    m_scroll->setWidget(m_canvas);
    m_scroll->setWidgetResizable(false);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    // The scroll bar is dark like the tracks above it, not a light bar of the desktop's.
    m_scroll->setStyleSheet(
        u"QScrollArea { background: rgb(28,28,31); }"
        "QScrollBar:horizontal { background: rgb(38,38,42); height: 12px; margin: 0; }"
        "QScrollBar::handle:horizontal { background: rgb(92,92,100); border-radius: 4px;"
        " min-width: 24px; margin: 2px 0; }"
        "QScrollBar::handle:horizontal:hover { background: rgb(120,120,130); }"
        "QScrollBar::add-line:horizontal, QScrollBar::sub-line:horizontal { width: 0; }"
        "QScrollBar::add-page:horizontal, QScrollBar::sub-page:horizontal { background: none; }"_s);

    auto *body = new QHBoxLayout;
    body->setContentsMargins(0, 0, 0, 0);
    body->setSpacing(0);
    body->addLayout(headers);
    body->addWidget(m_scroll, 1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(toolbar);
    layout->addLayout(body, 1);

    // Over the scrolling area only: the headers and buttons keep their own wheel.
    m_detector = new PinchZoomDetector(m_scroll);
    m_detector->setOnZoom([this](double delta) { applyZoom(delta); });
    m_detector->raise();

    connect(m_zoomOut, &QToolButton::clicked, this, [this] { applyZoom(-1.0); });
    connect(m_zoomIn, &QToolButton::clicked, this, [this] { applyZoom(1.0); });
    connect(&m_editor.playerVM(), &VideoPlayerViewModel::currentTimeChanged, this,
            &TimelineView::followPlayhead);
    connect(m_canvas, &TimelineCanvas::contentWidthChanged, this, &TimelineView::fitCanvasHeight);
    // The viewport learns its size late when the timeline is built on a hidden screen;
    // following its resizes keeps the tracks at their full height.
    m_scroll->viewport()->installEventFilter(this);
    // Another project opens at its start.
    connect(&editor, &EditorViewModel::projectChanged, this,
            [this] { m_scroll->horizontalScrollBar()->setValue(0); });
    setMinimumHeight(TimelineCanvas::rulerHeight + TimelineCanvas::videoTrackHeight
                     + TimelineCanvas::audioTrackHeight + 3 * TimelineCanvas::trackGap + 48);
}

double TimelineView::pixelsPerSecond() const
{
    return m_canvas->pixelsPerSecond();
}

void TimelineView::setPixelsPerSecond(double pixelsPerSecond)
{
    const double clamped = std::clamp(pixelsPerSecond, minPixelsPerSecond, maxPixelsPerSecond);
    if (clamped == m_canvas->pixelsPerSecond())
        return;
    m_canvas->setPixelsPerSecond(clamped);
    Q_EMIT pixelsPerSecondChanged();
    followPlayhead();
}

void TimelineView::applyZoom(double delta)
{
    const double before = pixelsPerSecond();
    const double screenX = m_canvas->playheadX() - m_scroll->horizontalScrollBar()->value();
    if (!m_playheadScreenX)
        m_playheadScreenX = screenX >= 0.0 && screenX <= m_scroll->viewport()->width()
            ? screenX
            : m_scroll->viewport()->width() / 3.0;
    setPixelsPerSecond(zoomedPixelsPerSecond(before, delta));
    QTimer::singleShot(zoomFollowUpMilliseconds, this, &TimelineView::keepPlayheadInView);
}

void TimelineView::keepPlayheadInView()
{
    if (!m_playheadScreenX)
        return;
    const double target = m_canvas->playheadX() - *m_playheadScreenX;
    m_playheadScreenX.reset();
    m_scroll->horizontalScrollBar()->setValue(static_cast<int>(std::lround(target)));
}

void TimelineView::followPlayhead()
{
    if (m_canvas->isDraggingPlayhead() || m_playheadScreenX)
        return;
    QScrollBar *bar = m_scroll->horizontalScrollBar();
    const double x = m_canvas->playheadX();
    const int visible = m_scroll->viewport()->width();
    if (x < bar->value() || x > bar->value() + visible - 20)
        bar->setValue(static_cast<int>(std::lround(x - visible / 5.0)));
}

void TimelineView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_detector->setGeometry(m_scroll->rect());
    fitCanvasHeight();
}

bool TimelineView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_scroll->viewport() && event->type() == QEvent::Resize)
        fitCanvasHeight();
    return QWidget::eventFilter(watched, event);
}

// The canvas fills the view whatever the scale: a short edit zoomed out still has its
// ruler and tracks to the right edge, and the tracks end above the scroll bar.
void TimelineView::fitCanvasHeight()
{
    m_canvas->setMinimumContentWidth(m_scroll->viewport()->width());
    m_canvas->resize(m_canvas->width(),
                     std::max(m_scroll->viewport()->height(), m_canvas->sizeHint().height()));
}

void TimelineView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(38, 38, 42));
}

} // namespace kavel::ui
