#pragma once

#include <QObject>

class QAction;

namespace kavel {
class EditorViewModel;
}

namespace kavel::app {

// "预览响度标准化" in the Edit menu: the preview plays at the loudness the export is set to
// (-16 LUFS while the export leaves the loudness as it is), so what is heard while editing
// is what will be published. On or off is kept with the project.
class PreviewLoudnessToggle : public QObject
{
    Q_OBJECT

public:
    static constexpr double defaultTarget = -16.0;

    explicit PreviewLoudnessToggle(EditorViewModel &editor, QObject *parent = nullptr);

    QAction *action() const { return m_action; }
    // Takes the project's setting and the export's target again.
    void refresh();

private:
    void choose(bool on);
    double target() const;

    EditorViewModel &m_editor;
    QAction *m_action;
};

} // namespace kavel::app
