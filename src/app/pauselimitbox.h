#pragma once

#include <QDoubleSpinBox>

namespace kavel::app {

// The "保留停顿" limit: 0.1 to 2.0 秒 in tenths, and one step above them "完整", which
// keeps every pause whole. value() above maxPauseLimit stands for whole.
class PauseLimitBox : public QDoubleSpinBox
{
    Q_OBJECT

public:
    explicit PauseLimitBox(QWidget *parent = nullptr);

    // Shows a project's setting; wholePauses (or anything above the range) shows "完整".
    void showLimit(double seconds);

protected:
    QString textFromValue(double value) const override;
    double valueFromText(const QString &text) const override;
    QValidator::State validate(QString &input, int &pos) const override;
};

} // namespace kavel::app
