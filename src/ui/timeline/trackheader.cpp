#include "trackheader.h"

#include "editor/editorviewmodel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

TrackToggle::TrackToggle(Glyph glyph, QWidget *parent)
    : QAbstractButton(parent)
    , m_glyph(glyph)
{
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    setFixedSize(sizeHint());
}

void TrackToggle::enterEvent(QEnterEvent *event)
{
    m_hover = true;
    update();
    QAbstractButton::enterEvent(event);
}

void TrackToggle::leaveEvent(QEvent *event)
{
    m_hover = false;
    update();
    QAbstractButton::leaveEvent(event);
}

void TrackToggle::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(1, 1, -1, -1);
    if (isChecked() || m_hover) {
        p.setPen(Qt::NoPen);
        p.setBrush(isChecked() ? QColor(255, 159, 10, 70) : QColor(255, 255, 255, 25));
        p.drawRoundedRect(box, 4, 4);
    }
    const QColor ink = isChecked() ? QColor(255, 179, 64) : QColor(255, 255, 255, 170);
    p.setPen(QPen(ink, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    const QPointF c = box.center();
    switch (m_glyph) {
    case Glyph::eye: {
        QPainterPath eye;
        eye.moveTo(c.x() - 7, c.y());
        eye.quadTo(c.x(), c.y() - 7, c.x() + 7, c.y());
        eye.quadTo(c.x(), c.y() + 7, c.x() - 7, c.y());
        p.drawPath(eye);
        p.drawEllipse(c, 2.2, 2.2);
        break;
    }
    case Glyph::speaker: {
        QPainterPath speaker;
        speaker.moveTo(c.x() - 6, c.y() - 2.5);
        speaker.lineTo(c.x() - 3.5, c.y() - 2.5);
        speaker.lineTo(c.x() + 0.5, c.y() - 6);
        speaker.lineTo(c.x() + 0.5, c.y() + 6);
        speaker.lineTo(c.x() - 3.5, c.y() + 2.5);
        speaker.lineTo(c.x() - 6, c.y() + 2.5);
        speaker.closeSubpath();
        p.drawPath(speaker);
        if (!isChecked()) {
            p.drawArc(QRectF(c.x() - 2, c.y() - 4, 8, 8), -50 * 16, 100 * 16);
        }
        break;
    }
    case Glyph::lock: {
        p.drawRoundedRect(QRectF(c.x() - 5, c.y() - 1, 10, 7), 1.5, 1.5);
        QPainterPath shackle;
        shackle.moveTo(c.x() - 3, c.y() - 1);
        shackle.lineTo(c.x() - 3, c.y() - 4);
        shackle.arcTo(QRectF(c.x() - 3, c.y() - 7, 6, 6), 180, -180);
        shackle.lineTo(c.x() + 3, isChecked() ? c.y() - 1 : c.y() - 3);
        p.drawPath(shackle);
        break;
    }
    }
    // A struck-through glyph reads as "off" at this size better than a colour alone.
    if (isChecked() && m_glyph != Glyph::lock)
        p.drawLine(QPointF(c.x() - 6, c.y() + 6), QPointF(c.x() + 6, c.y() - 6));
}

TrackHeader::TrackHeader(EditorViewModel &editor, TrackType track, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
    , m_track(track)
    , m_mute(new TrackToggle(
          track == TrackType::video ? TrackToggle::Glyph::eye : TrackToggle::Glyph::speaker, this))
    , m_lock(new TrackToggle(TrackToggle::Glyph::lock, this))
{
    const bool video = track == TrackType::video;
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 0, 6, 0);
    layout->setSpacing(2);
    auto *name = new QLabel(video ? tr("视频") : tr("音频"), this);
    QFont font = name->font();
    font.setPixelSize(11);
    name->setFont(font);
    name->setStyleSheet(u"color: rgba(255,255,255,0.75);"_s);
    layout->addWidget(name);
    layout->addStretch();
    layout->addWidget(m_mute);
    layout->addWidget(m_lock);
    m_mute->setToolTip(video ? tr("隐藏视频轨道") : tr("静音音频轨道"));
    m_lock->setToolTip(tr("锁定轨道"));

    connect(m_mute, &QAbstractButton::toggled, this, [this](bool on) {
        if (m_track == TrackType::video)
            m_editor.setIsVideoTrackMuted(on);
        else
            m_editor.setIsAudioTrackMuted(on);
    });
    connect(m_lock, &QAbstractButton::toggled, this, [this](bool on) {
        if (m_track == TrackType::video)
            m_editor.setIsVideoTrackLocked(on);
        else
            m_editor.setIsAudioTrackLocked(on);
    });
    connect(&m_editor, &EditorViewModel::trackFlagsChanged, this, &TrackHeader::syncFromEditor);
    syncFromEditor();
}

void TrackHeader::syncFromEditor()
{
    const bool video = m_track == TrackType::video;
    const QSignalBlocker muteBlocker(m_mute);
    const QSignalBlocker lockBlocker(m_lock);
    m_mute->setChecked(video ? m_editor.isVideoTrackMuted() : m_editor.isAudioTrackMuted());
    m_lock->setChecked(video ? m_editor.isVideoTrackLocked() : m_editor.isAudioTrackLocked());
    m_mute->update();
    m_lock->update();
}

void TrackHeader::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(38, 38, 42));
    p.setPen(QColor(255, 255, 255, 20));
    p.drawLine(rect().bottomLeft(), rect().bottomRight());
}

} // namespace kavel::ui
