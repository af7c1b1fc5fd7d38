#include "pauselimitbox.h"

#include "model/projectmetadata.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

QString wholeText()
{
    return PauseLimitBox::tr("完整");
}

QString unit()
{
    return PauseLimitBox::tr(" 秒");
}

constexpr double step = 0.1;
// The spin box's own top: one step past the largest limit.
constexpr double wholeValue = maxPauseLimit + step;

// The number the user typed, without the unit.
QString bare(const QString &text)
{
    QString t = text.trimmed();
    if (const QString u = unit().trimmed(); t.endsWith(u))
        t.chop(u.size());
    return t.trimmed();
}

} // namespace

PauseLimitBox::PauseLimitBox(QWidget *parent)
    : QDoubleSpinBox(parent)
{
    setRange(minPauseLimit, wholeValue);
    setSingleStep(step);
    setDecimals(1);
    setValue(wholeValue);
    setAccessibleName(tr("最长停顿"));
    setToolTip(tr("相邻两词之间保留的最长停顿；“完整”保留录音中原有的全部停顿"));
}

void PauseLimitBox::showLimit(double seconds)
{
    setValue(seconds > maxPauseLimit ? wholeValue : seconds);
}

QString PauseLimitBox::textFromValue(double value) const
{
    if (value > maxPauseLimit + step / 2)
        return wholeText();
    return locale().toString(value, 'f', 1) + unit();
}

double PauseLimitBox::valueFromText(const QString &text) const
{
    const QString t = bare(text);
    if (t == wholeText())
        return wholeValue;
    bool ok = false;
    const double value = locale().toDouble(t, &ok);
    return ok ? value : t.toDouble();
}

QValidator::State PauseLimitBox::validate(QString &input, int &) const
{
    const QString t = bare(input);
    if (t.isEmpty())
        return QValidator::Intermediate;
    if (wholeText().startsWith(t))
        return t == wholeText() ? QValidator::Acceptable : QValidator::Intermediate;
    bool ok = false;
    double value = locale().toDouble(t, &ok);
    if (!ok)
        value = t.toDouble(&ok);
    if (!ok)
        return QValidator::Invalid;
    return value >= minPauseLimit && value <= maxPauseLimit ? QValidator::Acceptable
                                                            : QValidator::Intermediate;
}

} // namespace kavel::app
