#include "blinkingcursor.h"

#include <QVariantAnimation>
#include <algorithm>

namespace kavel::ui {

BlinkingCursor::BlinkingCursor(QObject *parent)
    : QObject(parent)
{
    for (const auto &[from, to] : {std::pair {1.0, 0.0}, std::pair {0.0, 1.0}}) {
        auto *fade = new QVariantAnimation(&m_blink);
        fade->setStartValue(from);
        fade->setEndValue(to);
        fade->setDuration(fadeMilliseconds);
        fade->setEasingCurve(QEasingCurve::InOutQuad);
        connect(fade, &QVariantAnimation::valueChanged, this,
                [this](const QVariant &value) { setOpacity(value.toReal()); });
        m_blink.addAnimation(fade);
    }
    m_blink.setLoopCount(-1);
}

QRectF BlinkingCursor::barRect(qsizetype position, const QList<QRectF> &wordFrames)
{
    auto frame = [&](qsizetype i) -> const QRectF * {
        return i >= 0 && i < wordFrames.size() ? &wordFrames.at(i) : nullptr;
    };
    qreal x = 0.0;
    if (position == 0) {
        if (const QRectF *first = frame(0))
            x = first->left() - 1.0;
    } else if (const QRectF *before = frame(position - 1)) {
        x = before->right();
    }
    const QRectF *level = frame(std::max<qsizetype>(position - 1, 0));
    const qreal y = level ? level->top() : 0.0;
    return {x, y, barWidth, barHeight};
}

bool BlinkingCursor::isBlinking() const
{
    return m_blink.state() == QAbstractAnimation::Running;
}

void BlinkingCursor::start()
{
    m_blink.stop();
    setOpacity(1.0);
    m_blink.start();
}

void BlinkingCursor::stop()
{
    m_blink.stop();
    setOpacity(1.0);
}

void BlinkingCursor::setOpacity(qreal opacity)
{
    if (m_opacity == opacity)
        return;
    m_opacity = opacity;
    Q_EMIT opacityChanged();
}

} // namespace kavel::ui
