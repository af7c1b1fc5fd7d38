#pragma once

#include <QString>
#include <functional>

// Media for the preview benchmarks, made once with ffmpeg and kept in the temporary
// folder between runs (an hour of video takes a while to encode).
namespace kavel::bench {

// One hour of tiny video (64x36) with silent AAC audio: the length is what matters.
QString hourLongSource();
// 12 seconds of 1920x1080 test pattern at 30 fps with a tone.
QString fullHdSource();

// Runs the event loop until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitFor(const std::function<bool()> &done, int timeoutMs);

// Resident set size of this process, in bytes.
qint64 residentBytes();

} // namespace kavel::bench
