#include "captionburner.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::ffmpeg {

namespace {

// A caption's colours in limited-range BT.709, the movie's colour space, premultiplied by
// its coverage so a blend is one multiply and one add per sample.
struct Yuv
{
    double y, cb, cr;
};

Yuv premultipliedYuv(QRgb pixel)
{
    const double r = qRed(pixel), g = qGreen(pixel), b = qBlue(pixel), a = qAlpha(pixel);
    const double luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
    return {16.0 * a / 255.0 + 219.0 / 255.0 * luma,
            128.0 * a / 255.0 + 224.0 / 255.0 * (b - luma) / 1.8556,
            128.0 * a / 255.0 + 224.0 / 255.0 * (r - luma) / 1.5748};
}

std::uint8_t byte(double v)
{
    return std::uint8_t(std::clamp(std::lround(v), 0L, 255L));
}

// Coverage a and premultiplied value v over a sample d.
inline std::uint8_t over(std::uint8_t d, std::uint8_t a, std::uint8_t v)
{
    return std::uint8_t(std::min(255, (d * (255 - a) + 127) / 255 + v));
}

} // namespace

// A drawn caption in the pictures' planes: coverage and premultiplied value per luma
// sample, and the same averaged over each 2×2 block for the chroma planes.
struct CaptionBurner::Overlay
{
    int x = 0, y = 0, width = 0, height = 0;
    std::vector<std::uint8_t> alpha, luma, chromaAlpha, cb, cr;

    explicit Overlay(const CaptionPainter::Picture &picture)
        : x(picture.position.x())
        , y(picture.position.y())
        , width(picture.image.width())
        , height(picture.image.height())
    {
        const QImage &image = picture.image;
        alpha.resize(size_t(width) * height);
        luma.resize(alpha.size());
        for (int row = 0; row < height; ++row) {
            const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(row));
            for (int column = 0; column < width; ++column) {
                const size_t at = size_t(row) * width + column;
                alpha[at] = std::uint8_t(qAlpha(line[column]));
                luma[at] = byte(premultipliedYuv(line[column]).y);
            }
        }
        const int cw = width / 2, ch = height / 2;
        chromaAlpha.resize(size_t(cw) * ch);
        cb.resize(chromaAlpha.size());
        cr.resize(chromaAlpha.size());
        for (int row = 0; row < ch; ++row) {
            const auto *upper = reinterpret_cast<const QRgb *>(image.constScanLine(2 * row));
            const auto *lower = reinterpret_cast<const QRgb *>(image.constScanLine(2 * row + 1));
            for (int column = 0; column < cw; ++column) {
                double a = 0, u = 0, v = 0;
                for (const QRgb p : {upper[2 * column], upper[2 * column + 1], lower[2 * column],
                                     lower[2 * column + 1]}) {
                    const Yuv yuv = premultipliedYuv(p);
                    a += qAlpha(p) / 4.0;
                    u += yuv.cb / 4.0;
                    v += yuv.cr / 4.0;
                }
                const size_t at = size_t(row) * cw + column;
                chromaAlpha[at] = byte(a);
                cb[at] = byte(u);
                cr[at] = byte(v);
            }
        }
    }
};

CaptionBurner::CaptionBurner(const QList<Caption> &captions, double textHeight, QSize frame,
                             timing::Rate rate)
{
    for (const Caption &caption : captions) {
        const timing::Span frames {timing::firstFrameAtOrAfter(caption.start, rate),
                                   timing::firstFrameAtOrAfter(caption.end, rate)};
        if (frames.count() > 0 && !caption.text.trimmed().isEmpty())
            m_cues.push_back({frames, caption.text});
    }
    std::stable_sort(m_cues.begin(), m_cues.end(),
                     [](const Cue &a, const Cue &b) { return a.frames.begin < b.frames.begin; });
    if (m_cues.empty())
        return;
    // Fonts live in the GUI side of Qt; a program without it cannot draw text at all.
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        throw MediaError(
            QCoreApplication::translate("kavel::media", "无法绘制字幕：没有可用的字体"));
    m_painter = std::make_unique<CaptionPainter>(frame, textHeight);
}

CaptionBurner::~CaptionBurner() = default;

void CaptionBurner::burn(FramePtr &picture, const AVFrame *blank, std::int64_t index)
{
    for (auto it = m_showing.begin(); it != m_showing.end();)
        it = m_cues[it->first].frames.end <= index ? m_showing.erase(it) : std::next(it);
    for (; m_next < m_cues.size() && m_cues[m_next].frames.begin <= index; ++m_next)
        if (index < m_cues[m_next].frames.end) {
            const CaptionPainter::Picture drawn = m_painter->paint(m_cues[m_next].text);
            if (!drawn.image.isNull())
                m_showing.emplace(m_next, Overlay(drawn));
        }
    if (m_showing.empty())
        return;

    if (!picture) {
        picture.reset(av_frame_clone(blank));
        if (!picture)
            throw std::bad_alloc();
    }
    if (picture->format != AV_PIX_FMT_YUV420P)
        throw MediaError(
            QCoreApplication::translate("kavel::media", "无法绘制字幕：不支持的画面格式"));
    // Decoded pictures may be shared with the source that keeps them for the next frame.
    if (av_frame_make_writable(picture.get()) < 0)
        throw std::bad_alloc();
    for (const auto &[cue, overlay] : m_showing)
        blend(picture.get(), overlay);
}

void CaptionBurner::blend(AVFrame *picture, const Overlay &overlay) const
{
    const int width = std::min(overlay.width, picture->width - overlay.x);
    const int height = std::min(overlay.height, picture->height - overlay.y);
    for (int row = 0; row < height; ++row) {
        std::uint8_t *out
            = picture->data[0] + std::ptrdiff_t(overlay.y + row) * picture->linesize[0] + overlay.x;
        const std::uint8_t *a = overlay.alpha.data() + size_t(row) * overlay.width;
        const std::uint8_t *v = overlay.luma.data() + size_t(row) * overlay.width;
        for (int column = 0; column < width; ++column)
            if (a[column])
                out[column] = over(out[column], a[column], v[column]);
    }
    const int cw = overlay.width / 2;
    for (int row = 0; row < height / 2; ++row) {
        const std::ptrdiff_t line = overlay.y / 2 + row;
        std::uint8_t *u = picture->data[1] + line * picture->linesize[1] + overlay.x / 2;
        std::uint8_t *v = picture->data[2] + line * picture->linesize[2] + overlay.x / 2;
        const size_t at = size_t(row) * cw;
        for (int column = 0; column < width / 2; ++column) {
            const std::uint8_t a = overlay.chromaAlpha[at + column];
            if (!a)
                continue;
            u[column] = over(u[column], a, overlay.cb[at + column]);
            v[column] = over(v[column], a, overlay.cr[at + column]);
        }
    }
}

} // namespace kavel::media::ffmpeg
