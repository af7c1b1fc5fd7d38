#include "paragraphsection.h"

#include <QCoreApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

TranscriptColors TranscriptColors::fromPalette(const QPalette &palette)
{
    TranscriptColors c;
    c.background = palette.color(QPalette::Base);
    c.text = palette.color(QPalette::Text);
    const bool dark = c.background.lightnessF() < 0.5;
    c.secondaryText = palette.color(QPalette::PlaceholderText);
    c.sectionHover = dark ? QColor(255, 255, 255, 14) : QColor(0, 0, 0, 10);
    c.sectionSelected = dark ? QColor(10, 132, 255, 34) : QColor(10, 132, 255, 20);
    c.sectionSelectedBorder = QColor(10, 132, 255, 110);
    c.activeMarker = QColor(255, 149, 0);
    c.wordSelected = QColor(10, 132, 255, dark ? 120 : 80);
    c.wordActive = QColor(255, 149, 0, dark ? 90 : 60);
    c.wordActiveText = dark ? QColor(255, 190, 110) : QColor(178, 80, 0);
    c.wordHover = dark ? QColor(255, 255, 255, 28) : QColor(0, 0, 0, 20);
    c.searchHit = QColor(255, 214, 10, dark ? 130 : 150);
    c.fillerText = dark ? QColor(150, 150, 158) : QColor(142, 142, 147);
    c.checkMark = dark ? QColor(255, 105, 97) : QColor(215, 0, 21);
    c.cursor = QColor(10, 132, 255);
    return c;
}

QString speakerTitle(const std::optional<QString> &label)
{
    if (!label || label->isEmpty())
        return {};
    return QCoreApplication::translate("kavel::ui::ParagraphSection", "说话人 %1").arg(*label);
}

QString sectionTimeLabel(double seconds)
{
    const qint64 s = std::isfinite(seconds) && seconds > 0.0 ? static_cast<qint64>(seconds) : 0;
    const QChar zero(u'0');
    if (s >= 3600)
        return u"%1:%2:%3"_s.arg(s / 3600).arg(s / 60 % 60, 2, 10, zero).arg(s % 60, 2, 10, zero);
    return u"%1:%2"_s.arg(s / 60, 2, 10, zero).arg(s % 60, 2, 10, zero);
}

void paintSectionFrame(QPainter &painter, const QRectF &section, const QRectF &header,
                       const Paragraph &paragraph, const SectionState &state,
                       const TranscriptColors &colors, const QFont &headerFont)
{
    const QRectF card = section.adjusted(6.0, 0.0, -6.0, 0.0);
    if (state.isSelected || state.isHovering || state.isDragged) {
        painter.setPen(state.isSelected ? QPen(colors.sectionSelectedBorder, 1.0) : Qt::NoPen);
        painter.setBrush(state.isSelected ? colors.sectionSelected : colors.sectionHover);
        painter.drawRoundedRect(card.adjusted(0.5, 0.5, -0.5, -0.5), 8.0, 8.0);
    }
    if (state.isActive || state.isPlayingSentence) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(colors.activeMarker);
        painter.drawRoundedRect(
            QRectF(card.left() + 3.0, card.top() + 8.0, 3.0, card.height() - 16.0), 1.5, 1.5);
    }

    painter.setFont(headerFont);
    const QFontMetricsF metrics(headerFont);
    const qreal baseline
        = header.top() + (header.height() + metrics.ascent() - metrics.descent()) / 2.0;
    qreal x = header.left();

    // The grip that shows where a section can be picked up and dragged.
    if (state.isHovering || state.isDragged) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(colors.secondaryText);
        for (int row = 0; row < 3; ++row) {
            for (int col = 0; col < 2; ++col)
                painter.drawEllipse(QPointF(header.left() - 10.0 + col * 4.0,
                                            header.center().y() - 4.0 + row * 4.0),
                                    1.1, 1.1);
        }
    }

    const QString speaker = speakerTitle(paragraph.speakerLabel);
    if (!speaker.isEmpty()) {
        const qreal w = metrics.horizontalAdvance(speaker) + 12.0;
        const QRectF chip(x, header.top() + 1.0, w, header.height() - 2.0);
        painter.setPen(Qt::NoPen);
        painter.setBrush(state.isSelected ? colors.sectionSelectedBorder : colors.sectionHover);
        painter.drawRoundedRect(chip, chip.height() / 2.0, chip.height() / 2.0);
        painter.setPen(state.isSelected ? colors.text : colors.secondaryText);
        painter.drawText(QPointF(x + 6.0, baseline), speaker);
        x += w + 8.0;
    }
    if (!paragraph.wordBlocks.isEmpty()) {
        painter.setPen(colors.secondaryText);
        painter.drawText(QPointF(x, baseline), sectionTimeLabel(state.startTime));
    }
}

void paintWordToken(QPainter &painter, const QRectF &frame, QPointF textPosition,
                    const QString &text, const WordState &state, const TranscriptColors &colors)
{
    QColor fill;
    if (state.isSelected)
        fill = colors.wordSelected;
    else if (state.isSearchHit)
        fill = colors.searchHit;
    else if (state.isActive)
        fill = colors.wordActive;
    else if (state.isHovering)
        fill = colors.wordHover;
    if (fill.isValid()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(frame, 3.0, 3.0);
    }
    // A search hit that is also under the play head keeps the play-head colour as a
    // line, so following playback never loses track of the active word.
    if (state.isActive && (state.isSelected || state.isSearchHit)) {
        painter.setPen(QPen(colors.activeMarker, 2.0));
        painter.drawLine(QPointF(frame.left() + 1.0, frame.bottom() - 1.0),
                         QPointF(frame.right() - 1.0, frame.bottom() - 1.0));
    }

    QColor ink = colors.text;
    if (state.isFiller)
        ink = colors.fillerText;
    if (state.isActive && !state.isSelected)
        ink = colors.wordActiveText;
    painter.setPen(ink);
    painter.drawText(textPosition, text);

    // A doubted word is underlined in red dots, as a misspelling is in a text editor; the
    // line says more than the filler's grey one, so it takes its place on a doubted filler.
    if (state.needsCheck) {
        QPen dots(colors.checkMark, 1.5, Qt::CustomDashLine);
        dots.setDashPattern({1.0, 1.5});
        painter.setPen(dots);
        painter.drawLine(QPointF(frame.left() + 2.0, frame.bottom() - 1.0),
                         QPointF(frame.right() - 2.0, frame.bottom() - 1.0));
    } else if (state.isFiller) {
        QPen dots(colors.fillerText, 1.0, Qt::DotLine);
        painter.setPen(dots);
        painter.drawLine(QPointF(frame.left() + 2.0, frame.bottom() - 0.5),
                         QPointF(frame.right() - 2.0, frame.bottom() - 0.5));
    }
}

} // namespace kavel::ui
