#include "audiowaveformview.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace kavel::ui {

quint64 waveformSeed(const QUuid &blockId)
{
    quint64 hash = 14695981039346656037ull;
    for (const char byte : blockId.toRfc4122()) {
        hash ^= static_cast<quint8>(byte);
        hash *= 1099511628211ull;
    }
    return hash;
}

quint64 xorshift(quint64 x)
{
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return x;
}

WaveformGeometry waveformGeometry(const WaveformInputs &inputs, qreal width, qreal height)
{
    WaveformGeometry g;
    const int count = width > 0.0 ? static_cast<int>(width / 3.0) : 0;
    quint64 state = waveformSeed(inputs.blockId);
    for (int i = 0; i < 5; ++i)
        state = xorshift(state);

    const qreal peak = height * 0.85;
    g.bars.reserve(std::max(count, 0));
    for (int i = 0; i < count; ++i) {
        state = xorshift(state);
        const double r = static_cast<double>(state % 10000u) / 10000.0;
        const double phase = static_cast<double>(i) / count * std::numbers::pi * 4.0;
        const double base = (std::sin(phase) + 1.0) * 0.5 * 0.4 + 0.1;
        const qreal h = std::max(peak * (base + r * 0.5), 2.0);
        g.bars.append(QRectF(i * 3.0, (height - h) * 0.5, 2.0, h));
    }

    if (inputs.isMuted)
        g.barColor = QColor::fromRgbF(0.56f, 0.56f, 0.58f, 0.4f);
    else if (inputs.isDetached)
        g.barColor = QColor::fromRgbF(0.69f, 0.32f, 0.87f, 0.7f);
    else
        g.barColor = QColor::fromRgbF(0.2f, 0.78f, 0.35f, 0.7f);

    if (inputs.isMuted) {
        g.overlay = QLineF(0.0, height * 0.5, width, height * 0.5);
        g.overlayColor = QColor::fromRgbF(1.0f, 0.23f, 0.19f, 0.6f);
        g.overlayWidth = 2.0;
    } else {
        const qreal y = (1.0 - static_cast<qreal>(inputs.volumeLevel)) * height;
        g.overlay = QLineF(0.0, y, width, y);
        g.overlayColor = QColor::fromRgbF(1.0f, 0.8f, 0.0f, 0.8f);
        g.overlayWidth = 1.5;
    }
    return g;
}

void paintWaveform(QPainter &painter, const QRectF &rect, const WaveformInputs &inputs)
{
    const WaveformGeometry g = waveformGeometry(inputs, rect.width(), rect.height());
    painter.save();
    painter.translate(rect.topLeft());
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(g.barColor);
    for (const QRectF &bar : g.bars)
        painter.drawRoundedRect(bar, 1.0, 1.0);
    painter.setPen(QPen(g.overlayColor, g.overlayWidth));
    painter.drawLine(g.overlay);
    painter.restore();
}

AudioWaveformView::AudioWaveformView(QWidget *parent)
    : QWidget(parent)
{ }

void AudioWaveformView::setInputs(const WaveformInputs &inputs)
{
    m_inputs = inputs;
    update();
}

void AudioWaveformView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    paintWaveform(painter, rect(), m_inputs);
}

} // namespace kavel::ui
