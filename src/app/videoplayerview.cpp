#include "videoplayerview.h"

#include "playback/videoplayerviewmodel.h"
#include "symbolicons.h"

#include <QComboBox>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QScreen>
#include <QSlider>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <iterator>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

// How long a seek may take to show its frame before the next one goes out anyway.
constexpr int seekPatienceMilliseconds = 250;

} // namespace

QString playerTimeText(double seconds)
{
    Q_ASSERT(std::isfinite(seconds));
    const auto total = static_cast<qint64>(seconds);
    const qint64 h = total / 3600;
    const qint64 m = (total % 3600) / 60;
    const qint64 s = total % 60;
    if (h > 0)
        return u"%1:%2:%3"_s.arg(h).arg(m, 2, 10, QChar(u'0')).arg(s, 2, 10, QChar(u'0'));
    return u"%1:%2"_s.arg(m, 2, 10, QChar(u'0')).arg(s, 2, 10, QChar(u'0'));
}

// --- VideoSurface ----------------------------------------------------------------------

VideoSurface::VideoSurface(QWidget *parent)
    : QWidget(parent)
{
    setMinimumSize(160, 90);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void VideoSurface::showFrame(const QImage &frame)
{
    m_soundOnly = frame.isNull();
    m_frame = frame;
    update();
}

void VideoSurface::setRotationDegrees(double degrees)
{
    const bool roomChanged = std::fmod(std::abs(degrees - m_rotation), 180.0) != 0.0;
    m_rotation = degrees;
    update();
    if (roomChanged)
        Q_EMIT sizeChanged(pictureRoom());
}

QSize VideoSurface::pictureRoom() const
{
    // A quarter turn swaps the room the picture has.
    const bool sideways = std::fmod(std::abs(m_rotation), 180.0) == 90.0;
    const QSize room = size() * devicePixelRatioF();
    return sideways ? room.transposed() : room;
}

// The frame turned and fitted to the surface in device pixels, made once per frame and
// size rather than on every paint. A frame the size it is shown at is drawn pixel for
// pixel; only a smaller one (a picture smaller than the screen, or one rendered before
// the surface grew) is enlarged, smoothly.
const QImage &VideoSurface::fittedFrame()
{
    const QSize room = size() * devicePixelRatioF();
    if (m_fitted.key == m_frame.cacheKey() && m_fitted.room == room
        && m_fitted.rotation == m_rotation)
        return m_fitted.image;
    QImage turned = m_rotation == 0.0
        ? m_frame
        : m_frame.transformed(QTransform().rotate(m_rotation), Qt::SmoothTransformation);
    QSize fitted = turned.size().scaled(room, Qt::KeepAspectRatio);
    // The engine renders even sizes: a frame a pixel short of its room is already the size
    // it is shown at, and stretching it by that pixel would soften all of it.
    const QSize spare = fitted - turned.size();
    if (spare.width() >= 0 && spare.height() >= 0 && spare.width() <= 2 && spare.height() <= 2)
        fitted = turned.size();
    m_fitted.image = fitted == turned.size()
        ? turned
        : turned.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    m_fitted.image.setDevicePixelRatio(devicePixelRatioF());
    m_fitted.key = m_frame.cacheKey();
    m_fitted.room = room;
    m_fitted.rotation = m_rotation;
    return m_fitted.image;
}

void VideoSurface::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Qt::black);
    if (m_soundOnly) {
        paintSoundPlaceholder(p);
        return;
    }
    if (m_frame.isNull())
        return;
    const QImage &picture = fittedFrame();
    // Whole device pixels: half a pixel off would blur every line of the picture.
    const double ratio = devicePixelRatioF();
    const QSize room = size() * ratio;
    const QPoint corner((room.width() - picture.width()) / 2,
                        (room.height() - picture.height()) / 2);
    p.drawImage(QPointF(corner) / ratio, picture);
}

