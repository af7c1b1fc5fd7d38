#include "captionpicture.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

// Captions keep clear of the picture's edges, as television's title-safe area does.
constexpr double sideMargin = 0.05;
constexpr double bottomMargin = 0.06;
// The outline's width as a share of the text's height: legible on white, not heavy.
constexpr double outlineShare = 0.08;

int evenDown(double v)
{
    return int(std::floor(v)) & ~1;
}

int evenUp(double v)
{
    const int n = int(std::ceil(v));
    return n + (n & 1);
}

} // namespace

CaptionPainter::CaptionPainter(QSize frame, double textHeight)
    : m_frame(frame)
{
    // The CJK faces cover Latin too, so one face draws mixed text without a change of
    // style; fontconfig's choice of sans-serif stands in where none is installed.
    m_font.setFamilies({u"Noto Sans CJK SC"_s, u"Noto Sans CJK TC"_s, u"Noto Sans CJK JP"_s,
                        u"Source Han Sans SC"_s});
    m_font.setStyleHint(QFont::SansSerif);
    m_font.setWeight(QFont::Bold);
    m_font.setPixelSize(std::max(8, int(std::lround(textHeight * frame.height()))));
    m_font.setHintingPreference(QFont::PreferNoHinting);
    m_outline = std::max(1.5, outlineShare * m_font.pixelSize());
    m_maxWidth = frame.width() * (1.0 - 2 * sideMargin) - 2 * m_outline;
}

QStringList CaptionPainter::linesAt(const QString &text, double width) const
{
    QTextLayout layout(text, m_font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    QStringList out;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        out.append(text.mid(line.textStart(), line.textLength()).trimmed());
    }
    layout.endLayout();
    return out;
}

QStringList CaptionPainter::lines(const QString &text) const
{
    const QString simplified = text.simplified();
    if (simplified.isEmpty())
        return {};
    QStringList full = linesAt(simplified, m_maxWidth);
    if (full.size() == 1)
        return full;
    if (full.size() > 2) {
        // What does not fit is cut, not shrunk: every caption of a movie keeps one size.
        const QFontMetricsF metrics(m_font);
        const QString rest = simplified.mid(full.at(0).size()).trimmed();
        return {full.at(0), metrics.elidedText(rest, Qt::ElideRight, m_maxWidth)};
    }
    // Two lines of about equal width read better than a full line and a stray word: the
    // narrowest width that still takes two lines balances them.
    double low = m_maxWidth / 2.0 - 1.0, high = m_maxWidth;
    while (high - low > 1.0) {
        const double middle = (low + high) / 2.0;
        if (linesAt(simplified, middle).size() <= 2)
            high = middle;
        else
            low = middle;
    }
    return linesAt(simplified, high);
}

CaptionPainter::Picture CaptionPainter::paint(const QString &text) const
{
    const QStringList shown = lines(text);
    if (shown.isEmpty())
        return {};
    const QFontMetricsF metrics(m_font);
    QPainterPath path;
    for (qsizetype i = 0; i < shown.size(); ++i) {
        const double width = metrics.horizontalAdvance(shown.at(i));
        path.addText(-width / 2.0, double(i) * metrics.lineSpacing() + metrics.ascent(), m_font,
                     shown.at(i));
    }
    // The last line's descent ends at the bottom margin.
    const double top = m_frame.height() * (1.0 - bottomMargin)
        - double(shown.size() - 1) * metrics.lineSpacing() - metrics.height();
    path.translate(m_frame.width() / 2.0, top);

    const QRectF ink = path.boundingRect().adjusted(-m_outline - 1, -m_outline - 1, m_outline + 1,
                                                    m_outline + 1);
    const int left = std::max(0, evenDown(ink.left()));
    const int upper = std::max(0, evenDown(ink.top()));
    const int right = std::min(m_frame.width() & ~1, evenUp(ink.right()));
    const int lower = std::min(m_frame.height() & ~1, evenUp(ink.bottom()));
    if (right <= left || lower <= upper)
        return {};

    Picture picture {QImage(right - left, lower - upper, QImage::Format_ARGB32_Premultiplied),
                     QPoint(left, upper)};
    picture.image.fill(Qt::transparent);
    QPainter painter(&picture.image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(-left, -upper);
    // The stroke is centred on the glyphs' edges; the fill then covers its inner half.
    painter.strokePath(
        path,
        QPen(QColor(0, 0, 0, 230), 2.0 * m_outline, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.fillPath(path, Qt::white);
    painter.end();
    return picture;
}

} // namespace kavel::media::ffmpeg
