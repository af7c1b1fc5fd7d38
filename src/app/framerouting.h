#pragma once

#include "media/mlt/mltplayer.h"

#include <QImage>
#include <QObject>
#include <QSize>
#include <functional>

namespace kavel::app {

// The MLT player converts its frames to the size the view shows them at, on its own
// thread, and hands them over through frameShown(); the queued connection brings them to
// `show`. `sizeChanged` is the view's signal that carries that size in device pixels, so
// the frames follow the view as it grows to full screen and shrinks back. Players of other
// engines are left alone.
template<typename View>
void routeFrames(media::Player &player, View *view, void (View::*sizeChanged)(QSize),
                 QSize initialSize, std::function<void(const QImage &)> show)
{
    auto *mlt = dynamic_cast<media::mlt::MltPlayer *>(&player);
    if (!mlt)
        return;
    QObject::connect(
        mlt, &media::mlt::MltPlayer::frameShown, view,
        [show = std::move(show)](const QImage &frame, double) { show(frame); },
        Qt::QueuedConnection);
    QObject::connect(view, sizeChanged, mlt, [mlt](QSize size) { mlt->setVideoSize(size); });
    mlt->setVideoSize(initialSize);
}

} // namespace kavel::app
