#pragma once

#include "media/audioconverter.h"

#include <QFile>
#include <QHash>
#include <QStringList>
#include <QTimer>
#include <stdexcept>

namespace kavel::test {

// A conversion whose end the test decides: it stays running until finish() is called.
class FakeConversion final : public media::AudioConversion
{
public:
    explicit FakeConversion(QString output)
        : m_output(std::move(output))
    { }

    media::ConversionStatus status() const override { return m_status; }
    double progress() const override { return m_progress; }
    std::exception_ptr error() const override { return m_error; }
    void cancel() override { finish(media::ConversionStatus::cancelled); }

    void setProgress(double progress) { m_progress = progress; }
    // Completing writes the output file, as an engine would.
    void finish(media::ConversionStatus status, std::exception_ptr error = nullptr)
    {
        if (m_status != media::ConversionStatus::running)
            return;
        if (status == media::ConversionStatus::completed) {
            QFile file(m_output);
            if (file.open(QIODevice::WriteOnly))
                file.write("converted audio");
        }
        m_status = status;
        m_error = std::move(error);
        Q_EMIT finished();
    }

    const QString &output() const { return m_output; }

private:
    QString m_output;
    media::ConversionStatus m_status = media::ConversionStatus::running;
    double m_progress = 0.0;
    std::exception_ptr m_error;
};

// Refuses the sources it is told to refuse; every other conversion either completes on
// the next turn of the event loop (the default) or waits for the test.
class FakeAudioConverter final : public media::AudioConverter
{
public:
    std::unique_ptr<media::AudioConversion> startM4AConversion(const QString &sourcePath,
                                                               const QString &outputPath) override
    {
        if (refused.contains(sourcePath))
            return nullptr;
        auto conversion = std::make_unique<FakeConversion>(outputPath);
        m_last = conversion.get();
        if (completeAtOnce) {
            QTimer::singleShot(0, conversion.get(), [c = conversion.get()] {
                c->finish(media::ConversionStatus::completed);
            });
        }
        return conversion;
    }

    QStringList refused;
    bool completeAtOnce = true;

    // The conversion started last; only valid while the code under test holds it.
    FakeConversion &current() const
    {
        if (!m_last)
            throw std::logic_error("no conversion was started");
        return *m_last;
    }

private:
    FakeConversion *m_last = nullptr;
};

} // namespace kavel::test
