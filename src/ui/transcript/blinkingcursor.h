#pragma once

#include <QList>
#include <QObject>
#include <QRectF>
#include <QSequentialAnimationGroup>

namespace kavel::ui {

// The insertion bar between two words. It is not a text caret: the transcript is a
// flow of word tokens, so the bar is placed from the tokens' frames.
class BlinkingCursor : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qreal opacity READ opacity NOTIFY opacityChanged)

public:
    static constexpr qreal barWidth = 2.0;
    static constexpr qreal barHeight = 18.0;
    static constexpr int fadeMilliseconds = 500;

    explicit BlinkingCursor(QObject *parent = nullptr);

    // The bar for gap `position` among `wordFrames` (paragraph text space): at gap 0 just
    // left of the first word, otherwise at the right edge of the word before the gap,
    // level with that word's top. A coordinate whose frame is missing is 0.
    static QRectF barRect(qsizetype position, const QList<QRectF> &wordFrames);

    qreal opacity() const { return m_opacity; }
    bool isBlinking() const;
    // Shows the bar at full opacity and fades it out and in continuously, each way
    // taking fadeMilliseconds with an ease-in-out curve.
    void start();
    void stop();

Q_SIGNALS:
    void opacityChanged();

private:
    void setOpacity(qreal opacity);

    qreal m_opacity = 1.0;
    QSequentialAnimationGroup m_blink;
};

} // namespace kavel::ui
