#pragma once

#include "playback/compositionplan.h"

#include <QImage>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class QComboBox;
class QLabel;
class QSlider;
class QTimer;
class QToolButton;

namespace kavel {
class VideoPlayerViewModel;
}

namespace kavel::app {

// "mm:ss" under an hour, "h:mm:ss" from an hour on; fractions are cut off.
QString playerTimeText(double seconds);

// Shows the frames the preview engine hands in, fitted and turned by the preview's
// rotation, on black. The engine learns the size it should deliver from sizeChanged():
// the room the picture has before it is turned, in device pixels. A null frame stands for
// a moment of sound without a picture, which shows a sound placeholder instead.
class VideoSurface : public QWidget
{
    Q_OBJECT

public:
    explicit VideoSurface(QWidget *parent = nullptr);

    void showFrame(const QImage &frame);
    // The last picture shown; null before the first and while only sound plays.
    const QImage &frame() const { return m_frame; }
    bool isSoundOnly() const { return m_soundOnly; }
    void setRotationDegrees(double degrees);
    // The room the upright picture has on the surface, in device pixels: its size, the
    // other way round while the picture is turned a quarter.
    QSize pictureRoom() const;

Q_SIGNALS:
    void sizeChanged(QSize size);
    void doubleClicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    void paintSoundPlaceholder(QPainter &painter);
    const QImage &fittedFrame();

    QImage m_frame;
    struct Fitted
    {
        qint64 key = 0;
        QSize room;
        double rotation = 0.0;
        QImage image;
    } m_fitted;
    bool m_soundOnly = false;
    double m_rotation = 0.0;
};

// The play head over the composition, with the deleted stretches of the source marked.
// A press seeks at once and a drag keeps seeking as it moves, so the picture follows
// the pointer.
class VideoProgressBar : public QWidget
{
    Q_OBJECT

public:
    static constexpr int barHeight = 20;
    static constexpr int horizontalInset = 12;

    explicit VideoProgressBar(QWidget *parent = nullptr);

    void setCurrentTime(double seconds);
    void setDuration(double seconds);
    void setDeletedTimeRanges(QList<DeletedTimeRange> ranges);
    void setOnSeek(std::function<void(double)> onSeek) { m_onSeek = std::move(onSeek); }

    bool isDragging() const { return m_isDragging; }
    double dragTime() const { return m_dragTime; }
    // Where a deleted range is drawn, in the bar's own coordinates.
    QRectF rangeRect(const DeletedTimeRange &range) const;
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    double trackWidth() const;
    void dragTo(double x);

    double m_currentTime = 0.0;
    double m_duration = 0.0;
    QList<DeletedTimeRange> m_ranges;
    std::function<void(double)> m_onSeek;
    bool m_isDragging = false;
    double m_dragTime = 0.0;
};

// The preview alone on a borderless window over the whole screen. A double click, the
// close button or Escape ends it; Space plays and pauses as in the editor.
class FullscreenVideoWindow : public QWidget
{
    Q_OBJECT

public:
    FullscreenVideoWindow();

    VideoSurface *surface() const { return m_surface; }
    QToolButton *closeButton() const { return m_close; }

Q_SIGNALS:
    void closed();
    void playPauseRequested();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    VideoSurface *m_surface;
    QToolButton *m_close;
};

// The preview with its controls; everything shown comes from the player model.
class VideoPlayerView : public QWidget
{
    Q_OBJECT

public:
    explicit VideoPlayerView(VideoPlayerViewModel &player, QWidget *parent = nullptr);

    VideoSurface *surface() const { return m_surface; }
    VideoProgressBar *progressBar() const { return m_progress; }
    QToolButton *playButton() const { return m_play; }
    QToolButton *rotateButton() const { return m_rotate; }
    QComboBox *speedBox() const { return m_speed; }
    QSlider *volumeSlider() const { return m_volume; }
    QLabel *timeLabel() const { return m_time; }
    QToolButton *fullscreenButton() const { return m_fullscreen; }
    FullscreenVideoWindow *fullscreenWindow() const { return m_fullscreenWindow.get(); }
    bool isFullscreen() const { return bool(m_fullscreenWindow); }

    // Where the preview engine's frames go: the surface, and the full-screen window
    // while it is open.
    void showFrame(const QImage &frame);
    void setFullscreen(bool fullscreen);
    // The size, in device pixels, that frames are shown at right now (before the
    // preview's rotation turns them).
    QSize frameSize() const;

Q_SIGNALS:
    // The frames are now shown at this size in device pixels: the surface's, or the
    // screen's while the preview is full screen. The engine renders at it, so a full
    // screen picture is not a small frame blown up.
    void frameSizeChanged(QSize size);

private:
    void seekFromBar(double t);
    void seekNow(double t);
    void refreshTime();
    void refreshPlaying();

    VideoPlayerViewModel &m_player;
    VideoSurface *m_surface;
    VideoProgressBar *m_progress;
    QToolButton *m_play;
    QToolButton *m_rotate;
    QComboBox *m_speed;
    QSlider *m_volume;
    QLabel *m_time;
    QToolButton *m_fullscreen;
    std::unique_ptr<FullscreenVideoWindow> m_fullscreenWindow;
    // A drag asks for a seek per pointer step, faster than frames can be decoded; each
    // seek would cancel the decoding of the one before and the picture would stand still.
    // So one seek is out at a time, until its frame shows (or a while has passed), and
    // the next goes to wherever the pointer is by then.
    QTimer *m_seekPacer;
    std::optional<double> m_pendingSeek;
};

} // namespace kavel::app
