#pragma once

#include "model/paragraph.h"

#include <QColor>
#include <QFont>
#include <QRectF>

class QPainter;
class QPalette;

namespace kavel::ui {

// Colours of the transcript, derived from the widget palette so the view follows a
// light or a dark theme; the state colours are the same in both.
struct TranscriptColors
{
    QColor background;
    QColor text;
    QColor secondaryText;
    QColor sectionHover;
    QColor sectionSelected;
    QColor sectionSelectedBorder;
    QColor activeMarker;
    QColor wordSelected;
    QColor wordActive;
    QColor wordActiveText;
    QColor wordHover;
    QColor searchHit;
    QColor fillerText;
    // The dotted line under a word the recogniser doubted.
    QColor checkMark;
    QColor cursor;

    static TranscriptColors fromPalette(const QPalette &palette);
};

struct SectionState
{
    bool isSelected = false;
    bool isActive = false;
    bool isHovering = false;
    bool isDragged = false;
    bool isPlayingSentence = false;
    // Where the paragraph starts in the edited result, as the player counts time.
    double startTime = 0.0;
};

struct WordState
{
    bool isSelected = false;
    bool isActive = false;
    bool isHovering = false;
    bool isFiller = false;
    bool isSearchHit = false;
    bool needsCheck = false;
};

// "说话人 1"; an unknown speaker shows nothing.
QString speakerTitle(const std::optional<QString> &label);
// Minutes and seconds of a media time, "03:07"; hours are added past the hour.
QString sectionTimeLabel(double seconds);

// Draws the background, the active marker and the header line of a section. The words
// are drawn separately, only those that are exposed.
void paintSectionFrame(QPainter &painter, const QRectF &section, const QRectF &header,
                       const Paragraph &paragraph, const SectionState &state,
                       const TranscriptColors &colors, const QFont &headerFont);

// One word token at its frame; the text starts at `textPosition` (on its baseline).
void paintWordToken(QPainter &painter, const QRectF &frame, QPointF textPosition,
                    const QString &text, const WordState &state, const TranscriptColors &colors);

} // namespace kavel::ui
