#include "clioutput.h"

#include <cmath>
#include <cstdio>

namespace kavel::cli {

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

QString formatSeconds(double seconds)
{
    if (!std::isfinite(seconds))
        return QStringLiteral("--:--:--.---");
    const bool negative = seconds < 0;
    const qint64 millis = std::llround(std::abs(seconds) * 1000.0);
    const qint64 h = millis / 3'600'000;
    const qint64 m = millis / 60'000 % 60;
    const qint64 s = millis / 1000 % 60;
    const qint64 ms = millis % 1000;
    return QStringLiteral("%1%2:%3:%4.%5")
        .arg(negative ? QStringLiteral("-") : QString())
        .arg(h, 2, 10, QLatin1Char('0'))
        .arg(m, 2, 10, QLatin1Char('0'))
        .arg(s, 2, 10, QLatin1Char('0'))
        .arg(ms, 3, 10, QLatin1Char('0'));
}

} // namespace kavel::cli
