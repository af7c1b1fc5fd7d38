#include "subtitlewriter.h"

#include "model/fileio.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kavel {

QString subRipTimestamp(double seconds)
{
    if (!std::isfinite(seconds) || std::abs(seconds) >= 9.2e18)
        qFatal("subRipTimestamp: %f is not a representable time", seconds);
    const auto whole = static_cast<qint64>(seconds);
    const auto millis = static_cast<qint64>((seconds - static_cast<double>(whole)) * 1000.0);
    char text[64];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld,%03lld",
                  static_cast<long long>(whole / 3600), static_cast<long long>(whole % 3600 / 60),
                  static_cast<long long>(whole % 60), static_cast<long long>(millis));
    return QString::fromLatin1(text);
}

QByteArray subRipDocument(const QList<WordBlock> &blocks, const CompositionPlan &plan)
{
    QList<const WordBlock *> ordered;
    ordered.reserve(blocks.size());
    for (const WordBlock &block : blocks)
        ordered.append(&block);
    std::stable_sort(ordered.begin(), ordered.end(), [](const WordBlock *a, const WordBlock *b) {
        return a->sortOrder < b->sortOrder;
    });

    QByteArray out;
    out.reserve(blocks.size() * 48);
    // The map holds the played words in the same order, so one pass pairs them up.
    const QList<EditSegment> &segments = plan.editList.segments;
    qsizetype next = 0;
    double cursor = 0.0;
    for (qsizetype i = 0; i < ordered.size(); ++i) {
        const WordBlock &block = *ordered[i];
        double start = cursor;
        double end = cursor;
        if (next < segments.size() && segments.at(next).blockId == block.id) {
            start = segments.at(next).compositionStart;
            end = segments.at(next).compositionEnd();
            ++next;
        }
        if (i > 0)
            out += '\n';
        out += QByteArray::number(i + 1) + '\n';
        out += subRipTimestamp(start).toLatin1() + " --> " + subRipTimestamp(end).toLatin1() + '\n';
        out += block.text.toUtf8() + '\n';
        cursor = end;
    }
    return out;
}

void writeSubtitles(const QList<WordBlock> &blocks, const CompositionPlan &plan,
                    const QString &path)
{
    fileio::writeFileAtomically(path, subRipDocument(blocks, plan));
}

} // namespace kavel