// A row of bars like a level meter, with the word for what is playing under it.
void VideoSurface::paintSoundPlaceholder(QPainter &p)
{
    static constexpr double heights[]
        = {0.30, 0.55, 0.85, 0.45, 1.00, 0.65, 0.35, 0.75, 0.50, 0.25};
    const double unit = std::clamp(std::min(width(), height()) / 40.0, 2.0, 8.0);
    const double tallest = unit * 12.0;
    const double barCount = std::size(heights);
    const double left = width() / 2.0 - (barCount * 2.0 - 1.0) * unit / 2.0;
    const double middle = height() / 2.0 - unit * 2.0;
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(120, 160, 230));
    for (qsizetype i = 0; i < std::ssize(heights); ++i) {
        const double h = std::max(unit, tallest * heights[i]);
        p.drawRoundedRect(QRectF(left + i * 2.0 * unit, middle - h / 2.0, unit, h), unit / 2.0,
                          unit / 2.0);
    }
    QFont caption = font();
    caption.setPixelSize(int(std::lround(unit * 3.5)));
    p.setFont(caption);
    p.setPen(QColor(255, 255, 255, 150));
    p.drawText(QRectF(0.0, middle + tallest / 2.0 + unit * 2.0, width(), unit * 6.0),
               Qt::AlignHCenter | Qt::AlignTop, tr("音频"));
}

void VideoSurface::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    Q_EMIT sizeChanged(pictureRoom());
}

void VideoSurface::mouseDoubleClickEvent(QMouseEvent *)
{
    Q_EMIT doubleClicked();
}

// --- FullscreenVideoWindow -------------------------------------------------------------

FullscreenVideoWindow::FullscreenVideoWindow()
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint)
    , m_surface(new VideoSurface(this))
    , m_close(new QToolButton(this))
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    QPalette black = palette();
    black.setColor(QPalette::Window, Qt::black);
    setPalette(black);
    setAutoFillBackground(true);
    m_close->setIcon(symbolIcon(u"xmark.circle.fill"_s));
    m_close->setIconSize(QSize(28, 28));
    m_close->setFixedSize(36, 36);
    m_close->setAutoRaise(true);
    m_close->setToolTip(tr("退出全屏"));
    connect(m_close, &QToolButton::clicked, this, &QWidget::close);
    connect(m_surface, &VideoSurface::doubleClicked, this, &QWidget::close);
}

void FullscreenVideoWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        close();
    else if (event->key() == Qt::Key_Space && !event->isAutoRepeat())
        Q_EMIT playPauseRequested();
    else
        QWidget::keyPressEvent(event);
}

void FullscreenVideoWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The keys go here while the preview covers the screen, so Escape always leaves.
    activateWindow();
    setFocus(Qt::ActiveWindowFocusReason);
}

void FullscreenVideoWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_surface->setGeometry(rect());
    m_close->move(width() - 20 - m_close->width(), 20);
    m_close->raise();
}

void FullscreenVideoWindow::closeEvent(QCloseEvent *event)
{
    QWidget::closeEvent(event);
    Q_EMIT closed();
}

// --- VideoProgressBar ------------------------------------------------------------------

