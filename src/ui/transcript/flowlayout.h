#pragma once

#include <QList>
#include <QRectF>
#include <QSizeF>
#include <optional>

namespace kavel::ui {

// One line of a flow: items [first, first + count) of the input.
struct FlowRow
{
    qsizetype first = 0;
    qsizetype count = 0;
    qreal width = 0.0; // items plus the spacing between them
    qreal height = 0.0; // the tallest item
};

// Words wrapped like running text. Pure geometry over item sizes, so that measuring,
// placing and hit-testing all agree on where the lines break. A width of nullopt means
// the container proposed none: everything goes on one row.
struct FlowLayout
{
    qreal hSpacing = 0.0;
    qreal vSpacing = 0.0;

    // Always at least one row; an empty input gives one empty row.
    QList<FlowRow> breakRows(const QList<QSizeF> &sizes, std::optional<qreal> width) const;
    QSizeF sizeThatFits(const QList<QSizeF> &sizes, std::optional<qreal> width) const;
    // One frame per item, each at its natural size, rows starting at `origin`.
    QList<QRectF> place(const QList<QSizeF> &sizes, QPointF origin,
                        std::optional<qreal> width) const;
};

} // namespace kavel::ui
