#pragma once

#include "timing/compositionmap.h"

#include <QByteArray>
#include <QList>
#include <QSize>
#include <QString>
#include <optional>

// The edit handed to other editors: the cut list of the composition map, on frames,
// with the source files referenced where they are.
namespace kavel::interchange {

enum class Format { mlt, edl, fcpxml };

struct Source
{
    QString path;
    bool hasVideo = false;
    bool hasAudio = true;
    // The picture's rate, exactly; sources without a picture are cut on the timeline's.
    timing::Rate rate;
    QSize size;
    double duration = 0.0;
};

// One event of the cut list: output frames [recordIn, recordOut) show source frames from
// sourceIn on, counted at the source's own rate.
struct Cut
{
    qsizetype source = 0;
    std::int64_t recordIn = 0;
    std::int64_t recordOut = 0;
    std::int64_t sourceIn = 0;
    // The source time shown at recordIn, exactly.
    double sourceStart = 0.0;
    std::int64_t length() const { return recordOut - recordIn; }
};

// The exact rate a decimal rate stands for: 29.97 is 30000/1001, 25 is 25/1.
timing::Rate rateFromFramesPerSecond(double fps);

// The timeline's rate: the first source with a picture's, else 30 fps.
timing::Rate timelineRate(const QList<Source> &sources);

// The segments on the timeline's frame grid, as the movie export places them: a cut owns
// the frames whose start falls in its segment, so the frame count and every cut match
// the exported movie. Cuts that continue each other in one source are joined.
QList<Cut> cutList(const EditList &edit, const QList<Source> &sources);

// "mlt", "edl", "fcpxml": the raw values and the file extensions.
QString toRawValue(Format format);
std::optional<Format> formatFromRaw(QStringView raw);

// The whole document, UTF-8. `sources` must hold every path the edit uses.
QByteArray document(Format format, const EditList &edit, const QList<Source> &sources,
                    const QString &title);

// "HH:MM:SS:FF", non-drop-frame, at the rate's nominal frames per second.
QString timecode(std::int64_t frame, timing::Rate rate);

} // namespace kavel::interchange
