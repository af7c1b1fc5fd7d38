#pragma once

#include "model/timeline.h"

#include <QAbstractButton>
#include <QWidget>

namespace kavel {
class EditorViewModel;
}

namespace kavel::ui {

// A small painted toggle of a track header: mute (an eye for video, a speaker for
// audio) or lock.
class TrackToggle : public QAbstractButton
{
    Q_OBJECT

public:
    enum class Glyph { eye, speaker, lock };

    TrackToggle(Glyph glyph, QWidget *parent = nullptr);
    QSize sizeHint() const override { return {22, 22}; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    Glyph m_glyph;
    bool m_hover = false;
};

// The left end of a track row: its name and the mute and lock toggles, bound to the
// editor's track flags.
class TrackHeader : public QWidget
{
    Q_OBJECT

public:
    TrackHeader(EditorViewModel &editor, TrackType track, QWidget *parent = nullptr);

    TrackToggle *muteToggle() const { return m_mute; }
    TrackToggle *lockToggle() const { return m_lock; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void syncFromEditor();

    EditorViewModel &m_editor;
    TrackType m_track;
    TrackToggle *m_mute;
    TrackToggle *m_lock;
};

} // namespace kavel::ui
