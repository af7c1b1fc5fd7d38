#include "flowlayout.h"

#include <algorithm>
#include <limits>

namespace kavel::ui {

QList<FlowRow> FlowLayout::breakRows(const QList<QSizeF> &sizes, std::optional<qreal> width) const
{
    const qreal limit = width.value_or(std::numeric_limits<qreal>::infinity());
    QList<FlowRow> rows {FlowRow {}};
    qreal x = 0.0;
    for (qsizetype i = 0; i < sizes.size(); ++i) {
        const QSizeF size = sizes.at(i);
        const qreal needed = x > 0.0 ? size.width() + hSpacing : size.width();
        // A word wider than the line still gets a line of its own rather than none.
        if (x + needed > limit && rows.last().count > 0) {
            rows.append(FlowRow {i, 0, 0.0, 0.0});
            x = 0.0;
        }
        FlowRow &row = rows.last();
        row.width += row.count > 0 ? size.width() + hSpacing : size.width();
        row.height = std::max(row.height, size.height());
        ++row.count;
        x += x > 0.0 ? size.width() + hSpacing : size.width();
    }
    return rows;
}

QSizeF FlowLayout::sizeThatFits(const QList<QSizeF> &sizes, std::optional<qreal> width) const
{
    const QList<FlowRow> rows = breakRows(sizes, width);
    qreal widest = 0.0;
    qreal height = 0.0;
    for (const FlowRow &row : rows) {
        widest = std::max(widest, row.width);
        height += row.height;
    }
    height += vSpacing * static_cast<qreal>(rows.size() - 1);
    return {width.value_or(widest), height};
}

QList<QRectF> FlowLayout::place(const QList<QSizeF> &sizes, QPointF origin,
                                std::optional<qreal> width) const
{
    QList<QRectF> frames;
    frames.reserve(sizes.size());
    qreal y = origin.y();
    for (const FlowRow &row : breakRows(sizes, width)) {
        qreal x = origin.x();
        for (qsizetype i = row.first; i < row.first + row.count; ++i) {
            frames.append(QRectF(QPointF(x, y), sizes.at(i)));
            x += sizes.at(i).width() + hSpacing;
        }
        y += row.height + vSpacing;
    }
    return frames;
}

} // namespace kavel::ui