VideoProgressBar::VideoProgressBar(QWidget *parent)
    : QWidget(parent)
{
    setFixedHeight(barHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setCursor(Qt::PointingHandCursor);
}

QSize VideoProgressBar::sizeHint() const
{
    return {300, barHeight};
}

void VideoProgressBar::setCurrentTime(double seconds)
{
    m_currentTime = seconds;
    update();
}

void VideoProgressBar::setDuration(double seconds)
{
    m_duration = seconds;
    update();
}

void VideoProgressBar::setDeletedTimeRanges(QList<DeletedTimeRange> ranges)
{
    m_ranges = std::move(ranges);
    update();
}

double VideoProgressBar::trackWidth() const
{
    return std::max(0, width() - 2 * horizontalInset);
}

QRectF VideoProgressBar::rangeRect(const DeletedTimeRange &range) const
{
    if (m_duration <= 0.0)
        return {};
    const double w = trackWidth();
    const double x = range.start / m_duration * w;
    const double width = (range.end / m_duration - range.start / m_duration) * w;
    return {horizontalInset + x, 0.0, width, double(barHeight)};
}

void VideoProgressBar::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const double w = trackWidth();
    const double mid = barHeight / 2.0;
    const QRectF track(horizontalInset, mid - 2, w, 4);
    p.setPen(Qt::NoPen);
    p.setBrush(palette().color(QPalette::Mid));
    p.drawRoundedRect(track, 2, 2);

    QColor mark(Qt::red);
    mark.setAlphaF(0.35);
    p.setBrush(mark);
    p.save();
    // Ranges are source times on a bar scaled to the edited duration: those past its end
    // have no place on it.
    p.setClipRect(QRectF(horizontalInset, 0, w, barHeight));
    for (const DeletedTimeRange &r : m_ranges)
        p.drawRoundedRect(rangeRect(r).adjusted(0, 4, 0, -4), 2, 2);
    p.restore();

    const double shown = m_isDragging ? m_dragTime : m_currentTime;
    const double fraction = m_duration > 0.0 ? std::clamp(shown / m_duration, 0.0, 1.0) : 0.0;
    p.setBrush(palette().color(QPalette::Highlight));
    p.drawRoundedRect(QRectF(track.left(), track.top(), w * fraction, track.height()), 2, 2);
    p.drawEllipse(QPointF(horizontalInset + w * fraction, mid), 6, 6);
}

void VideoProgressBar::dragTo(double x)
{
    const double w = trackWidth();
    const double fraction = w > 0.0 ? std::clamp((x - horizontalInset) / w, 0.0, 1.0) : 0.0;
    m_isDragging = true;
    const double time = m_duration * fraction;
    const bool moved = time != m_dragTime;
    m_dragTime = time;
    update();
    // Every step of a drag seeks, so the picture follows the pointer; the engine lets a
    // newer seek overtake one still under way.
    if (moved && m_onSeek)
        m_onSeek(m_dragTime);
}

void VideoProgressBar::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    // A click where the play head already is seeks all the same.
    m_dragTime = -1.0;
    dragTo(event->position().x());
}

void VideoProgressBar::mouseMoveEvent(QMouseEvent *event)
{
    if (m_isDragging)
        dragTo(event->position().x());
}

void VideoProgressBar::mouseReleaseEvent(QMouseEvent *event)
{
    if (!m_isDragging || event->button() != Qt::LeftButton)
        return;
    dragTo(event->position().x());
    m_isDragging = false;
    update();
}

// --- VideoPlayerView -------------------------------------------------------------------

