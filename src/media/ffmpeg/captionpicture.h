#pragma once

#include <QFont>
#include <QImage>
#include <QPoint>
#include <QSize>
#include <QStringList>

namespace kavel::media::ffmpeg {

// How a caption looks in a picture of a given size: a sans-serif face with Chinese glyphs
// (Noto Sans CJK where installed), white with a dark outline, centred near the bottom, its
// text a fixed share of the picture's height, in at most two lines.
class CaptionPainter
{
public:
    // `textHeight` is the height of the text as a share of the frame's. Needs a
    // QGuiApplication; usable on any thread.
    CaptionPainter(QSize frame, double textHeight);

    const QFont &font() const { return m_font; }
    // The lines `text` is shown in: one when it fits across the picture, else two of about
    // equal width, broken where a line may break (at a space, between two Chinese
    // characters, inside a word only when it is wider than the picture). Text that needs a
    // third line ends the second with an ellipsis.
    QStringList lines(const QString &text) const;

    struct Picture
    {
        // Premultiplied ARGB, transparent around the text; even size.
        QImage image;
        // Where its top left corner goes in the frame; even coordinates.
        QPoint position;
    };
    // Empty for text with nothing to show.
    Picture paint(const QString &text) const;

private:
    QStringList linesAt(const QString &text, double width) const;

    QSize m_frame;
    QFont m_font;
    double m_outline = 0.0;
    double m_maxWidth = 0.0;
};

} // namespace kavel::media::ffmpeg
