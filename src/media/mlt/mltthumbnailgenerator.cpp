#include "mltthumbnailgenerator.h"

#include "mediaprobe.h"

#include <Mlt.h>
#include <QCoreApplication>
#include <QTransform>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

MltThumbnailGenerator::MltThumbnailGenerator(const QString &path, const ThumbnailOptions &options)
    : m_options(options)
{
    const ProbedMedia probed = probeMedia(path);
    m_info = probed.info;
    if (!m_info.hasVideo || m_info.videoSize.isEmpty())
        throw MediaError(QCoreApplication::translate("kavel::media", "文件中没有画面：") + path);

    // Decode at the stored size and turn the picture ourselves, so that the rotation is
    // applied exactly once whatever MLT's own auto-rotation would do.
    m_profile = std::make_unique<Mlt::Profile>();
    m_profile->set_explicit(1);
    m_profile->set_width(m_info.videoSize.width());
    m_profile->set_height(m_info.videoSize.height());
    m_profile->set_frame_rate(probed.frameRate.num, probed.frameRate.den);
    m_profile->set_sample_aspect(1, 1);
    m_profile->set_display_aspect(m_info.videoSize.width(), m_info.videoSize.height());
    m_profile->set_progressive(1);
    m_producer = std::make_unique<Mlt::Producer>(*m_profile, path.toUtf8().constData());
    if (!m_producer->is_valid())
        throw MediaError(QCoreApplication::translate("kavel::media", "无法打开媒体文件 ") + path);
    m_producer->set("autorotate", 0);
    m_producer->set("video_index", 0);
    m_producer->set("audio_index", -1);

    const bool quarterTurn = options.applyRotation && m_info.rotationDegrees % 180 != 0;
    QSize upright = m_info.videoSize;
    if (quarterTurn)
        upright.transpose();
    m_outputSize = upright.scaled(options.maximumSize, Qt::KeepAspectRatio);
    if (quarterTurn)
        m_outputSize.transpose();
    m_outputSize = m_outputSize.expandedTo({2, 2});
}

MltThumbnailGenerator::~MltThumbnailGenerator() = default;

std::optional<QImage> MltThumbnailGenerator::imageAt(double seconds)
{
    if (!std::isfinite(seconds) || seconds < 0)
        return std::nullopt;
    const int length = m_producer->get_length();
    int frame = static_cast<int>(std::lround(seconds * m_profile->fps()));
    // The tolerance after the time lets a request just past the end take the last frame.
    if (frame >= length) {
        if (seconds - m_options.toleranceBefore > double(length) / m_profile->fps())
            return std::nullopt;
        frame = length - 1;
    }
    m_producer->seek(frame);
    std::unique_ptr<Mlt::Frame> decoded(m_producer->get_frame());
    if (!decoded || !decoded->is_valid())
        return std::nullopt;
    decoded->set("consumer.rescale", "bilinear");
    mlt_image_format format = mlt_image_rgba;
    int width = m_outputSize.width();
    int height = m_outputSize.height();
    const uint8_t *pixels = decoded->get_image(format, width, height);
    if (!pixels || format != mlt_image_rgba || width <= 0 || height <= 0)
        return std::nullopt;
    if (decoded->get_int("test_image"))
        return std::nullopt;
    QImage image = QImage(pixels, width, height, width * 4, QImage::Format_RGBA8888).copy();
    if (m_options.applyRotation && m_info.rotationDegrees != 0)
        image = image.transformed(QTransform().rotate(m_info.rotationDegrees));
    return image.convertToFormat(QImage::Format_ARGB32);
}

} // namespace kavel::media::mlt