VideoPlayerView::VideoPlayerView(VideoPlayerViewModel &player, QWidget *parent)
    : QWidget(parent)
    , m_player(player)
    , m_surface(new VideoSurface(this))
    , m_progress(new VideoProgressBar(this))
    , m_play(new QToolButton(this))
    , m_rotate(new QToolButton(this))
    , m_speed(new QComboBox(this))
    , m_volume(new QSlider(Qt::Horizontal, this))
    , m_time(new QLabel(this))
    , m_fullscreen(new QToolButton(this))
    , m_seekPacer(new QTimer(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_surface, 1);
    layout->addWidget(m_progress);

    auto *controls = new QHBoxLayout;
    controls->setContentsMargins(8, 0, 8, 4);
    controls->addWidget(m_play);
    controls->addWidget(m_time);
    controls->addStretch(1);
    controls->addWidget(m_rotate);
    controls->addWidget(m_speed);
    auto *volumeIcon = new QLabel(this);
    volumeIcon->setPixmap(symbolIcon(u"speaker.wave.2.fill"_s).pixmap(16, 16));
    controls->addWidget(volumeIcon);
    controls->addWidget(m_volume);
    controls->addWidget(m_fullscreen);
    layout->addLayout(controls);

    m_play->setAutoRaise(true);
    m_rotate->setAutoRaise(true);
    m_fullscreen->setAutoRaise(true);
    m_fullscreen->setIcon(symbolIcon(u"arrow.up.left.and.arrow.down.right"_s));
    m_fullscreen->setToolTip(tr("全屏 (双击视频)"));
    connect(m_fullscreen, &QToolButton::clicked, this, [this] { setFullscreen(!isFullscreen()); });
    connect(m_surface, &VideoSurface::doubleClicked, this,
            [this] { setFullscreen(!isFullscreen()); });
    m_rotate->setIcon(symbolIcon(u"rotate.right"_s));
    m_rotate->setToolTip(tr("旋转"));
    for (const double speed : {0.5, 0.75, 1.0, 1.25, 1.5, 2.0})
        m_speed->addItem(u"%1x"_s.arg(speed), speed);
    m_speed->setCurrentIndex(m_speed->findData(1.0));
    m_volume->setRange(0, 100);
    m_volume->setMaximumWidth(100);
    m_time->setMinimumWidth(110);

    connect(m_play, &QToolButton::clicked, this, [this] { m_player.togglePlayPause(); });
    connect(m_rotate, &QToolButton::clicked, this, [this] {
        m_player.setVideoRotationDegrees(std::fmod(m_player.videoRotationDegrees() + 90.0, 360.0));
    });
    connect(m_speed, &QComboBox::activated, this,
            [this](int index) { m_player.setPlaybackSpeed(m_speed->itemData(index).toFloat()); });
    // The new speed eases in over a quarter second, so a change is noticed without a jump.
    auto *speedFade = new QGraphicsOpacityEffect(m_speed);
    speedFade->setOpacity(1.0);
    m_speed->setGraphicsEffect(speedFade);
    auto *speedAnimation = new QPropertyAnimation(speedFade, "opacity", this);
    speedAnimation->setDuration(250);
    speedAnimation->setEasingCurve(QEasingCurve::InOutQuad);
    speedAnimation->setStartValue(0.25);
    speedAnimation->setEndValue(1.0);
    connect(&player, &VideoPlayerViewModel::playbackSpeedChanged, this, [this, speedAnimation] {
        const int index = m_speed->findData(double(m_player.playbackSpeed()));
        if (index < 0) {
            m_speed->addItem(u"%1x"_s.arg(m_player.playbackSpeed()),
                             double(m_player.playbackSpeed()));
            m_speed->setCurrentIndex(m_speed->count() - 1);
        } else {
            m_speed->setCurrentIndex(index);
        }
        speedAnimation->stop();
        speedAnimation->start();
    });
    connect(m_volume, &QSlider::valueChanged, this,
            [this](int value) { m_player.setVolume(float(value) / 100.0f); });
    m_seekPacer->setSingleShot(true);
    m_seekPacer->setInterval(seekPatienceMilliseconds);
    connect(m_seekPacer, &QTimer::timeout, this, [this] {
        if (const std::optional<double> next = std::exchange(m_pendingSeek, std::nullopt))
            seekNow(*next);
    });
    m_progress->setOnSeek([this](double t) { seekFromBar(t); });
    connect(m_surface, &VideoSurface::sizeChanged, this, [this](QSize size) {
        if (!isFullscreen())
            Q_EMIT frameSizeChanged(size);
    });

    connect(&player, &VideoPlayerViewModel::currentTimeChanged, this,
            &VideoPlayerView::refreshTime);
    connect(&player, &VideoPlayerViewModel::durationChanged, this, &VideoPlayerView::refreshTime);
    connect(&player, &VideoPlayerViewModel::isPlayingChanged, this,
            &VideoPlayerView::refreshPlaying);
    connect(&player, &VideoPlayerViewModel::videoRotationDegreesChanged, this,
            [this] { m_surface->setRotationDegrees(m_player.videoRotationDegrees()); });
    connect(&player, &VideoPlayerViewModel::volumeChanged, this, [this] {
        const QSignalBlocker block(m_volume);
        m_volume->setValue(int(std::lround(m_player.volume() * 100.0f)));
    });
    connect(&player, &VideoPlayerViewModel::deletedTimeRangesChanged, this,
            [this] { m_progress->setDeletedTimeRanges(m_player.deletedTimeRanges()); });
    connect(&player, &VideoPlayerViewModel::durationChanged, this,
            [this] { m_progress->setDuration(m_player.duration()); });

    m_volume->setValue(int(std::lround(player.volume() * 100.0f)));
    m_surface->setRotationDegrees(player.videoRotationDegrees());
    m_progress->setDeletedTimeRanges(player.deletedTimeRanges());
    m_progress->setDuration(player.duration());
    refreshTime();
    refreshPlaying();
}

