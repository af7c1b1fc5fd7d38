#pragma once

#include <QColor>
#include <QLineF>
#include <QList>
#include <QRectF>
#include <QUuid>
#include <QWidget>

class QPainter;

namespace kavel::ui {

// What a waveform strip shows: the bars come from the id, not from the audio, so a
// block always looks the same; the flags choose the colours and the overlay line.
struct WaveformInputs
{
    QUuid blockId;
    bool isDetached = false;
    bool isMuted = false;
    float volumeLevel = 1.0f;
};

struct WaveformGeometry
{
    QList<QRectF> bars;
    QColor barColor;
    QLineF overlay;
    QColor overlayColor;
    qreal overlayWidth = 0.0;
};

// A stable 64-bit hash of the id's 16 bytes (FNV-1a), so a strip looks the same in
// every run.
quint64 waveformSeed(const QUuid &blockId);
quint64 xorshift(quint64 x);
// The bars and the overlay line of a W x H strip with its top-left at the origin.
WaveformGeometry waveformGeometry(const WaveformInputs &inputs, qreal width, qreal height);
// Draws the strip into `rect`; regenerated on every call, nothing is cached.
void paintWaveform(QPainter &painter, const QRectF &rect, const WaveformInputs &inputs);

// The strip as a widget of its own.
class AudioWaveformView : public QWidget
{
    Q_OBJECT

public:
    explicit AudioWaveformView(QWidget *parent = nullptr);

    const WaveformInputs &inputs() const { return m_inputs; }
    void setInputs(const WaveformInputs &inputs);
    QSize sizeHint() const override { return {240, 40}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    WaveformInputs m_inputs;
};

} // namespace kavel::ui
