#include "timelinescale.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

double zoomedPixelsPerSecond(double pixelsPerSecond, double delta)
{
    const double next = (delta * 0.1 + 1.0) * pixelsPerSecond;
    return std::clamp(next, minPixelsPerSecond, maxPixelsPerSecond);
}

double rulerTickInterval(double pixelsPerSecond)
{
    if (pixelsPerSecond >= 100.0)
        return 1.0;
    if (pixelsPerSecond >= 40.0)
        return 5.0;
    return 10.0;
}

QString rulerLabel(double seconds)
{
    const int s = static_cast<int>(seconds);
    if (s < 60)
        return u"%1s"_s.arg(s);
    return u"%1:%2"_s.arg(s / 60).arg(s % 60, 2, 10, QChar(u'0'));
}

QList<RulerTick> rulerTicks(double pixelsPerSecond, double duration, double fromX, double toX)
{
    QList<RulerTick> ticks;
    if (!(duration > 0.0) || !(pixelsPerSecond > 0.0))
        return ticks;
    const double interval = rulerTickInterval(pixelsPerSecond);
    // Ticks are counted, not accumulated, so a long ruler does not drift.
    const auto firstStep
        = static_cast<qint64>(std::max(0.0, std::floor(fromX / pixelsPerSecond / interval)));
    for (qint64 step = firstStep;; ++step) {
        const double t = static_cast<double>(step) * interval;
        const double x = t * pixelsPerSecond;
        if (t > duration || x > toX)
            break;
        if (x < fromX)
            continue;
        RulerTick tick;
        tick.time = t;
        tick.x = x;
        tick.major = std::fmod(t, 2.0 * interval) < 0.001;
        if (tick.major)
            tick.label = rulerLabel(t);
        ticks.append(tick);
    }
    return ticks;
}

} // namespace kavel::ui