void VideoPlayerView::showFrame(const QImage &frame)
{
    m_surface->showFrame(frame);
    if (m_fullscreenWindow)
        m_fullscreenWindow->surface()->showFrame(frame);
    if (m_seekPacer->isActive()) {
        m_seekPacer->stop();
        if (const std::optional<double> next = std::exchange(m_pendingSeek, std::nullopt))
            seekNow(*next);
    }
}

void VideoPlayerView::seekFromBar(double t)
{
    if (m_seekPacer->isActive())
        m_pendingSeek = t;
    else
        seekNow(t);
}

void VideoPlayerView::seekNow(double t)
{
    m_player.seek(t);
    m_seekPacer->start();
}

void VideoPlayerView::setFullscreen(bool fullscreen)
{
    if (fullscreen == isFullscreen())
        return;
    if (!fullscreen) {
        // Deleted later: this may run from the window's own close.
        m_fullscreenWindow.release()->deleteLater();
        Q_EMIT frameSizeChanged(frameSize());
    } else {
        m_fullscreenWindow = std::make_unique<FullscreenVideoWindow>();
        FullscreenVideoWindow *window = m_fullscreenWindow.get();
        window->surface()->setRotationDegrees(m_player.videoRotationDegrees());
        if (m_surface->isSoundOnly() || !m_surface->frame().isNull())
            window->surface()->showFrame(m_surface->frame());
        connect(window, &FullscreenVideoWindow::closed, this, [this] { setFullscreen(false); });
        connect(window, &FullscreenVideoWindow::playPauseRequested, this,
                [this] { m_player.togglePlayPause(); });
        connect(window->surface(), &VideoSurface::sizeChanged, this,
                [this](QSize size) { Q_EMIT frameSizeChanged(size); });
        connect(&m_player, &VideoPlayerViewModel::videoRotationDegreesChanged, window,
                [this, window] {
                    window->surface()->setRotationDegrees(m_player.videoRotationDegrees());
                });
        if (QScreen *screen = this->screen())
            window->setGeometry(screen->geometry());
        window->showFullScreen();
    }
    m_fullscreen->setIcon(symbolIcon(fullscreen ? u"arrow.down.right.and.arrow.up.left"_s
                                                : u"arrow.up.left.and.arrow.down.right"_s));
}

QSize VideoPlayerView::frameSize() const
{
    const VideoSurface *shown = m_fullscreenWindow ? m_fullscreenWindow->surface() : m_surface;
    return shown->pictureRoom();
}

void VideoPlayerView::refreshTime()
{
    const double now = std::isfinite(m_player.currentTime()) ? m_player.currentTime() : 0.0;
    const double total = std::isfinite(m_player.duration()) ? m_player.duration() : 0.0;
    m_time->setText(playerTimeText(now) + u" / "_s + playerTimeText(total));
    m_progress->setCurrentTime(now);
}

void VideoPlayerView::refreshPlaying()
{
    const bool playing = m_player.isPlaying();
    m_play->setIcon(symbolIcon(playing ? u"pause.fill"_s : u"play.fill"_s));
    m_play->setToolTip(playing ? tr("暂停") : tr("播放"));
}

} // namespace kavel::app
