#pragma once

#include "mediatypes.h"

#include <QList>
#include <QSize>
#include <QString>
#include <memory>
#include <optional>

namespace kavel::media {

enum class RenderFormat {
    // Movies: H.264 or HEVC with AAC sound, the index at the front of the file.
    mp4,
    mov,
    // Sound only: 16-bit little-endian PCM, 44.1 kHz stereo.
    wav,
    // Sound only: AAC in an MPEG-4 audio file.
    m4a,
};

enum class VideoEncoding { h264, hevc };

// Text drawn into a movie's pictures, on the output's clock: it shows on the first frame at
// or after `start` and on every frame before `end`.
struct Caption
{
    double start = 0.0;
    double end = 0.0;
    QString text;
};

enum class Denoise { off, light, strong };

// What is done to the edited sound as a whole before it is written. Nothing moves in time.
struct SoundFinish
{
    // Integrated loudness to reach, in LUFS, with one gain for the whole result; none
    // leaves the level as it is.
    std::optional<double> loudnessTarget;
    // Steady hiss taken out.
    Denoise denoise = Denoise::off;

    friend bool operator==(const SoundFinish &, const SoundFinish &) = default;
};

// The edited sound measured before and after its gain (EBU R128: LUFS and dBTP).
struct LoudnessReport
{
    double before = 0.0;
    double truePeakBefore = 0.0;
    double after = 0.0;
    double truePeakAfter = 0.0;
    // The target was not reached: the peaks stand so far above the speech that the limiter
    // would have had to take them down by more than it may, or the loudness was in the
    // peaks it took down.
    bool peakLimited = false;
};

struct RenderRequest
{
    EditList editList;
    // Written as given: the caller decides about temporary names and replacing files.
    QString outputPath;
    RenderFormat format = RenderFormat::mp4;
    // Movies only.
    VideoEncoding videoEncoding = VideoEncoding::h264;
    QSize frameSize {1920, 1080};
    // Movies only: captions burned into the pictures, and the height of their text as a
    // share of the picture's.
    QList<Caption> captions;
    double captionHeight = 0.055;
    SoundFinish sound;
};

enum class RenderState { running, completed, failed, cancelled };

// One render in progress. It runs on the engine's own threads; the owner polls it from
// its thread. Destroying a running job cancels it.
class RenderJob
{
public:
    virtual ~RenderJob() = default;
    // Advances the job's view of the render and says where it stands. Cheap; meant to be
    // called every tenth of a second or so.
    virtual RenderState poll() = 0;
    // 0 to 1.
    virtual double progress() const = 0;
    // Why the job failed; empty otherwise.
    virtual QString errorText() const = 0;
    virtual void cancel() = 0;
    // The sound's loudness, once a job that was asked for a loudness target has completed.
    virtual std::optional<LoudnessReport> loudness() const { return std::nullopt; }
};

// Renders edit lists to files: the export side of a media engine.
class Renderer
{
public:
    virtual ~Renderer() = default;
    // Throws MediaError when the render cannot be set up (no encoder for the format, an
    // empty edit list, an output that cannot be opened).
    virtual std::unique_ptr<RenderJob> start(const RenderRequest &request) = 0;
    virtual bool canEncode(RenderFormat format) const = 0;
};

} // namespace kavel::media
