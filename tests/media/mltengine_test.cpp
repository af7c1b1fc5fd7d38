#include "mediafixture.h"

#include <QImage>
#include <QProcess>

using namespace Qt::StringLiterals;
using namespace kavel;

namespace {

using ProbeAndThumbnails = kavel::test::MediaFixture;

TEST_F(ProbeAndThumbnails, ProbeReportsStreamsDurationRateAndRotation)
{
    const media::MediaInfo video = engine().probe(s_video);
    EXPECT_TRUE(video.hasVideo);
    EXPECT_TRUE(video.hasAudio);
    EXPECT_NEAR(video.duration, 4.0, 0.05);
    EXPECT_NEAR(video.videoDuration, 4.0, 0.05);
    EXPECT_DOUBLE_EQ(video.frameRate, 30.0);
    EXPECT_EQ(video.videoSize, QSize(160, 90));
    EXPECT_EQ(video.rotationDegrees, 0);

    const media::MediaInfo tone = engine().probe(s_tone);
    EXPECT_FALSE(tone.hasVideo);
    EXPECT_TRUE(tone.hasAudio);
    EXPECT_NEAR(tone.audioDuration, 4.0, 0.01);

    EXPECT_FALSE(engine().probe(s_silentVideo).hasAudio);
    EXPECT_NE(engine().probe(s_rotated).rotationDegrees % 180, 0);

    EXPECT_THROW(engine().probe(s_notMedia), media::MediaError);
    EXPECT_THROW(engine().probe(s_dir->filePath(u"missing.mp4"_s)), media::MediaError);
    // A cut-off download opens or fails cleanly, but never takes the process down.
    try {
        engine().probe(s_truncated);
    } catch (const media::MediaError &) { }
}

TEST_F(ProbeAndThumbnails, ThumbnailsFitTheBoxAndComeOutUpright)
{
    media::ThumbnailOptions options;
    options.maximumSize = {320, 180};
    options.toleranceBefore = options.toleranceAfter = 2.0;
    auto generator = engine().createThumbnailGenerator(s_video, options);
    const std::optional<QImage> image = generator->imageAt(1.0);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), QSize(320, 180));
    EXPECT_FALSE(generator->imageAt(60.0));

    // The phone video is stored landscape, red above blue; shown upright it is portrait,
    // turned the way ffmpeg itself turns it.
    auto phone = engine().createThumbnailGenerator(s_rotated, options);
    const std::optional<QImage> upright = phone->imageAt(1.0);
    ASSERT_TRUE(upright);
    EXPECT_EQ(upright->height(), 180);
    EXPECT_LT(upright->width(), upright->height());

    const QString reference = s_dir->filePath(u"reference.png"_s);
    kavel::test::runFfmpeg(
        {u"-ss"_s, u"1"_s, u"-i"_s, s_rotated, u"-frames:v"_s, u"1"_s, reference});
    const QImage expected(reference);
    ASSERT_FALSE(expected.isNull());
    ASSERT_LT(expected.width(), expected.height());
    // Which side is red, sampled at the left edge and half way down.
    const auto redLeft
        = [](const QImage &picture) { return qRed(picture.pixel(5, picture.height() / 2)) > 180; };
    EXPECT_EQ(redLeft(*upright), redLeft(expected));
    EXPECT_EQ(qBlue(upright->pixel(upright->width() - 5, upright->height() / 2)) > 180,
              redLeft(expected));

    EXPECT_THROW(engine().createThumbnailGenerator(s_tone, options), media::MediaError);
    EXPECT_THROW(engine().createThumbnailGenerator(s_notMedia, options), media::MediaError);
}

} // namespace
