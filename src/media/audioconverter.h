#pragma once

#include <QObject>
#include <QString>
#include <exception>
#include <memory>

namespace kavel::media {

enum class ConversionStatus { running, completed, failed, cancelled };

// One running conversion of a source's sound into an AAC ".m4a" file. Lives on the
// thread that started it; finished() is emitted there, once, and never from inside the
// call that started the conversion.
class AudioConversion : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~AudioConversion() override = default;

    virtual ConversionStatus status() const = 0;
    // 0 to 1.
    virtual double progress() const = 0;
    // Why a failed conversion failed; may be null when the engine cannot say.
    virtual std::exception_ptr error() const = 0;
    // Stops the work; the status becomes cancelled unless it had already ended.
    virtual void cancel() = 0;

Q_SIGNALS:
    void finished();
};

// The engine's audio-only export, as the import pipeline needs it.
class AudioConverter
{
public:
    virtual ~AudioConverter() = default;

    // Starts writing the sound of `sourcePath` to `outputPath` as AAC in an MPEG-4 audio
    // container. Returns null when the engine cannot convert this source at all (it
    // cannot open it as media); every other failure is reported by the conversion.
    virtual std::unique_ptr<AudioConversion> startM4AConversion(const QString &sourcePath,
                                                                const QString &outputPath)
        = 0;
};

} // namespace kavel::media
