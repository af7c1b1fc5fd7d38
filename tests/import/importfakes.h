#pragma once

#include "editor/usernotifier.h"
#include "media/audioconverter.h"

#include <QFile>
#include <QList>
#include <QPair>
#include <QStringList>
#include <QTimer>
#include <stdexcept>

namespace kavel::test {

// Stand-ins for the parts of an import that belong to the desktop and the media engine.

// A conversion whose end the test decides; completing writes the output, as an engine would.
class FakeConversion final : public media::AudioConversion
{
public:
    explicit FakeConversion(QString output)
        : m_output(std::move(output))
    { }

    media::ConversionStatus status() const override { return m_status; }
    double progress() const override { return m_progress; }
    void setProgress(double progress) { m_progress = progress; }
    std::exception_ptr error() const override { return nullptr; }
    void cancel() override { finish(media::ConversionStatus::cancelled); }

    void finish(media::ConversionStatus status)
    {
        if (m_status != media::ConversionStatus::running)
            return;
        QFile file(m_output);
        if (status == media::ConversionStatus::completed && file.open(QIODevice::WriteOnly))
            file.write("converted audio");
        m_status = status;
        Q_EMIT finished();
    }
    const QString &output() const { return m_output; }

private:
    QString m_output;
    double m_progress = 0.0;
    media::ConversionStatus m_status = media::ConversionStatus::running;
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
        if (completeAtOnce)
            QTimer::singleShot(0, m_last,
                               [c = m_last] { c->finish(media::ConversionStatus::completed); });
        return conversion;
    }

    // The conversion started last; only valid while the code under test holds it.
    FakeConversion &current() const
    {
        if (!m_last)
            throw std::logic_error("no conversion was started");
        return *m_last;
    }

    QStringList refused;
    bool completeAtOnce = true;

private:
    FakeConversion *m_last = nullptr;
};

struct RecordingNotifier final : UserNotifier
{
    void deliver(const QString &title, const QString &body) override
    {
        delivered.append({title, body});
    }
    QList<QPair<QString, QString>> delivered;
};

} // namespace kavel::test
