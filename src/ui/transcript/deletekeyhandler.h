#pragma once

#include <QWidget>
#include <functional>

namespace kavel::ui {

// Backspace and Delete for the transcript, taken from the application's event stream
// like the shortcuts (and likewise left alone while a text input has the focus). Every
// Delete press is consumed, whether or not there is anything to delete, so it never
// reaches a word widget or a list as a navigation key.
class DeleteKeyHandler : public QWidget
{
    Q_OBJECT

public:
    explicit DeleteKeyHandler(QWidget *parent = nullptr);
    ~DeleteKeyHandler() override;

    // Called with `forward` true for Delete, false for Backspace.
    void setOnDelete(std::function<void(bool forward)> onDelete)
    {
        m_onDelete = std::move(onDelete);
    }
    bool isMonitoring() const { return m_monitoring; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void installMonitor();
    void removeMonitor();

    std::function<void(bool)> m_onDelete;
    bool m_monitoring = false;
};

} // namespace kavel::ui
