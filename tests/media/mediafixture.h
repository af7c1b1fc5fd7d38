#pragma once

#include "generatedmedia.h"
#include "media/mlt/mltengine.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

namespace kavel::test {

// Media made once per test program and one engine over it.
class MediaFixture : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (s_dir)
            return;
        s_dir = new QTemporaryDir;
        const QString d = s_dir->path();
        s_engine = new media::mlt::MltMediaEngine;
        s_video = makeVideoWithAudio(d, QStringLiteral("video.mp4"), 4.0);
        s_second = makeVideoWithAudio(d, QStringLiteral("second.mp4"), 2.0);
        s_tone = makeTone(d, QStringLiteral("tone.wav"), 4.0);
        s_silentVideo = makeVideoWithoutAudio(d, QStringLiteral("silent.mp4"), 2.0);
        s_rotated = makeRotatedVideo(d, QStringLiteral("phone.mp4"), 2.0);
        s_truncated = makeTruncated(d, QStringLiteral("truncated.mp4"), s_video);
        s_notMedia = makeNotMedia(d, QStringLiteral("notes.mp4"));
    }

    media::mlt::MltMediaEngine &engine() { return *s_engine; }

    static inline QTemporaryDir *s_dir = nullptr;
    static inline media::mlt::MltMediaEngine *s_engine = nullptr;
    static inline QString s_video, s_second, s_tone, s_silentVideo, s_rotated, s_truncated,
        s_notMedia;
};

} // namespace kavel::test
