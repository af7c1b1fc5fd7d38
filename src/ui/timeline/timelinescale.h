#pragma once

#include <QList>
#include <QString>

namespace kavel::ui {

// The timeline's horizontal scale, in points per second of edited media.
inline constexpr double minPixelsPerSecond = 10.0;
inline constexpr double maxPixelsPerSecond = 500.0;

// One zoom step: a delta of +1 scales by 1.1, -1 by 0.9; the result is clamped to
// [minPixelsPerSecond, maxPixelsPerSecond].
double zoomedPixelsPerSecond(double pixelsPerSecond, double delta);

struct RulerTick
{
    double time = 0.0;
    double x = 0.0;
    bool major = false;
    // Empty on minor ticks.
    QString label;

    friend bool operator==(const RulerTick &, const RulerTick &) = default;
};

// Seconds between ticks: finer as the scale grows, so labels never crowd.
double rulerTickInterval(double pixelsPerSecond);
// "12s" below a minute, "1:05" from there on.
QString rulerLabel(double seconds);
// The ticks of a ruler for media of `duration` seconds whose x lies in [fromX, toX];
// none while the duration is 0.
QList<RulerTick> rulerTicks(double pixelsPerSecond, double duration, double fromX, double toX);

} // namespace kavel::ui
