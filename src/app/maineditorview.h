#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace kavel {
class EditorViewModel;
}
namespace kavel::ui {
class MagneticTextStripView;
class TimelineView;
} // namespace kavel::ui

namespace kavel::app {

class PauseLimitBox;
class VideoPlayerView;

// The editor screen: the top bar, the editing toolbar with search, the preview beside the
// transcript, the timeline underneath, and a cover while an import is processed.
class MainEditorView : public QWidget
{
    Q_OBJECT

public:
    explicit MainEditorView(EditorViewModel &editor, QWidget *parent = nullptr);

    QToolButton *backButton() const { return m_back; }
    QToolButton *exportButton() const { return m_export; }
    // The toolbar button whose tooltip starts with `tooltip`; null when there is none.
    QToolButton *toolButton(const QString &tooltip) const;
    // Shown while the editor confirms a save.
    QWidget *savedIndicator() const { return m_savedBox; }
    QLabel *savedLabel() const { return m_saved; }
    QLineEdit *searchField() const { return m_search; }
    QLabel *searchCounter() const { return m_counter; }
    QToolButton *previousMatchButton() const { return m_previous; }
    QToolButton *nextMatchButton() const { return m_next; }
    // Covers the editor while an import runs, and afterwards with how it failed until
    // closed with dismissButton().
    QWidget *processingOverlay() const { return m_overlay; }
    QLabel *processingLabel() const { return m_processingLabel; }
    QPushButton *dismissButton() const { return m_dismiss; }
    // The import's steps as the cover names them; the running one is enabled.
    const QList<QLabel *> &stepLabels() const { return m_stepLabels; }
    VideoPlayerView *playerView() const { return m_player; }
    ui::MagneticTextStripView *transcriptView() const { return m_transcript; }
    ui::TimelineView *timelineView() const { return m_timeline; }

Q_SIGNALS:
    void backRequested();

protected:
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    static const QStringList &transcriptionSteps();
    QToolButton *addToolButton(QWidget *bar, const QString &symbol, const QString &tooltip);
    void copySelectionToClipboard();
    void refreshUndoButtons();
    void refreshSearchCounter();
    void refreshProcessing();

    EditorViewModel &m_editor;
    QToolButton *m_back;
    QToolButton *m_export;
    QList<QToolButton *> m_tools;
    QCheckBox *m_keepPauses;
    PauseLimitBox *m_pauseLimit;
    QWidget *m_savedBox;
    QLabel *m_saved;
    QLineEdit *m_search;
    QLabel *m_counter;
    QToolButton *m_previous;
    QToolButton *m_next;
    VideoPlayerView *m_player;
    ui::MagneticTextStripView *m_transcript;
    ui::TimelineView *m_timeline;
    QWidget *m_overlay;
    QLabel *m_processingLabel;
    QList<QLabel *> m_stepLabels;
    QPushButton *m_dismiss;
    // The import has ended and its last status has not been closed yet.
    bool m_showsOutcome = false;
};

} // namespace kavel::app
